#include "bench/comparison/Statistics.h"

#include <gtest/gtest.h>

#include <limits>

namespace Qx::Bench {
namespace {

TEST(Statistics, HaveTheMiddleOfAnOddNumberOfSamples)
{
    const auto spread = spreadOf({5, 1, 4, 2, 3});
    ASSERT_TRUE(spread);
    EXPECT_DOUBLE_EQ(spread->median, 3);
    EXPECT_DOUBLE_EQ(spread->lowerQuartile, 2);
    EXPECT_DOUBLE_EQ(spread->upperQuartile, 4);
    EXPECT_DOUBLE_EQ(spread->smallest, 1);
    EXPECT_DOUBLE_EQ(spread->largest, 5);
    EXPECT_EQ(spread->samples, 5U);
}

TEST(Statistics, LieBetweenTheMiddleSamplesOfAnEvenNumber)
{
    const auto spread = spreadOf({4, 1, 3, 2});
    ASSERT_TRUE(spread);
    EXPECT_DOUBLE_EQ(spread->median, 2.5);
    EXPECT_DOUBLE_EQ(spread->lowerQuartile, 1.75);
    EXPECT_DOUBLE_EQ(spread->upperQuartile, 3.25);
}

TEST(Statistics, OfOneSampleAreThatSample)
{
    const auto spread = spreadOf({7});
    ASSERT_TRUE(spread);
    EXPECT_DOUBLE_EQ(spread->median, 7);
    EXPECT_DOUBLE_EQ(spread->lowerQuartile, 7);
    EXPECT_DOUBLE_EQ(spread->upperQuartile, 7);
}

TEST(Statistics, AreRefusedWithoutSamplesAndOfWhatIsNoNumber)
{
    EXPECT_FALSE(spreadOf({}));
    EXPECT_FALSE(spreadOf({1, std::numeric_limits<double>::quiet_NaN()}));
    EXPECT_FALSE(spreadOf({1, std::numeric_limits<double>::infinity()}));
}

TEST(Ratios, AreTakenWithinPairs)
{
    // The machine was twice as fast in the second round: the ratio is the same.
    const auto ratio = ratiosOf({{100, 50}, {200, 100}, {90, 30}});
    ASSERT_TRUE(ratio);
    EXPECT_DOUBLE_EQ(ratio->median, 2);
    EXPECT_DOUBLE_EQ(ratio->largest, 3);
}

TEST(Ratios, HaveOneDisturbedRoundOnTheEdgeOnly)
{
    const auto ratio = ratiosOf({{100, 50}, {100, 50}, {1, 50}, {100, 50}, {100, 50}});
    ASSERT_TRUE(ratio);
    EXPECT_DOUBLE_EQ(ratio->median, 2);
    EXPECT_DOUBLE_EQ(ratio->smallest, 0.02);
}

TEST(Ratios, AreRefusedWithoutPairsAndWhenNothingWasDone)
{
    EXPECT_FALSE(ratiosOf({}));
    EXPECT_FALSE(ratiosOf({{100, 0}}));
    EXPECT_FALSE(ratiosOf({{0, 100}, {100, 100}}));
}

} // namespace
} // namespace Qx::Bench
