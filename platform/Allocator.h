#pragma once

#include "platform/Api.h"

#include <cstddef>

/// The host's memory allocator. Thread-safe.
///
/// Library and host are separate modules that free each other's blocks. One contract holds on both sides:
/// - Objects shared through Qx::Ptr are allocated and freed here. Qx::iObject carries the operators.
/// - Containers that cross the boundary are Qx::Vector, Qx::LightweightString or Qx::LightweightVector. Their
///   storage comes from here.
/// - Everything else inside the library comes from here through the library's own operator new, which is not
///   visible to other modules of the process.
///
/// A block is therefore always freed by the service that allocated it, whichever module drops the last
/// reference.
class QX_PLATFORM_API iAllocator
{
public:
    /// Returns a block of at least `bytes` bytes, aligned to `alignment` (a power of two), or null if out of
    /// memory. Zero bytes yield a block that must be freed and must not be accessed. The caller owns the
    /// block.
    virtual void* allocate(std::size_t bytes, std::size_t alignment) = 0;

    /// Frees a block returned by `allocate`. Null is ignored.
    virtual void deallocate(void* block) = 0;

protected:
    ~iAllocator() = default;
};
