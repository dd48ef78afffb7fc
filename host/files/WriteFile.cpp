#include "host/files/WriteFile.h"

#include "host/files/ReadFile.h"

#include <cstdio>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Qx::Host {

int makePrivateDirectories(const std::filesystem::path& path)
{
    std::error_code error;
    if (path.has_parent_path() && path.parent_path() != path &&
        !std::filesystem::exists(path.parent_path(), error)) {
        if (const int number = makePrivateDirectories(path.parent_path()); number != 0) {
            return number;
        }
    }
    return ::mkdir(path.c_str(), S_IRWXU) == 0 || errno == EEXIST ? 0 : errno;
}

int writeAll(int descriptor, const void* bytes, std::size_t count)
{
    const char* from = static_cast<const char*>(bytes);
    while (count > 0) {
        const ssize_t written = uninterrupted([&] { return ::write(descriptor, from, count); });
        if (written < 0) {
            return errno;
        }
        if (written == 0) {
            return EIO; // no file does that; it must not be asked forever
        }
        from += written;
        count -= static_cast<std::size_t>(written);
    }
    return 0;
}

int sync(int descriptor)
{
    if (uninterrupted([&] { return ::fsync(descriptor); }) == 0) {
        return 0;
    }
    const bool cannot = errno == EINVAL || errno == EROFS || errno == ENOSYS || errno == EOPNOTSUPP;
    return cannot ? 0 : errno;
}

int syncDirectoryOf(const std::filesystem::path& file)
{
    const std::filesystem::path place = file.has_parent_path() ? file.parent_path() : ".";
    const Descriptor directory(
        uninterrupted([&] { return ::open(place.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    if (!directory) {
        return errno == EACCES ? 0 : errno;
    }
    return sync(directory.number());
}

int syncAndRename(int descriptor, int directory, const char* unfinished, const char* name, unsigned flags)
{
    if (const int error = sync(descriptor); error != 0) {
        return error;
    }
    const int result =
        uninterrupted([&] { return ::renameat2(directory, unfinished, directory, name, flags); });
    return result == 0 ? 0 : errno;
}

} // namespace Qx::Host
