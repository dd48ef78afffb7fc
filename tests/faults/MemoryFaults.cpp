// Makes the n-th large allocation fail that the library, the host, the program or FFmpeg's buffers ask for:
// what pixels lie in, and large tables. Preloaded into a program.
//
// QX_MEMORY_FAULT=N:BYTES   N counts the allocations of at least BYTES from 1, 0 fails none
// QX_FAULT_PROGRAM, QX_FAULT_LOG as in FileFaults.cpp

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <new>
#include <string_view>
#include <unistd.h>

extern "C" { // glibc's own, which need no look-up
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
}

namespace {

std::atomic<long> wantedCount{-1};
std::atomic<std::size_t> least{0};
std::atomic<long> counted{0};
const char* logName = nullptr;

// Nothing here may allocate.
__attribute__((constructor)) void readVariables()
{
    // NOLINTBEGIN(concurrency-mt-unsafe): there is one thread
    const char* fault = std::getenv("QX_MEMORY_FAULT");
    const char* program = std::getenv("QX_FAULT_PROGRAM");
    logName = std::getenv("QX_FAULT_LOG");
    // NOLINTEND(concurrency-mt-unsafe)
    if (fault == nullptr ||
        (program != nullptr && std::strcmp(program, program_invocation_short_name) != 0)) {
        return;
    }
    char* end = nullptr;
    const long n = std::strtol(fault, &end, 10);
    least = *end == ':' ? std::strtoul(end + 1, nullptr, 10) : 0;
    wantedCount = n;
}

/// Whether the caller is our own code or FFmpeg's.
bool isOurs(const void* caller, Dl_info& info)
{
    if (::dladdr(caller, &info) == 0 || info.dli_fname == nullptr) {
        return false;
    }
    std::string_view name = info.dli_fname;
    name.remove_prefix(std::min(name.rfind('/') + 1, name.size()));
    return name.starts_with("libQx") || name.starts_with("qxhost") || name.starts_with("libavutil");
}

bool failsNow(std::size_t bytes, const void* caller)
{
    Dl_info info{};
    if (wantedCount < 0 || bytes < least || !isOurs(caller, info)) {
        return false;
    }
    const bool now = ++counted == wantedCount;
    if (logName != nullptr) {
        std::array<char, 512> line{};
        const int length =
            std::snprintf(line.data(), line.size(), "%smemory %zu %s\n", now ? "fired " : "", bytes,
                          std::strrchr(info.dli_fname, '/') != nullptr ? std::strrchr(info.dli_fname, '/') + 1
                                                                       : info.dli_fname);
        const int file = ::open(logName, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        static_cast<void>(::write(file, line.data(), static_cast<std::size_t>(std::max(length, 0))));
        ::close(file);
    }
    if (now) {
        errno = ENOMEM;
    }
    return now;
}

void* orThrow(void* block)
{
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

} // namespace

#define QX_CALLER __builtin_return_address(0)

extern "C" {

void* malloc(std::size_t bytes) noexcept
{
    return failsNow(bytes, QX_CALLER) ? nullptr : __libc_malloc(bytes);
}

void* calloc(std::size_t count, std::size_t bytes) noexcept
{
    return failsNow(count * bytes, QX_CALLER) ? nullptr : __libc_calloc(count, bytes);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t bytes) noexcept
{
    *block = failsNow(bytes, QX_CALLER) ? nullptr : __libc_memalign(alignment, bytes);
    return *block != nullptr ? 0 : ENOMEM;
}

void* aligned_alloc(std::size_t alignment, std::size_t bytes) noexcept
{
    return failsNow(bytes, QX_CALLER) ? nullptr : __libc_memalign(alignment, bytes);
}
}

void* operator new(std::size_t bytes)
{
    return orThrow(failsNow(bytes, QX_CALLER) ? nullptr : __libc_malloc(std::max<std::size_t>(bytes, 1)));
}

void* operator new[](std::size_t bytes)
{
    return orThrow(failsNow(bytes, QX_CALLER) ? nullptr : __libc_malloc(std::max<std::size_t>(bytes, 1)));
}

void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept
{
    return failsNow(bytes, QX_CALLER) ? nullptr : __libc_malloc(std::max<std::size_t>(bytes, 1));
}

void* operator new(std::size_t bytes, std::align_val_t alignment)
{
    return orThrow(failsNow(bytes, QX_CALLER) ? nullptr
                                              : __libc_memalign(static_cast<std::size_t>(alignment), bytes));
}
