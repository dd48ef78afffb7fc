#pragma once

#include <cstdint>
#include <vector>

namespace Qx::Host::Effects {

/// Marks every floating-point operation of a SPIR-V module NoContraction (SPIR-V 1.3, 3.20): neither the
/// optimizer nor a driver may then merge or reorder them, and a conversion rounds alike on every device. To
/// run before the optimizer, which keeps the marks.
void keepArithmeticAsWritten(std::vector<std::uint32_t>& spirv);

} // namespace Qx::Host::Effects
