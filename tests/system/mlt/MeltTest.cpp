#include "tests/system/mlt/MeltProgram.h"

#include <chrono>
#include <cmath>
#include <csignal>
#include <thread>

namespace {

using namespace Qx::System;

constexpr const char* filmLut =
    "TITLE \"film\"\nLUT_3D_SIZE 2\n0 0.02 0.05\n0.95 0 0\n0 0.9 0.1\n1 1 0\n0.1 0 1\n1 0 0.9\n"
    "0 1 0.8\n1 0.97 0.95\n";

/// A clip, what melt and qxhost do with it, and in which pixel format the results are compared.
struct Case
{
    std::string name;
    std::string size;
    std::string pixelFormat;
    std::string matrix;
    std::vector<std::string> filters;
    std::vector<std::string> options;
};

void PrintTo(const Case& each, std::ostream* out)
{
    *out << each.name;
}

const std::vector<Case>& cases()
{
    static const std::vector<Case> all{
        {"grade_of_uyvy",
         "320x180",
         "uyvy422",
         "bt601",
         {"-filter", "qx.effect", "effect=cc3.fx", "gain=1.2"},
         {"--effect", "cc3.fx", "--set", "gain=1.2"}},
        {"grade_of_high_definition",
         "1280x720",
         "uyvy422",
         "bt709",
         {"-filter", "qx.effect", "effect=cc3.fx", "gain=0.9", "saturation=1.4", "gammaRed=1.3"},
         {"--effect", "cc3.fx", "--set", "gain=0.9", "--set", "saturation=1.4", "--set", "gammaRed=1.3"}},
        {"vignette",
         "720x576",
         "uyvy422",
         "bt601",
         {"-filter", "qx.effect:qx-vignette.fx"},
         {"--effect", "qx-vignette.fx"}},
        {"blur",
         "320x180",
         "yuyv422",
         "bt601",
         {"-filter", "qx.effect.qx-blur", "radius=7"},
         {"--effect", "qx-blur.fx", "--set", "radius=7"}},
        {"sharpen",
         "704x400",
         "uyvy422",
         "bt601",
         {"-filter", "qx.effect", "effect=qx-sharpen.fx"},
         {"--effect", "qx-sharpen.fx"}},
        {"glow",
         "320x180",
         "uyvy422",
         "bt601",
         {"-filter", "qx.effect", "effect=qx-glow.fx"},
         {"--effect", "qx-glow.fx"}},
        {"two_effects",
         "320x180",
         "rgba",
         "bt601",
         {"-filter", "qx.effect", "effect=cc3.fx", "gain=1.1", "-filter", "qx.effect", "effect=cc3.fx",
          "lift=0.05"},
         {"--effect", "cc3.fx", "--set", "gain=1.1", "--effect", "cc3.fx", "--set", "lift=0.05"}},
        {"key_of_rgba",
         "320x180",
         "rgba",
         "bt601",
         {"-filter", "qx.effect", "effect=qx-chroma-key.fx"},
         {"--effect", "qx-chroma-key.fx"}},
        {"grade_of_rgba",
         "642x362",
         "rgba",
         "bt601",
         {"-filter", "qx.effect", "effect=cc3.fx", "gain=1.2"},
         {"--effect", "cc3.fx", "--set", "gain=1.2"}},
        {"lut", "320x180", "uyvy422", "bt601", {"-filter", "qx.lut:film.cube"}, {"--lut", "film.cube"}},
        {"lut_of_rgba",
         "320x180",
         "rgba",
         "bt601",
         {"-filter", "qx.lut", "lut=film.cube"},
         {"--lut", "film.cube"}},
        {"text",
         "720x576",
         "uyvy422",
         "bt601",
         {"-filter", "qx.text", "text={timecode} {frame}", "size=40", "place=top-left"},
         {"--burn-in", "{timecode} {frame}", "--font-size", "40", "--position", "top-left"}},
        {"grain_of_each_frame",
         "320x180",
         "uyvy422",
         "bt601",
         {"-filter", "qx.effect", "effect=qx-grain.fx"},
         {"--effect", "qx-grain.fx"}},
    };
    return all;
}

class MeltAgainstQxhost : public MeltTest, public testing::WithParamInterface<Case>
{
};

TEST_P(MeltAgainstQxhost, gives_the_same_codes)
{
    const Case& each = GetParam();
    const bool isRgb = each.pixelFormat == "rgba";
    write("film.cube", filmLut);
    const std::string clip = isRgb ? "clip.nut" : "clip.mov";
    makeClip(clip, each.size, each.pixelFormat == "yuyv422" ? "yuyv422" : each.pixelFormat, each.matrix, "tv",
             {"-c:v", isRgb ? "ffv1" : "rawvideo"}, 8);
    if (isRgb) {
        ffmpeg({"-i", clip, "-c:v", "rawvideo", "-pix_fmt", "rgba", "raw.nut"});
    }
    const std::string source = isRgb ? "raw.nut" : clip;
    const auto width = static_cast<std::size_t>(std::stoi(each.size));
    const auto height = static_cast<std::size_t>(std::stoi(each.size.substr(each.size.find('x') + 1)));
    const Bytes made = melted(source, each.filters, isRgb ? "rgba" : "yuyv422");
    EXPECT_EQ(said_.find("[filter"), std::string::npos) << said_;
    const Bytes expected = converted(source, each.options, isRgb ? "rgba" : "yuyv");
    EXPECT_TRUE(areSame(made, expected, width * height * (isRgb ? 4 : 2)));
    EXPECT_NE(made, decoded(source, isRgb ? "rgba" : "yuyv422")) << "nothing was drawn";
}

INSTANTIATE_TEST_SUITE_P(Melt, MeltAgainstQxhost, testing::ValuesIn(cases()),
                         [](const auto& each) { return each.param.name; });

constexpr std::size_t smallFrame = std::size_t{320} * 180 * 2;

TEST_F(MeltTest, moves_parameters_by_key_frames)
{
    makeClip("clip.mov", "320x180", "uyvy422", "bt601", "tv", {"-c:v", "rawvideo"}, 9);
    const Bytes made =
        melted("clip.mov", {"-filter", "qx.effect", "effect=cc3.fx", "gain=0=0.5;8=1.5", "out=8"}, "yuyv422");
    ASSERT_GE(made.size(), 8 * smallFrame);
    for (std::size_t frame = 0; frame < 8; ++frame) {
        const double gain = 0.5 + static_cast<double>(frame) / 8;
        const Bytes expected = converted("clip.mov",
                                         {"--effect", "cc3.fx", "--set", "gain=" + std::to_string(gain),
                                          "--start", std::to_string(frame), "--frames", "1"},
                                         "yuyv");
        const Bytes one(made.begin() + static_cast<std::ptrdiff_t>(frame * smallFrame),
                        made.begin() + static_cast<std::ptrdiff_t>((frame + 1) * smallFrame));
        EXPECT_EQ(one, expected) << "frame " << frame;
    }
}

TEST_F(MeltTest, takes_vectors_as_numbers_key_frames_and_colours)
{
    write("tint.fx",
          "texture Input;\nsampler s = sampler_state { Texture = <Input>; };\nfloat3 tint = {1, 1, 1};\n"
          "float4 main(float2 uv : TEXCOORD0) : COLOR { float4 c = tex2D(s, uv); return float4(c.rgb * tint, "
          "c.a); }\n"
          "technique Tint { pass { PixelShader = compile ps_3_0 main(); } }\n");
    makeClip("clip.mov", "320x180", "uyvy422", "bt601");
    const Bytes expected =
        converted("clip.mov", {"--effect", "./tint.fx", "--set", "tint=1,0.2,0.4"}, "yuyv");
    for (const char* value : {"tint=1,0.2,0.4", "tint=1 0.2 0.4", "set.tint=1 0.2 0.4",
                              "tint=0=1 0.2 0.4 0;3=1 0.2 0.4 0", "tint=#ff3366"}) {
        EXPECT_TRUE(
            areSame(melted("clip.mov", {"-filter", "qx.effect", "effect=./tint.fx", value}, "yuyv422"),
                    expected, smallFrame))
            << value << said_;
    }
}

TEST_F(MeltTest, reads_numbers_in_any_locale)
{
    makeClip("clip.mov", "320x180", "uyvy422", "bt601");
    std::vector<std::string> command =
        rendering("clip.mov", {"-filter", "qx.effect", "effect=cc3.fx", "gain=1.25"}, "yuyv422");
    command.insert(command.begin() + 5, "LC_ALL=de_DE.UTF-8");
    EXPECT_EQ(rendered(command).exitCode, 0);
    EXPECT_TRUE(areSame(decoded("melt.nut", "yuyv422"),
                        converted("clip.mov", {"--effect", "cc3.fx", "--set", "gain=1.25"}, "yuyv"),
                        smallFrame));
}

TEST_F(MeltTest, draws_transitions_over_two_tracks)
{
    makeClip("a.mov", "320x180", "uyvy422", "bt601", "tv", {"-c:v", "rawvideo"}, 8);
    ffmpeg({"-i", "a.mov", "-vf", "hflip,vflip", "-c:v", "rawvideo", "-pix_fmt", "uyvy422", "b.mov"});
    const Bytes made = melted("a.mov",
                              {"-track", "b.mov", "-transition", "qx.transition", "effect=qx-dissolve.fx",
                               "a_track=0", "b_track=1", "in=0", "out=7"},
                              "yuyv422");
    EXPECT_EQ(said_.find("[transition"), std::string::npos) << said_;
    ASSERT_GE(made.size(), 7 * smallFrame);
    for (std::size_t frame = 0; frame < 7; ++frame) {
        const double amount = static_cast<double>(frame) / 8;
        const Bytes expected =
            converted("a.mov",
                      {"--effect", "qx-dissolve.fx", "--texture", "To=b.mov", "--set",
                       "amount=" + std::to_string(amount), "--frames", std::to_string(frame + 1)},
                      "yuyv");
        const Bytes one(made.begin() + static_cast<std::ptrdiff_t>(frame * smallFrame),
                        made.begin() + static_cast<std::ptrdiff_t>((frame + 1) * smallFrame));
        const Bytes last(expected.end() - static_cast<std::ptrdiff_t>(smallFrame), expected.end());
        EXPECT_EQ(one, last) << "frame " << frame;
    }
}

TEST_F(MeltTest, says_what_is_wrong_with_an_effect_and_passes_the_picture_on)
{
    makeClip("clip.mov", "320x180", "uyvy422", "bt601");
    write("broken.fx", "texture Input;\nfloat4 main() : COLOR { return undeclared; }\n"
                       "technique T { pass { PixelShader = compile ps_3_0 main(); } }\n");
    const Bytes untouched = decoded("clip.mov", "yuyv422");
    for (const auto& [effect, message] :
         {std::pair("./broken.fx", "broken.fx:2:32: error: 'undeclared': unknown variable"),
          {"./missing.fx", "missing.fx"},
          {"cc4.fx", "did you mean cc3.fx"},
          {"qx-dissolve.fx", "texture.To=FILE"}}) {
        const Bytes made =
            melted("clip.mov", {"-filter", "qx.effect", std::string("effect=") + effect}, "yuyv422");
        EXPECT_TRUE(areSame(made, untouched, smallFrame)) << effect;
        EXPECT_NE(said_.find(message), std::string::npos) << effect << ": " << said_;
        // melt makes every filter twice: once to learn the clip's profile.
        EXPECT_LE(timesSaid(message), 2U) << said_;
    }
}

TEST_F(MeltTest, says_what_is_wrong_with_properties_and_passes_the_picture_on)
{
    makeClip("clip.mov", "320x180", "uyvy422", "bt601");
    write("broken.cube", "LUT_3D_SIZE 2\n0 0 0\n");
    const Bytes untouched = decoded("clip.mov", "yuyv422");
    const std::vector<std::pair<std::vector<std::string>, std::string>> mistakes{
        {{"-filter", "qx.effect"}, "effect: is not set"},
        {{"-filter", "qx.effect", "effect=cc3.fx", "technique=Missing"}, "has no technique \"Missing\""},
        {{"-filter", "qx.effect", "effect=cc3.fx", "gain=loud"}, "gain: invalid value \"loud\""},
        {{"-filter", "qx.effect", "effect=cc3.fx", "gian=1.2"}, "did you mean gain"},
        {{"-filter", "qx.effect", "effect=cc3.fx", "set.strength=1"}, "no parameter \"strength\""},
        {{"-filter", "qx.lut"}, "lut: is not set"},
        {{"-filter", "qx.lut", "lut=broken.cube"}, "broken.cube"},
        {{"-filter", "qx.text", "text={tmecode}"}, "{tmecode"},
        {{"-filter", "qx.text", "size=-3"}, "size: invalid value \"-3\""},
        {{"-filter", "qx.text", "place=botom"}, "did you mean bottom"},
        {{"-filter", "qx.convert", "matrix=bt7"}, "matrix: invalid value \"bt7\""},
    };
    for (const auto& [filter, message] : mistakes) {
        const Bytes made = melted("clip.mov", filter, "yuyv422");
        const bool isDrawn =
            filter.size() > 3 && filter[2] == "effect=cc3.fx" && filter[3] != "technique=Missing";
        if (!isDrawn) {
            EXPECT_TRUE(areSame(made, untouched, smallFrame)) << message;
        }
        EXPECT_NE(said_.find(message), std::string::npos) << message << ": " << said_;
    }
}

TEST_F(MeltTest, gives_the_same_codes_on_several_threads)
{
    makeClip("clip.mov", "320x180", "uyvy422", "bt601", "tv", {"-c:v", "rawvideo"}, 60);
    const Bytes graded = converted("clip.mov", {"--effect", "cc3.fx", "--set", "gain=1.2"}, "yuyv");
    EXPECT_TRUE(areSame(melted("clip.mov", {"-filter", "qx.effect", "effect=cc3.fx", "gain=1.2"}, "yuyv422",
                               {"real_time=-4", "threads=4"}),
                        graded, smallFrame, 59));
}

TEST_F(MeltTest, goes_on_when_the_process_that_compiles_is_killed)
{
    makeClip("clip.mov", "320x180", "uyvy422", "bt601", "tv", {"-c:v", "rawvideo"}, 500);
    write("new.fx", "texture Input;\nsampler s = sampler_state { Texture = <Input>; };\n"
                    "float4 main(float2 uv : TEXCOORD0) : COLOR { return 1 - tex2D(s, uv); }\n"
                    "technique T { pass { PixelShader = compile ps_3_0 main(); } }\n");
    Running melt(rendering("clip.mov", {"-filter", "qx.effect", "effect=./new.fx"}, "yuyv422"), at("."));
    int killed = 0;
    for (int tries = 0; melt.isRunning() && tries < 2000 && killed < 3; ++tries) {
        killed += melt.signalChildren(SIGKILL);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    const Outcome outcome = melt.wait();
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_GT(killed, 0);
    EXPECT_GE(decoded("melt.nut", "yuyv422").size(), 499 * smallFrame);
}

TEST_F(MeltTest, works_beside_every_module_without_a_display)
{
    makeClip("clip.mov", "320x180", "uyvy422", "bt601");
    const Outcome outcome =
        rendered(meltCommand({"-silent", "clip.mov", "-filter", "qx.effect", "effect=cc3.fx", "gain=1.2",
                              "-consumer", "avformat:melt.nut", "vcodec=rawvideo", "pix_fmt=yuyv422", "an=1"},
                             "all"));
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_TRUE(areSame(decoded("melt.nut", "yuyv422"),
                        converted("clip.mov", {"--effect", "cc3.fx", "--set", "gain=1.2"}, "yuyv"),
                        smallFrame));
}

TEST_F(MeltTest, describes_its_services)
{
    for (const auto& [service, text] : {std::pair("filter=qx.effect", "identifier: technique"),
                                        {"filter=qx.lut", "identifier: lut"},
                                        {"filter=qx.text", "identifier: place"},
                                        {"filter=qx.convert", "- bt2020"},
                                        {"transition=qx.transition", "default: qx-dissolve.fx"}}) {
        const Outcome outcome = run(meltCommand({"-query", service}));
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        EXPECT_NE(outcome.out.find(text), std::string::npos) << service << ": " << outcome.out;
    }
}

TEST_F(MeltTest, describes_an_effect_by_its_annotations)
{
    const Outcome outcome = run(meltCommand({"-query", "filter=qx.effect.cc3"}));
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_NE(outcome.out.find(
                  "  - identifier: lift\n    title: Lift\n    type: float\n    default: 0\n    minimum: -1\n"
                  "    maximum: 1\n    mutable: yes\n    animation: yes\n"),
              std::string::npos)
        << outcome.out;
}

} // namespace
