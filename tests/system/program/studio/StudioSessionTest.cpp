#include "tests/system/program/studio/StudioTest.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>

namespace Qx::System {

namespace {

/// What windows of the studio see and do.
class Studio : public StudioTest
{
protected:
    static Json view(int width = 320, int height = 180)
    {
        return {{"do", "view"}, {"width", width}, {"height", height}, {"quality", 95}};
    }

    /// The id of the n-th step.
    static Json link(Browser& browser, std::size_t n = 0)
    {
        return browser.state([&](const Json& state) { return state["chain"].size() > n; })["chain"][n]["id"];
    }

    static Json parameter(const Json& state, const std::string& name, std::size_t step = 0)
    {
        for (const Json& each : state["chain"][step]["parameters"]) {
            if (each["name"] == name) {
                return each;
            }
        }
        return {};
    }

    /// Waits until the answer to a message holds no error, which it returns the answer of.
    static Json succeed(Browser& browser, const Json& message)
    {
        Json answer = browser.ask(message);
        EXPECT_EQ(answer["is"], "answer") << message.dump() << "\n" << answer.dump();
        return answer;
    }

    static std::string fail(Browser& browser, const Json& message)
    {
        const Json answer = browser.ask(message);
        EXPECT_EQ(answer["is"], "error") << message.dump() << "\n" << answer.dump();
        return answer.value("text", "");
    }

    /// The codes of the picture after the look, pixel by pixel in a grid, against a picture that convert
    /// wrote.
    void expectCodesOf(Browser& browser, const std::string& file, int bits)
    {
        const std::vector<std::uint8_t> bytes = decoded(file, bits == 8 ? "rgb24" : "rgb48le");
        constexpr int width = 320;
        constexpr int height = 180;
        const std::size_t sample = bits == 8 ? 1 : 2;
        ASSERT_EQ(bytes.size(), std::size_t{width} * height * 3 * sample);
        for (int y = 1; y < height; y += 17) {
            for (int x = 1; x < width; x += 23) {
                const Json answer = succeed(browser, {{"do", "probe"}, {"x", x}, {"y", y}});
                ASSERT_EQ(answer["drawn"], bits);
                for (std::size_t i = 0; i < 3; ++i) {
                    const std::size_t at = (static_cast<std::size_t>(y * width + x) * 3 + i) * sample;
                    const int code = bytes[at] + (bits == 8 ? 0 : bytes[at + 1] << 8);
                    ASSERT_EQ(answer["after"]["rgb" + std::to_string(bits)][i], code)
                        << x << " " << y << " " << i;
                }
            }
        }
    }

    /// PSNR in dB of a JPEG against the first frame of a file.
    double likeness(const SentPicture& picture, const std::string& file)
    {
        write("sent.jpg", picture.jpeg);
        const std::vector<std::uint8_t> sent = decoded("sent.jpg", "rgb24");
        const std::vector<std::uint8_t> meant = decoded(file, "rgb24");
        EXPECT_EQ(sent.size(), meant.size());
        double sum = 0;
        for (std::size_t i = 0; i < std::min(sent.size(), meant.size()); ++i) {
            const double difference = static_cast<double>(sent[i]) - meant[i];
            sum += difference * difference;
        }
        return 10 * std::log10(255.0 * 255.0 * static_cast<double>(sent.size()) / std::max(sum, 1.0));
    }

    /// A clip in which the luma of a frame is 20 + 2 times its number.
    void makeCountingClip(const std::string& name, const std::vector<std::string>& codec)
    {
        std::vector<std::string> arguments{"-f", "lavfi", "-i",
                                           "color=black:size=64x48:rate=25:duration=4,format=yuv420p,"
                                           "geq=lum='20+2*N':cb=128:cr=128,"
                                           "setparams=colorspace=bt709:range=tv"};
        arguments.insert(arguments.end(), codec.begin(), codec.end());
        arguments.push_back(name);
        ffmpeg(arguments);
    }

    /// The luma of each frame, as ffmpeg decodes it.
    std::vector<int> lumaOf(const std::string& name)
    {
        const std::vector<std::uint8_t> bytes = decoded(name, "yuv420p");
        constexpr std::size_t frame = 64 * 48 * 3 / 2;
        std::vector<int> luma;
        for (std::size_t at = 0; at + frame <= bytes.size(); at += frame) {
            luma.push_back(bytes[at + 64 * 24 + 32]);
        }
        return luma;
    }
};

TEST_F(Studio, shows_the_codes_that_convert_writes)
{
    makeClip();
    start({"clip.mp4", "cc3.fx"});
    Browser browser = window();
    succeed(browser, {{"do", "set"}, {"link", link(browser)}, {"name", "gain"}, {"values", {1.3}}});
    succeed(browser, {{"do", "set"}, {"link", link(browser)}, {"name", "saturation"}, {"values", {0.4}}});
    succeed(browser, {{"do", "seek"}, {"frame", 7}});
    ASSERT_EQ(qxhost({"convert", "clip.mp4", "want.png", "--effect", "cc3.fx", "--set", "gain=1.3", "--set",
                      "saturation=0.4", "--start", "7", "--frames", "1"})
                  .exitCode,
              0);
    expectCodesOf(browser, "want.png", 8);

    browser.send({{"do", "view"}, {"width", 320}, {"height", 180}, {"quality", 95}, {"change", 9}});
    const SentPicture picture = browser.picture([](const Json& header) { return header["answers"] == 9; });
    EXPECT_EQ(picture.header["frame"], 7);
    EXPECT_EQ(picture.header["width"], 320);
    EXPECT_GT(likeness(picture, "want.png"), 34);
    stop();
}

TEST_F(Studio, shows_the_codes_of_ten_bits_that_convert_writes)
{
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=320x180:rate=25:duration=0.2", "-vf",
            "setparams=colorspace=bt709:range=tv,format=yuv422p10le", "-c:v", "ffv1", "-colorspace", "bt709",
            "-color_range", "tv", "deep.mkv"});
    start({"deep.mkv", "cc3.fx"});
    Browser browser = window();
    succeed(browser, {{"do", "set"}, {"link", link(browser)}, {"name", "gamma"}, {"values", {1.7}}});
    succeed(browser, {{"do", "seek"}, {"frame", 2}});
    ASSERT_EQ(qxhost({"convert", "deep.mkv", "want.png", "--effect", "cc3.fx", "--set", "gamma=1.7",
                      "--start", "2", "--frames", "1"})
                  .exitCode,
              0);
    expectCodesOf(browser, "want.png", 16);
    stop();
}

