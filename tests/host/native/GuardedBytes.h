#pragma once

#include <cstddef>
#include <span>

namespace Qx::Host::Tests {

/// A copy of bytes with pages on both sides that nothing may read or write: who does ends the process. The
/// bytes lie directly before one of them, or directly behind the other.
class GuardedBytes
{
public:
    enum class At
    {
        End,
        Begin
    };

    GuardedBytes(std::span<const std::byte> bytes, At at);
    ~GuardedBytes();
    GuardedBytes(const GuardedBytes&) = delete;
    GuardedBytes& operator=(const GuardedBytes&) = delete;

    const std::byte* data() const { return data_; }
    std::size_t size() const { return size_; }

private:
    std::size_t mapped_ = 0;
    void* memory_ = nullptr;
    std::byte* data_ = nullptr;
    std::size_t size_;
};

} // namespace Qx::Host::Tests
