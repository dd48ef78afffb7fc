#pragma once

#include <cstdint>
#include <filesystem>
#include <sys/stat.h>

namespace Qx::Host {

/// The stamp of a file. For an effect (".fx") it is a hash of its bytes and those of every file that it
/// includes, directly or indirectly; for any other file a hash of its size, times and identity in the file
/// system.
std::uint64_t fileStamp(const std::filesystem::path& file, const struct stat& status);

} // namespace Qx::Host
