#pragma once

#include <string>

namespace Qx::Host::Vulkan {

/// Writes a line to the host's log. Thread-safe.
void report(const std::string& line);

} // namespace Qx::Host::Vulkan
