#pragma once

#include "platform/Allocator.h"

#include <atomic>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace Qx::Test {

/// An allocator that tracks its blocks. Freeing any other block (another allocator's, or one that was already
/// freed) and writing past a block's end are faults: they fail the running test, and after the last test they
/// end the process.
class TaggingAllocator final : public iAllocator
{
public:
    /// What every byte of a new block holds.
    static constexpr unsigned char freshByte = 0xCD;

    void* allocate(std::size_t bytes, std::size_t alignment) override;
    void deallocate(void* block) override;

    /// Returns the number of allocations since the start.
    std::size_t allocations() const { return allocations_.load(); }
    std::size_t liveBlocks() const;
    std::size_t liveBytes() const;

    /// Returns whether the address lies in a live block.
    bool owns(const void* address) const;

    /// Returns the size of the live block that starts there, or 0.
    std::size_t sizeOf(const void* block) const;

    /// Makes allocations of at least that many bytes fail.
    void refuseFrom(std::size_t bytes) { limit_ = bytes; }
    std::size_t largestRefusal() const { return largestRefusal_; }

    /// Runs an action before this block is freed, once.
    void beforeFreeing(const void* block, std::function<void()> action);

    /// Returns the faults since the last call.
    std::vector<std::string> takeFaults();

    /// From now on, a fault ends the process.
    void setFaultsFatal() { fatal_ = true; }

private:
    struct Block
    {
        std::size_t bytes = 0;
        void* base = nullptr;
    };

    void fault(const char* what, const void* block);

    mutable std::mutex lock_;
    std::map<std::byte*, Block> live_;
    std::vector<std::string> faults_;
    std::size_t liveBytes_ = 0;
    std::atomic<const void*> watched_ = nullptr;
    std::function<void()> whenFreed_;
    std::atomic<std::size_t> allocations_ = 0;
    std::atomic<std::size_t> limit_ = static_cast<std::size_t>(-1);
    std::atomic<std::size_t> largestRefusal_ = 0;
    std::atomic<bool> fatal_ = false;
};

} // namespace Qx::Test
