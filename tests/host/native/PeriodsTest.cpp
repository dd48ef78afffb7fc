// How many texels a lane computes.

#include "host/native/Periods.h"
#include "tests/host/native/NativeFrames.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace Qx::Host::Tests {
namespace {

using Numbers = std::vector<std::uint32_t>;

/// What the maker says of the shader for these depths.
Numbers repetitionsOf(const std::string& file, const std::string& name, std::uint32_t source,
                      std::uint32_t target)
{
    const CompiledEffect& effect = shippedEffect(file);
    for (const CompiledEffect::Technique& technique : effect.techniques) {
        for (const CompiledEffect::PackedShader& shader : technique.passes[0].packed) {
            if (technique.name == name &&
                shader.depths == CompiledEffect::PackedShader::Depths{source, target}) {
                const std::vector<Native::Texels> texels = texelsOf(effect, shader);
                const std::vector<std::byte> usual(effect.uniformBytes);
                return nativeLibrary()
                    .make({shader.spirv, texels, shader.depths.target, usual, 1920}, {})
                    .repetitions;
            }
        }
    }
    ADD_FAILURE() << "no technique " << name;
    return {};
}

TEST(NativePeriods, AreThoseAfterWhichAShaderRepeatsItself)
{
    EXPECT_EQ(repetitionsOf("ColourConvert", "YCrCb422_Video_BT709_To_RGB_Unscaled_CatmullRom", 8, 8),
              (Numbers{2}));
    EXPECT_EQ(repetitionsOf("ColourConvert", "RGB_Unscaled_To_YCrCb422_Video_BT709_Lanczos", 8, 8),
              Numbers());
    EXPECT_EQ(repetitionsOf("ColourConvert", "PackMatrox10Bit", 16, 8), (Numbers{2, 4, 10, 20}));
    EXPECT_EQ(repetitionsOf("ColourConvert", "UnpackMatrox10Bit", 8, 16), (Numbers{4, 8}));
    EXPECT_EQ(repetitionsOf("null", "V210toYUYV", 8, 16), (Numbers{3}));
    EXPECT_EQ(repetitionsOf("null", "YUYVtoV210", 16, 8), (Numbers{4}));
}

TEST(NativePeriods, OfSeveralRepetitionsTheCommonOneIsTriedToo)
{
    EXPECT_EQ(Native::periodsToTry(Numbers{}, 1), (Numbers{1}));
    EXPECT_EQ(Native::periodsToTry(Numbers{2, 3}, 1), (Numbers{1, 2, 3, 6}));
    EXPECT_EQ(Native::periodsToTry(Numbers{4, 10}, 1), (Numbers{1, 4, 10, 20}));
    EXPECT_EQ(Native::periodsToTry(Numbers{7, 9}, 1), (Numbers{1, 7, 9})); // 63 is too many
}

TEST(NativePeriods, ThatWouldTakeSecondsToMakeAreNotTried)
{
    EXPECT_EQ(Native::periodsToTry(Numbers{2, 20}, 300), (Numbers{1, 2}));
    EXPECT_EQ(Native::periodsToTry(Numbers{2, 20}, 10000), (Numbers{1}));
}

TEST(NativePeriods, ALongerOneHasToBeClearlyFaster)
{
    const auto fastest = [](const std::vector<double>& times) { return Native::fastestOf(times); };
    EXPECT_EQ(fastest({1.0}), 0U);
    EXPECT_EQ(fastest({1.0, 0.95, 0.91}), 0U);
    EXPECT_EQ(fastest({1.0, 0.85, 0.8}), 1U);
    EXPECT_EQ(fastest({1.0, 0.85, 0.5}), 2U);
    EXPECT_EQ(fastest({1.0, 2.0, 0.5}), 2U);
}

TEST(NativePeriods, WhatIsMadeDrawsTheSameWhicheverIsChosen)
{
    const std::string file = "null";
    const CompiledEffect& effect = shippedEffect(file);
    const auto technique = std::find_if(effect.techniques.begin(), effect.techniques.end(),
                                        [](const auto& t) { return t.name == "V210toYUYV"; });
    ASSERT_NE(technique, effect.techniques.end());
    const CompiledEffect::PackedShader& shader = technique->passes[0].packed[0];
    const std::uint32_t bits = shader.depths.source;
    const NativeDraw draw{effect, shader, {NativePicture::noise(500, 4, bits, 5)}, {}, 300, 4};
    const std::vector<std::byte> uniforms = uniformsOf(draw);
    const std::vector<Native::Texels> texels = texelsOf(effect, shader);
    const Native::Shader source{shader.spirv, texels, shader.depths.target, uniforms, 300};
    const auto drawnWith = [&](const Native::Made& made) {
        std::string problem = made.problem;
        const auto code = problem.empty() ? nativeLibrary().load(made.object, problem) : nullptr;
        EXPECT_EQ(problem, "");
        return code != nullptr ? drawnBy(*code, draw) : std::vector<std::byte>();
    };
    std::vector<std::byte> target(std::size_t{300} * 8 * 4);
    std::vector<std::byte> texelsRead(std::size_t{500} * 4 * 8);
    Native::Frame frame;
    frame.buffers[0] = {texelsRead.data(), texelsRead.size() / texels[0].bytes};
    frame.uniforms = uniforms.data();
    frame.target = target.data();
    frame.pitch = std::size_t{300} * shader.depths.target / 2;
    frame.width = 300;
    const Native::FastestCode fastest = Native::makeFastest(nativeLibrary(), source, {}, frame, 4);
    const std::vector<std::byte> expected = drawnWith(nativeLibrary().make(source, {8, 1}));
    ASSERT_FALSE(expected.empty());
    EXPECT_EQ(drawnWith(fastest.made), expected);
    EXPECT_EQ(drawnWith(nativeLibrary().make(source, {8, 3})), expected);
    EXPECT_EQ(drawnWith(nativeLibrary().make(source, {8, 5})), expected);
}

} // namespace
} // namespace Qx::Host::Tests
