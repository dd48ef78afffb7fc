#pragma once

#include "host/effects/framework/ConstantExpression.h"
#include "host/effects/framework/Lexer.h"

#include <vector>

namespace Qx::Host::Effects {

/// The tokens of a function body or an initializer, whose brackets match, as they may go to the HLSL
/// compiler: without hints on loops and branches, which would let an effect ask for endless unrolling. Throws
/// CompileError for what is no part of the dialect or would exhaust that compiler. `names` gives the
/// constants that sizes of arrays may refer to.
std::vector<Token> checkedHlsl(const std::vector<Token>& tokens, const ConstantReader::Names& names);

} // namespace Qx::Host::Effects
