#pragma once

#include "host/effects/CompiledEffect.h"
#include "host/effects/framework/EffectSyntax.h"
#include "host/effects/framework/Problems.h"

#include <string_view>
#include <unordered_set>

namespace Qx::Host::Effects {

/// Warns of what compiles and is probably not meant, in an effect without errors: textures and samplers that
/// no technique reads, parameters that are offered with a range and change nothing, defaults outside their
/// range. A texture with an annotation `Unread` is left unread on purpose. What an include declares serves
/// several effects and may stay unused. `names` are those that the passes reach.
void warnOfLikelyMistakes(const EffectSyntax& syntax, const CompiledEffect& effect,
                          const std::unordered_set<std::string_view>& names, Problems& problems);

} // namespace Qx::Host::Effects
