#include "host/effects/framework/Excerpt.h"

#include <gtest/gtest.h>

namespace Qx::Host::Effects {
namespace {

TEST(Excerpt, isTheLineWithThePlaceInIt)
{
    const Excerpt excerpt = excerptOf("one\n  two three\nfour\n", 2, 7);
    EXPECT_EQ(excerpt.text, "  two three");
    EXPECT_EQ(excerpt.caret, 6U);
}

TEST(Excerpt, ofABlankLineOrNoneIsEmpty)
{
    EXPECT_EQ(excerptOf("", 1, 1).text, "");
    EXPECT_EQ(excerptOf(" \t\nx", 1, 2).text, "");
    EXPECT_EQ(excerptOf("x", 5, 1).text, "");
}

TEST(Excerpt, endsWithTheLineWhateverEndsIt)
{
    EXPECT_EQ(excerptOf("x;\r\ny", 1, 1).text, "x;");
    const Excerpt behind = excerptOf("float x", 1, 8);
    EXPECT_EQ(behind.text, "float x");
    EXPECT_EQ(behind.caret, 7U);
}

TEST(Excerpt, writesTabsAsBlanksToTheNextStop)
{
    const Excerpt excerpt = excerptOf("a\tb\t\tc", 1, 6);
    EXPECT_EQ(excerpt.text, "a   b       c");
    EXPECT_EQ(excerpt.caret, 12U);
}

TEST(Excerpt, countsCharactersAndTheirCells)
{
    const Excerpt accents = excerptOf("\xC3\xA9\xC3\xA9 x", 1, 4); // two letters of two bytes each
    EXPECT_EQ(accents.caret, 3U);
    const Excerpt wide = excerptOf("\xE6\x97\xA5\xE6\x9C\xAC x", 1, 4); // two characters of two cells each
    EXPECT_EQ(wide.caret, 5U);
    const Excerpt marked = excerptOf("e\xCC\x81 x", 1, 4); // a letter and its accent as two characters
    EXPECT_EQ(marked.caret, 2U);
}

TEST(Excerpt, beginsBehindAByteOrderMark)
{
    const Excerpt excerpt = excerptOf("\xEF\xBB\xBFx y", 1, 3);
    EXPECT_EQ(excerpt.text, "x y");
    EXPECT_EQ(excerpt.caret, 2U);
}

TEST(Excerpt, showsNothingThatSteersATerminal)
{
    EXPECT_EQ(excerptOf("a\x1B[2Jb\x7F\xC2\x9B", 1, 1).text, "a?[2Jb??");
    EXPECT_EQ(excerptOf("a\xE2\x80\xAE"
                        "b",
                        1, 1)
                  .text,
              "a?b"); // the mark that reverses the direction of the text
    EXPECT_EQ(excerptOf("\xFF\xC0\x80\xE0\x80 \xF0\x9F\x1B", 1, 1).text, "\u00FF\u00C0?\u00E0? \u00F0??");
}

TEST(Excerpt, showsBytesThatAreNotUtf8AsLatin1)
{
    const Excerpt excerpt = excerptOf("// gr\xFC\xDF 20\xB0, 3 \xD7 \xBD; x = y", 1, 19);
    EXPECT_EQ(excerpt.text, "// gr\u00FC\u00DF 20\u00B0, 3 \u00D7 \u00BD; x = y");
    EXPECT_EQ(excerpt.caret, 20U) << "two bytes continue a character, as columns are counted";
}

TEST(Excerpt, ofALongLineIsAWindowAroundThePlace)
{
    const std::string line = std::string(1000, 'a') + '@' + std::string(1000, 'b');
    const Excerpt middle = excerptOf(line, 1, 1001);
    EXPECT_EQ(middle.text, "..." + std::string(60, 'a') + '@' + std::string(39, 'b') + "...");
    EXPECT_EQ(middle.caret, 63U);
    const Excerpt start = excerptOf(line, 1, 5);
    EXPECT_EQ(start.text, std::string(100, 'a') + "...");
    EXPECT_EQ(start.caret, 4U);
    const Excerpt end = excerptOf(line, 1, 2002);
    EXPECT_EQ(end.text, "..." + std::string(60, 'b'));
    EXPECT_EQ(end.caret, 63U);
}

} // namespace
} // namespace Qx::Host::Effects
