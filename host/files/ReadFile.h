#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace Qx::Host {

/// A file descriptor, closed with the object.
class Descriptor
{
public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor();
    Descriptor(Descriptor&& other) noexcept : number_(other.number_) { other.number_ = -1; }
    Descriptor& operator=(Descriptor&&) = delete;

    explicit operator bool() const { return number_ >= 0; }
    int number() const { return number_; }

    /// Closes the descriptor now. Returns false if the file system reports only then that it could not write.
    bool close();

private:
    int number_;
};

/// Opens a regular file for reading, without blocking; a pipe or a device is refused. The path is relative to
/// `directory`, a descriptor or AT_FDCWD; `flags` are added to O_RDONLY. `status` is filled in if the
/// descriptor is good, or if the file is no regular one; otherwise errno says why it is not good.
Descriptor openPlainFile(int directory, const char* path, int flags, struct stat& status);

/// The bytes of a regular file; none if it is something else, cannot be read or has more than `most`.
std::optional<std::string> readFile(const std::filesystem::path& path, std::size_t most);

/// The bytes of an open file; none if it cannot be read or has more than `most`.
std::optional<std::vector<std::byte>> readFile(const Descriptor& file, std::size_t most);

} // namespace Qx::Host
