#pragma once

#include "host/effects/framework/EffectSyntax.h"
#include "host/effects/framework/Problems.h"

namespace Qx::Host::Effects {

/// Finds what each pass draws into, from the annotation Target and from scripts, and how large and deep these
/// textures are. `effect` has the textures, techniques and passes of `syntax`.
void resolveTargets(const EffectSyntax& syntax, CompiledEffect& effect, Problems& problems);

/// Reports passes that read what they draw into, or what no pass has drawn, and techniques whose last pass
/// does not draw for the caller. `effect` has the samplers that passes read.
void checkTargets(const EffectSyntax& syntax, const CompiledEffect& effect, Problems& problems);

} // namespace Qx::Host::Effects
