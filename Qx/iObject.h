#pragma once

#include "platform/Allocator.h"
#include "platform/OS.h"

#include <cstddef>
#include <cstdint>
#include <new>

namespace Qx {

/// The reference count of an object that is shared by Qx::Ptr with internal counting. A new object has a
/// count of 0, and the first Qx::Ptr raises it to 1. A copy of an object has its own count.
class QX_PLATFORM_API InternalRefCount
{
public:
    /// The counter. Only the host's atomic service changes it.
    std::uint32_t& referenceCount() noexcept { return count_; }

protected:
    InternalRefCount() = default;
    InternalRefCount(const InternalRefCount&) noexcept {} ///< A copy has a count of its own, 0.
    InternalRefCount& operator=(const InternalRefCount&) noexcept { return *this; } ///< Each keeps its count.
    ~InternalRefCount() = default;

private:
    std::uint32_t count_ = 0;
};

/// The base class of all objects that library and host share through Qx::Ptr. Memory comes from the host's
/// allocator, whichever module creates or deletes the object. Throws std::bad_alloc if out of memory.
class QX_PLATFORM_API iObject : public virtual InternalRefCount
{
public:
    iObject() = default;
    /// The copy has a count of its own.
    iObject(const iObject&) = default;
    /// Each keeps its count.
    iObject& operator=(const iObject&) = default;
    virtual ~iObject() = default;

    /// Allocates from the host. Throws std::bad_alloc if out of memory.
    static void* operator new(std::size_t bytes) { return allocate(bytes, alignof(std::max_align_t)); }
    /// Allocates from the host, aligned. Throws std::bad_alloc if out of memory.
    static void* operator new(std::size_t bytes, std::align_val_t alignment)
    {
        return allocate(bytes, static_cast<std::size_t>(alignment));
    }
    /// Returns the block to the host.
    static void operator delete(void* block) noexcept { OS().allocator().deallocate(block); }
    /// Returns the block to the host.
    static void operator delete(void* block, std::align_val_t) noexcept
    {
        OS().allocator().deallocate(block);
    }

private:
    static void* allocate(std::size_t bytes, std::size_t alignment)
    {
        if (void* block = OS().allocator().allocate(bytes, alignment)) {
            return block;
        }
        throw std::bad_alloc();
    }
};

} // namespace Qx

using Qx::iObject;
