#include "tests/system/program/Program.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>

namespace Qx::System {

namespace {

using Bytes = std::vector<std::uint8_t>;
using Json = nlohmann::json;

const std::string negative =
    "TITLE \"Negative\"\nLUT_3D_SIZE 2\n1 1 1\n0 1 1\n1 0 1\n0 0 1\n1 1 0\n0 1 0\n1 0 0\n0 0 0\n";
const std::string identity = "LUT_3D_SIZE 2\n0 0 0\n1 0 0\n0 1 0\n1 1 0\n0 0 1\n1 0 1\n0 1 1\n1 1 1\n";
const std::string redAlone = "LUT_3D_SIZE 2\n0 0 0\n1 0 0\n0 0 0\n1 0 0\n0 0 0\n1 0 0\n0 0 0\n1 0 0\n";

class Luts : public ProgramTest
{
protected:
    void SetUp() override
    {
        ProgramTest::SetUp();
        write("negative.cube", negative);
        write("identity.cube", identity);
        write("red.cube", redAlone);
        write("broken.cube", "LUT_3D_SIZE 2\n0 0 nan\n");
    }

    void makeClip() const
    {
        ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=48x32", "-frames", "1", "-pix_fmt", "yuv422p", "-c:v",
                "ffv1", "-colorspace", "bt709", "-color_range", "tv", "clip.mkv"});
    }

    Bytes through(std::vector<std::string> options) const
    {
        options.insert(options.begin(), {"convert", "clip.mkv", "out.png", "--force"});
        const Outcome outcome = qxhost(options);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        return decoded("out.png", "rgb24");
    }

    Json json(const std::vector<std::string>& arguments) const
    {
        const Outcome outcome = qxhost(arguments);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        return Json::parse(outcome.out, nullptr, false);
    }
};

bool has(const std::string& text, const std::string& words)
{
    return text.find(words) != std::string::npos;
}

TEST_F(Luts, are_steps_of_a_conversion_in_the_order_given)
{
    makeClip();
    const Bytes plain = through({});
    EXPECT_EQ(through({"--lut", "identity.cube"}), plain);
    EXPECT_EQ(through({"--lut", "negative.cube", "--amount", "0"}), plain);
    EXPECT_EQ(through({"--lut", "negative.cube", "--lut", "negative.cube"}), plain);
    Bytes negated = plain;
    std::transform(plain.begin(), plain.end(), negated.begin(),
                   [](std::uint8_t code) { return static_cast<std::uint8_t>(255 - code); });
    EXPECT_EQ(through({"--lut", "negative.cube"}), negated);

    const Bytes redFirst = through({"--lut", "red.cube", "--lut", "negative.cube"});
    const Bytes redLast = through({"--lut", "negative.cube", "--lut", "red.cube"});
    EXPECT_EQ(redFirst[1], 255) << "green: nothing, then its negative";
    EXPECT_EQ(redLast[1], 0);
    EXPECT_EQ(through({"--effect", "cc3.fx", "--set", "gain=0", "--lut", "negative.cube"}),
              Bytes(plain.size(), 255));
    EXPECT_EQ(through({"--lut", "negative.cube", "--effect", "cc3.fx", "--set", "gain=0"}),
              Bytes(plain.size(), 0));
}

TEST_F(Luts, mix_with_the_picture_by_their_amount)
{
    makeClip();
    const Bytes plain = through({});
    const Bytes half = through({"--lut", "red.cube", "--amount", "0.5"});
    for (std::size_t i = 0; i < plain.size(); ++i) {
        const double wanted = i % 3 == 0 ? plain[i] : 0.5 * plain[i];
        ASSERT_LE(std::abs(half[i] - wanted), 0.5001) << i;
    }
}

TEST_F(Luts, that_cannot_be_read_stop_a_conversion_with_file_and_line)
{
    makeClip();
    const Outcome broken = qxhost({"convert", "clip.mkv", "no.png", "--lut", "broken.cube"});
    EXPECT_EQ(broken.exitCode, 6);
    EXPECT_TRUE(has(broken.err, "broken.cube:2: \"nan\" is not a finite number")) << broken.err;
    const Outcome missing = qxhost({"convert", "clip.mkv", "no.png", "--lut", "gone.cube"});
    EXPECT_EQ(missing.exitCode, 6);
    EXPECT_TRUE(has(missing.err, "gone.cube: there is no such file")) << missing.err;
    EXPECT_FALSE(fs::exists(at("no.png")));
}

