#pragma once

#include "host/effects/framework/Lexer.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace Qx::Host::Effects {

/// Keeps the HLSL compiler from working out remainders of constant floats, for which it answers what is
/// divided: every divisor is handed through a function of remainderFunctions, whose value is no constant to
/// it. Those of whole numbers stay where a constant is needed: between square brackets, behind `case`, and in
/// the value of a `const` one. To be given whole functions or values that checkedHlsl has let pass.
std::vector<Token> keepRemainders(const std::vector<Token>& tokens);

/// HLSL lines that declare what keepRemainders calls.
extern const std::string_view remainderFunctions;

/// Gives every remainder of signed or floating-point numbers in a SPIR-V module the sign of what is divided,
/// as HLSL's % has it; the HLSL compiler writes those of GLSL, with the sign of the divisor. Of whole numbers
/// it is written out, since OpSRem is undefined for negative ones (Vulkan 1.1, "Precision and Operation of
/// SPIR-V Instructions").
void useRemaindersOfHlsl(std::vector<std::uint32_t>& spirv);

} // namespace Qx::Host::Effects