TEST_F(Studio, gives_the_codes_of_other_depths_and_of_ycbcr)
{
    // Luma 120 with Cb 90 and Cr 180 in BT.709, where every chroma sample has the same value.
    ffmpeg({"-f", "lavfi", "-i",
            "color=black:size=64x48:duration=0.2,format=yuv420p,geq=lum=120:cb=90:cr=180", "-vf",
            "setparams=colorspace=bt709:range=tv", "-c:v", "ffv1", "-colorspace", "bt709", "-color_range",
            "tv", "flat.mkv"});
    start({"flat.mkv"});
    Browser browser = window();
    const Json codes = succeed(browser, {{"do", "probe"}, {"x", 10}, {"y", 10}})["before"];
    // By the equations of BT.709: Y' = 104/219, Cb = -38/224, Cr = 52/224.
    const double luma = 104.0 / 219;
    const double red = luma + 1.5748 * 52 / 224;
    const double blue = luma - 1.8556 * 38 / 224;
    const double green = (luma - 0.2126 * red - 0.0722 * blue) / 0.7152;
    const double levels[] = {red, green, blue};
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_NEAR(codes["rgb8"][i].get<double>(), levels[i] * 255, 0.51) << i;
        EXPECT_EQ(codes["rgb10"][i], std::lround(codes["rgb8"][i].get<double>() / 255 * 1023)) << i;
        EXPECT_EQ(codes["rgb16"][i], codes["rgb8"][i].get<int>() * 257) << i;
    }
    EXPECT_EQ(codes["ycbcr8"], Json({120, 90, 180}));
    EXPECT_NEAR(codes["ycbcr10"][0].get<double>(), 480, 2);
    EXPECT_NEAR(codes["ycbcr16"][2].get<double>(), 180 * 256, 128);
    EXPECT_NE(fail(browser, {{"do", "probe"}, {"x", 64}, {"y", 0}}).find("\"x\""), std::string::npos);
    stop();
}

TEST_F(Studio, goes_to_the_frame_that_ffmpeg_decodes)
{
    const std::vector<std::pair<std::string, std::vector<std::string>>> clips{
        {"long.mp4", {"-c:v", "libx264", "-crf", "0", "-pix_fmt", "yuv420p", "-bf", "3", "-g", "40"}},
        {"long.ts", {"-c:v", "mpeg2video", "-q:v", "1", "-bf", "2", "-g", "15"}},
        {"long.avi", {"-c:v", "ffv1"}}};
    for (const auto& [name, codec] : clips) {
        makeCountingClip(name, codec);
        const std::vector<int> luma = lumaOf(name);
        ASSERT_EQ(luma.size(), 100U) << name;
        start({name});
        Browser browser = window();
        for (const int frame :
             {0, 99, 50, 51, 52, 49, 48, 47, 3, 98, 41, 40, 39, 80, 12, 13, 11, 0, 60, 99}) {
            succeed(browser, {{"do", "seek"}, {"frame", frame}});
            const Json answer = succeed(browser, {{"do", "probe"}, {"x", 32}, {"y", 24}});
            EXPECT_EQ(answer["frame"], frame) << name;
            EXPECT_NEAR(answer["before"]["ycbcr8"][0].get<int>(), luma[static_cast<std::size_t>(frame)], 0)
                << name << " " << frame;
        }
        stop();
    }
}

TEST_F(Studio, stays_at_the_last_frame)
{
    makeCountingClip("long.ts", {"-c:v", "mpeg2video", "-q:v", "1", "-bf", "2"});
    start({"long.ts"});
    Browser browser = window();
    browser.send(view(64, 48));
    succeed(browser, {{"do", "seek"}, {"frame", 5000}});
    EXPECT_EQ(succeed(browser, {{"do", "probe"}, {"x", 1}, {"y", 1}})["frame"], 99);
    const Json state = browser.state([](const Json& each) { return each["frame"] == 99; });
    EXPECT_EQ(state["clip"]["frames"], 100);
    succeed(browser, {{"do", "step"}, {"by", 1}});
    EXPECT_EQ(succeed(browser, {{"do", "probe"}, {"x", 1}, {"y", 1}})["frame"], 99);
    succeed(browser, {{"do", "step"}, {"by", -1000}});
    EXPECT_EQ(succeed(browser, {{"do", "probe"}, {"x", 1}, {"y", 1}})["frame"], 0);
    stop();
}

TEST_F(Studio, says_what_it_shows)
{
    makeClip();
    write("dim.fx", dimming());
    start({"clip.mp4", "dim.fx", "cc3.fx"});
    Browser browser = window();
    const Json state = browser.state([](const Json&) { return true; });
    const Json& clip = state["clip"];
    EXPECT_EQ(clip["name"], "clip.mp4");
    EXPECT_EQ(clip["width"], 320);
    EXPECT_EQ(clip["height"], 180);
    EXPECT_EQ(clip["frames"], 25);
    EXPECT_EQ(clip["rate"], Json({25, 1}));
    EXPECT_EQ(clip["bits"], 8);
    EXPECT_EQ(clip["matrix"], "bt709");
    EXPECT_EQ(clip["range"], "video");
    EXPECT_EQ(clip["still"], false);
    EXPECT_EQ(state["out"], 24);
    ASSERT_EQ(state["chain"].size(), 2U);
    EXPECT_EQ(state["chain"][0]["file"], at("dim.fx").string());
    EXPECT_EQ(state["chain"][0]["editable"], true);
    EXPECT_EQ(state["chain"][1]["editable"], false); // named by the catalogue's name
    const Json amount = parameter(state, "amount");
    EXPECT_EQ(amount["label"], "Amount");
    EXPECT_EQ(amount["minimum"], Json({0.0}));
    EXPECT_EQ(amount["maximum"], Json({2.0}));
    EXPECT_EQ(amount["default"], Json({1.0}));
    EXPECT_EQ(amount["values"], Json({1.0}));
    EXPECT_EQ(amount["widget"], "slider");
    stop();
}