TEST_F(Luts, of_steep_curves_change_every_code_as_the_file_says)
{
    // A curve that is flat but for one step, which no table of 129 points follows.
    std::string curve = "LUT_1D_SIZE 4096\n";
    for (int i = 0; i < 4096; ++i) {
        curve += i < 2047 ? "0 0 0\n" : "1 1 1\n";
    }
    write("threshold.cube", curve);
    makeClip();
    const Bytes plain = through({});
    const Bytes changed = through({"--lut", "threshold.cube"});
    ASSERT_EQ(plain.size(), changed.size());
    for (std::size_t i = 0; i < plain.size(); ++i) {
        ASSERT_EQ(changed[i], plain[i] < 128 ? 0 : 255) << "from " << int{plain[i]};
    }
}

TEST_F(Luts, that_cannot_be_drawn_exactly_stop_a_conversion_quiet_or_not)
{
    makeClip();
    write("hue.ctf", "<?xml version=\"1.0\"?>\n<ProcessList version=\"2\" id=\"m\">\n<FixedFunction "
                     "inBitDepth=\"32f\" outBitDepth=\"32f\" style=\"RGB_TO_HSV\"/></ProcessList>\n");
    const Outcome outcome = qxhost({"convert", "clip.mkv", "no.png", "--lut", "hue.ctf", "--quiet"});
    EXPECT_EQ(outcome.exitCode, 6);
    EXPECT_TRUE(has(outcome.err, "hue.ctf: it holds a formula, which cannot be drawn to a quarter of a code"))
        << outcome.err;
    EXPECT_FALSE(fs::exists(at("no.png")));
}

TEST_F(Luts, options_that_belong_to_no_step_are_refused)
{
    const auto usage = [&](std::vector<std::string> options) {
        options.insert(options.begin(), {"convert", "a.mkv", "b.png"});
        const Outcome outcome = qxhost(options);
        EXPECT_EQ(outcome.exitCode, 2) << outcome.err;
        return outcome.err;
    };
    EXPECT_TRUE(has(usage({"--amount", "1"}), "stands before any --lut"));
    EXPECT_TRUE(has(usage({"--lut", "a.cube", "--amount", "1.5"}), "from 0 to 1"));
    EXPECT_TRUE(has(usage({"--lut", "a.cube", "--amount", "nan"}), "from 0 to 1"));
    EXPECT_TRUE(has(usage({"--lut", "a.cube", "--set", "gain=1"}), "belongs to an --effect"));
    EXPECT_TRUE(has(usage({"--effect", "cc3.fx", "--amount", "1"}), "belongs to a --lut"));
    EXPECT_TRUE(has(usage({"--lut", ""}), "--lut is empty"));
}

TEST_F(Luts, are_found_by_name_once_installed)
{
    EXPECT_TRUE(has(qxhost({"lut", "list"}).err, "no LUTs are installed"));
    const Outcome installed = qxhost({"lut", "install", "negative.cube"});
    EXPECT_EQ(installed.exitCode, 0) << installed.err;
    EXPECT_TRUE(has(installed.err, "negative.cube: installed")) << installed.err;
    const Json list = json({"lut", "list", "--json"});
    ASSERT_EQ(list.size(), 1U);
    EXPECT_EQ(list[0]["name"], "negative.cube");
    EXPECT_EQ(list[0]["contents"], "a 3D table of 2 points an edge");
    fs::remove(at("negative.cube"));
    EXPECT_EQ(json({"lut", "info", "negative.cube", "--json"})["title"], "Negative");
    makeClip();
    EXPECT_NE(through({"--lut", "negative.cube"}), through({}));
}

TEST_F(Luts, that_differ_are_not_replaced_without_force)
{
    ASSERT_EQ(qxhost({"lut", "install", "negative.cube"}).exitCode, 0);
    EXPECT_EQ(qxhost({"lut", "install", "negative.cube"}).exitCode, 0) << "the same again is no harm";
    write("negative.cube", identity);
    const Outcome refused = qxhost({"lut", "install", "negative.cube"});
    EXPECT_EQ(refused.exitCode, 4);
    EXPECT_TRUE(has(refused.err, "--force replaces it")) << refused.err;
    EXPECT_EQ(qxhost({"lut", "install", "negative.cube", "--force"}).exitCode, 0);
    const std::string directory = json({"lut", "list", "--json"})[0]["directory"];
    EXPECT_EQ(read(fs::path(directory) / "negative.cube"), identity);
}

