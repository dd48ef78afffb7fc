#pragma once

#include "host/effects/framework/Lexer.h"

#include <string_view>

namespace Qx::Host::Effects {

/// What the HLSL compiler gets for an author's name: full precision everywhere, combined samplers, our
/// samplings, and no function of its own called main.
std::string_view hlslName(std::string_view name);

/// Throws CompileError for what cannot be the name of anything that an effect declares: types, and words that
/// the HLSL compiler takes for something else.
void refuseHlslWord(const Token& name);

} // namespace Qx::Host::Effects
