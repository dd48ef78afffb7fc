#pragma once

#include "host/effects/spirv/SpirvModule.h"

#include <array>
#include <cstdint>
#include <optional>

namespace Qx::Host::Effects::Spirv {

/// The bits of one component of each operand; those that an instruction has not are any.
using Operands = std::array<std::uint32_t, 3>;

/// One component of the result of an instruction that works component by component, as devices compute it but
/// for rounding. Divisions of integers by 0 give 0. Nothing for other instructions.
std::optional<std::uint32_t> resultOf(spv::Op op, const Operands& of);

/// The same of an instruction of GLSL.std.450.
std::optional<std::uint32_t> extendedResultOf(std::uint32_t op, const Operands& of);

} // namespace Qx::Host::Effects::Spirv
