#pragma once

#include "host/effects/spirv/SpirvModule.h"

#include <array>
#include <cstdint>
#include <optional>

namespace Qx::Host::Native {

/// The bits of what the instruction gives for one component of its operands, given by their bits. Nothing for
/// instructions that this does not know.
std::optional<std::uint32_t> evaluated(const Effects::Spirv::Instruction& instruction,
                                       const std::array<std::uint32_t, 3>& operands);

} // namespace Qx::Host::Native
