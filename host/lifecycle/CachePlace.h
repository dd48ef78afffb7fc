#pragma once

#include <cstdint>
#include <filesystem>

namespace Qx::Host {

/// Where the settings have compiled effects and pipelines kept between runs.
struct CachePlace
{
    std::filesystem::path directory; ///< empty when the user has no directory for such things
    std::uint64_t mostBytes = 0;
    bool enabled = false;
};

/// By the settings `cache` and `cache_mib`.
CachePlace configuredCachePlace();

} // namespace Qx::Host
