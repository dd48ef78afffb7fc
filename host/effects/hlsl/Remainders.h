#pragma once

#include "host/effects/framework/EffectSyntax.h"

#include <string_view>

namespace Qx::Host::Effects {

/// Keeps the HLSL compiler from folding remainders of constant floats: it folds them to the dividend. Every
/// divisor in the functions, constants and arguments of the effect is passed through a function of
/// remainderFunctions, whose value the HLSL compiler does not fold. A divisor stays as it is where HLSL needs
/// a constant whole number: between square brackets, after `case`, and in the value of a `const`.
void keepRemainders(EffectSyntax& effect);

/// HLSL lines that declare the function that keepRemainders calls.
extern const std::string_view remainderFunctions;

} // namespace Qx::Host::Effects
