#pragma once

#include "host/effects/framework/ConstantExpression.h"
#include "host/effects/framework/Lexer.h"

#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Qx::Host::Effects {

/// The names of the elements of each array of samplers or textures: plain HLSL has none of these arrays.
using SamplerArrays = std::unordered_map<std::string_view, std::vector<Token>>;

/// Writes the elements of arrays by their own names: "s[1]" as "s_1", and "s" as an argument as "s_0, s_1". A
/// loop with constant bounds whose variable selects an element is written out. `local` goes before `global`.
/// Brackets match; `names` has the constants, `texts` keeps the text of numbers. Throws CompileError for
/// other uses of an array.
std::vector<Token> withoutSamplerArrays(const std::vector<Token>& tokens, const SamplerArrays& local,
                                        const SamplerArrays& global, const ConstantReader::Names& names,
                                        std::deque<std::string>& texts);

} // namespace Qx::Host::Effects
