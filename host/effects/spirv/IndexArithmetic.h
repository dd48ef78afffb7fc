#pragma once

#include <cstdint>
#include <vector>

namespace Qx::Host::Effects {

/// Rewrites what an optimized shader computes from the number of its fragment's column, in whole numbers:
/// sums, products, shifts and masks with constants become `number * constant + constant` wherever they can
/// be. Calls of one function for neighbouring pixels then name what they have in common alike, and what
/// depends on a pixel's place among its neighbours alone becomes a constant. Common optimizations, to be run
/// afterwards, do the rest. The results stay what they are, for columns below 2^16.
///
/// False when there was nothing to do.
bool simplifyColumnArithmetic(std::vector<std::uint32_t>& spirv);

} // namespace Qx::Host::Effects
