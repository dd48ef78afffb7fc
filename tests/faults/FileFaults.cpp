// Makes the n-th call of a kind fail, for files under some directories. Preloaded into a program, or linked
// into one.
//
// QX_FAULT=CALL:ERROR:N   CALL is write, sync, rename, open, size or map; ERROR is ENOSPC, EIO,
//                         EINTR or SHORT (a write of half the bytes); N counts from 1, 0 fails none
// QX_FAULT_UNDER=A:B      the directories
// QX_FAULT_PROGRAM=NAME   only in a program of that file name (programs that it starts inherit the variables)
// QX_FAULT_LOG=FILE       gets a line "CALL PATH" for each call that counts, and "fired CALL PATH" for the
// one that fails
//
// Files that the C library opens and writes by itself (fopen, fwrite) count as opened only.

#include "tests/faults/FileFaults.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::string_literals;

struct Plan
{
    std::string call;
    int error = 0;
    bool isShort = false;
    long n = 0;
    std::vector<std::string> under;
    std::string log;
};

// Never destroyed: calls come until the very end of the process.
Plan& plan()
{
    static Plan& only = *new Plan;
    return only;
}

std::atomic<bool> armed{false};
std::atomic<long> count{0};
std::atomic<bool> fired{false};

std::string variable(const char* name)
{
    const char* value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nothing sets variables here
    return value != nullptr ? value : "";
}

