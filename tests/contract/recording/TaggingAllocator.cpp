#include "tests/contract/recording/TaggingAllocator.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace Qx::Test {

namespace {

// A few bytes after every block that must not be written.
constexpr std::array<unsigned char, 8> guardBytes{0xA5, 0x5A, 0xC3, 0x3C, 0x96, 0x69, 0xF0, 0x0F};

} // namespace

void* TaggingAllocator::allocate(std::size_t bytes, std::size_t alignment)
{
    ++allocations_;
    if (bytes >= limit_) {
        largestRefusal_ = std::max(largestRefusal_.load(), bytes);
        return nullptr;
    }
    void* base = nullptr;
    if (posix_memalign(&base, std::max(alignment, sizeof(void*)), bytes + guardBytes.size()) != 0) {
        return nullptr;
    }
    auto* block = static_cast<std::byte*>(base);
    std::memset(block, freshByte, bytes);
    std::memcpy(block + bytes, guardBytes.data(), guardBytes.size());
    const std::lock_guard guard(lock_);
    live_.emplace(block, Block{bytes, base});
    liveBytes_ += bytes;
    return block;
}

void TaggingAllocator::deallocate(void* block)
{
    if (block == nullptr) {
        return;
    }
    if (const void* watched = block; watched_.compare_exchange_strong(watched, nullptr)) {
        std::exchange(whenFreed_, nullptr)();
    }
    Block known;
    {
        const std::lock_guard guard(lock_);
        const auto found = live_.find(static_cast<std::byte*>(block));
        if (found == live_.end()) {
            fault("freed a block that is not a live block of the host's allocator", block);
            return;
        }
        known = found->second;
        live_.erase(found);
        liveBytes_ -= known.bytes;
        if (std::memcmp(static_cast<std::byte*>(block) + known.bytes, guardBytes.data(), guardBytes.size()) !=
            0) {
            fault("wrote past the end of a block", block);
        }
    }
    std::memset(known.base, 0xDD, known.bytes);
    std::free(known.base); // NOLINT(cppcoreguidelines-no-malloc): the block came from posix_memalign
}

std::size_t TaggingAllocator::liveBlocks() const
{
    const std::lock_guard guard(lock_);
    return live_.size();
}

std::size_t TaggingAllocator::liveBytes() const
{
    const std::lock_guard guard(lock_);
    return liveBytes_;
}

bool TaggingAllocator::owns(const void* address) const
{
    const auto* wanted = static_cast<const std::byte*>(address);
    const std::lock_guard guard(lock_);
    auto after = live_.upper_bound(const_cast<std::byte*>(wanted));
    if (after == live_.begin()) {
        return false;
    }
    --after;
    return wanted < after->first + std::max<std::size_t>(after->second.bytes, 1);
}

std::size_t TaggingAllocator::sizeOf(const void* block) const
{
    const std::lock_guard guard(lock_);
    const auto found = live_.find(static_cast<std::byte*>(const_cast<void*>(block)));
    return found != live_.end() ? found->second.bytes : 0;
}

void TaggingAllocator::beforeFreeing(const void* block, std::function<void()> action)
{
    whenFreed_ = std::move(action);
    watched_ = block;
}

std::vector<std::string> TaggingAllocator::takeFaults()
{
    const std::lock_guard guard(lock_);
    return std::exchange(faults_, {});
}

void TaggingAllocator::fault(const char* what, const void* block)
{
    std::array<char, 160> text{};
    std::snprintf(text.data(), text.size(), "%s (%p)", what, block);
    if (fatal_) {
        std::fprintf(stderr, "host allocator: %s\n", text.data());
        std::abort();
    }
    faults_.emplace_back(text.data());
}

} // namespace Qx::Test
