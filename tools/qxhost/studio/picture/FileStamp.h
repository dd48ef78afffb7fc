#pragma once

#include <cstdint>
#include <filesystem>
#include <sys/stat.h>

namespace Qx::Program::Studio {

/// A number that changes when the file does; 0 if there is none.
inline std::uint64_t stampOf(const std::filesystem::path& file)
{
    struct stat status = {};
    if (::stat(file.c_str(), &status) != 0) {
        return 0;
    }
    const auto mix = [](std::uint64_t a, std::uint64_t b) {
        return (a ^ b) * 0x9E3779B97F4A7C15U + (a >> 7U);
    };
    std::uint64_t stamp = mix(1, static_cast<std::uint64_t>(status.st_mtim.tv_sec));
    stamp = mix(stamp, static_cast<std::uint64_t>(status.st_mtim.tv_nsec));
    stamp = mix(stamp, static_cast<std::uint64_t>(status.st_size));
    return mix(stamp, static_cast<std::uint64_t>(status.st_ino)) | 1U;
}

} // namespace Qx::Program::Studio
