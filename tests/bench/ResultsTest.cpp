#include "tests/bench/Samples.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Qx::Bench {
namespace {

using testing::HasSubstr;

const auto everything = [](const Result&) { return true; };

TEST(Bars, AreReachedWhenEveryResultReachesThem)
{
    const Bar bar = judge("twice as fast", 2, {resultOf(3), resultOf(2)}, everything);
    EXPECT_EQ(bar.verdict, Bar::Reached);
    EXPECT_THAT(bar.measured, HasSubstr("2.00 (1.95 to 2.05)"));
    EXPECT_THAT(bar.remark, HasSubstr("2 of 2"));
}

TEST(Bars, AreNotReachedWhenOneResultStaysBelow)
{
    const Bar bar = judge("twice as fast", 2, {resultOf(3), resultOf(1.5)}, everything);
    EXPECT_EQ(bar.verdict, Bar::NotReached);
    EXPECT_THAT(bar.measured, HasSubstr("1.50"));
    EXPECT_THAT(bar.remark, HasSubstr("1 of 2"));
}

TEST(Bars, SayWhenTheyLieWithinTheSpread)
{
    EXPECT_THAT(judge("twice", 2, {resultOf(1.99)}, everything).remark, HasSubstr("within the spread"));
    EXPECT_EQ(judge("twice", 2, {resultOf(1.5)}, everything).remark, "");
}

TEST(Bars, AreNotMeasuredWithoutResults)
{
    EXPECT_EQ(judge("twice", 2, {}, everything).verdict, Bar::NotMeasured);
    Result failed = resultOf(3);
    failed.ratio.reset();
    EXPECT_EQ(judge("twice", 2, {failed}, everything).verdict, Bar::NotMeasured);
    EXPECT_EQ(judge("twice", 2, {resultOf(3)}, [](const Result&) { return false; }).verdict,
              Bar::NotMeasured);
}

TEST(Bars, SayWhenTheWorkWasNotTheSame)
{
    const Bar bar = judge("twice", 2, {resultOf(3, "renderer", "from planes")}, everything);
    EXPECT_THAT(bar.remark, HasSubstr("not all of it the same work"));
}

TEST(Bars, OfAtMostAreHeldByTheMedian)
{
    EXPECT_EQ(judgeAtMost("5 us", 5, spreadOf({4, 5, 9}), " us").verdict, Bar::Reached);
    EXPECT_EQ(judgeAtMost("5 us", 5, spreadOf({4, 6, 9}), " us").verdict, Bar::NotReached);
    EXPECT_EQ(judgeAtMost("5 us", 5, std::nullopt, " us").verdict, Bar::NotMeasured);
}

TEST(OtherWork, IsWhatTheParticipantSaysOfItself)
{
    EXPECT_EQ(resultOf(2, "renderer", "from planes").otherwise(), "from planes");
    EXPECT_EQ(resultOf(2).otherwise(), "");
}

TEST(OtherWork, IsAnotherResultForTheTestFrame)
{
    Result result = resultOf(2);
    result.difference = Difference{1, 0.5};
    EXPECT_EQ(result.otherwise(), "");
    result.difference = Difference{2, 0.5};
    EXPECT_EQ(result.otherwise(), "another result, up to 2 codes apart");
    result.difference.reset();
    EXPECT_EQ(result.otherwise(), "its result was not seen");
}

} // namespace
} // namespace Qx::Bench
