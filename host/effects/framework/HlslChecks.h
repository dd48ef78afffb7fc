#pragma once

#include "host/effects/framework/ConstantExpression.h"
#include "host/effects/framework/Lexer.h"

#include <vector>

namespace Qx::Host::Effects {

/// Checks the tokens of a function body or an initializer, whose brackets match, before the HLSL compiler
/// gets them. Returns them without hints on loops and branches, which could ask for endless unrolling. Throws
/// CompileError for tokens that are not part of the dialect or would exhaust the HLSL compiler. `names` gives
/// the constants that sizes of arrays may refer to; they have `mostElements` over all dimensions.
std::vector<Token> checkedHlsl(const std::vector<Token>& tokens, const ConstantReader::Names& names,
                               double mostElements);

} // namespace Qx::Host::Effects
