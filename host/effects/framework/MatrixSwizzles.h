#pragma once

#include "host/effects/framework/Lexer.h"

#include <vector>

namespace Qx::Host::Effects {

/// Rewrites what selects several elements of a matrix, which the HLSL compiler misreads: "m._m00_m11" as
/// "float2(m._m00, m._m11)", and a statement "m._m00_m11 = v;" as one that assigns each element. Brackets
/// match. Throws CompileError for assignments inside of expressions, and for long expressions before the
/// selection.
std::vector<Token> withoutMatrixSwizzles(const std::vector<Token>& tokens);

} // namespace Qx::Host::Effects