TEST_F(Luts, that_are_broken_are_left_out_of_an_installation)
{
    const Outcome outcome = qxhost({"lut", "install", "broken.cube", "identity.cube", "gone.cube", "--json"});
    EXPECT_EQ(outcome.exitCode, 3);
    EXPECT_TRUE(has(outcome.err, "broken.cube:2:")) << outcome.err;
    EXPECT_TRUE(has(outcome.err, "gone.cube: there is no such file")) << outcome.err;
    const Json report = Json::parse(outcome.out);
    ASSERT_EQ(report.size(), 3U);
    EXPECT_TRUE(report[0].contains("error"));
    EXPECT_TRUE(report[1]["installed"].is_string());
    EXPECT_EQ(json({"lut", "list", "--json"}).size(), 1U);
}

TEST_F(Luts, with_capital_endings_are_explained)
{
    fs::copy_file(at("negative.cube"), at("Film.CUBE"));
    const Outcome installed = qxhost({"lut", "install", "Film.CUBE"});
    EXPECT_EQ(installed.exitCode, 0);
    EXPECT_TRUE(has(installed.err, "not listed: the catalogue lists lower-case extensions only; rename it "
                                   "to .cube"))
        << installed.err;
    EXPECT_TRUE(has(qxhost({"lut", "list"}).err, "Film.CUBE is not listed"));
    EXPECT_TRUE(has(qxhost({"lut", "info", "Film.CUBE"}).out, "lower-case"));
    EXPECT_EQ(json({"lut", "list", "--json"}).size(), 0U);
}

TEST_F(Luts, beside_the_directory_count_as_installed_and_that_is_explained)
{
    ASSERT_EQ(qxhost({"lut", "install", "negative.cube"}).exitCode, 0);
    const std::string directory = json({"lut", "list", "--json"})[0]["directory"];
    const Outcome inside = qxhost({"lut", "install", directory + "/negative.cube"});
    EXPECT_EQ(inside.exitCode, 0);
    EXPECT_TRUE(has(inside.err, "is in a LUT directory already")) << inside.err;
    std::string shouted = directory;
    std::transform(shouted.begin(), shouted.end(), shouted.begin(),
                   [](unsigned char c) { return static_cast<char>(c >= 'a' && c <= 'z' ? c - 32 : c); });
    if (shouted != directory) {
        fs::create_directories(shouted);
        fs::copy_file(at("identity.cube"), fs::path(shouted) / "identity.cube");
        const Outcome beside = qxhost({"lut", "install", shouted + "/identity.cube"});
        EXPECT_EQ(beside.exitCode, 0);
        EXPECT_TRUE(has(beside.err, "counts as installed, because its path begins with")) << beside.err;
        fs::remove_all(shouted);
    }
    EXPECT_EQ(json({"lut", "list", "--json"}).size(), 1U);
}

TEST_F(Luts, say_what_they_hold)
{
    write("curves.cube", "LUT_1D_SIZE 3\n0 0 0\n0.5 0.25 0.5\n1 1 1\n");
    write("wide.cube", "DOMAIN_MIN -1 0 0\nDOMAIN_MAX 2 1 1\nLUT_IN_VIDEO_RANGE\n" + identity);
    const Json curves = json({"lut", "info", "curves.cube", "--json"});
    EXPECT_EQ(curves["contents"], "curves of 3 points");
    EXPECT_EQ(curves["steps"], Json({"curves of 3 points from 0 to 1"}));
    EXPECT_EQ(curves["error"], 0.0);
    const Outcome wide = qxhost({"lut", "info", "wide.cube"});
    EXPECT_EQ(wide.exitCode, 0);
    EXPECT_TRUE(has(wide.out, "a table of 2 x 2 x 2 from (-1, 0, 0) to (2, 1, 1), tetrahedral")) << wide.out;
    EXPECT_TRUE(has(wide.out, "LUT_IN_VIDEO_RANGE is ignored")) << wide.out;
    const Outcome broken = qxhost({"lut", "info", "broken.cube"});
    EXPECT_EQ(broken.exitCode, 3);
    EXPECT_TRUE(has(broken.err, "broken.cube:2:")) << broken.err;
}

