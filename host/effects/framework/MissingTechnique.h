#pragma once

#include "host/effects/framework/EffectSyntax.h"

#include <string>

namespace Qx::Host::Effects {

/// What to add at the end of an effect without a technique, in one line: a technique for the last function
/// that returns a colour, and before it a declaration for each of the function's uniform parameters that
/// needs an argument. Empty if there is no such function.
std::string missingTechnique(const EffectSyntax& syntax);

/// Whether functions have words of GLSL that HLSL has not.
bool looksLikeGlsl(const EffectSyntax& syntax);

} // namespace Qx::Host::Effects
