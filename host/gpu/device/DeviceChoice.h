#pragma once

#include "host/gpu/GPUOptions.h"

#include <optional>
#include <string>
#include <vector>

namespace Qx::Host {

/// What choosing among the machine's devices came to.
struct DeviceChoice
{
    std::optional<std::uint32_t> index;
    std::string failure; ///< for people, naming what was asked for and what there is; empty on success
};

/// Chooses a device. `wish` is an index, part of a name (letter case aside) or empty, and `wishSource` says
/// where it comes from ("QX_DEVICE", "the setting"). Without a wish a GPU goes before a software device, a
/// discrete GPU before others, and the first among equals.
DeviceChoice chooseDevice(const std::vector<DeviceDescription>& devices, const std::string& wish,
                          const std::string& wishSource);

} // namespace Qx::Host
