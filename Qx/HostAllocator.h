#pragma once

#include "platform/Allocator.h"
#include "platform/OS.h"

#include <cstddef>
#include <limits>
#include <new>
#include <vector>

namespace Qx {

/// A standard allocator that allocates from the host. All instances are equal. Throws std::bad_alloc if out
/// of memory.
template <class T>
struct HostAllocator
{
    using value_type = T; ///< the type of the elements

    HostAllocator() = default;
    /// All instances are equal, so this copies nothing.
    template <class U>
    HostAllocator(const HostAllocator<U>&) noexcept // NOLINT(google-explicit-constructor): allocators convert
    {
    }

    /// Returns room for n elements. Throws std::bad_alloc if out of memory.
    T* allocate(std::size_t n)
    {
        if (n > std::numeric_limits<std::size_t>::max() / sizeof(T)) {
            throw std::bad_array_new_length();
        }
        if (void* block = OS().allocator().allocate(n * sizeof(T), alignof(T))) {
            return static_cast<T*>(block);
        }
        throw std::bad_alloc();
    }

    /// Frees what allocate() returned.
    void deallocate(T* block, std::size_t) noexcept { OS().allocator().deallocate(block); }

    /// Always true.
    template <class U>
    friend bool operator==(const HostAllocator&, const HostAllocator<U>&) noexcept
    {
        return true;
    }
};

/// The std::vector that may cross the boundary between library and host: either side may grow or free it.
template <class T>
using Vector = std::vector<T, HostAllocator<T>>;

} // namespace Qx
