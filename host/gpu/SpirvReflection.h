#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <vector>

namespace Qx::Host::Vulkan {

/// What the service needs to know of a fragment shader beyond what the effect compiler says.
struct SpirvReflection
{
    std::map<std::uint32_t, std::uint32_t> imageDimensions; ///< 2 or 3, by binding
    bool discards = false;                                  ///< it may leave pixels of the target as they are
    bool valid = false;                                     ///< a whole module in this machine's byte order
};

SpirvReflection reflect(std::span<const std::uint32_t> spirv);

} // namespace Qx::Host::Vulkan
