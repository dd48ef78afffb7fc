#pragma once

#include <cstdint>
#include <filesystem>
#include <sys/stat.h>

namespace Qx::Host {

/// The stamp of a file: of an effect (".fx") a hash of its bytes and of those of every file that it includes,
/// directly or not; of another file a hash of what the file system says about it (size, times, identity).
std::uint64_t fileStamp(const std::filesystem::path& file, const struct stat& status);

} // namespace Qx::Host