TEST_F(Studio, makes_controls_of_annotations)
{
    makeClip();
    write("all.fx",
          "texture Input;\nsampler S = sampler_state { Texture = <Input>; };\n"
          "float turn < string UIName = \"Turn\"; string Unit = \"degrees\"; string Widget = \"angle\"; "
          "float Step = 0.5; string Group = \"Place\"; > = 0;\n"
          "int mode < string Choices = \"Off;Soft;Hard=5\"; > = 1;\n"
          "bool grey = false;\n"
          "float3 tint < string Label = \"Tint\"; > = float3(1, 1, 1);\n"
          "float2 liftWheel < string Wheel = \"lift\"; string Widget = \"wheel\"; > = float2(0, 0);\n"
          "float lift < string Wheel = \"lift\"; > = 0;\n"
          "float seconds : TIME;\n"
          "float4 f(float2 uv : TEXCOORD0) : COLOR { return tex2D(S, uv) * (grey ? 1 : mode) + turn + lift + "
          "liftWheel.x + float4(tint, seconds); }\n"
          "technique A { pass P { PixelShader = compile ps_3_0 f(); } }\n"
          "technique B { pass P { PixelShader = compile ps_3_0 f(); } }\n");
    start({"clip.mp4", "all.fx"});
    Browser browser = window();
    const Json state = browser.state([](const Json&) { return true; });
    const Json turn = parameter(state, "turn");
    EXPECT_EQ(turn["label"], "Turn");
    EXPECT_EQ(turn["unit"], "degrees");
    EXPECT_EQ(turn["widget"], "angle");
    EXPECT_EQ(turn["step"], 0.5);
    EXPECT_EQ(turn["group"], "Place");
    const Json mode = parameter(state, "mode");
    EXPECT_EQ(mode["widget"], "choice");
    EXPECT_EQ(mode["choices"][1], Json({{"text", "Soft"}, {"value", 1}}));
    EXPECT_EQ(mode["choices"][2]["value"], 5);
    EXPECT_EQ(parameter(state, "grey")["widget"], "check");
    EXPECT_EQ(parameter(state, "tint")["widget"], "colour");
    EXPECT_EQ(parameter(state, "tint")["size"], 3);
    EXPECT_EQ(parameter(state, "liftWheel")["wheel"],
              Json({{"role", "lift"}, {"of", {"liftWheel", "lift"}}}));
    EXPECT_TRUE(parameter(state, "seconds").is_null()); // the program sets it
    EXPECT_EQ(state["chain"][0]["techniques"], Json({"A", "B"}));
    succeed(browser, {{"do", "technique"}, {"link", link(browser)}, {"name", "B"}});
    EXPECT_EQ(
        browser.state([](const Json& each) { return each["canUndo"] == true; })["chain"][0]["technique"],
        "B");
    stop();
}

TEST_F(Studio, undoes_a_drag_as_one_step)
{
    makeClip();
    write("dim.fx", dimming());
    start({"clip.mp4", "dim.fx"});
    Browser browser = window();
    const Json id = link(browser);
    const auto amount = [&] {
        succeed(browser, {{"do", "looks"}});
        Json value;
        browser.send({{"do", "loop"}, {"on", true}}); // a state follows
        browser.state([&](const Json& state) {
            value = parameter(state, "amount")["values"][0];
            return true;
        });
        return value.get<double>();
    };
    const auto set = [&](double value, bool commit) {
        succeed(browser,
                {{"do", "set"}, {"link", id}, {"name", "amount"}, {"values", {value}}, {"commit", commit}});
    };
    const auto becomesAmount = [&](double value) {
        browser.state([&](const Json& state) {
            return std::abs(parameter(state, "amount")["values"][0].get<double>() - value) < 1e-6;
        });
    };
    set(0.9, false);
    set(0.8, false);
    set(0.7, true);
    set(0.5, true);
    becomesAmount(0.5);
    succeed(browser, {{"do", "undo"}});
    becomesAmount(0.7F);
    succeed(browser, {{"do", "undo"}});
    becomesAmount(1);
    EXPECT_EQ(browser.lastState()["canUndo"], false);
    succeed(browser, {{"do", "undo"}}); // there is nothing: no error
    succeed(browser, {{"do", "redo"}});
    becomesAmount(0.7F);
    succeed(browser, {{"do", "reset"}, {"link", id}});
    becomesAmount(1);
    succeed(browser, {{"do", "undo"}});
    becomesAmount(0.7F);
    EXPECT_NEAR(amount(), 0.7, 1e-6);
    stop();
}

TEST_F(Studio, changes_the_chain)
{
    makeClip();
    write("dim.fx", dimming("amount * 0.5"));
    start({"clip.mp4", "dim.fx"});
    Browser browser = window();
    const auto names = [](const Json& state) {
        std::string all;
        for (const Json& each : state["chain"]) {
            all += each["name"].get<std::string>() + " ";
        }
        return all;
    };
    const auto becomesChain = [&](const std::string& wanted) {
        browser.state([&](const Json& state) { return names(state) == wanted; });
    };
    const Json dim = link(browser);
    const Json whole = succeed(browser, {{"do", "probe"}, {"x", 100}, {"y", 100}});
    const Json added =
        succeed(browser, {{"do", "add"}, {"kind", "effect"}, {"name", "qx-vignette.fx"}, {"at", 0}})["link"];
    becomesChain("qx-vignette.fx dim.fx ");
    EXPECT_EQ(browser.lastState()["chain"][1]["id"], dim);
    succeed(browser, {{"do", "move"}, {"link", dim}, {"to", 0}});
    becomesChain("dim.fx qx-vignette.fx ");
    succeed(browser, {{"do", "remove"}, {"link", added}});
    becomesChain("dim.fx ");
    succeed(browser, {{"do", "switch"}, {"link", dim}, {"on", false}});
    const Json off = succeed(browser, {{"do", "probe"}, {"x", 100}, {"y", 100}});
    EXPECT_EQ(off["after"], off["before"]);
    EXPECT_NE(whole["after"], whole["before"]);
    succeed(browser, {{"do", "undo"}});
    EXPECT_EQ(succeed(browser, {{"do", "probe"}, {"x", 100}, {"y", 100}})["after"], whole["after"]);
    EXPECT_NE(fail(browser, {{"do", "add"}, {"kind", "effect"}, {"name", "/etc/passwd"}}).find("catalogue"),
              std::string::npos);
    fail(browser, {{"do", "add"}, {"kind", "lut"}, {"name", "none.cube"}});
    fail(browser, {{"do", "move"}, {"link", dim}, {"to", 1}});
    fail(browser, {{"do", "remove"}, {"link", added}});
    stop();
}

TEST_F(Studio, shares_the_look_between_windows)
{
    makeClip();
    write("dim.fx", dimming());
    start({"clip.mp4", "dim.fx"});
    Browser one = window();
    Browser other = window();
    one.send(view());
    other.send(view(160, 90));
    one.picture();
    other.picture();
    succeed(one, {{"do", "set"}, {"link", link(one)}, {"name", "amount"}, {"values", {0.25}}});
    succeed(one, {{"do", "seek"}, {"frame", 11}});
    other.state([](const Json& state) { return parameter(state, "amount")["values"][0] == 0.25; });
    const SentPicture small = other.picture([](const Json& header) { return header["frame"] == 11; });
    EXPECT_EQ(small.header["width"], 160);
    const SentPicture large = one.picture([](const Json& header) { return header["frame"] == 11; });
    EXPECT_EQ(large.header["width"], 320);
    stop();
}

