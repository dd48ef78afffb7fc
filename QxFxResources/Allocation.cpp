#include "platform/Allocator.h"
#include "platform/OS.h"

#include <cstddef>
#include <new>

// The library's own allocation functions. exports.map keeps them local, so they serve this library only and
// do not replace those of the process.

namespace {

void* allocate(std::size_t bytes, std::size_t alignment)
{
    if (void* block = OS().allocator().allocate(bytes, alignment)) {
        return block;
    }
    throw std::bad_alloc();
}

} // namespace

void* operator new(std::size_t bytes)
{
    return allocate(bytes, __STDCPP_DEFAULT_NEW_ALIGNMENT__);
}

void* operator new(std::size_t bytes, std::align_val_t alignment)
{
    return allocate(bytes, static_cast<std::size_t>(alignment));
}

void operator delete(void* block) noexcept
{
    OS().allocator().deallocate(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    OS().allocator().deallocate(block);
}

void operator delete(void* block, std::align_val_t) noexcept
{
    OS().allocator().deallocate(block);
}

void operator delete(void* block, std::size_t, std::align_val_t) noexcept
{
    OS().allocator().deallocate(block);
}
