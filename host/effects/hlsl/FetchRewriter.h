#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace Qx::Host::Effects {

/// In every SPIR-V function whose name in the HLSL text was one of `functions`, taking a combined image
/// sampler and an int2 or int3, replaces the sampling by an OpImageFetch of level 0 at the integer
/// coordinates. To run before functions are inlined and names are stripped. False when such a function is not
/// as expected.
bool rewriteFetches(std::vector<std::uint32_t>& spirv, const std::vector<std::string_view>& functions);

} // namespace Qx::Host::Effects
