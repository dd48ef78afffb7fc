#include "tools/qxhost/pipeline/input/ColourChoice.h"
#include "tools/qxhost/console/Failure.h"

#include <gtest/gtest.h>

namespace Qx::Program {

namespace {

using Media::Matrix;
using Media::Range;

Media::StreamInfo untagged(int width)
{
    Media::StreamInfo info;
    info.width = width;
    info.colour.matrix = Media::matrixForWidth(width);
    info.colour.matrixGuessed = true;
    info.colour.rangeGuessed = true;
    return info;
}

ConvertOptions optionsFor(const char* input)
{
    ConvertOptions options;
    options.input = input;
    return options;
}

TEST(ColourChoice, what_is_guessed_is_said_with_the_options_that_settle_it)
{
    const ColourChoice choice = chooseColour(optionsFor("tape.avi"), untagged(720));
    EXPECT_EQ(choice.matrix, Matrix::bt601);
    EXPECT_EQ(choice.range, Range::video);
    ASSERT_EQ(choice.notes.size(), 1U);
    for (const char* word : {"tape.avi", "BT.601", "720", "--matrix", "video range", "--range"}) {
        EXPECT_NE(choice.notes[0].find(word), std::string::npos) << choice.notes[0];
    }
}

TEST(ColourChoice, a_guess_is_explained_by_the_clips_own_width_and_not_by_that_of_a_filter)
{
    Media::StreamInfo info = untagged(96);
    info.width = 1280;
    const ColourChoice choice = chooseColour(optionsFor("small.mov"), info);
    ASSERT_EQ(choice.notes.size(), 1U);
    EXPECT_NE(choice.notes[0].find("BT.601 (the picture is not wider than 720 pixels)"), std::string::npos)
        << choice.notes[0];
}

TEST(ColourChoice, options_win_over_tags_and_silence_the_guess)
{
    ConvertOptions options = optionsFor("tape.avi");
    options.matrix = Matrix::bt709;
    options.range = Range::full;
    const ColourChoice choice = chooseColour(options, untagged(720));
    EXPECT_EQ(choice.matrix, Matrix::bt709);
    EXPECT_EQ(choice.range, Range::full);
    EXPECT_TRUE(choice.notes.empty());
    EXPECT_EQ(choice.forWriting.matrix, Matrix::bt709);
    EXPECT_EQ(choice.forWriting.matrixTag, 1);
}

TEST(ColourChoice, tags_are_taken_without_a_word_and_kept)
{
    Media::StreamInfo info;
    info.width = 1920;
    info.colour.matrix = Matrix::bt601;
    info.colour.matrixTag = 5;
    const ColourChoice choice = chooseColour(optionsFor("pal.mov"), info);
    EXPECT_EQ(choice.matrix, Matrix::bt601);
    EXPECT_EQ(choice.forWriting.matrixTag, 5);
    EXPECT_TRUE(choice.notes.empty());
}

TEST(ColourChoice, other_colours_are_refused_unless_the_user_insists)
{
    Media::StreamInfo info;
    info.colour.unsupported = "matrix BT.2020";
    info.colour.matrixTag = 9;
    try {
        static_cast<void>(chooseColour(optionsFor("hdr.mov"), info));
        FAIL() << "it was accepted";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code(), ExitCode::input);
        for (const char* word : {"hdr.mov", "BT.2020", "--matrix"}) {
            EXPECT_NE(std::string(failure.what()).find(word), std::string::npos) << failure.what();
        }
    }
    ConvertOptions options = optionsFor("hdr.mov");
    options.matrix = Matrix::bt709;
    const ColourChoice choice = chooseColour(options, info);
    EXPECT_EQ(choice.matrix, Matrix::bt709);
    EXPECT_EQ(choice.forWriting.matrixTag, 1);
    ASSERT_EQ(choice.notes.size(), 1U);
    EXPECT_NE(choice.notes[0].find("BT.2020"), std::string::npos);
}

} // namespace

} // namespace Qx::Program
