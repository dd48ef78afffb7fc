#pragma once

#include "host/effects/CompiledEffect.h"
#include "host/effects/framework/EffectSyntax.h"
#include "host/effects/framework/Problems.h"

#include <string_view>
#include <unordered_set>

namespace Qx::Host::Effects {

/// Warns of likely mistakes in an effect without errors: textures and samplers that no technique reads,
/// parameters with a range that no technique uses, and defaults outside their range. A texture with an
/// annotation `Unread` is unread on purpose. Declarations of an include may be unused, since it serves
/// several effects. `names` are the names that the passes reach.
void warnOfLikelyMistakes(const EffectSyntax& syntax, const CompiledEffect& effect,
                          const std::unordered_set<std::string_view>& names, Problems& problems);

} // namespace Qx::Host::Effects
