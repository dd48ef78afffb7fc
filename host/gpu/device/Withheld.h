#pragma once

#include <string>
#include <string_view>

namespace Qx::Host::Vulkan {

/// What the service does as if no device had it, so that its other ways can be tested on any device: named in
/// the variable QX_DEVICE_WITHOUT, separated by commas.
struct Withheld
{
    bool timer = false;        ///< "timer": timestamps
    bool rows = false;         ///< "rows": images that are stored row by row
    bool sharedMemory = false; ///< "shared-memory": host images in the memory of GPU images
    bool largeLimits =
        false; ///< "large-limits": 4096 texels a side, 128 MiB an allocation, 65536 texels a buffer
    bool conversions = false;   ///< "conversions": fast ones of floats to whole numbers
    bool conformance = false;   ///< "conformance": a driver that has passed Vulkan's tests
    bool transferQueue = false; ///< "transfer-queue": queues that only copy
};

/// Reads the list. Empty, with the reason in `failure`, if it has another name.
Withheld withheldBy(std::string_view list, std::string& failure);

/// What QX_DEVICE_WITHOUT says.
Withheld withheldByEnvironment(std::string& failure);

} // namespace Qx::Host::Vulkan
