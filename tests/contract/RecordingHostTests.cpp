#include "platform/OS.h"
#include "tests/contract/recording/RecordingHost.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <thread>

// The recording host detects the faults that it must detect.

using namespace Qx::Test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(HostAllocatorUnderTest, NoticesABlockThatItDidNotMake)
{
    int local = 0;
    OS().allocator().deallocate(&local);
    EXPECT_THAT(host().allocator.takeFaults(), ElementsAre(HasSubstr("not a live block")));
}

TEST(HostAllocatorUnderTest, NoticesABlockThatIsFreedTwice)
{
    void* block = OS().allocator().allocate(10, 8);
    OS().allocator().deallocate(block);
    EXPECT_THAT(host().allocator.takeFaults(), IsEmpty());
    OS().allocator().deallocate(block);
    EXPECT_THAT(host().allocator.takeFaults(), ElementsAre(HasSubstr("not a live block")));
}

TEST(HostAllocatorUnderTest, NoticesAWriteBehindABlock)
{
    auto* block = static_cast<char*>(OS().allocator().allocate(10, 8));
    std::memset(block, 0, 11);
    OS().allocator().deallocate(block);
    EXPECT_THAT(host().allocator.takeFaults(), ElementsAre(HasSubstr("past the end")));
}

TEST(HostAllocatorUnderTest, AlignsAndCountsItsBlocks)
{
    const std::size_t blocks = host().allocator.liveBlocks();
    void* block = OS().allocator().allocate(3, 256);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 256, 0U);
    EXPECT_EQ(host().allocator.liveBlocks(), blocks + 1);
    EXPECT_EQ(host().allocator.sizeOf(block), 3U);
    EXPECT_TRUE(host().allocator.owns(static_cast<char*>(block) + 2));
    EXPECT_FALSE(host().allocator.owns(static_cast<char*>(block) + 3));
    OS().allocator().deallocate(block);
    EXPECT_FALSE(host().allocator.owns(block));
    OS().allocator().deallocate(nullptr);
}

TEST(HostScript, FailsAnOperationAsOftenAsItIsTold)
{
    host().script.fail("operation", 2);
    EXPECT_FALSE(host().call("operation"));
    EXPECT_FALSE(host().call("operation"));
    EXPECT_TRUE(host().call("operation"));
    EXPECT_TRUE(host().call("another"));
    host().reset();
}

TEST(HostScript, HoldsAnOperationUpUntilTheGateIsReleased)
{
    host().reset();
    Gate gate = host().script.hold("operation");
    {
        const std::jthread caller([] {
            host().call("operation", "slow");
            host().journal.record("went on");
        });
        EXPECT_TRUE(gate.waitUntilReached());
        host().journal.record("released");
        gate.release();
    }
    EXPECT_THAT(host().journal.lines(), ElementsAre("operation(slow)", "released", "went on"));
    host().reset();
}

TEST(HostLocks, TellHowOftenAThreadIsInside)
{
    const CriticalSection section;
    const CriticalSection same = section;
    EXPECT_EQ(depthOf(section), 0);
    const CriticalSectionScope once(section);
    const CriticalSectionScope twice(same);
    EXPECT_EQ(depthOf(section), 2);
    EXPECT_EQ(depthOf(CriticalSection()), 0);
}