TEST_F(Studio, sends_the_newest_picture_to_who_is_slow)
{
    makeClip();
    write("dim.fx", dimming());
    start({"clip.mp4", "dim.fx"});
    Browser slow = window();
    slow.acknowledgeNothing();
    slow.send(view());
    const Json id = link(slow);
    for (int i = 1; i <= 40; ++i) {
        succeed(slow,
                {{"do", "set"}, {"link", id}, {"name", "amount"}, {"values", {i / 40.0}}, {"change", i}});
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_LE(slow.pictures().size(), 2U);
    ASSERT_GE(slow.pictures().size(), 1U);
    const SentPicture first = slow.pictures().front();
    slow.pictures().clear();
    slow.acknowledge(first);
    slow.acknowledge(first);
    EXPECT_EQ(slow.picture([](const Json&) { return true; }).header["answers"], 40);
    stop();
}

TEST_F(Studio, shows_regions_and_comparisons)
{
    makeClip();
    write("dim.fx", dimming());
    start({"clip.mp4", "dim.fx"});
    Browser browser = window();
    Json wanted = view(640, 480);
    wanted["region"] = {100, 50, 32, 24};
    browser.send(wanted);
    SentPicture picture = browser.picture();
    EXPECT_EQ(picture.header["width"], 32); // never enlarged here
    EXPECT_EQ(picture.header["height"], 24);
    EXPECT_EQ(picture.header["region"], Json({100, 50, 32, 24}));
    ASSERT_EQ(qxhost({"convert", "clip.mp4", "whole.png", "--frames", "1"}).exitCode, 0);
    ffmpeg({"-i", "whole.png", "-vf", "crop=32:24:100:50", "part.png"});
    EXPECT_GT(likeness(picture, "part.png"), 34);

    wanted = view(640, 480);
    wanted["compare"] = "difference";
    wanted["times"] = 4;
    wanted["quality"] = 100;
    browser.send(wanted);
    picture = browser.picture([](const Json& header) { return header["of"] == "difference"; });
    write("sent.jpg", picture.jpeg);
    for (const std::uint8_t code : decoded("sent.jpg", "gray")) {
        ASSERT_NEAR(code, 128, 1); // the look changes nothing yet
    }
    succeed(browser, {{"do", "still"}, {"name", "whole"}});
    succeed(browser,
            {{"do", "set"}, {"link", link(browser)}, {"name", "amount"}, {"values", {0.0}}, {"change", 3}});
    wanted["compare"] = "wipe";
    wanted["against"] = 1;
    wanted["change"] = 4;
    browser.send(wanted);
    picture = browser.picture(
        [](const Json& header) { return header["of"] == "before" && header["answers"] == 4; });
    EXPECT_GT(likeness(picture, "whole.png"), 34);
    EXPECT_EQ(get("still/1.jpg").status, 200);
    succeed(browser, {{"do", "unstill"}, {"still", 1}});
    EXPECT_EQ(get("still/1.jpg").status, 404);
    wanted["against"] = 1;
    EXPECT_EQ(browser.ask(wanted)["is"], "error");
    stop();
}

TEST_F(Studio, plays_within_the_range)
{
    makeCountingClip("long.mp4", {"-c:v", "libx264", "-crf", "0", "-pix_fmt", "yuv420p"});
    start({"long.mp4"});
    Browser browser = window();
    browser.send(view(64, 48));
    succeed(browser, {{"do", "range"}, {"in", 10}, {"out", 19}});
    succeed(browser, {{"do", "loop"}, {"on", true}});
    browser.picture();
    succeed(browser, {{"do", "play"}});
    std::vector<int> seen;
    while (seen.size() < 30) {
        seen.push_back(browser.picture().header["frame"]);
        if (seen.back() < 10) {
            seen.clear(); // drawn before it began
        }
    }
    EXPECT_LE(*std::max_element(seen.begin(), seen.end()), 19);
    int turns = 0;
    for (std::size_t i = 1; i < seen.size(); ++i) {
        turns += seen[i] < seen[i - 1] ? 1 : 0;
    }
    EXPECT_GE(turns, 2);
    succeed(browser, {{"do", "loop"}, {"on", false}});
    const Json ended = browser.state([](const Json& state) { return state["playing"] == false; });
    EXPECT_EQ(ended["frame"], 19);
    EXPECT_NE(fail(browser, {{"do", "range"}, {"in", 9}, {"out", 8}}), "");
    stop();
}

TEST_F(Studio, draws_a_proxy)
{
    makeClip();
    start({"clip.mp4", "cc3.fx"});
    Browser browser = window();
    browser.send(view());
    browser.picture();
    succeed(browser, {{"do", "proxy"}, {"size", {160, 160}}});
    browser.picture([](const Json& header) { return header["width"] == 160 && header["height"] == 90; });
    EXPECT_EQ(browser.state([](const Json& state) { return !state["proxy"].is_null(); })["proxy"],
              Json({160, 90}));
    succeed(browser, {{"do", "probe"}, {"x", 319}, {"y", 179}}); // in pixels of the clip
    succeed(browser, {{"do", "proxy"}, {"size", nullptr}});
    browser.picture([](const Json& header) { return header["width"] == 320; });
    stop();
}

TEST_F(Studio, moves_parameters_between_key_frames)
{
    makeClip();
    write("dim.fx", dimming());
    start({"clip.mp4", "dim.fx"});
    Browser browser = window();
    const Json id = link(browser);
    const auto key = [&](int frame, double value) {
        succeed(browser, {{"do", "key"},
                          {"link", id},
                          {"name", "amount"},
                          {"frame", frame},
                          {"values", {value}},
                          {"curve", "linear"}});
    };
    key(0, 0);
    key(20, 1);
    const auto valueAt = [&](int frame) {
        succeed(browser, {{"do", "seek"}, {"frame", frame}});
        const Json state = browser.state([&](const Json& each) { return each["frame"] == frame; });
        return parameter(state, "amount")["values"][0].get<double>();
    };
    EXPECT_NEAR(valueAt(5), 0.25, 1e-6);
    EXPECT_NEAR(valueAt(24), 1, 1e-6);
    EXPECT_NEAR(valueAt(10), 0.5, 1e-6);
    const Json codes = succeed(browser, {{"do", "probe"}, {"x", 50}, {"y", 50}});
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_NEAR(codes["after"]["rgb8"][i].get<double>(), codes["before"]["rgb8"][i].get<double>() / 2,
                    0.51);
    }
    succeed(browser, {{"do", "set"}, {"link", id}, {"name", "amount"}, {"values", {2}}}); // a key in frame 10
    EXPECT_NEAR(valueAt(5), 1, 1e-6);
    succeed(browser, {{"do", "unkey"}, {"link", id}, {"name", "amount"}, {"frame", 10}});
    EXPECT_NEAR(valueAt(5), 0.25, 1e-6);
    fail(browser, {{"do", "unkey"}, {"link", id}, {"name", "amount"}, {"frame", 10}});
    stop();
}

