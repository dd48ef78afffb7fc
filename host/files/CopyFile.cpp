#include "host/files/CopyFile.h"

#include "host/files/ReadFile.h"
#include "host/files/WriteFile.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Qx::Host {

namespace {

std::string problem(std::string_view what, const std::string& path, int error)
{
    return std::string(what) + ' ' + path + ": " + std::generic_category().message(error);
}

/// Copies from one open file to the other. Empty, or the reason of a failure.
std::string copyBytes(const Descriptor& from, const std::string& fromPath, const Descriptor& to,
                      const std::string& toPath)
{
    std::array<char, 1 << 16> buffer;
    for (;;) {
        const ssize_t count =
            uninterrupted([&] { return ::read(from.number(), buffer.data(), buffer.size()); });
        if (count < 0) {
            return problem("cannot read", fromPath, errno);
        }
        if (count == 0) {
            return {};
        }
        if (const int error = writeAll(to.number(), buffer.data(), static_cast<std::size_t>(count));
            error != 0) {
            return problem("cannot write", toPath, error);
        }
    }
}

/// Creates a file of its own name beside the destination.
Descriptor createBeside(const std::string& destination, std::string& temporary)
{
    const std::size_t name = destination.rfind('/') + 1; // npos + 1 is 0
    return Descriptor(uninterrupted([&] {
        temporary = destination.substr(0, name) + ".qx-copy-XXXXXX";
        return ::mkostemp(temporary.data(), O_CLOEXEC);
    }));
}

} // namespace

std::string copyFileWhole(const std::string& source, const std::string& destination)
{
    const Descriptor from(
        uninterrupted([&] { return ::open(source.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); }));
    struct stat status = {};
    if (!from || ::fstat(from.number(), &status) != 0) {
        return problem("cannot read", source, errno);
    }
    if (!S_ISREG(status.st_mode)) {
        return source + " is not a plain file";
    }
    struct stat replaced = {};
    if (::stat(destination.c_str(), &replaced) == 0 && !S_ISREG(replaced.st_mode)) {
        return destination + " is not a plain file";
    }

    std::string temporary;
    const Descriptor to = createBeside(destination, temporary);
    if (!to) {
        return problem("cannot write beside", destination, errno);
    }
    std::string failure = copyBytes(from, source, to, destination);
    if (failure.empty()) {
        int error = ::fchmod(to.number(), status.st_mode & 0777) == 0 ? 0 : errno;
        if (error == 0) {
            error = syncAndRename(to.number(), AT_FDCWD, temporary.c_str(), destination.c_str());
        }
        if (error == 0) {
            temporary.clear(); // there is none any more
            error = syncDirectoryOf(destination);
        }
        failure = error == 0 ? std::string() : problem("cannot write", destination, error);
    }
    if (!failure.empty() && !temporary.empty()) {
        ::unlink(temporary.c_str());
    }
    return failure;
}

} // namespace Qx::Host
