#include "host/files/ReadFile.h"

#include "host/files/WriteFile.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace Qx::Host {

namespace {

template <class Bytes>
std::optional<Bytes> readAll(const Descriptor& file, std::size_t most)
{
    struct stat status = {};
    if (fstat(file.number(), &status) != 0 || status.st_size < 0 ||
        static_cast<std::uintmax_t>(status.st_size) > most) {
        return std::nullopt;
    }
    // With one byte more than expected the end of the file shows without another allocation. Files of the
    // kernel say that they are empty, and some give their contents to a single read only.
    constexpr std::size_t least = 4096;
    const std::size_t expected = std::max(static_cast<std::size_t>(status.st_size), least);
    Bytes bytes(std::min(expected, most) + 1, typename Bytes::value_type());
    std::size_t have = 0;
    while (have <= most) {
        if (have == bytes.size()) {
            bytes.resize(std::min(2 * have, most + 1));
        }
        const ssize_t got =
            uninterrupted([&] { return read(file.number(), bytes.data() + have, bytes.size() - have); });
        if (got < 0) {
            return std::nullopt;
        }
        if (got == 0) {
            bytes.resize(have);
            return bytes;
        }
        have += static_cast<std::size_t>(got);
    }
    return std::nullopt;
}

} // namespace

Descriptor::~Descriptor()
{
    close();
}

bool Descriptor::close()
{
    const int number = number_;
    number_ = -1;
    return number < 0 || ::close(number) == 0;
}

Descriptor openPlainFile(int directory, const char* path, int flags, struct stat& status)
{
    Descriptor file(uninterrupted(
        [&] { return openat(directory, path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | flags); }));
    if (file && (fstat(file.number(), &status) != 0 || !S_ISREG(status.st_mode))) {
        return Descriptor(-1);
    }
    return file;
}

std::optional<std::string> readFile(const std::filesystem::path& path, std::size_t most)
{
    struct stat status = {};
    // Opening a pipe would let go a writer that waits for a reader.
    if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    const Descriptor file = openPlainFile(AT_FDCWD, path.c_str(), 0, status);
    return file ? readAll<std::string>(file, most) : std::nullopt;
}

std::optional<std::vector<std::byte>> readFile(const Descriptor& file, std::size_t most)
{
    return readAll<std::vector<std::byte>>(file, most);
}

} // namespace Qx::Host
