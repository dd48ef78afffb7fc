#pragma once

#include "platform/Api.h"

#include <cstddef>

/// The host's allocator service.
///
/// One contract for both sides of the border between library and host:
/// - whatever is shared through Qx::Ptr is allocated and freed here (Qx::iObject carries the operators);
/// - every container that crosses the border is a Qx::Vector, a Qx::LightweightString or a
///   Qx::LightweightVector, whose storage comes from here;
/// - what stays inside the library comes from here too,
///   through the library's own operator new,
///   which no other module of the process sees.
/// So a block is always freed by the service that made it, whichever module holds the last reference.
class QX_PLATFORM_API iAllocator
{
public:
    /// A block of at least `bytes` bytes, aligned to `alignment` (a power of two), or null when there is no
    /// memory. Zero bytes give a block that may not be read but must be freed.
    virtual void* allocate(std::size_t bytes, std::size_t alignment) = 0;

    /// Frees a block of `allocate`; null is ignored.
    virtual void deallocate(void* block) = 0;

protected:
    ~iAllocator() = default;
};
