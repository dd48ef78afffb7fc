#include "tests/pixels/Gpu.h"
#include "tests/pixels/Judge.h"
#include "tests/pixels/Reference.h"

#include <gtest/gtest.h>

#include <tuple>

namespace Qx::Pixels {
namespace {

/// How many codes, and what share of the samples, may differ from exact arithmetic rounded to nearest.
int worstAllowed(int targetDepth)
{
    return targetDepth == 8 ? 1 : 2;
}
double correctPercentWanted(int targetDepth)
{
    return targetDepth == 8 ? 99.99 : 99.9;
}

/// All techniques of one direction from one depth to another. One test runs them all, because starting a
/// device takes longer than drawing with it.
class Conversions : public testing::TestWithParam<std::tuple<Direction, int, int>>
{
};

TEST_P(Conversions, AgreeWithExactArithmetic)
{
    const auto [direction, sourceDepth, targetDepth] = GetParam();
    const auto pictures =
        trialPictures(direction == Direction::Decode ? Layout::Packed422 : Layout::Rgb, sourceDepth);

    for (const Conversion& conversion : allConversions()) {
        if (conversion.direction != direction)
            continue;
        const std::string trial =
            conversion.technique() + "." + std::to_string(sourceDepth) + "to" + std::to_string(targetDepth);
        SCOPED_TRACE(trial);

        Errors total;
        for (const Picture& picture : pictures) {
            const auto got = convert(conversion, picture, targetDepth);
            ASSERT_TRUE(got) << picture.name << " could not be converted";
            const auto exact = exactConversion(conversion, picture, targetDepth);
            ASSERT_EQ(got->codes.size(), exact.size()) << picture.name;
            const Verdict verdict = judge(*got, exact);
            total += verdict.errors;
            EXPECT_LE(verdict.errors.worst, worstAllowed(targetDepth))
                << verdict.worstSample << "\n"
                << leaveBehind(trial, *got, rounded(*got, exact));
        }
        EXPECT_GE(total.correctPercent(), correctPercentWanted(targetDepth))
            << total.misrounded << " of " << total.samples << " samples are not the nearest code";
    }
}

INSTANTIATE_TEST_SUITE_P(Depths, Conversions,
                         testing::Combine(testing::Values(Direction::Decode, Direction::Encode),
                                          testing::Values(8, 16), testing::Values(8, 16)),
                         [](const auto& trial) {
                             return std::string(std::get<0>(trial.param) == Direction::Decode ? "Decode"
                                                                                              : "Encode") +
                                    std::to_string(std::get<1>(trial.param)) + "To" +
                                    std::to_string(std::get<2>(trial.param));
                         });

/// Neutral luma 128, and in row r a change of chroma at pair r + 1: from grey to strong colour, and back.
Picture chromaEdge()
{
    Picture picture = Picture::blank("chroma-edge", Layout::Packed422, 24, 10, 8);
    for (int row = 0; row < picture.height; ++row) {
        for (int pair = 0; pair < picture.texels(); ++pair) {
            const bool coloured = (pair > row) != (row % 2 == 1);
            picture.at(pair, row, 0) = 128;
            picture.at(pair, row, 1) = coloured ? 90 : 128;
            picture.at(pair, row, 2) = 128;
            picture.at(pair, row, 3) = coloured ? 170 : 128;
        }
    }
    return picture;
}

TEST(ChromaSiting, AnEvenPixelBesideAChromaEdgeHoldsTheUnblendedChroma)
{
    const Picture edge = chromaEdge();
    for (const Filter filter : {Filter::Point, Filter::CatmullRom}) {
        const Conversion conversion{Direction::Decode, Range::Full, Range::Full, Matrix::Bt601, filter};
        const auto got = convert(conversion, edge, 8);
        ASSERT_TRUE(got);
        for (int row = 0; row < edge.height; ++row) {
            for (int pair = 0; pair < edge.texels(); ++pair) {
                // Red and blue of that pair's own Cb 90 and Cr 170, or of none:
                // 128 + 1.402 * 42 = 186.884, 128 + 1.772 * -38 = 60.664.
                const bool coloured = edge.at(pair, row, 1) != 128;
                EXPECT_EQ(got->at(2 * pair, row, 0), coloured ? 187 : 128)
                    << "pair " << pair << ", row " << row;
                EXPECT_EQ(got->at(2 * pair, row, 2), coloured ? 61 : 128)
                    << "pair " << pair << ", row " << row;
            }
        }
    }
}

TEST(ChromaSiting, AnOddPixelBetweenTwoChromasIsBlendedHalfWayByTheCubics)
{
    const Picture edge = chromaEdge();
    for (const Filter filter : {Filter::CatmullRom, Filter::Mitchell}) {
        const Conversion conversion{Direction::Decode, Range::Full, Range::Full, Matrix::Bt601, filter};
        const auto got = convert(conversion, edge, 8);
        ASSERT_TRUE(got);
        // Between grey and colour, with grey and colour continuing: the mean, 128 + 1.402 * 21 = 157.442.
        EXPECT_EQ(got->at(2 * 4 + 1, 4, 0), 157);
    }
}

TEST(ChromaSiting, PointRepeatsTheChromaOfThePairOnItsOddPixel)
{
    const Conversion conversion{Direction::Decode, Range::Full, Range::Full, Matrix::Bt601, Filter::Point};
    const auto got = convert(conversion, chromaEdge(), 8);
    ASSERT_TRUE(got);
    for (int row = 0; row < got->height; ++row) {
        for (int x = 0; x < got->width; x += 2)
            EXPECT_EQ(got->at(x, row, 0), got->at(x + 1, row, 0)) << "pixel " << x << ", row " << row;
    }
}

TEST(Range, CodesBelowBlackAndAboveWhitePassWhereTheTargetCanHoldThem)
{
    Picture ramp = Picture::blank("ramp", Layout::Packed422, 512, 1, 8);
    for (int pair = 0; pair < 256; ++pair) {
        for (int component = 0; component < 4; ++component)
            ramp.at(pair, 0, component) = component % 2 == 0 ? static_cast<std::uint16_t>(pair) : 128;
    }

    const auto kept =
        convert({Direction::Decode, Range::Video, Range::Video, Matrix::Bt709, Filter::CatmullRom}, ramp, 8);
    const auto stretched =
        convert({Direction::Decode, Range::Video, Range::Full, Matrix::Bt709, Filter::CatmullRom}, ramp, 8);
    ASSERT_TRUE(kept && stretched);
    for (int x = 0; x < 512; ++x) {
        const int y = x / 2;
        EXPECT_EQ(kept->at(x, 0, 1), y);
        EXPECT_EQ(kept->at(x, 0, 3), 255) << "alpha of pixel " << x;
        if (y <= 16 || y >= 235) {
            EXPECT_EQ(stretched->at(x, 0, 1), y <= 16 ? 0 : 255) << "luma " << y;
        }
    }
}

} // namespace
} // namespace Qx::Pixels
