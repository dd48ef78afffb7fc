#pragma once

#include "host/effects/framework/EffectSyntax.h"
#include "host/effects/framework/Problems.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <set>

namespace Qx::Host::Effects {

/// The numbers N of the results COLORN that a pass's shader has; nothing if the shader has a mistake, which
/// is reported elsewhere.
using ResultsOf = std::function<std::optional<std::set<std::size_t>>(const EffectSyntax::Pass& pass)>;

/// Finds what each pass draws into, from the annotations Target to Target3 and from scripts, and how large
/// and deep these textures are. Results beside the first that have a target become passes of their own.
/// `effect` has the textures of `syntax`.
void resolveTargets(EffectSyntax& syntax, CompiledEffect& effect, const ResultsOf& resultsOf,
                    Problems& problems);

/// Reports passes that read what they draw into, or what no pass has drawn, and techniques whose last pass
/// does not draw for the caller. `effect` has the samplers that passes read.
void checkTargets(const EffectSyntax& syntax, const CompiledEffect& effect, Problems& problems);

} // namespace Qx::Host::Effects
