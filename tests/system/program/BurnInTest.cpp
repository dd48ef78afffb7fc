#include "tests/system/program/Program.h"

#include <algorithm>
#include <array>
#include <ctime>

namespace Qx::System {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t width = 320;
constexpr std::size_t height = 180;

class BurnIn : public ProgramTest
{
protected:
    /// Grey frames, so that a text is all that tells one from another.
    void makeClip(const std::vector<std::string>& more = {}, const std::string& name = "A001.mov",
                  const std::string& rate = "30000/1001") const
    {
        std::vector<std::string> arguments{
            "-f",           "lavfi",       "-i",          "color=c=gray:size=320x180:rate=" + rate,
            "-frames:v",    "6",           "-c:v",        "prores_ks",
            "-pix_fmt",     "yuv422p10le", "-colorspace", "bt709",
            "-color_range", "tv"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        arguments.push_back(name);
        ffmpeg(arguments);
    }

    /// A frame with the text, as 8-bit RGB.
    Bytes frame(const std::string& text, int number, const std::vector<std::string>& more = {},
                const std::string& clip = "A001.mov") const
    {
        std::vector<std::string> arguments{"convert",   clip,
                                           "out.png",   "--force",
                                           "--frames",  "1",
                                           "--start",   std::to_string(number),
                                           "--font",    "DejaVu Sans Mono",
                                           "--burn-in", text};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const Outcome outcome = qxhost(arguments);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        return decoded("out.png", "rgb24");
    }

    struct Box
    {
        std::size_t x0 = width;
        std::size_t y0 = height;
        std::size_t x1 = 0;
        std::size_t y1 = 0;
        int brightest = 0;
        int darkest = 255;
    };

    /// Where a picture is not the grey of its clip.
    static Box changed(const Bytes& picture)
    {
        Box box;
        for (std::size_t y = 0; y < height; ++y) {
            for (std::size_t x = 0; x < width; ++x) {
                const int code = picture.at(3 * (y * width + x));
                box.brightest = std::max(box.brightest, code);
                box.darkest = std::min(box.darkest, code);
                if (std::abs(code - picture[0]) > 3) {
                    box = {std::min(box.x0, x),     std::min(box.y0, y), std::max(box.x1, x + 1),
                           std::max(box.y1, y + 1), box.brightest,       box.darkest};
                }
            }
        }
        return box;
    }
};

TEST_F(BurnIn, fields_are_filled_for_every_frame)
{
    makeClip({"-timecode", "00:00:59;28"});
    EXPECT_EQ(frame("{timecode}", 0), frame("00:00:59;28", 0));
    EXPECT_EQ(frame("{timecode}", 2), frame("00:01:00;02", 2)) << "drop-frame";
    EXPECT_EQ(frame("{frame} of {clip}", 4), frame("4 of A001", 4));
    EXPECT_NE(frame("{timecode}", 2), frame("{timecode}", 3));
}

TEST_F(BurnIn, source_and_date_are_the_whole_file_name_and_the_day)
{
    makeClip();
    EXPECT_EQ(frame("{source}, {clip}", 0), frame("A001.mov, A001", 0));
    EXPECT_EQ(frame("of {date}", 0, {"--date", "1999-12-31T23:59"}), frame("of 1999-12-31", 0));
    const std::time_t before = std::time(nullptr);
    const Bytes today = frame("{date}", 0);
    const std::time_t after = std::time(nullptr);
    const auto dayOf = [](std::time_t time) {
        std::array<char, 16> day{};
        std::tm local{};
        ::localtime_r(&time, &local);
        std::strftime(day.data(), day.size(), "%F", &local);
        return std::string(day.data());
    };
    EXPECT_TRUE(today == frame(dayOf(before), 0) || today == frame(dayOf(after), 0)) << dayOf(after);
}

TEST_F(BurnIn, several_texts_have_each_a_place_a_font_and_a_size)
{
    makeClip();
    const auto burnt = [&](const std::vector<std::string>& texts) {
        std::vector<std::string> arguments{"convert", "A001.mov", "out.png", "--force", "--frames", "1"};
        arguments.insert(arguments.end(), texts.begin(), texts.end());
        const Outcome outcome = qxhost(arguments);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        return decoded("out.png", "rgb24");
    };
    const std::vector<std::string> top{"--burn-in", "{clip}", "--position",
                                       "top-left",  "--font", "DejaVu Sans"};
    const std::vector<std::string> bottom{"--burn-in", "{timecode}", "--font-size", "20"};
    std::vector<std::string> both = top;
    both.insert(both.end(), bottom.begin(), bottom.end());

    const Bytes above = burnt(top);
    const Bytes below = burnt(bottom);
    const Bytes all = burnt(both);
    const std::ptrdiff_t half = 3 * width * (height / 2);
    EXPECT_TRUE(std::equal(all.begin(), all.begin() + half, above.begin())) << "the upper half";
    EXPECT_TRUE(std::equal(all.begin() + half, all.end(), below.begin() + half)) << "the lower half";
    EXPECT_NE(above, below);
}

TEST_F(BurnIn, time_code_counts_from_zero_where_the_clip_has_none)
{
    makeClip();
    EXPECT_EQ(frame("{timecode}", 3), frame("00:00:00;03", 3));
    makeClip({}, "pal.mov", "25");
    EXPECT_EQ(frame("{timecode}", 3, {}, "pal.mov"), frame("00:00:00:03", 3, {}, "pal.mov"));
}

TEST_F(BurnIn, frames_of_one_run_differ_by_their_text_alone)
{
    makeClip();
    const Outcome outcome = qxhost(
        {"convert", "A001.mov", "out_%02d.png", "--font", "DejaVu Sans Mono", "--burn-in", "frame {frame}"});
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    for (int i = 0; i < 6; ++i) {
        const std::string file = "out_0" + std::to_string(i + 1) + ".png";
        EXPECT_EQ(decoded(file, "rgb24"), frame("frame " + std::to_string(i), i)) << file;
    }
}

TEST_F(BurnIn, text_is_white_on_a_dark_box_in_the_safe_area)
{
    makeClip();
    const Box box = changed(frame("0:00", 0, {"--font-size", "40"}));
    EXPECT_EQ(box.brightest, 255);
    EXPECT_LT(box.darkest, 70);
    EXPECT_EQ(box.y1, height - height / 20) << "at the bottom";
    EXPECT_NEAR(static_cast<double>(box.x0), static_cast<double>(width - box.x1), 1) << "in the middle";
    EXPECT_GT(box.y1 - box.y0, 40U);
}

TEST_F(BurnIn, goes_where_it_is_put)
{
    makeClip();
    const auto at = [&](const std::string& position) {
        return changed(frame("0:00", 0, {"--font-size", "30", "--position", position}));
    };
    const Box topLeft = at("top-left");
    EXPECT_EQ(topLeft.x0, width / 20);
    EXPECT_EQ(topLeft.y0, height / 20);
    const Box bottomRight = at("Bottom-Right");
    EXPECT_EQ(bottomRight.x1, width - width / 20);
    EXPECT_EQ(bottomRight.y1, height - height / 20);
    const Box centre = at("centre");
    EXPECT_NEAR(static_cast<double>(centre.y0), static_cast<double>(height - centre.y1), 1);
    EXPECT_EQ(at("right").x1, width - width / 20);
    const Box place = at("17,23");
    EXPECT_EQ(place.x0, 17U);
    EXPECT_EQ(place.y0, 23U);
    EXPECT_EQ(at("-20,-9").x0, 0U) << "partly outside";
    EXPECT_EQ(at("5000,0").x1, 0U) << "outside";
}

TEST_F(BurnIn, a_long_text_becomes_smaller_to_fit_unless_its_size_is_given)
{
    makeClip();
    const std::string text = "a text that is too long for so small a picture";
    const Box fitted = changed(frame(text, 0));
    EXPECT_GE(fitted.x0, width / 20 - 4);
    EXPECT_LE(fitted.x1, width - width / 20 + 4);
    EXPECT_EQ(changed(frame(text, 0, {"--font-size", "30"})).x1, width) << "runs out of the picture";
}

TEST_F(BurnIn, a_text_that_is_cut_is_noted_and_one_beyond_all_bounds_refused)
{
    makeClip();
    const auto burnt = [&](const std::string& text, const std::string& size) {
        return qxhost({"convert", "A001.mov", "out.png", "--force", "--frames", "1", "--burn-in", text,
                       "--font-size", size});
    };
    const std::string note = "--burn-in: the text does not fit into the picture";
    EXPECT_EQ(burnt("a", "12").err.find(note), std::string::npos);
    const Outcome cut = burnt("a text that is too long for so small a picture", "30");
    EXPECT_EQ(cut.exitCode, 0);
    EXPECT_NE(cut.err.find(note), std::string::npos) << cut.err;
    const Outcome refused = burnt(std::string(65537, 'a'), "12");
    EXPECT_EQ(refused.exitCode, 2);
    EXPECT_NE(refused.err.find("--burn-in: the text has 65537 characters: expected at most 65536"),
              std::string::npos)
        << refused.err;
}

TEST_F(BurnIn, white_and_black_of_video_range_stay_within_it)
{
    makeClip();
    const Outcome outcome = qxhost({"convert", "A001.mov", "out.mkv", "--codec", "ffv1", "--pixel-format",
                                    "yuv422p10le", "--burn-in", "0:00", "--font-size", "60"});
    ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    const Bytes luma = decoded("out.mkv", "yuv422p10le");
    int brightest = 0;
    for (std::size_t i = 0; i < 2 * width * height; i += 2) {
        brightest = std::max(brightest, luma.at(i) + 256 * luma.at(i + 1));
    }
    EXPECT_NEAR(brightest, 940, 4) << "10-bit video white";
}

TEST_F(BurnIn, comes_after_effects_and_with_pixel_formats)
{
    makeClip();
    const Bytes picture = frame("0:00", 0, {"--font-size", "60", "--effect", "cc3.fx", "--set", "gain=0"});
    EXPECT_EQ(changed(picture).brightest, 255) << "on black, not made black";
    const Outcome outcome =
        qxhost({"convert", "A001.mov", "out.v210", "--frames", "1", "--burn-in", "{timecode}"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(outcome.err.find("codesKept"), std::string::npos);
}

TEST_F(BurnIn, a_missing_typeface_is_replaced_with_a_note_and_a_bad_file_refused)
{
    makeClip();
    const Outcome missing = qxhost(
        {"convert", "A001.mov", "out.png", "--frames", "1", "--burn-in", "x", "--font", "DejaVu Sams"});
    EXPECT_EQ(missing.exitCode, 0);
    EXPECT_NE(missing.err.find("there is no typeface \"DejaVu Sams\" (did you mean DejaVu Sans?)"),
              std::string::npos)
        << missing.err;
    EXPECT_EQ(missing.err.find("a font file"), std::string::npos) << missing.err;
    const Outcome asFile = qxhost({"convert", "A001.mov", "out.png", "--force", "--frames", "1", "--burn-in",
                                   "x", "--font", "DejaVuSans.TTF"});
    EXPECT_EQ(asFile.exitCode, 0);
    EXPECT_NE(asFile.err.find("a font file is named with a \"/\" in it: ./DejaVuSans.TTF"), std::string::npos)
        << asFile.err;
    write("broken.ttf", "no font");
    for (const auto& [file, words] :
         {std::pair("./broken.ttf", "it is not a font"), std::pair("./none.ttf", "there is no such file")}) {
        const Outcome refused =
            qxhost({"convert", "A001.mov", "no.png", "--frames", "1", "--burn-in", "x", "--font", file});
        EXPECT_EQ(refused.exitCode, 6);
        EXPECT_NE(refused.err.find(words), std::string::npos) << refused.err;
        EXPECT_FALSE(fs::exists(at("no.png")));
    }
}

} // namespace

} // namespace Qx::System