std::vector<std::string> split(const std::string& text)
{
    std::vector<std::string> parts;
    for (std::size_t at = 0; at <= text.size();) {
        const std::size_t end = std::min(text.find(':', at), text.size());
        parts.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return parts;
}

__attribute__((constructor)) void readEnvironment()
{
    const std::string wanted = variable("QX_FAULT_PROGRAM");
    if (!variable("QX_FAULT").empty() && (wanted.empty() || wanted == program_invocation_short_name)) {
        qxArmFault(variable("QX_FAULT").c_str(), variable("QX_FAULT_UNDER").c_str(),
                   variable("QX_FAULT_LOG").c_str());
    }
}

void note(const std::string& line)
{
    if (!plan().log.empty()) {
        const int file = static_cast<int>(::syscall(SYS_openat, AT_FDCWD, plan().log.c_str(),
                                                    O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
        ::syscall(SYS_write, file, line.data(), line.size());
        ::syscall(SYS_close, file);
    }
}

std::string pathOf(int descriptor)
{
    std::array<char, PATH_MAX> path{};
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    const ssize_t length = ::readlink(link.c_str(), path.data(), path.size() - 1);
    return length > 0 ? std::string(path.data(), static_cast<std::size_t>(length)) : std::string();
}

std::string pathOf(int directory, const char* name)
{
    if (name == nullptr || *name == '/') {
        return name == nullptr ? "" : name;
    }
    std::array<char, PATH_MAX> here{};
    const std::string base = directory == AT_FDCWD
                                 ? (::getcwd(here.data(), here.size()) != nullptr ? here.data() : "")
                                 : pathOf(directory);
    return base + '/' + name;
}

enum class Verdict
{
    Pass,
    Fail,
    Shorten
};

/// Counts a call. Sets errno if it is the one to fail.
template <class Path>
Verdict judge(const char* call, Path&& path)
{
    if (!armed) {
        return Verdict::Pass;
    }
    const int before = errno;
    const std::string file = path();
    const bool inside =
        std::any_of(plan().under.begin(), plan().under.end(), [&](const std::string& directory) {
            return !directory.empty() && file.starts_with(directory) &&
                   (file.size() == directory.size() || file[directory.size()] == '/');
        });
    const bool counts = inside && (plan().call == call || plan().call == "all");
    const bool fails = counts && ++count == plan().n;
    if (counts) {
        note((fails ? "fired " : "") + std::string(call) + ' ' + file + '\n');
    }
    errno = before;
    if (!fails) {
        return Verdict::Pass;
    }
    fired = true;
    if (plan().isShort) {
        return Verdict::Shorten;
    }
    errno = plan().error;
    return Verdict::Fail;
}

template <class Function>
Function real(const char* name)
{
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

#define QX_REAL(name) static const auto next = real<decltype(&::name)>(#name)

/// The mode that follows the flags of open(), if it does.
mode_t modeOf(int flags, std::va_list arguments)
{
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

} // namespace

extern "C" {

void qxArmFault(const char* fault, const char* directories, const char* log)
{
    armed = false;
    const std::vector<std::string> parts = split(fault);
    if (parts.size() != 3) {
        return;
    }
    Plan& next = plan();
    next.call = parts[0];
    next.isShort = parts[1] == "SHORT";
    next.error = parts[1] == "EIO" ? EIO : parts[1] == "EINTR" ? EINTR : ENOSPC;
    next.n = std::atol(parts[2].c_str());
    next.under = split(directories);
    next.log = log != nullptr ? log : "";
    count = 0;
    fired = false;
    armed = true;
}

int qxDisarmFault()
{
    armed = false;
    return fired ? 1 : 0;
}

ssize_t write(int file, const void* bytes, std::size_t size)
{
    QX_REAL(write);
    switch (judge("write", [&] { return pathOf(file); })) {
    case Verdict::Fail:
        return -1;
    case Verdict::Shorten:
        return next(file, bytes, (size + 1) / 2);
    case Verdict::Pass:
        break;
    }
    return next(file, bytes, size);
}

ssize_t pwrite64(int file, const void* bytes, std::size_t size, off64_t at)
{
    QX_REAL(pwrite64);
    switch (judge("write", [&] { return pathOf(file); })) {
    case Verdict::Fail:
        return -1;
    case Verdict::Shorten:
        return next(file, bytes, (size + 1) / 2, at);
    case Verdict::Pass:
        break;
    }
    return next(file, bytes, size, at);
}

ssize_t pwrite(int file, const void* bytes, std::size_t size, off_t at)
{
    return pwrite64(file, bytes, size, at);
}

ssize_t writev(int file, const iovec* parts, int number)
{
    QX_REAL(writev);
    switch (judge("write", [&] { return pathOf(file); })) {
    case Verdict::Fail:
        return -1;
    case Verdict::Shorten:
        return next(file, parts, std::max(number / 2, 1));
    case Verdict::Pass:
        break;
    }
    return next(file, parts, number);
}

int fsync(int file)
{
    QX_REAL(fsync);
    return judge("sync", [&] { return pathOf(file); }) == Verdict::Pass ? next(file) : -1;
}

int fdatasync(int file)
{
    QX_REAL(fdatasync);
    return judge("sync", [&] { return pathOf(file); }) == Verdict::Pass ? next(file) : -1;
}

int renameat2(int from, const char* old, int to, const char* name, unsigned flags)
{
    QX_REAL(renameat2);
    return judge("rename", [&] { return pathOf(to, name); }) == Verdict::Pass
               ? next(from, old, to, name, flags)
               : -1;
}

int renameat(int from, const char* old, int to, const char* name) noexcept
{
    return renameat2(from, old, to, name, 0);
}

int rename(const char* old, const char* name) noexcept
{
    return renameat2(AT_FDCWD, old, AT_FDCWD, name, 0);
}

int openat64(int directory, const char* path, int flags, ...)
{
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    QX_REAL(openat64);
    return judge("open", [&] { return pathOf(directory, path); }) == Verdict::Pass
               ? next(directory, path, flags, mode)
               : -1;
}

int openat(int directory, const char* path, int flags, ...)
{
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return openat64(directory, path, flags, mode);
}

int open64(const char* path, int flags, ...)
{
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return openat64(AT_FDCWD, path, flags, mode);
}

int open(const char* path, int flags, ...)
{
    std::va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeOf(flags, arguments);
    va_end(arguments);
    return openat64(AT_FDCWD, path, flags, mode);
}

int mkostemp64(char* name, int flags)
{
    QX_REAL(mkostemp64);
    return judge("open", [&] { return pathOf(AT_FDCWD, name); }) == Verdict::Pass ? next(name, flags) : -1;
}

int mkostemp(char* name, int flags)
{
    return mkostemp64(name, flags);
}

std::FILE* fopen64(const char* path, const char* mode)
{
    QX_REAL(fopen64);
    return judge("open", [&] { return pathOf(AT_FDCWD, path); }) == Verdict::Pass ? next(path, mode)
                                                                                  : nullptr;
}

std::FILE* fopen(const char* path, const char* mode)
{
    return fopen64(path, mode);
}

int ftruncate64(int file, off64_t size) noexcept
{
    QX_REAL(ftruncate64);
    return judge("size", [&] { return pathOf(file); }) == Verdict::Pass ? next(file, size) : -1;
}

int ftruncate(int file, off_t size) noexcept
{
    return ftruncate64(file, size);
}

int fallocate64(int file, int mode, off64_t at, off64_t size)
{
    QX_REAL(fallocate64);
    return judge("size", [&] { return pathOf(file); }) == Verdict::Pass ? next(file, mode, at, size) : -1;
}

int fallocate(int file, int mode, off_t at, off_t size)
{
    return fallocate64(file, mode, at, size);
}

/// Returns the error instead of setting errno.
int posix_fallocate64(int file, off64_t at, off64_t size)
{
    QX_REAL(posix_fallocate64);
    return judge("size", [&] { return pathOf(file); }) == Verdict::Pass ? next(file, at, size) : plan().error;
}

int posix_fallocate(int file, off_t at, off_t size)
{
    return posix_fallocate64(file, at, size);
}

void* mmap64(void* place, std::size_t size, int protection, int flags, int file, off64_t at) noexcept
{
    QX_REAL(mmap64);
    const bool counts = file >= 0 && (flags & MAP_ANONYMOUS) == 0;
    return !counts || judge("map", [&] { return pathOf(file); }) == Verdict::Pass
               ? next(place, size, protection, flags, file, at)
               : MAP_FAILED;
}

void* mmap(void* place, std::size_t size, int protection, int flags, int file, off_t at) noexcept
{
    return mmap64(place, size, protection, flags, file, at);
}

} // extern "C"
