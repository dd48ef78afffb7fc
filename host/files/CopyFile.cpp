#include "host/files/CopyFile.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Qx::Host {

namespace {

class File
{
public:
    explicit File(int descriptor) : descriptor_(descriptor) {}
    ~File() { close(); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    int get() const { return descriptor_; }
    bool isOpen() const { return descriptor_ >= 0; }

    /// Returns false if written data may be lost.
    bool close()
    {
        const int descriptor = descriptor_;
        descriptor_ = -1;
        return descriptor < 0 || ::close(descriptor) == 0;
    }

private:
    int descriptor_;
};

std::string problem(std::string_view what, const std::string& path)
{
    return std::string(what) + ' ' + path + ": " + std::generic_category().message(errno);
}

bool writeAll(int descriptor, const char* bytes, std::size_t count)
{
    while (count > 0) {
        const ssize_t written = ::write(descriptor, bytes, count);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        bytes += written;
        count -= static_cast<std::size_t>(written);
    }
    return true;
}

/// Copies from one open file to the other. Empty, or the reason of a failure.
std::string copyBytes(const File& from, const std::string& fromPath, const File& to,
                      const std::string& toPath)
{
    std::array<char, 1 << 16> buffer;
    for (;;) {
        const ssize_t count = ::read(from.get(), buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return problem("cannot read", fromPath);
        }
        if (count == 0) {
            return {};
        }
        if (!writeAll(to.get(), buffer.data(), static_cast<std::size_t>(count))) {
            return problem("cannot write", toPath);
        }
    }
}

} // namespace

std::string copyFileWhole(const std::string& source, const std::string& destination)
{
    const File from(::open(source.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status = {};
    if (!from.isOpen() || ::fstat(from.get(), &status) != 0) {
        return problem("cannot read", source);
    }
    if (!S_ISREG(status.st_mode)) {
        return source + " is not a plain file";
    }
    struct stat replaced = {};
    if (::stat(destination.c_str(), &replaced) == 0 && !S_ISREG(replaced.st_mode)) {
        return destination + " is not a plain file";
    }

    const std::size_t name = destination.rfind('/') + 1; // npos + 1 is 0
    std::string temporary = destination.substr(0, name) + ".qx-copy-XXXXXX";
    File to(::mkostemp(temporary.data(), O_CLOEXEC));
    if (!to.isOpen()) {
        return problem("cannot write beside", destination);
    }
    std::string failure = copyBytes(from, source, to, destination);
    if (failure.empty() && (::fchmod(to.get(), status.st_mode & 0777) != 0 || ::fsync(to.get()) != 0 ||
                            !to.close() || std::rename(temporary.c_str(), destination.c_str()) != 0)) {
        failure = problem("cannot write", destination);
    }
    if (!failure.empty()) {
        ::unlink(temporary.c_str());
    }
    return failure;
}

} // namespace Qx::Host
