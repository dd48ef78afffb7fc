#include "tools/qxhost/pipeline/burnin/TimeCode.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/pipeline/burnin/BurnInText.h"

#include <gtest/gtest.h>

namespace Qx::Program {

namespace {

using Media::Rational;

constexpr Rational ntsc{30000, 1001};
constexpr Rational ntsc60{60000, 1001};
constexpr Rational film{24000, 1001};

TEST(TimeCode, counts_whole_rates)
{
    const TimeCode code(Rational{25, 1});
    EXPECT_EQ(code.label(0), "00:00:00:00");
    EXPECT_EQ(code.label(24), "00:00:00:24");
    EXPECT_EQ(code.label(25), "00:00:01:00");
    EXPECT_EQ(code.label(25 * 60), "00:01:00:00");
    EXPECT_EQ(code.label(25 * 3600 * 24 - 1), "23:59:59:24");
    EXPECT_EQ(code.label(25 * 3600 * 24), "00:00:00:00") << "a new day";
}

TEST(TimeCode, counts_film_at_its_nominal_rate)
{
    const TimeCode code(film);
    EXPECT_EQ(code.label(23), "00:00:00:23");
    EXPECT_EQ(code.label(24), "00:00:01:00");
    EXPECT_FALSE(code.isDropFrame());
    EXPECT_EQ(TimeCode(Rational{30, 1}).label(1800), "00:01:00:00");
}

TEST(TimeCode, leaves_out_two_labels_a_minute_at_29_97)
{
    const TimeCode code(ntsc);
    EXPECT_TRUE(code.isDropFrame());
    EXPECT_EQ(code.label(1799), "00:00:59;29");
    EXPECT_EQ(code.label(1800), "00:01:00;02");
    EXPECT_EQ(code.label(1800 + 1797), "00:01:59;29");
    EXPECT_EQ(code.label(1800 + 1798), "00:02:00;02");
    EXPECT_EQ(code.label(17981), "00:09:59;29");
    EXPECT_EQ(code.label(17982), "00:10:00;00") << "the tenth minute keeps its labels";
    EXPECT_EQ(code.label(17982 + 1800), "00:11:00;02");
    EXPECT_EQ(code.label(107892), "01:00:00;00");
    EXPECT_EQ(code.label(24 * 107892 - 1), "23:59:59;29");
    EXPECT_EQ(code.label(24 * 107892), "00:00:00;00");
    EXPECT_EQ(TimeCode(Rational{2997, 100}).label(1800), "00:01:00;02");
}

TEST(TimeCode, finds_the_frame_of_a_label)
{
    const auto code = TimeCode::startingAt("10:00:00:00", Rational{25, 1});
    EXPECT_EQ(code->frameOf("10:00:00:00"), 0);
    EXPECT_EQ(code->frameOf("10:00:05:24"), 149);
    EXPECT_EQ(code->frameOf("09:59:59:24"), 24 * 3600 * 25 - 1) << "of the next day";
    EXPECT_FALSE(code->frameOf("10:00:00:25"));
    EXPECT_FALSE(code->frameOf("10:00:00;00")) << "this clip is non-drop";
    EXPECT_FALSE(code->frameOf("10:00:00"));
    const auto drop = TimeCode::startingAt("00:00:59;29", ntsc);
    EXPECT_EQ(drop->frameOf("00:01:00;02"), 1);
    EXPECT_FALSE(drop->frameOf("00:01:00;00")) << "a label that is left out";
    EXPECT_FALSE(drop->frameOf("00:01:00:02")) << "this clip is drop-frame";
    for (const std::int64_t frame : {0, 17, 1800, 17982, 107892, 2000000}) {
        EXPECT_EQ(drop->frameOf(drop->label(frame)), frame);
    }
    EXPECT_EQ(TimeCode::startingAt("01:00:00:00", film)->frameOf("01:00:01:00"), 24);
}

TEST(TimeCode, leaves_out_four_labels_a_minute_at_59_94)
{
    const TimeCode code(ntsc60);
    EXPECT_EQ(code.label(3599), "00:00:59;59");
    EXPECT_EQ(code.label(3600), "00:01:00;04");
    EXPECT_EQ(code.label(35963), "00:09:59;59");
    EXPECT_EQ(code.label(35964), "00:10:00;00");
}

TEST(TimeCode, never_repeats_and_never_shows_a_label_that_is_left_out)
{
    const TimeCode code(ntsc);
    std::string last;
    for (std::int64_t frame = 0; frame < 3 * 17982; ++frame) {
        const std::string label = code.label(frame);
        EXPECT_GT(label, last);
        const bool tenth = label[4] == '0';
        EXPECT_FALSE(label.ends_with(":00;00") && !tenth) << label;
        EXPECT_FALSE(label.ends_with(":00;01") && !tenth) << label;
        last = label;
    }
}

TEST(TimeCode, starts_where_the_clip_does)
{
    const auto at = [](const char* start, Rational rate, std::int64_t frame) {
        const auto code = TimeCode::startingAt(start, rate);
        return code ? code->label(frame) : "none";
    };
    EXPECT_EQ(at("10:00:00:00", {25, 1}, 26), "10:00:01:01");
    EXPECT_EQ(at("00:00:59;28", ntsc, 2), "00:01:00;02");
    EXPECT_EQ(at("00:00:59:28", ntsc, 2), "00:01:00:00") << "not drop-frame, since it is written so";
    EXPECT_EQ(at("01:00:00.00", ntsc, 1800), "01:01:00;02") << "'.' is drop-frame too";
    EXPECT_EQ(at("00:59:59;29", ntsc, 1), "01:00:00;00");
    EXPECT_EQ(at("00:01:00;00", ntsc, 0), "00:01:00;02") << "a label that there is not";
    EXPECT_EQ(at("23:59:59:24", {25, 1}, 1), "00:00:00:00");
    EXPECT_EQ(at("00:00:59;24", {25, 1}, 1), "00:01:00:00") << "25 has no drop-frame counting";
    for (std::int64_t frame : {0, 1799, 1800, 17981, 17982, 107891, 2589407}) {
        EXPECT_EQ(at(TimeCode(ntsc).label(frame).c_str(), ntsc, 0), TimeCode(ntsc).label(frame));
    }
}

TEST(TimeCode, refuses_what_is_no_label)
{
    for (const char* text :
         {"", "01:00:00", "1:00:00:00", "01:00:00:00:00", "24:00:00:00", "00:60:00:00", "00:00:60:00",
          "00:00:00:25", "aa:bb:cc:dd", "-1:00:00:00", "01-00-00-00", "01:00:00:0x", "01:00:00:00 "}) {
        EXPECT_FALSE(TimeCode::startingAt(text, Rational{25, 1})) << text;
    }
}

TEST(TimeCode, fields_are_counted_from_the_same_time_of_day)
{
    EXPECT_EQ(TimeCode::startingAt("01:02:03:04", Rational{25, 1})->ofFields().label(0), "01:02:03:08");
    EXPECT_EQ(TimeCode::startingAt("01:02:03:24", Rational{25, 1})->ofFields().label(2), "01:02:04:00");
    const TimeCode dropping = TimeCode::startingAt("00:00:59;29", Rational{30000, 1001})->ofFields();
    EXPECT_EQ(dropping.label(0), "00:00:59;58");
    EXPECT_EQ(dropping.label(2), "00:01:00;04");
}

TEST(TimeCode, an_unknown_rate_counts_25)
{
    EXPECT_EQ(TimeCode(Rational{}).label(25), "00:00:01:00");
}

std::string filled(const std::string& text, std::int64_t frame = 7)
{
    return BurnInText(text).filledFor(
        frame, {"A001_C002", "A001_C002.mov", "2026-11-23", TimeCode(Rational{25, 1})});
}

TEST(BurnInText, fills_its_fields)
{
    EXPECT_EQ(filled("{timecode}"), "00:00:00:07");
    EXPECT_EQ(filled("{clip} | {frame} | {timecode} !"), "A001_C002 | 7 | 00:00:00:07 !");
    EXPECT_EQ(filled("{source} of {date}"), "A001_C002.mov of 2026-11-23");
    EXPECT_EQ(filled("{frame}{frame}", 123456), "123456123456");
    EXPECT_EQ(filled("no field \u65E5\u672C"), "no field \u65E5\u672C");
}

TEST(BurnInText, doubled_braces_are_braces)
{
    EXPECT_EQ(filled("{{frame}} {{{frame}}}"), "{frame} {7}");
    EXPECT_EQ(filled("a } b {{"), "a } b {");
}

std::string refusalOf(const std::string& text)
{
    try {
        BurnInText unused(text);
        return "none";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code(), ExitCode::usage);
        return failure.what();
    }
}

TEST(BurnInText, mistakes_are_explained)
{
    const std::string unknown = refusalOf("{timcode} x");
    EXPECT_NE(unknown.find("no field {timcode} (did you mean timecode?)"), std::string::npos) << unknown;
    EXPECT_NE(unknown.find("{timecode}, {frame}, {clip}, {source} and {date}"), std::string::npos) << unknown;
    EXPECT_NE(unknown.find("{{"), std::string::npos) << unknown;
    EXPECT_NE(refusalOf("{}").find("no field {}"), std::string::npos);
    EXPECT_NE(refusalOf("a {frame").find("\"{frame\" has no closing brace"), std::string::npos);
    EXPECT_NE(refusalOf("{Frame}").find("did you mean frame?"), std::string::npos);
    EXPECT_NE(refusalOf("a\xFF").find("not UTF-8"), std::string::npos);
}

} // namespace

} // namespace Qx::Program
