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

    /// A clip of one grey.
    void makeFlat(const std::string& name, const std::string& size, int luma, int frames)
    {
        ffmpeg({"-f", "lavfi", "-i", "color=black:size=" + size + ":rate=25", "-vf",
                "format=yuv420p,geq=lum=" + std::to_string(luma) +
                    ":cb=128:cr=128,setparams=colorspace=bt709:range=tv",
                "-frames:v", std::to_string(frames), "-c:v", "ffv1", "-colorspace", "bt709", "-color_range",
                "tv", name});
    }

    static Json luma(Browser& browser)
    {
        return browser.ask({{"do", "probe"}, {"x", 10}, {"y", 10}})["before"]["ycbcr8"][0];
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

TEST_F(StudioClips, that_are_replaced_are_read_again)
{
    makeFlat("clip.mkv", "64x48", 60, 50);
    makeFlat("later.mkv", "64x48", 180, 20);
    start({"clip.mkv"});
    Browser browser = window();
    browser.send({{"do", "view"}, {"width", 64}, {"height", 48}});
    browser.ask({{"do", "seek"}, {"frame", 40}});
    EXPECT_EQ(luma(browser), 60);
    fs::rename(at("later.mkv"), at("clip.mkv"));
    const Json state =
        browser.state([](const Json& each) { return each["clip"]["frames"] == 20 && each["frame"] == 19; });
    EXPECT_EQ(state["problems"], Json::array());
    EXPECT_EQ(luma(browser), 180);
    browser.ask({{"do", "seek"}, {"frame", 3}});
    EXPECT_EQ(luma(browser), 180);
    stop();
}

TEST_F(StudioClips, that_are_replaced_by_others_are_refused_until_they_are_back)
{
    makeFlat("clip.mkv", "64x48", 60, 50);
    makeFlat("larger.mkv", "640x480", 180, 50);
    fs::copy_file(at("clip.mkv"), at("kept.mkv"));
    start({"clip.mkv"});
    Browser browser = window();
    browser.send({{"do", "view"}, {"width", 64}, {"height", 48}});
    browser.ask({{"do", "play"}});
    browser.picture([](const Json& header) { return header["frame"] > 3; });
    fs::rename(at("larger.mkv"), at("clip.mkv"));
    const Json refused = browser.state([](const Json& state) { return !problemOf(state).empty(); });
    EXPECT_NE(problemOf(refused).find("is another clip than when the studio was started (640x480"),
              std::string::npos)
        << problemOf(refused);
    EXPECT_EQ(refused["playing"], false);
    EXPECT_EQ(browser.ask({{"do", "probe"}, {"x", 3}, {"y", 3}})["is"], "error");
    // A file that is gone is on its way, and what is written is not read before it is whole.
    fs::remove(at("clip.mkv"));
    write("clip.mkv", "no clip");
    browser.state(
        [](const Json& state) { return problemOf(state).find("cannot read") != std::string::npos; });
    fs::rename(at("kept.mkv"), at("clip.mkv"));
    browser.state([](const Json& state) { return problemOf(state).empty(); });
    EXPECT_EQ(luma(browser), 60);
    stop();
}

TEST_F(StudioClips, are_shown_though_the_folder_of_looks_is_gone)
{
    makeClip();
    fs::create_directory(at("looks"));
    start({"clip.mp4", "cc3.fx", "--looks", "looks"});
    Browser browser = window();
    fs::remove(at("looks"));
    const Json answer = browser.ask({{"do", "save"}, {"file", "a.look.toml"}});
    EXPECT_EQ(answer["is"], "error");
    EXPECT_NE(answer["text"].get<std::string>().find("the folder of looks is gone"), std::string::npos)
        << answer.dump();
    fs::create_directory(at("looks"));
    EXPECT_EQ(browser.ask({{"do", "save"}, {"file", "a.look.toml"}})["is"], "answer");
    EXPECT_TRUE(fs::exists(at("looks/a.look.toml")));
    stop();
}

} // namespace Qx::System
