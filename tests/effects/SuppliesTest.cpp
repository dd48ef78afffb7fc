// What programs give to effects of other origins: which texture gets the picture, and what parameters ask
// for.

#include "host/effects/Supplies.h"
#include "host/effects/EffectCompiler.h"
#include "host/effects/TextureSources.h"
#include "tests/TemporaryDirectory.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace Qx::Host {
namespace {

using Parameter = CompiledEffect::Parameter;

/// An effect of textures, each read by a sampler of its own, and of techniques that read some of them.
CompiledEffect effectOf(const std::vector<std::string>& textures,
                        const std::vector<std::vector<std::uint32_t>>& techniques)
{
    CompiledEffect effect;
    for (std::uint32_t i = 0; i < textures.size(); ++i) {
        effect.textures.emplace_back().name = textures[i];
        effect.samplers.emplace_back();
        effect.samplers.back().texture = i;
    }
    for (const std::vector<std::uint32_t>& samplers : techniques) {
        effect.techniques.emplace_back();
        effect.techniques.back().passes.emplace_back();
        effect.techniques.back().passes.back().samplers = samplers;
    }
    return effect;
}

std::string pictureOf(const CompiledEffect& effect, const std::vector<std::string>& given = {},
                      std::size_t technique = 0)
{
    const std::optional<std::size_t> texture = pictureTexture(effect, effect.techniques[technique], given);
    return texture ? effect.textures[*texture].name : "";
}

TEST(PictureTexture, IsTheOneCalledInput)
{
    CompiledEffect effect = effectOf({"Scene", "Input"}, {{0, 1}});
    effect.samplers[0].registerIndex = 0;
    EXPECT_EQ(pictureOf(effect), "Input");
}

TEST(PictureTexture, IsTheOnlyOneWhateverItsAnnotations)
{
    CompiledEffect effect = effectOf({"Scene"}, {{0}});
    effect.textures[0].annotations = {{"string", "ResourceName", "default.dds"}};
    EXPECT_EQ(pictureOf(effect), "Scene");
}

TEST(PictureTexture, IsTheOneAtTheFirstRegister)
{
    CompiledEffect effect = effectOf({"A", "B", "C"}, {{0, 1, 2}});
    effect.samplers[0].registerIndex = 1;
    effect.samplers[2].registerIndex = 0;
    EXPECT_EQ(pictureOf(effect), "C");
    EXPECT_EQ(pictureOf(effect, {"C"}), "A") << "a texture with a picture of its own does not count";
}

TEST(PictureTexture, IsTheFirstThatTheTechniqueReadsAndNoAnnotationGivesElsewhere)
{
    CompiledEffect effect = effectOf({"A", "B", "C"}, {{0, 1, 2}, {2}});
    EXPECT_EQ(pictureOf(effect), "A");
    EXPECT_EQ(pictureOf(effect, {}, 1), "C");
    effect.textures[0].annotations = {{"string", "ResourceName", "noise.png"}};
    EXPECT_EQ(pictureOf(effect), "B");
    effect.textures[0].annotations = {{"string", "UIName", "noise.png"}};
    EXPECT_EQ(pictureOf(effect), "A") << "that annotation names no file";
    effect.textures[0].semantic = "Previous";
    EXPECT_EQ(pictureOf(effect), "B");
    EXPECT_EQ(pictureOf(effect, {"B", "C"}), "");
}

TEST(PictureTexture, IsNoVolume)
{
    CompiledEffect effect = effectOf({"Table", "Scene"}, {{0, 1}});
    effect.samplers[0].dimensions = 3;
    effect.samplers[0].registerIndex = 0;
    EXPECT_EQ(pictureOf(effect), "Scene");
}

Parameter parameter(const std::string& name, const std::string& semantic, std::uint32_t columns = 1)
{
    Parameter made;
    made.name = name;
    made.semanticName = semantic;
    made.columns = columns;
    made.bytes = columns * 4;
    made.defaultValue.resize(made.bytes);
    return made;
}

std::vector<float> valuesFor(const Parameter& asking)
{
    const FrameFacts facts{.seconds = 2.5, .frameSeconds = 0.04, .number = 62, .width = 640, .height = 320};
    const Supply supply = supplyOf(asking);
    return supply == Supply::None ? std::vector<float>() : valuesOf(supply, asking, facts);
}

using Floats = std::vector<float>;

TEST(Supplies, SemanticsAskForTimeFrameAndSize)
{
    EXPECT_EQ(valuesFor(parameter("a", "TIME")), Floats{2.5F});
    EXPECT_EQ(valuesFor(parameter("a", "Time0_X")), Floats{2.5F});
    EXPECT_EQ(valuesFor(parameter("a", "ELAPSEDTIME")), Floats{0.04F});
    EXPECT_EQ(valuesFor(parameter("a", "LASTTIME")), Floats{2.46F});
    EXPECT_EQ(valuesFor(parameter("a", "Frame")), Floats{62});
    EXPECT_EQ(valuesFor(parameter("a", "FPS")), Floats{25});
    EXPECT_EQ(valuesFor(parameter("a", "VIEWPORTPIXELSIZE", 2)), (Floats{640, 320}));
    EXPECT_EQ(valuesFor(parameter("a", "VIEWPORTPIXELSIZE", 3)), (Floats{640, 320, 1}));
    EXPECT_EQ(valuesFor(parameter("a", "ViewportSize", 4)), (Floats{640, 320, 1 / 640.0F, 1 / 320.0F}));
    EXPECT_EQ(valuesFor(parameter("a", "TEXELSIZE", 2)), (Floats{1 / 640.0F, 1 / 320.0F}));
    EXPECT_EQ(valuesFor(parameter("a", "ViewportWidthInverse")), Floats{1 / 640.0F});
    EXPECT_EQ(valuesFor(parameter("a", "ASPECTRATIO")), Floats{2});
    EXPECT_EQ(valuesFor(parameter("a", "MOUSEPOSITION", 2)), (Floats{0.5F, 0.5F}));
    EXPECT_EQ(valuesFor(parameter("a", "LEFTMOUSEDOWN", 4)), (Floats{0, 0, 0, 0}));
    EXPECT_EQ(valuesFor(parameter("a", "TIME", 3)), Floats()) << "time is one number";
    EXPECT_EQ(valuesFor(parameter("a", "ASPECT")), Floats());
}

TEST(Supplies, AnnotationsAskToo)
{
    const auto asking = [](const std::string& annotation, const std::string& value, std::uint32_t columns) {
        Parameter made = parameter("x", "", columns);
        made.annotations = {{"string", annotation, value}};
        return made;
    };
    EXPECT_EQ(valuesFor(asking("source", "timer", 1)), Floats{2500});
    EXPECT_EQ(valuesFor(asking("source", "frametime", 1)), Floats{40});
    EXPECT_EQ(valuesFor(asking("Source", "FrameCount", 1)), Floats{62});
    EXPECT_EQ(valuesFor(asking("source", "mousepoint", 2)), (Floats{320, 160}));
    EXPECT_EQ(valuesFor(asking("source", "key", 1)), Floats{0});
    EXPECT_EQ(valuesFor(asking("SasBindAddress", "Sas.Time.Now", 1)), Floats{2.5F});
    EXPECT_EQ(valuesFor(asking("SasBindAddress", "Sas.Time.FrameNumber", 1)), Floats{62});
    EXPECT_EQ(valuesFor(asking("UIName", "timer", 1)), Floats());
}

TEST(Supplies, NamesAskUnlessTheParameterIsTheUsers)
{
    EXPECT_EQ(valuesFor(parameter("g_fTime", "")), Floats{2.5F});
    EXPECT_EQ(valuesFor(parameter("G_Time", "")), Floats{2.5F});
    EXPECT_EQ(valuesFor(parameter("iResolution", "", 3)), (Floats{640, 320, 1}));
    EXPECT_EQ(valuesFor(parameter("ScreenSize", "", 2)), (Floats{640, 320}));
    EXPECT_EQ(valuesFor(parameter("rcpFrame", "", 2)), (Floats{1 / 640.0F, 1 / 320.0F}));
    EXPECT_EQ(valuesFor(parameter("p0", "", 4)), (Floats{640, 320, 62, 2.5F}));
    EXPECT_EQ(valuesFor(parameter("p1", "", 4)), (Floats{1 / 640.0F, 1 / 320.0F, 0, 0}));
    Parameter ranged = parameter("time", "");
    ranged.annotations = {{"float", "UIMax", "10"}};
    EXPECT_EQ(valuesFor(ranged), Floats()) << "a slider";
    Parameter chosen = parameter("time", "");
    chosen.defaultValue[3] = std::byte{0x3F};
    EXPECT_EQ(valuesFor(chosen), Floats()) << "the author has chosen a time";
    Parameter sized = parameter("texelSize", "", 2);
    sized.defaultValue[3] = std::byte{0x3F};
    EXPECT_EQ(valuesFor(sized), (Floats{1 / 640.0F, 1 / 320.0F})) << "of the picture that it was written for";
    EXPECT_EQ(valuesFor(parameter("time", "MYTIME")), Floats()) << "the semantic counts, not the name";
}

TEST(Supplies, RandomNumbersChangeWithTheFrameAndStayInTheirRange)
{
    const Parameter number = parameter("noise", "RANDOM", 4);
    Parameter dice = parameter("dice", "RANDOM");
    dice.type = CompiledEffect::ScalarType::Int;
    dice.annotations = {{"int", "min", "1"}, {"int", "max", "6"}};
    std::vector<int> thrown(7);
    Floats last;
    for (int frame = 0; frame < 300; ++frame) {
        const FrameFacts facts{.number = frame};
        const Floats values = valuesOf(supplyOf(number), number, facts);
        EXPECT_EQ(values, valuesOf(supplyOf(number), number, facts)) << "the same in each run";
        EXPECT_NE(values, last);
        EXPECT_NE(values[0], values[1]);
        for (const float value : values) {
            ASSERT_GE(value, 0);
            ASSERT_LE(value, 1);
        }
        last = values;
        ++thrown.at(static_cast<std::size_t>(valuesOf(supplyOf(dice), dice, facts)[0]));
    }
    EXPECT_EQ(thrown[0], 0);
    for (int face = 1; face <= 6; ++face) {
        EXPECT_NEAR(thrown.at(static_cast<std::size_t>(face)), 50, 25) << face;
    }
}

TEST(Supplies, DatesGoOnWithTheClip)
{
    Parameter date = parameter("d", "", 4);
    date.annotations = {{"string", "source", "date"}};
    // 20781 days after 1970-01-01.
    FrameFacts facts{.seconds = 2.5, .day = 20781, .secondsOfDay = 3600};
    EXPECT_EQ(valuesOf(supplyOf(date), date, facts), (Floats{2026, 11, 24, 3602.5F}));
    facts.secondsOfDay = 86399;
    EXPECT_EQ(valuesOf(supplyOf(date), date, facts), (Floats{2026, 11, 25, 1.5F}));
    const Parameter player = parameter("iDate", "", 4);
    EXPECT_EQ(valuesOf(supplyOf(player), player, facts), (Floats{2026, 10, 25, 1.5F}));
    facts = {.seconds = 86400, .day = 19782, .secondsOfDay = 0}; // 2024-02-29
    const Parameter semantic = parameter("d", "DATE", 4);
    EXPECT_EQ(valuesOf(supplyOf(semantic), semantic, facts), (Floats{2024, 3, 1, 0}));
    EXPECT_EQ(supplyOf(parameter("iDate", "", 3)), Supply::None) << "a date is four numbers";
}

/// A parameter that goes back and forth.
Parameter goingBackAndForth(const std::string& least, const std::string& most, const std::string& step,
                            const std::string& smoothing)
{
    Parameter made = parameter("p", "", 2);
    made.annotations = {{"string", "source", "pingpong"}, {"float", "min", least}, {"float", "max", most}};
    if (!step.empty()) {
        made.annotations.push_back({"float2", "step", step});
    }
    if (!smoothing.empty()) {
        made.annotations.push_back({"float", "smoothing", smoothing});
    }
    return made;
}

TEST(Supplies, PingPongGoesBackAndForth)
{
    const auto at = [](const Parameter& parameter, double seconds) {
        return valuesOf(supplyOf(parameter), parameter, {.seconds = seconds});
    };
    const Parameter plain = goingBackAndForth("2", "10", "4", "");
    EXPECT_EQ(at(plain, 0), (Floats{2, 1}));
    EXPECT_EQ(at(plain, 0.5), (Floats{4, 1}));
    EXPECT_EQ(at(plain, 2), (Floats{10, -1}));
    EXPECT_EQ(at(plain, 3), (Floats{6, -1}));
    EXPECT_EQ(at(plain, 4.25), (Floats{3, 1}));
    EXPECT_EQ(at(goingBackAndForth("2", "10", "{1,7}", ""), 0.5), (Floats{4, 1})) << "the mean of two steps";
    EXPECT_EQ(at(goingBackAndForth("0", "1", "", ""), 10), (Floats{0.5F, 1})) << "a twentieth each second";
    EXPECT_EQ(at(goingBackAndForth("3", "3", "1", ""), 7), (Floats{3, 1}));
    EXPECT_EQ(at(goingBackAndForth("5", "1", "1", ""), 7), (Floats{5, 1})) << "an empty range";
    Parameter one = goingBackAndForth("0", "1", "0.25", "");
    one.columns = 1;
    EXPECT_EQ(at(one, 1), Floats{0.25F});
}

TEST(Supplies, SmoothPingPongSlowsDownBeforeTheEnds)
{
    // The speed at a distance d from the end is 4 - max(0, 3 - d), at least 0.05; here in small steps of
    // time.
    const Parameter smooth = goingBackAndForth("0", "10", "4", "3");
    double value = 0;
    double direction = 1;
    constexpr int steps = 2000;
    for (int i = 0; i < 12 * steps; ++i) {
        if (i % steps == 0) {
            const Floats values = valuesOf(supplyOf(smooth), smooth, {.seconds = i / double(steps)});
            EXPECT_NEAR(values[0], value, 0.01) << i / steps;
            EXPECT_EQ(values[1], direction) << i / steps;
        }
        const double left = direction > 0 ? 10 - value : value;
        value += direction * std::max(4 - std::max(0.0, 3 - left), 0.05) / steps;
        if (value >= 10 || value <= 0) {
            value = std::clamp(value, 0.0, 10.0);
            direction = -direction;
        }
    }
    // Smoothing beyond the step and the range: the end is reached at the slowest speed.
    const Parameter slow = goingBackAndForth("0", "1", "2", "5");
    EXPECT_EQ(valuesOf(supplyOf(slow), slow, {.seconds = 10}), (Floats{0.5F, 1}));
}

TEST(Supplies, WhatNobodyGivesIsNamed)
{
    EXPECT_EQ(unansweredBy(parameter("w", "WorldViewProjection")), "semantic WorldViewProjection");
    EXPECT_EQ(unansweredBy(parameter("t", "TIME", 3)), "semantic TIME");
    EXPECT_EQ(unansweredBy(parameter("t", "TIME")), "");
    EXPECT_EQ(unansweredBy(parameter("gain", "")), "");
    EXPECT_EQ(unansweredBy(parameter("Script", "STANDARDSGLOBAL")), "");
    Parameter date = parameter("d", "", 4);
    date.annotations = {{"string", "source", "date"}};
    EXPECT_EQ(unansweredBy(date), "");
    date.columns = 2;
    EXPECT_EQ(unansweredBy(date), "source \"date\"");
    Parameter slider = parameter("gain", "AMOUNT");
    slider.annotations = {{"string", "UIName", "Gain"}};
    EXPECT_EQ(unansweredBy(slider), "") << "it is the user's";
}

TEST(Supplies, SemanticsAreKeptByTheCompilerWithoutAWarning)
{
    const Qx::Test::TemporaryDirectory directory;
    const EffectCompilation made = compileEffect(
        directory.write("effect.fx",
                        "texture Before : PREVIOUS;\n"
                        "sampler S = sampler_state { Texture = <Before>; };\n"
                        "float2 size : PictureSize;\n"
                        "float4 f(float2 uv : TEXCOORD0) : COLOR { return tex2D(S, uv / size); }\n"
                        "technique T { pass { PixelShader = compile ps_3_0 f(); } }\n"),
        {});
    EXPECT_EQ(made.messages, "");
    ASSERT_NE(made.effect, nullptr);
    EXPECT_EQ(made.effect->textures[0].semantic, "PREVIOUS");
    EXPECT_EQ(made.effect->parameters[0].semanticName, "PictureSize");
}

} // namespace
} // namespace Qx::Host
