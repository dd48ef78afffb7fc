#include "Qx/HostAllocator.h"
#include "tests/contract/recording/RecordingHost.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <new>

using Qx::Test::host;

namespace {

constexpr std::size_t mostBytes = std::numeric_limits<std::size_t>::max();

} // namespace

TEST(HostAllocator, ThrowsWithoutAskingTheHostIfTheSizeExceedsTheRangeOfSizes)
{
    const std::size_t before = host().allocator.allocations();
    constexpr std::size_t most = mostBytes / sizeof(std::uint64_t);
    EXPECT_THROW((void)Qx::HostAllocator<std::uint64_t>().allocate(most + 1), std::bad_array_new_length);
    EXPECT_THROW((void)Qx::HostAllocator<std::uint64_t>().allocate(mostBytes), std::bad_array_new_length);
    EXPECT_EQ(host().allocator.allocations(), before);
}

TEST(HostAllocator, AsksTheHostForTheLargestSizeAndThrowsWhenItRefuses)
{
    constexpr std::size_t most = mostBytes / sizeof(std::uint64_t);
    host().allocator.refuseFrom(1000);
    try {
        (void)Qx::HostAllocator<std::uint64_t>().allocate(most);
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::bad_array_new_length&) {
        ADD_FAILURE() << "the host was not asked";
    } catch (const std::bad_alloc&) {
        EXPECT_EQ(host().allocator.largestRefusal(), most * sizeof(std::uint64_t));
    }
    EXPECT_THROW((void)Qx::HostAllocator<std::uint64_t>().allocate(125), std::bad_alloc);
    host().allocator.refuseFrom(mostBytes);
}

TEST(HostAllocator, AllInstancesAreEqual)
{
    EXPECT_TRUE(Qx::HostAllocator<int>() == Qx::HostAllocator<int>());
    EXPECT_TRUE(Qx::HostAllocator<int>() == Qx::HostAllocator<char>());
}
