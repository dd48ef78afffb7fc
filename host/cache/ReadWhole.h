#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <sys/stat.h>
#include <vector>

namespace Qx::Host::Cache {

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

    /// Closes it now; false when the file system says only then that it could not take what was written.
    bool close();

private:
    int number_;
};

/// Opens for reading what is known to be a plain file, without waiting for anything: a pipe or a device in
/// its place is refused. The path is taken from `directory`, a descriptor or AT_FDCWD; `flags` go beside
/// O_RDONLY. `status` is filled in when the descriptor is good.
Descriptor openPlainFile(int directory, const char* path, int flags, struct stat& status);

/// All bytes of an open file; none when it has more than `most` or cannot be read.
std::optional<std::vector<std::byte>> readWhole(const Descriptor& file, std::size_t most);

/// Both at once.
std::optional<std::vector<std::byte>> readWhole(const std::filesystem::path& path, std::size_t most);

} // namespace Qx::Host::Cache
