#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Qx::Host::Effects {

/// Lets an optimized shader receive what it reads at fixed places of its uniform buffer as inputs that are
/// the same for every fragment: some devices read a buffer anew for each. The buffer's 16-byte rows become
/// inputs of four floats each, at the locations from 0 on. Only numbers of floating point are moved; whole
/// numbers, matrices and what the shader picks by an index stay in the buffer, and so does what goes beyond
/// `most` rows.
///
/// Returns the row of each location.
std::vector<std::uint32_t> passUniformsAsInputs(std::vector<std::uint32_t>& spirv, std::size_t most);

} // namespace Qx::Host::Effects
