#pragma once

#include "host/lifecycle/CachePlace.h"

#include <cstdint>
#include <filesystem>

namespace Qx::Host {

/// Where the driver keeps compiled shaders: "driver" beside our own entries. Drivers map files there into
/// memory, and the process dies if such a page finds no room on the disk. The driver therefore gets a cache
/// only while there is ample room; without one it compiles again, which costs time.
std::filesystem::path driverCacheDirectory(const CachePlace& place);

/// Tells the driver, by variables of the process and of those it starts, to keep its cache there with our
/// limit, or to keep none: if `place` is not enabled, cannot be used or has less than `leastRoom` bytes free.
/// The last two are one line in the log. Variables of the driver's that the user has set hold, but a place
/// that Mesa's variable names is not used without room. To be called before the driver is loaded and before
/// other threads start.
void placeDriverCache(const CachePlace& place, std::uint64_t leastRoom = std::uint64_t{64} << 20U);

} // namespace Qx::Host
