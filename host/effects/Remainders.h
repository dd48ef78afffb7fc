#pragma once

#include <cstdint>
#include <vector>

namespace Qx::Host::Effects {

/// Gives every remainder of signed or floating-point numbers in a SPIR-V module the sign of what is divided,
/// as HLSL's % has it; the HLSL compiler writes those of GLSL, with the sign of the divisor. Of whole numbers
/// it is written out, since OpSRem is undefined for negative ones (Vulkan 1.1, "Precision and Operation of
/// SPIR-V Instructions").
void useRemaindersOfHlsl(std::vector<std::uint32_t>& spirv);

} // namespace Qx::Host::Effects
