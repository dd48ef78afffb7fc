#include "bench/peers/Allocations.h"

#include <array>
#include <cstddef>
#include <dlfcn.h>
#include <string_view>

namespace Qx::Bench {
namespace {

// Neither may allocate: malloc writes them.
constexpr std::size_t mostCallers = 65536;
thread_local bool counting = false;
thread_local std::size_t callers = 0;
std::array<void*, mostCallers> callerOf; // of the counting thread

bool isOurs(void* address)
{
    Dl_info object{};
    if (dladdr(address, &object) == 0 || object.dli_fname == nullptr) {
        return true;
    }
    std::string_view name = object.dli_fname;
    name.remove_prefix(name.rfind('/') + 1); // npos + 1 is 0
    for (const char* const prefix : {"libQx", "qx_", "libqx_", "libstdc++", "libfmt", "libspdlog"}) {
        if (name.starts_with(prefix)) {
            return true;
        }
    }
    return false;
}

} // namespace

void noteAllocation(void* caller) noexcept
{
    if (counting && callers < mostCallers) {
        callerOf[callers++] = caller;
    }
}

void startCounting()
{
    callers = 0;
    counting = true;
}

Allocations stopCounting()
{
    counting = false;
    Allocations counted;
    for (std::size_t i = 0; i < callers; ++i) {
        ++(isOurs(callerOf.at(i)) ? counted.ours : counted.drivers);
    }
    return counted;
}

} // namespace Qx::Bench

// The C library's own functions, under the names that it provides for replacements of malloc.
extern "C" {
void* __libc_malloc(std::size_t size);                          // NOLINT
void* __libc_calloc(std::size_t count, std::size_t size);       // NOLINT
void* __libc_realloc(void* memory, std::size_t size);           // NOLINT
void* __libc_memalign(std::size_t alignment, std::size_t size); // NOLINT

#define QX_EXPORTED __attribute__((visibility("default")))

QX_EXPORTED void* malloc(std::size_t size)
{
    Qx::Bench::noteAllocation(__builtin_return_address(0));
    return __libc_malloc(size);
}

QX_EXPORTED void* calloc(std::size_t count, std::size_t size)
{
    Qx::Bench::noteAllocation(__builtin_return_address(0));
    return __libc_calloc(count, size);
}

QX_EXPORTED void* realloc(void* memory, std::size_t size)
{
    Qx::Bench::noteAllocation(__builtin_return_address(0));
    return __libc_realloc(memory, size);
}

QX_EXPORTED void* aligned_alloc(std::size_t alignment, std::size_t size)
{
    Qx::Bench::noteAllocation(__builtin_return_address(0));
    return __libc_memalign(alignment, size);
}
}
