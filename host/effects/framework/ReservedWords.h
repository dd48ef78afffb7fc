#pragma once

#include "host/effects/framework/Lexer.h"

namespace Qx::Host::Effects {

/// Throws CompileError for a name with the prefix of the compiler's own names.
void refuseReservedPrefix(const Token& name);

/// Throws CompileError for a word that no declaration of an effect can use as its name: types, and words that
/// the HLSL compiler reads as something else.
void refuseHlslWord(const Token& name);

/// Both checks, for the name of a declaration.
void refuseReservedName(const Token& name);

} // namespace Qx::Host::Effects
