// Conversions of floats to whole numbers that are written as additions: which numbers they give, and how many
// they take where the range of a number is known.

#include "host/effects/spirv/Passes.h"
#include "tests/effects/BrokenModules.h"
#include "tests/effects/PackedDrawing.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

namespace Qx::Host::Tests {
namespace {

using Effects::convertByAdding;
using Effects::Spirv::Words;

/// An effect whose texels are the bytes of a whole number, made of the float `v`.
std::shared_ptr<const CompiledEffect> bytesOf(const std::string& number)
{
    return packedEffect(R"(
float v = 0.0;
float4 entry(int2 pos : VPOS) : COLORCODE {
    int n = )" + number +
                        R"( + pos.x * 0;
    return float4(n & 255, (n >> 8) & 255, (n >> 16) & 255, (n >> 24) & 255);
}
technique T { pass { PixelShader = compile ps_3_0 entry(); } }
)");
}

std::size_t conversionsIn(const Words& spirv)
{
    return countOf(spirv, spv::OpConvertFToS) + countOf(spirv, spv::OpConvertFToU);
}

/// The whole number that is drawn for a value of `v`, with conversions or, `adding`, without.
std::int32_t drawn(const CompiledEffect& effect, float v, bool adding)
{
    CompiledEffect changed = effect;
    for (CompiledEffect::Parameter& parameter : changed.parameters) {
        if (parameter.name == "v") {
            std::memcpy(parameter.defaultValue.data(), &v, sizeof v);
        }
    }
    CompiledEffect::PackedShader& shader = changed.techniques[0].passes[0].packed[0];
    if (adding) {
        shader.spirv = convertByAdding(shader.spirv);
        EXPECT_EQ(conversionsIn(shader.spirv), 0U);
        EXPECT_EQ(problemsOf(shader.spirv), "");
    }
    const std::vector<std::byte> row = drawRow(changed, shader, {PackedPicture(8, 1)}, 0, 1);
    std::uint32_t bits = 0;
    for (const std::size_t i : {4U, 7U, 6U, 5U}) { // the second texel: a, b, g, r
        bits = bits << 8U | std::to_integer<std::uint32_t>(row.at(i));
    }
    return static_cast<std::int32_t>(bits);
}

/// Numbers around which the lowest bits of floats change, with their neighbours, of both signs.
std::vector<float> tellingNumbers(float most)
{
    constexpr float infinity = std::numeric_limits<float>::infinity();
    std::vector<float> numbers{0.0F, -0.0F, 0.3F, 1e-30F, std::numeric_limits<float>::denorm_min()};
    for (const double near :
         {0.5,        1.0,        1.5,        255.0,       256.0,        65535.0,     65536.0,
          65536.5,    131071.9,   4194303.0,  4194304.0,   4194304.5,    8388607.0,   8388608.0,
          16777215.0, 16777216.0, 16777218.0, 123456789.0, 2147418112.0, 2147483520.0}) {
        const auto number = static_cast<float>(near);
        for (const float each :
             {std::nextafter(number, -infinity), number, std::nextafter(number, infinity)}) {
            numbers.push_back(each);
            numbers.push_back(-each);
        }
    }
    numbers.push_back(-2147483648.0F);
    std::erase_if(numbers,
                  [most](float number) { return std::abs(number) > most || number >= 2147483648.0F; });
    return numbers;
}

void expectTruncated(const std::string& number, float least, float most)
{
    const std::shared_ptr<const CompiledEffect> effect = bytesOf(number);
    ASSERT_NE(effect, nullptr);
    std::size_t tried = 0;
    for (const float v : tellingNumbers(std::max(-least, most))) {
        if (v >= least && v <= most) {
            const auto expected = static_cast<std::int32_t>(v); // rounded towards 0
            EXPECT_EQ(drawn(*effect, v, false), expected) << v;
            EXPECT_EQ(drawn(*effect, v, true), expected) << number << " of " << v;
            ++tried;
        }
    }
    EXPECT_GT(tried, 5U);
}

TEST(FloatConversions, AddedNumbersAreThoseOfConversionsInTheWholeRange)
{
    expectTruncated("int(v)", -2147483648.0F, 2147483520.0F);
}

TEST(FloatConversions, NumbersOfAKnownRangeAreThoseOfConversions)
{
    expectTruncated("int(clamp(v, 0.0, 255.0))", 0.0F, 255.0F);
    expectTruncated("int(clamp(v, 0.0, 8388609.0))", 0.0F, 8388609.0F);
    expectTruncated("int(clamp(v, 0.0, 8388608.0))", 0.0F, 8388608.0F);
    expectTruncated("int(clamp(v, -4194304.0, 4194304.0))", -4194304.0F, 4194304.0F);
    expectTruncated("int(clamp(v, -4194305.0, 4194304.0))", -4194305.0F, 4194304.0F);
    expectTruncated("int(max(v, -1.0))", -1.0F, 2147483520.0F);
    expectTruncated("int(floor(v * 4.0) * 0.25)", 0.0F, 16777215.0F);
    expectTruncated("int(clamp(v, -300.0, 300.0) - 100.0) + 100", 100.0F, 300.0F);
    expectTruncated("int(min(v, 70000.0))", -2147483648.0F, 70000.0F);
    expectTruncated("int(v < 0.0 ? max(v, -60.0) : min(v, 60.0))", -60.0F, 60.0F);
    expectTruncated("int(abs(v))", 0.0F, 2147483520.0F);
}

/// Shifts, of which a number of unknown range takes one more.
std::size_t shiftsFor(const std::string& number)
{
    const std::shared_ptr<const CompiledEffect> effect = bytesOf(number);
    return effect != nullptr
               ? countOf(convertByAdding(effect->techniques[0].passes[0].packed[0].spirv),
                         spv::OpShiftLeftLogical) -
                     countOf(effect->techniques[0].passes[0].packed[0].spirv, spv::OpShiftLeftLogical)
               : 1000;
}

TEST(FloatConversions, TakeOneAdditionWhereTheRangeIsKnown)
{
    const std::size_t unknown = shiftsFor("int(v)");
    EXPECT_GE(unknown, 1U);
    EXPECT_EQ(shiftsFor("int(clamp(v, 0.0, 255.0))"), 0U);
    EXPECT_EQ(shiftsFor("int(floor(clamp(v, 0.0, 1.0) * 1023.0 + 0.5))"), 0U);
    EXPECT_EQ(shiftsFor("int(min(max(v, -4194304.0), 4194304.0))"), 0U);
    EXPECT_EQ(shiftsFor("int(frac(v) * 1000.0)"), 0U);
    EXPECT_EQ(shiftsFor("int(float(pos.x & 1023) * 4.0)"), 0U);
    EXPECT_EQ(shiftsFor("int(clamp(v, 0.0, 8388608.0))"), 0U);
    EXPECT_EQ(shiftsFor("int(clamp(v, 0.0, 8388609.0))"), unknown);
    EXPECT_EQ(shiftsFor("int(clamp(v, -4194305.0, 4194304.0))"), unknown);
    EXPECT_EQ(shiftsFor("int(min(v, 255.0))"), unknown);
}

TEST(FloatConversions, SurviveChangedModules)
{
    const std::shared_ptr<const CompiledEffect> effect =
        bytesOf("int(v * 3.0) / 2 + int(clamp(v, 0.0, 9.0))");
    ASSERT_NE(effect, nullptr);
    expectChangedModulesSurvived(effect->techniques[0].passes[0].packed[0].spirv,
                                 [](Words& spirv) { spirv = convertByAdding(spirv); });
}

} // namespace
} // namespace Qx::Host::Tests
