#pragma once

#include <filesystem>

namespace Qx::Host {

/// Tells the Vulkan loader, by a variable of the process and of those it starts, to leave out Mesa's drivers
/// of GPUs if there is no directory `nodes`, in which these drivers find their devices: to load them takes
/// longer than to find out that they have none. A variable that the user has set holds. To be called before
/// the loader and before other threads start.
void leaveOutAbsentDrivers(const std::filesystem::path& nodes = "/dev/dri");

} // namespace Qx::Host
