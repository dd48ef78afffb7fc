#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <vector>

namespace Qx::Host::Vulkan {

/// Properties of a fragment shader that the compiled effect does not have.
struct SpirvReflection
{
    std::map<std::uint32_t, std::uint32_t> imageDimensions; ///< by binding: 2, 3, or 1 for a texel buffer
    bool discards = false;                                  ///< it may leave pixels of the target as they are
    bool valid = false;                                     ///< a whole module in this machine's byte order
};

SpirvReflection reflect(std::span<const std::uint32_t> spirv);

} // namespace Qx::Host::Vulkan
