#pragma once

#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <filesystem>

namespace Qx::Host {

// How a file appears whole or not at all, even if the power fails: it is written under another name and
// synced, takes its name, and then its directory is synced. The functions return 0 or an error number
// (errno(3)). They repeat what a signal has interrupted.

/// Repeats a system call that returns -1 until no signal interrupts it.
template <class Call>
auto uninterrupted(Call&& call)
{
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

/// Makes a directory and its missing parents with mode 0700, as the XDG Base Directory Specification wants
/// it.
int makePrivateDirectories(const std::filesystem::path& path);

/// Writes all the bytes, in as many calls as that takes.
int writeAll(int descriptor, const void* bytes, std::size_t count);

/// Waits until the contents of an open file or directory are on disk. Does nothing where the file system
/// cannot do that.
int sync(int descriptor);

/// Syncs the directory of a file, so that its name lasts. Does nothing if the directory may not be read.
int syncDirectoryOf(const std::filesystem::path& file);

/// Syncs an open file and gives it its name. Both names are relative to `directory`, a descriptor or
/// AT_FDCWD; `flags` are those of renameat2(2). The directory is not synced.
int syncAndRename(int descriptor, int directory, const char* unfinished, const char* name,
                  unsigned flags = 0);

} // namespace Qx::Host
