#include "bench/peers/Works.h"

#include <gtest/gtest.h>

#include <set>

namespace Qx::Bench {
namespace {

TEST(Works, HaveKeysOfTheirOwnThatLeadBack)
{
    std::set<std::string> keys;
    for (const Work& work : allWorks()) {
        EXPECT_TRUE(keys.insert(work.key()).second) << work.key();
        EXPECT_EQ(workOf(work.key()), work);
    }
    EXPECT_FALSE(workOf("decode8.point.elsewhere"));
}

TEST(Works, HaveTestFramesOfTheirSizeThatAreAlwaysTheSame)
{
    for (const char* const key :
         {"decode8.point.device", "encode8.point.device", "from-v210-16.exact.device"}) {
        const Work work = workOf(key).value();
        const auto frame = sourceFrame(work);
        EXPECT_EQ(frame.size(), frameBytes(sourceLayout(work.kind), work.depth)) << key;
        EXPECT_EQ(frame, sourceFrame(work)) << key;
    }
}

TEST(Works, HaveV210RowsOfWholeBlocks)
{
    EXPECT_EQ(rowBytes(FrameLayout::V210, 16), 5120U);
}

} // namespace
} // namespace Qx::Bench
