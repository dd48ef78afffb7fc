#pragma once

#include <cstdint>
#include <filesystem>

namespace Qx::Host {

/// The place of compiled effects and pipelines between runs, by the settings.
struct CachePlace
{
    std::filesystem::path directory; ///< empty if the user has no cache directory
    std::uint64_t mostBytes = 0;
    bool enabled = false;
};

/// By the settings `cache` and `cache_mib`.
CachePlace configuredCachePlace();

} // namespace Qx::Host
