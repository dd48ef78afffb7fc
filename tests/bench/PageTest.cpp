#include "bench/comparison/Page.h"
#include "tests/bench/Samples.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Qx::Bench {
namespace {

using testing::HasSubstr;
using testing::Not;

Page samplePage()
{
    Page page;
    page.machine = "a machine";
    page.device = "a device";
    page.rounds = 5;
    page.seconds = 0.5;
    page.peers = {resultOf(2), resultOf(0.5, "another pass"), resultOf(9, "renderer", "from planes <&>")};
    return page;
}

TEST(Page, CountsOnlyTheSameWorkAsFaster)
{
    const std::string text = markdownOf(samplePage());
    EXPECT_THAT(text, HasSubstr("faster in 1 of 2"));
    EXPECT_THAT(text, HasSubstr("| 200 | 100 | 2.00 (1.95 to 2.05) | none | yes |  |"));
    EXPECT_THAT(text, HasSubstr("| none | no |  |"));
    EXPECT_THAT(text, HasSubstr("| not counted | from planes <&> |"));
}

TEST(Page, TellsWhatCouldNotBeMeasured)
{
    Page page = samplePage();
    page.peers[0].ratio.reset();
    page.peers[0].failure = "theirs: it ended";
    page.absences = {{"Movit", "not built", "libmovit-dev libegl-dev"}};
    const std::string text = markdownOf(page);
    EXPECT_THAT(text, HasSubstr("not measured: theirs: it ended"));
    EXPECT_THAT(text, HasSubstr("Movit: not built; `apt-get install libmovit-dev libegl-dev`"));
}

TEST(Page, ShowsVerdicts)
{
    Page page = samplePage();
    page.bars = {{"one thing", "2", Bar::Reached, ""},
                 {"another", "1", Bar::NotReached, "within the spread"}};
    const std::string text = markdownOf(page);
    EXPECT_THAT(text, HasSubstr("| one thing | 2 | reached |  |"));
    EXPECT_THAT(text, HasSubstr("| another | 1 | **not reached** | within the spread |"));
}

TEST(Page, LeavesOutWhatWasNotAskedFor)
{
    const std::string text = markdownOf(samplePage());
    EXPECT_THAT(text, Not(HasSubstr("## What is asked")));
    EXPECT_THAT(text, Not(HasSubstr("## Starting")));
    EXPECT_THAT(text, Not(HasSubstr("![")));
    EXPECT_TRUE(text.ends_with('\n') && !text.ends_with("\n\n"));
}

TEST(Page, HasTheSectionsOfFiguresAsTheyAre)
{
    Page page = samplePage();
    page.figures = "## Frames\n\n| work |\n";
    EXPECT_THAT(markdownOf(page), HasSubstr("\n## Frames\n\n| work |\n"));
}

TEST(Plot, IsTheSameForTheSameResults)
{
    EXPECT_EQ(plotOf(samplePage()), plotOf(samplePage()));
}

TEST(Plot, HasARowForEveryResultThatWasMeasured)
{
    Page page = samplePage();
    page.peers[0].ratio.reset();
    const std::string plot = plotOf(page);
    EXPECT_THAT(plot, HasSubstr("Peer 1.0, another pass"));
    EXPECT_THAT(plot, Not(HasSubstr("Peer 1.0, hand-written pass")));
    EXPECT_TRUE(plot.starts_with("<svg ") && plot.ends_with("</svg>\n"));
}

TEST(Plot, EscapesWhatXmlReserves)
{
    Page page = samplePage();
    page.peers[0].comparison.title = "a < b & c";
    const std::string plot = plotOf(page);
    EXPECT_THAT(plot, HasSubstr("a &lt; b &amp; c"));
    EXPECT_THAT(plot, Not(HasSubstr("a < b")));
}

TEST(Plot, PutsFasterResultsFartherToTheRight)
{
    const auto placeOf = [](double ratio) {
        Page page;
        page.peers = {resultOf(0.1), resultOf(10), resultOf(ratio)};
        const std::string plot = plotOf(page);
        const std::size_t last = plot.rfind("<circle cx=\"");
        return std::stod(plot.substr(last + std::string("<circle cx=\"").size()));
    };
    EXPECT_LT(placeOf(0.5), placeOf(1));
    EXPECT_LT(placeOf(1), placeOf(2));
}

} // namespace
} // namespace Qx::Bench