TEST_F(Studio, keeps_the_last_good_picture_when_a_save_is_broken)
{
    makeClip();
    write("dim.fx", dimming());
    start({"clip.mp4", "dim.fx"});
    Browser browser = window();
    succeed(browser, {{"do", "set"}, {"link", link(browser)}, {"name", "amount"}, {"values", {0.5}}});
    const Json good = succeed(browser, {{"do", "probe"}, {"x", 50}, {"y", 50}})["after"];
    write("dim.fx", dimming("amuont"));
    const Json error = browser.state([](const Json& state) { return !state["chain"][0]["error"].is_null(); });
    const Json message = error["chain"][0]["error"]["messages"][0];
    EXPECT_EQ(message["line"], 4);
    EXPECT_EQ(message["severity"], "error");
    EXPECT_NE(message["text"].get<std::string>().find("amuont"), std::string::npos);
    const std::string line =
        "float4 f(float2 uv : TEXCOORD0) : COLOR { return float4(tex2D(S, uv).rgb * amuont";
    EXPECT_EQ(message["column"], line.find("amuont") + 1);
    EXPECT_EQ(succeed(browser, {{"do", "probe"}, {"x", 50}, {"y", 50}})["after"], good);
    write("dim.fx", dimming("amount * 2"));
    browser.state([](const Json& state) { return state["chain"][0]["error"].is_null(); });
    const Json mended = succeed(browser, {{"do", "probe"}, {"x", 50}, {"y", 50}});
    EXPECT_EQ(mended["after"]["rgb16"], mended["before"]["rgb16"]); // 0.5 * 2
    stop();
}

TEST_F(Studio, draws_the_rest_when_a_parameter_is_gone)
{
    makeClip();
    write("dim.fx", dimming());
    start({"clip.mp4", "dim.fx"});
    Browser browser = window();
    browser.send(view());
    succeed(browser, {{"do", "set"}, {"link", link(browser)}, {"name", "amount"}, {"values", {0.5}}});
    std::string text = dimming("level * 0");
    text.replace(text.find("float amount"), 12, "float level");
    write("dim.fx", text);
    const Json state = browser.state([](const Json& each) { return !each["chain"][0]["warnings"].empty(); });
    EXPECT_NE(state["chain"][0]["warnings"].dump().find("amount"), std::string::npos);
    EXPECT_TRUE(state["chain"][0]["error"].is_null());
    EXPECT_EQ(succeed(browser, {{"do", "probe"}, {"x", 50}, {"y", 50}})["after"]["rgb8"], Json({0, 0, 0}));
    write("dim.fx", dimming()); // its value is there still
    browser.state([](const Json& each) { return each["chain"][0]["warnings"].empty(); });
    const Json codes = succeed(browser, {{"do", "probe"}, {"x", 50}, {"y", 50}});
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_NEAR(codes["after"]["rgb8"][i].get<double>(), codes["before"]["rgb8"][i].get<double>() / 2,
                    0.51);
    }
    stop();
}

TEST_F(Studio, begins_with_an_effect_that_does_not_compile)
{
    makeClip();
    write("dim.fx", dimming("amuont"));
    start({"clip.mp4", "dim.fx"});
    Browser browser = window();
    browser.state([](const Json& state) { return !state["chain"][0]["error"].is_null(); });
    browser.send(view());
    EXPECT_FALSE(browser.picture().jpeg.empty());
    write("dim.fx", dimming("0"));
    browser.state([](const Json& state) { return state["chain"][0]["error"].is_null(); });
    EXPECT_EQ(succeed(browser, {{"do", "probe"}, {"x", 50}, {"y", 50}})["after"]["rgb8"], Json({0, 0, 0}));
    stop();
}

TEST_F(Studio, writes_effects_and_reports_conflicts)
{
    makeClip();
    write("dim.fx", dimming());
    start({"clip.mp4", "dim.fx"});
    Browser one = window();
    Browser other = window();
    const std::string file = at("dim.fx").string();
    const Json text = succeed(one, {{"do", "read"}, {"file", file}});
    EXPECT_EQ(text["text"], dimming());
    succeed(other, {{"do", "read"}, {"file", file}});
    const Json written =
        succeed(one, {{"do", "write"}, {"file", file}, {"text", dimming("0.5")}, {"digest", text["digest"]}});
    EXPECT_EQ(read(at("dim.fx")), dimming("0.5"));
    EXPECT_EQ(other.message("conflict")["text"], dimming("0.5"));
    // The other window has the old text still.
    const Json refused =
        other.ask({{"do", "write"}, {"file", file}, {"text", "theirs"}, {"digest", text["digest"]}});
    EXPECT_EQ(refused["is"], "error");
    EXPECT_EQ(refused["kind"], "conflict");
    EXPECT_EQ(read(at("dim.fx")), dimming("0.5"));
    // An editor writes it.
    write("dim.fx", dimming("0.25"));
    const Json conflict = one.message("conflict");
    EXPECT_EQ(conflict["text"], dimming("0.25"));
    EXPECT_EQ(
        one.ask({{"do", "write"}, {"file", file}, {"text", "mine"}, {"digest", written["digest"]}})["kind"],
        "conflict");
    succeed(one, {{"do", "write"}, {"file", file}, {"text", dimming("0")}, {"digest", conflict["digest"]}});
    EXPECT_EQ(read(at("dim.fx")), dimming("0"));
    stop();
    EXPECT_EQ(filesBeside({"clip.mp4", "dim.fx"}), std::vector<std::string>());
}

