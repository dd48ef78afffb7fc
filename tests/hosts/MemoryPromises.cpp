#include "Promise.h"

#include <platform/Allocator.h>
#include <platform/Atomics.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <latch>
#include <limits>
#include <thread>
#include <vector>

namespace Qx::HostTests {

namespace {

iAllocator& allocatorOf(const Kit& kit)
{
    return kit.services.os().allocator();
}

iAtomics& atomicsOf(const Kit& kit)
{
    return kit.services.os().atomics();
}

void alignsBlocks(const Kit& kit)
{
    std::vector<void*> blocks;
    for (std::size_t alignment = 1; alignment <= 4096; alignment *= 2) {
        for (const std::size_t bytes : {std::size_t{1}, std::size_t{24}, std::size_t{1000}}) {
            void* const block = allocatorOf(kit).allocate(bytes, alignment);
            ASSERT_NE(block, nullptr) << bytes << " bytes aligned to " << alignment;
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % alignment, 0U)
                << bytes << " bytes aligned to " << alignment;
            blocks.push_back(block);
        }
    }
    for (void* const block : blocks) {
        allocatorOf(kit).deallocate(block);
    }
}

void keepsBlocksApart(const Kit& kit)
{
    constexpr std::size_t bytes = 200;
    std::vector<unsigned char*> blocks;
    for (unsigned i = 0; i < 64; ++i) {
        auto* const block = static_cast<unsigned char*>(allocatorOf(kit).allocate(bytes, 8));
        ASSERT_NE(block, nullptr);
        for (const unsigned char* const other : blocks) { // before anything is written where it must not be
            ASSERT_TRUE(block + bytes <= other || other + bytes <= block) << "two blocks overlap";
        }
        std::memset(block, static_cast<int>(i), bytes);
        blocks.push_back(block);
    }
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        EXPECT_EQ(std::count(blocks[i], blocks[i] + bytes, static_cast<unsigned char>(i)),
                  static_cast<std::ptrdiff_t>(bytes))
            << "block " << i;
        allocatorOf(kit).deallocate(blocks[i]);
    }
}

void yieldsABlockForZeroBytes(const Kit& kit)
{
    void* const block = allocatorOf(kit).allocate(0, 16);
    EXPECT_NE(block, nullptr);
    allocatorOf(kit).deallocate(block);
}

void yieldsNullWhenOutOfMemory(const Kit& kit)
{
    void* const block = allocatorOf(kit).allocate(std::numeric_limits<std::size_t>::max() / 4, 16);
    EXPECT_EQ(block, nullptr);
}

void freesOnAnotherThread(const Kit& kit)
{
    std::vector<void*> blocks(1000);
    std::thread maker([&] {
        for (void*& block : blocks) {
            block = allocatorOf(kit).allocate(100, 16);
        }
    });
    maker.join();
    EXPECT_EQ(std::count(blocks.begin(), blocks.end(), nullptr), 0);
    for (void* const block : blocks) {
        allocatorOf(kit).deallocate(block);
    }
    allocatorOf(kit).deallocate(nullptr); // is ignored
}

void incrementReturnsTheNewValue(const Kit& kit)
{
    std::uint32_t counter = 0;
    EXPECT_EQ(atomicsOf(kit).atomicIncrement(counter), 1U);
    EXPECT_EQ(counter, 1U);
    EXPECT_EQ(atomicsOf(kit).atomicIncrement(counter), 2U);
    EXPECT_EQ(counter, 2U);
}

void decrementReturnsTheNewValue(const Kit& kit)
{
    std::uint32_t counter = 2;
    EXPECT_EQ(atomicsOf(kit).atomicDecrement(counter), 1U);
    EXPECT_EQ(counter, 1U);
    EXPECT_EQ(atomicsOf(kit).atomicDecrement(counter), 0U);
    EXPECT_EQ(counter, 0U);
}

void countersWrap(const Kit& kit)
{
    std::uint32_t counter = std::numeric_limits<std::uint32_t>::max();
    EXPECT_EQ(atomicsOf(kit).atomicIncrement(counter), 0U);
    EXPECT_EQ(counter, 0U);
    EXPECT_EQ(atomicsOf(kit).atomicDecrement(counter), std::numeric_limits<std::uint32_t>::max());
    EXPECT_EQ(counter, std::numeric_limits<std::uint32_t>::max());
}

/// Four threads count in one counter; no value may be returned twice.
void countersAreAtomic(const Kit& kit)
{
    constexpr std::uint32_t turns = 100'000;
    std::uint32_t counter = 0;
    std::array<std::vector<std::uint32_t>, 4> seen;
    std::latch start(static_cast<std::ptrdiff_t>(seen.size()));
    std::vector<std::thread> threads;
    for (std::vector<std::uint32_t>& values : seen) {
        threads.emplace_back([&kit, &counter, &values, &start] {
            values.reserve(turns);
            start.arrive_and_wait(); // so that they count at the same time
            for (std::uint32_t i = 0; i < turns; ++i) {
                values.push_back(atomicsOf(kit).atomicIncrement(counter));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, turns * 4);
    std::vector<std::uint32_t> all;
    for (const std::vector<std::uint32_t>& values : seen) {
        all.insert(all.end(), values.begin(), values.end());
    }
    std::sort(all.begin(), all.end());
    EXPECT_EQ(std::adjacent_find(all.begin(), all.end()), all.end()) << "a value was returned twice";
}

void osIsOneObject(const Kit& kit)
{
    iOS& os = kit.services.os();
    EXPECT_EQ(&os, &kit.services.os());
    EXPECT_EQ(&os.allocator(), &os.allocator());
    EXPECT_EQ(&os.gpu(), &os.gpu());
}

} // namespace

Promises memoryPromises()
{
    return {
        {"OS",
         "IsAlwaysTheSame",
         osIsOneObject,
         "platform/OS.h: every service lives as long as the process",
         {}},
        {"Allocator",
         "AlignsBlocks",
         alignsBlocks,
         "platform/Allocator.h: a block is aligned to `alignment`, a power of two",
         {}},
        {"Allocator",
         "KeepsBlocksApart",
         keepsBlocksApart,
         "platform/Allocator.h: a block has at least `bytes` bytes, which the caller owns",
         {}},
        {"Allocator",
         "YieldsABlockForZeroBytes",
         yieldsABlockForZeroBytes,
         "platform/Allocator.h: zero bytes yield a block that must be freed",
         {}},
        {"Allocator",
         "YieldsNullWhenOutOfMemory",
         yieldsNullWhenOutOfMemory,
         "platform/Allocator.h: null if out of memory",
         {}},
        {"Allocator",
         "FreesOnAnotherThread",
         freesOnAnotherThread,
         "platform/Allocator.h: thread-safe; null is ignored",
         {}},
        {"Atomics",
         "IncrementReturnsTheNewValue",
         incrementReturnsTheNewValue,
         "platform/Atomics.h: atomicIncrement() adds one and returns the new value",
         {}},
        {"Atomics",
         "DecrementReturnsTheNewValue",
         decrementReturnsTheNewValue,
         "platform/Atomics.h: atomicDecrement() subtracts one and returns the new value",
         {}},
        {"Atomics", "Wrap", countersWrap, "platform/Atomics.h: counters wrap at 2^32", {}},
        {"Atomics", "AreAtomic", countersAreAtomic, "platform/Atomics.h: thread-safe", {}},
    };
}

} // namespace Qx::HostTests
