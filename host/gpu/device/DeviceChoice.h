#pragma once

#include "host/gpu/GPUOptions.h"

#include <optional>
#include <string>
#include <vector>

namespace Qx::Host {

/// The result of a choice among the machine's devices.
struct DeviceChoice
{
    std::optional<std::uint32_t> index;
    std::string failure; ///< for people, with the wish and the devices; empty on success
};

/// Chooses a device. `wish` is an index, part of a name (ignoring case) or empty; `wishSource` is its origin
/// for messages ("QX_DEVICE", "the setting"). Without a wish a GPU is preferred to a software device and a
/// discrete GPU to others; the first among equals is chosen.
DeviceChoice chooseDevice(const std::vector<DeviceDescription>& devices, const std::string& wish,
                          const std::string& wishSource);

} // namespace Qx::Host