TEST_F(Studio, keeps_the_mode_and_the_link_of_a_file_that_it_writes)
{
    makeClip();
    fs::create_directory(at("there"));
    write("there/dim.fx", dimming());
    fs::permissions(at("there/dim.fx"), fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink(at("there/dim.fx"), at("dim.fx"));
    start({"clip.mp4", "dim.fx"});
    Browser browser = window();
    const std::string file = at("dim.fx").string();
    const Json text = succeed(browser, {{"do", "read"}, {"file", file}});
    succeed(browser, {{"do", "write"}, {"file", file}, {"text", dimming("0.5")}, {"digest", text["digest"]}});
    EXPECT_TRUE(fs::is_symlink(at("dim.fx")));
    EXPECT_EQ(read(at("there/dim.fx")), dimming("0.5"));
    EXPECT_EQ(fs::status(at("there/dim.fx")).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    write("there/dim.fx", "\xFF\xFE not UTF-8");
    fail(browser, {{"do", "read"}, {"file", file}});
    EXPECT_EQ(read(at("there/dim.fx")), "\xFF\xFE not UTF-8");
    stop();
}

TEST_F(Studio, replaces_no_file_that_is_protected_from_writing)
{
    constexpr auto readable = fs::perms::owner_read | fs::perms::group_read;
    makeClip();
    write("dim.fx", dimming());
    start({"clip.mp4", "dim.fx"});
    Browser browser = window();
    succeed(browser, {{"do", "save"}, {"file", "kept.look.toml"}});
    const std::string saved = read(at("kept.look.toml"));
    fs::permissions(at("kept.look.toml"), readable);
    fs::permissions(at("dim.fx"), readable);
    succeed(browser, {{"do", "set"}, {"link", link(browser)}, {"name", "amount"}, {"values", {0.7}}});
    const Json text = succeed(browser, {{"do", "read"}, {"file", at("dim.fx").string()}});
    for (const Json& message :
         {Json{{"do", "save"}}, Json{{"do", "save"}, {"file", "kept.look.toml"}, {"overwrite", true}},
          Json{{"do", "write"},
               {"file", at("dim.fx").string()},
               {"text", dimming("0.5")},
               {"digest", text["digest"]}}}) {
        const std::string reason = browser.ask(message)["text"];
        EXPECT_NE(reason.find("is protected from writing"), std::string::npos) << message.dump() << reason;
    }
    EXPECT_EQ(read(at("kept.look.toml")), saved);
    EXPECT_EQ(read(at("dim.fx")), dimming());
    // A look keeps the mode that its owner gave it.
    fs::permissions(at("kept.look.toml"), readable | fs::perms::owner_write);
    succeed(browser, {{"do", "save"}});
    EXPECT_NE(read(at("kept.look.toml")), saved);
    EXPECT_EQ(fs::status(at("kept.look.toml")).permissions(), readable | fs::perms::owner_write);
    stop();
}

TEST_F(Studio, writes_nothing_else)
{
    makeClip();
    write("dim.fx", dimming());
    write("other.fx", dimming());
    fs::create_directory(at("looks"));
    fs::create_directory(at("outside"));
    fs::create_directory_symlink(at("outside"), at("looks/link"));
    write("outside/there.look.toml", "look = 1\n");
    fs::create_symlink(at("outside/there.look.toml"), at("looks/there.look.toml"));
    start({"clip.mp4", "dim.fx", "--looks", "looks"});
    Browser browser = window();
    for (const std::string& file :
         {at("other.fx").string(), std::string("/etc/passwd"), std::string("dim.fx"), std::string(""),
          at("looks/../dim.fx").string(), at("clip.mp4").string()}) {
        fail(browser, {{"do", "read"}, {"file", file}});
        fail(browser, {{"do", "write"}, {"file", file}, {"text", "x"}, {"digest", ""}});
    }
    for (const char* file :
         {"../a.look.toml", "/tmp/a.look.toml", "a.toml", ".look.toml", ".a.look.toml", "link/a.look.toml",
          "there.look.toml", "a/../../a.look.toml", "none/a.look.toml", "a\nb.look.toml", ""}) {
        fail(browser, {{"do", "save"}, {"file", file}, {"overwrite", true}});
        fail(browser, {{"do", "open"}, {"file", file}});
    }
    EXPECT_EQ(read(at("outside/there.look.toml")), "look = 1\n");
    EXPECT_EQ(read(at("other.fx")), dimming());
    EXPECT_EQ(filesBeside({"clip.mp4", "dim.fx", "other.fx", "looks", "outside"}),
              std::vector<std::string>());
    stop();
}

TEST_F(Studio, saves_looks_that_convert_applies)
{
    makeClip();
    write("dim.fx", dimming());
    start({"clip.mp4", "dim.fx", "cc3.fx"});
    Browser browser = window();
    succeed(browser, {{"do", "set"}, {"link", link(browser)}, {"name", "amount"}, {"values", {0.7}}});
    succeed(browser, {{"do", "key"},
                      {"link", link(browser, 1)},
                      {"name", "gain"},
                      {"frame", 0},
                      {"values", {0.5}},
                      {"curve", "smooth"}});
    succeed(browser, {{"do", "key"},
                      {"link", link(browser, 1)},
                      {"name", "gain"},
                      {"frame", 20},
                      {"values", {2}},
                      {"curve", "smooth"}});
    EXPECT_EQ(succeed(browser, {{"do", "save"}, {"file", "mine.look.toml"}})["file"], "mine.look.toml");
    EXPECT_EQ(browser.ask({{"do", "save"}, {"file", "mine.look.toml"}})["kind"], "conflict");
    EXPECT_EQ(succeed(browser, {{"do", "looks"}})["files"], Json({"mine.look.toml"}));
    const Json saved = browser.state([](const Json& state) { return state["changed"] == false; });
    EXPECT_EQ(saved["look"], "mine.look.toml");
    succeed(browser, {{"do", "seek"}, {"frame", 13}});
    ASSERT_EQ(qxhost({"convert", "clip.mp4", "want.png", "--look", "mine.look.toml", "--start", "13",
                      "--frames", "1"})
                  .exitCode,
              0);
    expectCodesOf(browser, "want.png", 8);

    succeed(browser, {{"do", "reset"}, {"link", link(browser)}});
    browser.state([](const Json& state) { return state["changed"] == true; });
    succeed(browser, {{"do", "open"}, {"file", "mine.look.toml"}});
    expectCodesOf(browser, "want.png", 8);
    succeed(browser, {{"do", "undo"}}); // opening is a step too
    browser.state([](const Json& state) { return parameter(state, "amount")["values"][0] == 1; });
    succeed(browser, {{"do", "redo"}});
    succeed(browser, {{"do", "save"}}); // its own file
    write("mine.look.toml", "look = 1\n");
    EXPECT_EQ(browser.ask({{"do", "save"}})["kind"], "conflict"); // somebody changed it
    stop();
    start({"clip.mp4", "--look", "mine.look.toml"});
    Browser again = window();
    const Json opened = again.state([](const Json&) { return true; });
    EXPECT_EQ(opened["chain"].size(), 0U);
    EXPECT_EQ(opened["look"], "mine.look.toml");
    succeed(again, {{"do", "add"}, {"kind", "effect"}, {"name", "cc3.fx"}});
    succeed(again, {{"do", "save"}});
    EXPECT_NE(read(at("mine.look.toml")).find("cc3.fx"), std::string::npos);
    stop();
}

TEST_F(Studio, answers_malformed_messages_with_errors)
{
    makeClip();
    write("dim.fx", dimming());
    start({"clip.mp4", "dim.fx"});
    Browser browser = window();
    for (const std::string& text :
         {std::string("nothing"), std::string("[]"), std::string("1"), std::string("{"), std::string("null"),
          std::string("{}"), std::string("{\"do\":1}"), std::string("{\"do\":\"zap\"}"),
          std::string("\"do\""), std::string(100000, '['),
          "{\"do\":" + std::string(100000, '[') + std::string(100000, ']') + "}",
          std::string("{\"do\":\"seek\",\"frame\":1e400}"), std::string("")}) {
        browser.sendText(text);
        EXPECT_NE(browser.unasked()["text"], "") << text.substr(0, 40);
    }
    const Json id = link(browser);
    const std::vector<Json> wrong{
        {{"do", "seek"}},
        {{"do", "seek"}, {"frame", "1"}},
        {{"do", "seek"}, {"frame", 1.5}},
        {{"do", "seek"}, {"frame", -1}},
        {{"do", "view"}, {"width", 0}, {"height", 10}},
        {{"do", "view"}, {"width", 100000}, {"height", 10}},
        {{"do", "view"}, {"width", 10}, {"height", 10}, {"compare", "other"}},
        {{"do", "view"}, {"width", 10}, {"height", 10}, {"quality", 101}},
        {{"do", "view"}, {"width", 10}, {"height", 10}, {"region", {1, 2, 3}}},
        {{"do", "view"}, {"width", 10}, {"height", 10}, {"against", 7}},
        {{"do", "set"}, {"link", id}, {"name", "amount"}, {"values", Json::array()}},
        {{"do", "set"}, {"link", id}, {"name", "amount"}, {"values", {1, 2}}},
        {{"do", "set"}, {"link", id}, {"name", "amount"}, {"values", {"x"}}},
        {{"do", "set"}, {"link", id}, {"name", "amount"}, {"values", {1e300}}},
        {{"do", "set"}, {"link", id}, {"name", "other"}, {"values", {1}}},
        {{"do", "set"}, {"link", 77}, {"name", "amount"}, {"values", {1}}},
        {{"do", "set"}, {"link", "1"}, {"name", "amount"}, {"values", {1}}},
        {{"do", "key"}, {"link", id}, {"name", "amount"}, {"frame", 0}, {"values", {1}}, {"curve", "x"}},
        {{"do", "loop"}, {"on", 1}},
        {{"do", "proxy"}, {"size", {0, 0}}},
        {{"do", "technique"}, {"link", id}, {"name", "None"}},
        {{"do", "unstill"}, {"still", 1}},
        {{"do", "shown"}},
        {{"do", "play"}, {"change", -1}},
    };
    for (const Json& message : wrong) {
        EXPECT_NE(fail(browser, message), "") << message.dump();
    }
    browser.send(view());
    EXPECT_FALSE(browser.picture().jpeg.empty());
    stop();
}

TEST_F(Studio, lists_the_catalogue_with_what_can_be_drawn)
{
    makeClip();
    start({"clip.mp4"});
    Browser browser = window();
    succeed(browser, {{"do", "catalogue"}});
    Json list = browser.message("catalogue");
    while (std::any_of(list["effects"].begin(), list["effects"].end(),
                       [](const Json& each) { return each["ok"].is_null(); })) {
        list = browser.message("catalogue");
    }
    bool hasGrade = false;
    for (const Json& each : list["effects"]) {
        EXPECT_NE(each["name"], "ColourConvert.fx");
        hasGrade = hasGrade || (each["name"] == "cc3.fx" && each["ok"] == true);
        EXPECT_FALSE(each["name"] == "qx-wipe.fx" && each["ok"] == true); // needs a second picture
    }
    EXPECT_TRUE(hasGrade);
    stop();
}

TEST_F(Studio, gives_effects_the_frames_before_that_they_read)
{
    makeCountingClip("long.mp4", {"-c:v", "libx264", "-crf", "0", "-pix_fmt", "yuv420p"});
    write("before.fx", "texture Input;\ntexture Before : PREVIOUS;\n"
                       "sampler B = sampler_state { Texture = <Before>; };\n"
                       "sampler S = sampler_state { Texture = <Input>; };\n"
                       "float amount = 1;\n"
                       "float4 f(float2 uv : TEXCOORD0) : COLOR { return float4(tex2D(B, uv).rgb * amount, "
                       "tex2D(S, uv).a); }\n"
                       "technique T { pass P { PixelShader = compile ps_3_0 f(); } }\n");
    start({"long.mp4", "before.fx"});
    Browser browser = window();
    const auto lumaAt = [&](int frame) {
        succeed(browser, {{"do", "seek"}, {"frame", frame}});
        return succeed(browser, {{"do", "probe"}, {"x", 9}, {"y", 9}})["after"]["ycbcr8"][0].get<int>();
    };
    EXPECT_EQ(lumaAt(50), 20 + 2 * 49);
    EXPECT_EQ(lumaAt(51), 20 + 2 * 50);
    EXPECT_EQ(lumaAt(30), 20 + 2 * 29);
    EXPECT_EQ(lumaAt(0), 20); // there is none before it
    lumaAt(30);
    // A parameter that changes draws the same frame again, with the same one before.
    succeed(browser, {{"do", "set"}, {"link", link(browser)}, {"name", "amount"}, {"values", {0.99}}});
    succeed(browser, {{"do", "set"}, {"link", link(browser)}, {"name", "amount"}, {"values", {1}}});
    EXPECT_EQ(lumaAt(30), 20 + 2 * 29);
    stop();
}

TEST_F(Studio, says_from_which_frame_on_an_effect_draws_over_its_own_results)
{
    makeCountingClip("long.mp4", {"-c:v", "libx264", "-crf", "0", "-pix_fmt", "yuv420p"});
    write("trail.fx",
          "texture Input;\ntexture Trail : PREVIOUSRESULT;\n"
          "sampler T = sampler_state { Texture = <Trail>; };\n"
          "float step = 4;\n"
          "float4 f(float2 uv : TEXCOORD0) : COLOR { return float4(tex2D(T, uv).rgb + step / 255, 1); }\n"
          "technique T { pass P { PixelShader = compile ps_3_0 f(); } }\n");
    start({"long.mp4", "trail.fx"});
    Browser browser = window();
    // How many frames the effect has drawn, if it began with that one.
    const auto drawn = [&](int frame, int since) {
        succeed(browser, {{"do", "seek"}, {"frame", frame}});
        const Json probe = succeed(browser, {{"do", "probe"}, {"x", 9}, {"y", 9}});
        browser.state([&](const Json& state) {
            return state["frame"] == frame && state["chain"][0]["since"] == since;
        });
        const double begin =
            std::round((4 + 2 * since) * 255 / 219.0); // the luma of the frame, in full range
        return (probe["after"]["rgb8"][1].get<int>() - begin) / 4.0;
    };
    EXPECT_EQ(drawn(10, 10), 1);
    EXPECT_EQ(drawn(11, 10), 2);
    EXPECT_EQ(drawn(15, 10), 6) << "frames that were left out are drawn, as while it plays slowly";
    EXPECT_EQ(drawn(40, 40), 1) << "so many are not";
    EXPECT_EQ(drawn(39, 39), 1);
    succeed(browser, {{"do", "set"}, {"link", link(browser)}, {"name", "step"}, {"values", {8}}});
    EXPECT_EQ(drawn(39, 39), 2) << "a change draws its frame alone";
    EXPECT_EQ(drawn(0, 0), 2);
    stop();
}

TEST_F(Studio, tells_the_time_of_each_pass)
{
    makeClip();
    write("split.fx", "texture Input;\ntexture Light;\ntexture Dark;\n"
                      "sampler S = sampler_state { Texture = <Input>; };\n"
                      "sampler L = sampler_state { Texture = <Light>; };\n"
                      "sampler D = sampler_state { Texture = <Dark>; };\n"
                      "struct Parts { float4 light : COLOR0; float4 dark : COLOR1; };\n"
                      "Parts split(float2 uv : TEXCOORD0)\n"
                      "{ Parts p; p.light = tex2D(S, uv); p.dark = p.light * 0.5; return p; }\n"
                      "float4 join(float2 uv : TEXCOORD0) : COLOR { return tex2D(L, uv) - tex2D(D, uv); }\n"
                      "technique T {\n"
                      "    pass Split < string Target = \"Light\"; string Target1 = \"Dark\"; >\n"
                      "    { PixelShader = compile ps_3_0 split(); }\n"
                      "    pass Join { PixelShader = compile ps_3_0 join(); }\n"
                      "}\n");
    start({"clip.mp4", "qx-glow.fx", "split.fx"});
    Browser browser = window();
    const auto namesOf = [&](const Json& step) {
        std::string names;
        double sum = 0;
        for (const Json& pass : step["passes"]) {
            names += pass["name"].get<std::string>() + " ";
            EXPECT_GT(pass["milliseconds"].get<double>(), 0.0) << step.dump();
            sum += pass["milliseconds"].get<double>();
        }
        EXPECT_LE(sum, step["milliseconds"].get<double>() * 1.000001);
        return names;
    };
    const Json state = browser.state([](const Json& each) { return each["chain"].size() == 2; });
    EXPECT_EQ(namesOf(state["chain"][0]), "Bright Across Down Glow ");
    EXPECT_EQ(namesOf(state["chain"][1]), "Split Join ") << "a pass with two results is one";
    stop();
}

TEST_F(Studio, counts_scopes_of_the_frame_that_is_shown)
{
    makeCountingClip("long.mp4", {"-c:v", "libx264", "-crf", "0", "-pix_fmt", "yuv420p"});
    write("dim.fx", dimming());
    start({"long.mp4", "dim.fx"});
    Browser browser = window();
    succeed(browser, {{"do", "seek"}, {"frame", 33}});
    succeed(browser, {{"do", "scopes"}, {"kinds", {"histogram", "waveform"}}, {"of", "after"}, {"rate", 30}});
    const auto counts = [&](const std::function<bool(const Json&)>& holds) {
        Json scopes = browser.message("scopes");
        while (!holds(scopes)) {
            scopes = browser.message("scopes");
        }
        return scopes;
    };
    Json scopes = counts([](const Json& each) { return each["frame"] == 33; });
    EXPECT_EQ(scopes["bits"], 8);
    EXPECT_EQ(scopes["of"], "after");
    EXPECT_EQ(scopes["histogram"]["luma"][20 + 2 * 33], 64 * 48); // every pixel has that luma
    EXPECT_FALSE(scopes["waveform"]["luma"].get<std::string>().empty());
    EXPECT_FALSE(scopes.contains("parade"));
    succeed(browser, {{"do", "set"}, {"link", link(browser)}, {"name", "amount"}, {"values", {0}}});
    scopes = counts([](const Json& each) { return each["histogram"]["luma"][16] == 64 * 48; }); // black
    EXPECT_EQ(scopes["histogram"]["r"][0], 64 * 48);
    succeed(browser, {{"do", "scopes"}, {"kinds", {"histogram"}}, {"of", "before"}});
    scopes = counts([](const Json& each) { return each["of"] == "before"; });
    EXPECT_EQ(scopes["histogram"]["luma"][20 + 2 * 33], 64 * 48);
    fail(browser, {{"do", "scopes"}, {"kinds", {"other"}}});
    fail(browser, {{"do", "scopes"}, {"kinds", {"waveform"}}, {"rate", 0}});
    succeed(browser, {{"do", "scopes"}, {"kinds", Json::array()}});
    stop();
}

TEST_F(Studio, exports_mappings_of_colours)
{
    makeClip();
    write("dim.fx", dimming());
    start({"clip.mp4", "dim.fx"});
    Browser browser = window();
    succeed(browser, {{"do", "set"}, {"link", link(browser)}, {"name", "amount"}, {"values", {0.5}}});
    const Json made = succeed(browser, {{"do", "export"}, {"file", "half.cube"}, {"size", 17}});
    EXPECT_EQ(made["file"], "half.cube");
    EXPECT_EQ(made["pure"], true);
    EXPECT_LT(made["error"].get<double>(), 0.001);
    const std::string cube = read(at("half.cube"));
    EXPECT_NE(cube.find("LUT_3D_SIZE 17"), std::string::npos);
    EXPECT_EQ(browser.ask({{"do", "export"}, {"file", "half.cube"}, {"size", 17}})["kind"], "conflict");
    EXPECT_EQ(read(at("half.cube")), cube);
    succeed(browser, {{"do", "add"}, {"kind", "effect"}, {"name", "qx-vignette.fx"}});
    EXPECT_NE(fail(browser, {{"do", "export"}, {"file", "more.cube"}, {"size", 33}}).find("qx-vignette.fx"),
              std::string::npos);
    fail(browser, {{"do", "export"}, {"file", "more.cube"}, {"size", 16}});
    fail(browser, {{"do", "export"}, {"file", "../more.cube"}, {"size", 17}});
    fail(browser, {{"do", "export"}, {"file", "dim.fx"}, {"size", 17}});
    stop();
    EXPECT_EQ(filesBeside({"clip.mp4", "dim.fx", "half.cube"}), std::vector<std::string>());
}

TEST_F(Studio, refuses_what_it_cannot_show)
{
    makeClip();
    write("text.txt", "no clip\n");
    EXPECT_EQ(qxhost({"studio"}).exitCode, 2);
    EXPECT_EQ(qxhost({"studio", "-"}).exitCode, 2);
    EXPECT_EQ(qxhost({"studio", "none.mp4"}).exitCode, 3);
    EXPECT_EQ(qxhost({"studio", "text.txt"}).exitCode, 3);
    EXPECT_EQ(qxhost({"studio", "clip.mp4", "none.fx"}).exitCode, 6);
    EXPECT_EQ(qxhost({"studio", "clip.mp4", "none.cube"}).exitCode, 6);
    EXPECT_EQ(qxhost({"studio", "clip.mp4", "--looks", "none"}).exitCode, 2);
    EXPECT_EQ(qxhost({"studio", "clip.mp4", "--host", "no.such.name.invalid"}).exitCode, 2);
    EXPECT_EQ(qxhost({"studio", "clip.mp4", "--port", "70000"}).exitCode, 2);
}

TEST_F(Studio, shows_a_picture)
{
    ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=102x58", "-frames:v", "1", "-pix_fmt", "rgb24", "photo.png"});
    start({"photo.png", "cc3.fx"});
    Browser browser = window();
    browser.send(view(51, 51));
    EXPECT_EQ(browser.picture().header["width"], 51);
    const Json state = browser.state([](const Json&) { return true; });
    EXPECT_EQ(state["clip"]["still"], true);
    EXPECT_EQ(state["clip"]["frames"], 1);
    EXPECT_EQ(state["clip"]["isRgb"], true);
    succeed(browser, {{"do", "play"}});
    succeed(browser, {{"do", "step"}, {"by", 1}});
    succeed(browser, {{"do", "seek"}, {"frame", 9}});
    EXPECT_EQ(succeed(browser, {{"do", "probe"}, {"x", 100}, {"y", 56}})["frame"], 0);
    stop();
}

} // namespace

} // namespace Qx::System
