#pragma once

#include <cstdint>
#include <map>
#include <vector>

namespace Qx::Host::Effects {

/// Where an optimized shader reads neighbouring texels of a buffer, lets it read several of them at once: as
/// one texel of 8 bytes, R32G32_UINT, or of 16, R32G32B32A32_UINT. A buffer is read so when each number by
/// which the shader reads it is a sum of multiples and a constant, so that it is known which of the wider
/// texel's parts is meant. `texelBytes`, 4 or 8, is the size of the texels that the shader reads at first, of
/// four components each; those of 4 become texels of 8 in any case. A number that leaves 32 bits on its way
/// may read another texel than before. Common optimizations, to be run afterwards, give fetches of one texel
/// one number; the device makes one of them.
///
/// Returns the bytes of a texel for each binding that is read otherwise now.
std::map<std::uint32_t, std::uint32_t> widenFetches(std::vector<std::uint32_t>& spirv,
                                                    std::uint32_t texelBytes);

} // namespace Qx::Host::Effects
