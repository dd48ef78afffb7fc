#include "host/files/CopyFile.h"

#include "host/files/ReadFile.h"
#include "host/files/SystemError.h"
#include "host/files/WriteFile.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace Qx::Host {

namespace {

std::string problem(std::string_view what, const std::string& path, int error)
{
    return std::string(what) + ' ' + path + ": " + systemProblem(error);
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

/// A file of its own name beside the destination, removed with the object unless it got another name.
class Unfinished
{
public:
    explicit Unfinished(const std::string& destination)
        : pattern_(destination.substr(0, destination.rfind('/') + 1) + ".qx-copy-XXXXXX"), // npos + 1 is 0
          name_(pattern_),
          file_(uninterrupted([&] {
              name_ = pattern_;
              return ::mkostemp(name_.data(), O_CLOEXEC);
          }))
    {
    }
    ~Unfinished()
    {
        if (file_ && !isNamed_) {
            ::unlink(name_.c_str());
        }
    }
    Unfinished(const Unfinished&) = delete;
    Unfinished& operator=(const Unfinished&) = delete;

    const Descriptor& file() const { return file_; }

    /// Syncs it and gives it its name. 0, or an error number.
    int nameIt(const std::string& name)
    {
        const int error = syncAndRename(file_.number(), AT_FDCWD, name_.c_str(), name.c_str());
        isNamed_ = error == 0;
        return error;
    }

private:
    const std::string pattern_;
    std::string name_;
    const Descriptor file_;
    bool isNamed_ = false;
};

} // namespace

std::string copyFileWhole(const std::string& source, const std::string& destination)
{
    if (destination.empty()) {
        return "cannot copy " + source + ": there is no name for the copy";
    }
    struct stat status = {};
    const Descriptor from = openPlainFile(AT_FDCWD, source.c_str(), 0, status);
    if (!from) {
        const int error = errno;
        return status.st_mode != 0 ? source + " is not a plain file" : problem("cannot read", source, error);
    }
    struct stat replaced = {};
    if (::stat(destination.c_str(), &replaced) == 0 && !S_ISREG(replaced.st_mode)) {
        return destination + " is not a plain file";
    }

    Unfinished copy(destination);
    if (!copy.file()) {
        return problem("cannot write beside", destination, errno);
    }
    std::string failure = copyBytes(from, source, copy.file(), destination);
    if (failure.empty()) {
        int error = ::fchmod(copy.file().number(), status.st_mode & 0777) == 0 ? 0 : errno;
        error = error == 0 ? copy.nameIt(destination) : error;
        error = error == 0 ? syncDirectoryOf(destination) : error;
        failure = error == 0 ? std::string() : problem("cannot write", destination, error);
    }
    return failure;
}

} // namespace Qx::Host
