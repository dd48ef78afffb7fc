// Comparisons of columns with constants, against plain arithmetic.

#include "host/effects/spirv/SpirvModule.h"
#include "tests/effects/PackedDrawing.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>

namespace Qx::Host::Tests {
namespace {

std::string textOf(const std::string& body)
{
    return "float4 entry(int2 pos : VPOS) : COLORCODE { " + body +
           " }\ntechnique T { pass { PixelShader = compile ps_3_0 entry(); } }\n";
}

using Limits = std::array<std::int64_t, 8>;

/// Compares `text`, an expression of pos.x, with all limits by each of the four operators, for 64 columns.
void expectComparisons(const std::string& text, const std::function<std::int64_t(std::int64_t)>& value,
                       const Limits& limits)
{
    constexpr std::array<const char*, 4> operators{">", ">=", "<", "<="};
    std::string body = "int v = " + text + "; return float4(";
    for (const char* op : operators) {
        body += op == operators[0] ? "" : ", ";
        for (std::size_t i = 0; i < limits.size(); ++i) {
            body += (i == 0 ? "(v " : " + (v ") + std::string(op) + ' ' + std::to_string(limits[i]) + " ? " +
                    std::to_string(1U << i) + ".0 : 0.0)";
        }
    }
    const std::shared_ptr<const CompiledEffect> effect = packedEffect(textOf(body + ");"));
    ASSERT_TRUE(effect) << text;
    const CompiledEffect::PackedShader& shader = effect->techniques[0].passes[0].packed[0];
    EXPECT_EQ(problemsOf(shader.spirv), "") << text;
    const std::vector<std::byte> drawn = drawRow(*effect, shader, {PackedPicture(8, 1)}, 0, 16);
    for (std::int64_t x = 0; x < 64; ++x) {
        std::array<unsigned, 4> expected{};
        for (std::size_t i = 0; i < limits.size(); ++i) {
            const std::int64_t v = value(x);
            const std::array<bool, 4> holds{v > limits[i], v >= limits[i], v < limits[i], v <= limits[i]};
            for (std::size_t k = 0; k < holds.size(); ++k) {
                expected[k] |= static_cast<unsigned>(holds[k]) << i;
            }
        }
        for (std::size_t k = 0; k < expected.size(); ++k) { // in memory a, r, g, b
            const std::size_t place = static_cast<std::size_t>(x) * 4 + (k + 1) % 4;
            ASSERT_EQ(static_cast<unsigned>(drawn.at(place)), expected[k])
                << text << ' ' << operators[k] << ", column " << x;
        }
    }
}

TEST(IndexArithmetic, ComparesColumnsRightAtEveryEdge)
{
    expectComparisons("pos.x", [](auto x) { return x; }, {-1, 0, 1, 3, 4, 5, 62, 63});
    expectComparisons("pos.x + 5", [](auto x) { return x + 5; }, {0, 4, 5, 6, 8, 9, 68, 70});
    expectComparisons("pos.x - 6", [](auto x) { return x - 6; }, {-7, -6, -5, -2, -1, 0, 1, 57});
}

TEST(IndexArithmetic, ComparesMultiplesOfColumnsRight)
{
    expectComparisons("pos.x * 3", [](auto x) { return 3 * x; }, {-1, 0, 1, 2, 3, 4, 11, 189});
    expectComparisons("pos.x * 5 - 7", [](auto x) { return 5 * x - 7; }, {-8, -7, -6, -3, -2, 0, 3, 308});
    expectComparisons("pos.x * 2 + 9", [](auto x) { return 2 * x + 9; }, {-9, 8, 9, 10, 11, 12, 134, 136});
    expectComparisons("20 - pos.x", [](auto x) { return 20 - x; }, {-44, -43, -1, 0, 1, 19, 20, 21});
}

TEST(IndexArithmetic, ComparesShiftedAndMaskedColumnsRight)
{
    expectComparisons("pos.x >> 1", [](auto x) { return x >> 1; }, {-1, 0, 1, 2, 15, 30, 31, 32});
    expectComparisons("pos.x >> 3", [](auto x) { return x >> 3; }, {-1, 0, 1, 2, 5, 6, 7, 8});
    expectComparisons("pos.x & 31", [](auto x) { return x & 31; }, {-1, 0, 1, 3, 4, 28, 30, 31});
}

TEST(IndexArithmetic, KnowsThatShiftedSumsCanBeBelowZero)
{
    expectComparisons("(pos.x - 1) >> 3", [](auto x) { return (x - 1) >> 3; }, {-2, -1, 0, 1, 2, 6, 7, 8});
    expectComparisons("((pos.x - 40) >> 3) * 2 + 1", [](auto x) { return ((x - 40) >> 3) * 2 + 1; },
                      {-10, -9, -8, -7, -1, 0, 1, 5});
}

TEST(IndexArithmetic, ComparesWithWhatNoColumnReaches)
{
    expectComparisons("pos.x", [](auto x) { return x; },
                      {-2147483647, -70000, 65535, 65536, 70000, 2147483646, 2147483647, 7});
    expectComparisons("(pos.x >> 3) - 1073741823", [](auto x) { return (x >> 3) - 1073741823; },
                      {-2147483647, -1073741824, -1073741823, -1073741822, -1, 0, 2147483646, 2147483647});
}

TEST(IndexArithmetic, ComparesProductsThatLeaveTheirBits)
{
    expectComparisons("((pos.x - 262144) >> 3) * 131072", // the exact product is 2^32 below its lower 32 bits
                      [](auto x) { return (x >> 3) * 131072; },
                      {-1, 0, 1, 131071, 131072, 131073, 917503, 917504});
}

std::size_t comparisonsLeft(const std::string& condition)
{
    const std::shared_ptr<const CompiledEffect> effect =
        packedEffect(textOf("return (" + condition + ") ? float(pos.x & 255) : 7.0;"));
    if (effect == nullptr) {
        return 99;
    }
    const std::vector<std::uint32_t>& spirv = effect->techniques[0].passes[0].packed[0].spirv;
    return countOf(spirv, spv::OpSGreaterThan) + countOf(spirv, spv::OpSGreaterThanEqual) +
           countOf(spirv, spv::OpSLessThan) + countOf(spirv, spv::OpSLessThanEqual);
}

TEST(IndexArithmetic, LeavesNoComparisonThatComesToTheSameForAllColumns)
{
    EXPECT_EQ(comparisonsLeft("pos.x >= 0"), 0U);
    EXPECT_EQ(comparisonsLeft("pos.x > -1"), 0U);
    EXPECT_EQ(comparisonsLeft("pos.x < 0"), 0U);
    EXPECT_EQ(comparisonsLeft("pos.x <= -5"), 0U);
    EXPECT_EQ(comparisonsLeft("pos.x * 3 - 1 >= -1"), 0U);
    EXPECT_EQ(comparisonsLeft("pos.x < 1000000"), 0U);
    EXPECT_EQ(comparisonsLeft("(pos.x & 7) < 8"), 0U);
}

TEST(IndexArithmetic, ComparesPackedColumnsOnceWhereTheyAgree)
{
    EXPECT_EQ(comparisonsLeft("pos.x > 3"), 1U);  // no column of fragment 0, all columns of the others
    EXPECT_EQ(comparisonsLeft("pos.x > 0"), 1U);  // all columns but the first of fragment 0
    EXPECT_EQ(comparisonsLeft("pos.x >= 6"), 2U); // fragment 1 has both
}

} // namespace
} // namespace Qx::Host::Tests
