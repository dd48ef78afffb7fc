// The studio with clips that are out of the ordinary.

#include "tests/system/program/studio/StudioTest.h"

#include <algorithm>

namespace Qx::System {

namespace {

class StudioClips : public StudioTest
{
protected:
    static Json clipOf(Browser& browser)
    {
        return browser.state([](const Json&) { return true; })["clip"];
    }

    /// The codes of the result at some places, against a picture of 8 or 16 bits that convert wrote.
    void expectCodesOf(Browser& browser, const std::string& file, int width, int height, int bits)
    {
        const std::vector<std::uint8_t> bytes = decoded(file, bits == 8 ? "rgb24" : "rgb48le");
        const std::size_t sample = bits == 8 ? 1 : 2;
        ASSERT_EQ(bytes.size(), 3 * sample * static_cast<std::size_t>(width * height));
        for (const auto& [x, y] :
             {std::pair{0, 0}, {width - 1, 0}, {width / 3, height / 2}, {width - 1, height - 1}}) {
            const Json answer = browser.ask({{"do", "probe"}, {"x", x}, {"y", y}});
            ASSERT_EQ(answer["is"], "answer") << answer.dump();
            for (std::size_t i = 0; i < 3; ++i) {
                const std::size_t at = (static_cast<std::size_t>(y * width + x) * 3 + i) * sample;
                const int code = bytes[at] + (bits == 8 ? 0 : bytes[at + 1] << 8);
                EXPECT_EQ(answer["after"]["rgb" + std::to_string(bits)][i], code)
                    << x << " " << y << " " << i;
            }
        }
    }

    void makeTurned(const std::string& name, const MatrixPart& part = {0, 1, -1, 0},
                    const std::vector<std::string>& options = {})
    {
        std::vector<std::string> arguments{
            "-f",          "lavfi",     "-i",           "testsrc2=size=128x72:rate=25:duration=1",
            "-c:v",        "prores_ks", "-pix_fmt",     "yuv422p10le",
            "-colorspace", "bt709",     "-color_range", "tv"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        arguments.emplace_back("plain.mov");
        ffmpeg(arguments);
        turn("plain.mov", name, part);
    }
};

} // namespace

TEST_F(StudioClips, are_turned_as_convert_turns_them)
{
    makeTurned("telephone.mov");
    start({"telephone.mov", "qx-vignette.fx", "--rotate"});
    Browser browser = window();
    const Json clip = clipOf(browser);
    EXPECT_EQ(clip["width"], 72);
    EXPECT_EQ(clip["height"], 128);
    EXPECT_EQ(clip["unturned"], false);
    browser.ask({{"do", "seek"}, {"frame", 20}});
    browser.ask({{"do", "seek"}, {"frame", 3}});
    convert({"telephone.mov", "want.png", "--rotate", "--effect", "qx-vignette.fx", "--start", "3",
             "--frames", "1"});
    expectCodesOf(browser, "want.png", 72, 128, 16);
    browser.send({{"do", "view"}, {"width", 72}, {"height", 128}});
    const SentPicture whole = browser.picture();
    EXPECT_EQ(whole.header["width"], 72);
    EXPECT_EQ(whole.header["height"], 128);
    EXPECT_EQ(browser.ask({{"do", "proxy"}, {"size", {64, 64}}})["is"], "answer");
    const SentPicture small = browser.picture([](const Json& header) { return header["height"] == 64; });
    EXPECT_EQ(small.header["width"], 36);
    stop();
}

TEST_F(StudioClips, that_players_turn_are_said_to_be_if_they_are_not_turned)
{
    makeTurned("telephone.mov");
    start({"telephone.mov"});
    {
        Browser browser = window();
        const Json clip = clipOf(browser);
        EXPECT_EQ(clip["width"], 128);
        EXPECT_EQ(clip["unturned"], true);
    }
    const std::string said = program_->errorSoFar();
    EXPECT_NE(said.find("telephone.mov: players turn or flip it"), std::string::npos) << said;
    EXPECT_NE(said.find("--rotate shows it as they do"), std::string::npos) << said;
    stop();
    makeTurned("mirrored.mov", {-1, 0, 0, 1});
    start({"mirrored.mov"});
    EXPECT_NE(program_->errorSoFar().find("mirrored.mov: players turn or flip it"), std::string::npos)
        << program_->errorSoFar();
    stop();
    makeTurned("rows.mov", {0, 1, -1, 0}, {"-vf", "setfield=tff", "-flags", "+ildct"});
    const Outcome outcome = qxhost({"studio", "rows.mov", "--rotate"});
    EXPECT_EQ(outcome.exitCode, 3);
    EXPECT_NE(outcome.err.find("rows.mov is interlaced, and its lines would become columns"),
              std::string::npos)
        << outcome.err;
}

TEST_F(StudioClips, of_any_format_are_shown_smaller)
{
    const std::vector<std::pair<std::string, std::vector<std::string>>> clips{
        {"grey.mkv", {"-c:v", "ffv1", "-pix_fmt", "gray"}},
        {"deepgrey.mkv", {"-c:v", "ffv1", "-pix_fmt", "gray10le"}},
        {"alpha.mov", {"-c:v", "prores_ks", "-profile:v", "4", "-pix_fmt", "yuva444p10le"}},
        {"rgba.mov", {"-c:v", "qtrle", "-pix_fmt", "argb"}},
        {"greyalpha.mov", {"-c:v", "png", "-pix_fmt", "ya8"}},
        {"odd.mkv", {"-vf", "format=yuv444p,scale=321:181", "-c:v", "ffv1", "-pix_fmt", "yuv420p"}}};
    for (const auto& [name, options] : clips) {
        std::vector<std::string> arguments{"-f", "lavfi", "-i",
                                           "smptebars=size=320x180:rate=25:duration=0.2"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        arguments.push_back(name);
        ffmpeg(arguments);
        start({name});
        Browser browser = window();
        browser.ask({{"do", "seek"}, {"frame", 2}});
        const auto codes = [&] { return browser.ask({{"do", "probe"}, {"x", 70}, {"y", 60}}); };
        const Json whole = codes()["after"]["rgb8"];
        browser.send({{"do", "view"}, {"width", 160}, {"height", 90}});
        const Json answer = browser.ask({{"do", "proxy"}, {"size", {160, 160}}});
        ASSERT_EQ(answer["is"], "answer") << name << answer.dump();
        EXPECT_EQ(browser.state([](const Json& state) { return !state["proxy"].is_null(); })["proxy"],
                  Json({160, 90}))
            << name;
        // In the middle of a bar the colour is the same at each size.
        const Json small = codes()["after"]["rgb8"];
        for (std::size_t i = 0; i < 3; ++i) {
            EXPECT_NEAR(small[i].get<double>(), whole[i].get<double>(), 2)
                << name << small.dump() << whole.dump();
        }
        stop();
    }
}

} // namespace Qx::System