TEST_F(Luts, are_drawn_before_and_after)
{
    const Outcome drawn = qxhost({"lut", "preview", "negative.cube", "look.png"});
    ASSERT_EQ(drawn.exitCode, 0) << drawn.err;
    const Bytes picture = decoded("look.png", "rgb24");
    constexpr std::size_t width = 1280;
    ASSERT_EQ(picture.size(), width * 1016 * 3);
    // A patch of skin on the left, and its negative in the same place on the right.
    const auto at = [&](std::size_t x, std::size_t y, std::size_t c) {
        return picture[3 * (y * width + x) + c];
    };
    for (std::size_t c = 0; c < 3; ++c) {
        EXPECT_NEAR(at(24 + 75, 90 + 290, c) + at(652 + 75, 90 + 290, c), 255, 1);
    }
    // Its name and the titles of its four parts.
    const auto isWrittenAt = [&](std::size_t left, std::size_t top) {
        for (std::size_t y = top; y < top + 24; ++y) {
            for (std::size_t x = left; x < left + 60; ++x) {
                if (at(x, y, 1) > 140) {
                    return true;
                }
            }
        }
        return false;
    };
    EXPECT_TRUE(isWrittenAt(24, 25));
    for (const std::size_t top : {65U, 508U}) {
        EXPECT_TRUE(isWrittenAt(24, top)) << top;
        EXPECT_TRUE(isWrittenAt(652, top)) << top;
    }
    EXPECT_EQ(qxhost({"lut", "preview", "negative.cube", "look.png"}).exitCode, 4) << "it exists";
    EXPECT_EQ(qxhost({"lut", "preview", "negative.cube", "look.png", "--force"}).exitCode, 0);
    for (const auto& [name, why] : {std::pair("look.mp4", "a preview is a picture"),
                                    std::pair("look_%03d.png", "is a pattern for numbered pictures")}) {
        const Outcome refused = qxhost({"lut", "preview", "negative.cube", name});
        EXPECT_EQ(refused.exitCode, 4);
        EXPECT_TRUE(has(refused.err, std::string(name) + ": " + why)) << refused.err;
    }
    EXPECT_FALSE(fs::exists(directory_ / "look.mp4"));
    EXPECT_FALSE(fs::exists(directory_ / "look_001.png"));
}

TEST_F(Luts, curves_have_numbers_on_their_axes)
{
    constexpr std::size_t width = 1280;
    // A line of pixels counts as written on if one of them is bright; less than `gap` lines belong together.
    const auto countTexts = [](std::size_t lines, std::size_t gap, auto isWrittenOn) {
        int texts = 0;
        std::size_t blank = gap;
        for (std::size_t i = 0; i < lines; ++i) {
            if (isWrittenOn(i)) {
                texts += blank >= gap ? 1 : 0;
                blank = 0;
            } else {
                ++blank;
            }
        }
        return texts;
    };
    const auto expectNumbers = [&](const std::string& lut, int count) {
        const Outcome drawn = qxhost({"lut", "preview", lut, "look.png", "--force"});
        ASSERT_EQ(drawn.exitCode, 0) << drawn.err;
        const Bytes picture = decoded("look.png", "gray");
        const auto isWritten = [&](std::size_t left, std::size_t top, std::size_t right, std::size_t bottom) {
            for (std::size_t y = top; y < bottom; ++y) {
                for (std::size_t x = left; x < right; ++x) {
                    if (picture[y * width + x] > 120) {
                        return true;
                    }
                }
            }
            return false;
        };
        EXPECT_EQ(countTexts(604, 10, [&](std::size_t x) { return isWritten(24 + x, 968, 25 + x, 990); }),
                  count)
            << "inputs of " << lut;
        EXPECT_EQ(countTexts(450, 8, [&](std::size_t y) { return isWritten(26, 534 + y, 66, 535 + y); }),
                  count)
            << "outputs of " << lut;
    };
    write("wide.cube", "DOMAIN_MIN -1 -1 -1\nDOMAIN_MAX 1.5 1.5 1.5\n" + identity);
    expectNumbers("identity.cube", 5); // 0, 0.25, 0.5, 0.75, 1
    expectNumbers("wide.cube", 6);     // -1, -0.5, 0, 0.5, 1, 1.5
}

TEST_F(Luts, commands_that_lack_something_say_what)
{
    EXPECT_TRUE(has(qxhost({"lut"}).err, "a command is missing after lut"));
    EXPECT_TRUE(has(qxhost({"lut", "info"}).err, "FILE is missing"));
    EXPECT_TRUE(has(qxhost({"lut", "preview", "a.cube"}).err, "OUTPUT is missing"));
    EXPECT_EQ(qxhost({"lut", "install"}).exitCode, 2);
}

} // namespace

} // namespace Qx::System
