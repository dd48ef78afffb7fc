#pragma once

#include "host/effects/Lexer.h"

#include <vector>

namespace Qx::Host::Effects {

/// The tokens of a function body or an initializer, whose brackets match, as they may go to the HLSL
/// compiler: without hints on loops and branches, which would let an effect ask for endless unrolling. Throws
/// CompileError for what is no part of the dialect or would exhaust that compiler.
std::vector<Token> checkedHlsl(std::vector<Token> tokens);

} // namespace Qx::Host::Effects
