#include "host/lifecycle/CachePlace.h"

#include "host/settings/Directories.h"
#include "host/settings/Settings.h"

namespace Qx::Host {

CachePlace configuredCachePlace()
{
    constexpr std::int64_t defaultMiB = 256;
    const Settings& settings = Settings::instance();
    const std::int64_t mib = settings.integer("cache_mib").value_or(defaultMiB);
    CachePlace place;
    place.directory = userCacheDirectory();
    place.mostBytes = static_cast<std::uint64_t>(mib) << 20U;
    place.enabled = settings.flag("cache").value_or(true) && mib > 0 && !place.directory.empty();
    return place;
}

} // namespace Qx::Host
