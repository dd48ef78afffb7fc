#pragma once

#include "host/effects/CompiledEffect.h"
#include "host/effects/EffectSyntax.h"
#include "host/effects/Problems.h"

namespace Qx::Host::Effects {

/// Turns what was read into the effect's parameters, textures and samplers, resolves the names between them
/// and lays the parameters out behind SystemUniforms by the std140 rules (OpenGL 4.6, 7.6.2.2), matrices by
/// rows. What is wrong with one of them becomes a problem and the next is looked at. Throws CompileError when
/// they take too much.
void layOutParameters(const EffectSyntax& syntax, CompiledEffect& effect, Problems& problems);

std::vector<CompiledEffect::Annotation>
plainAnnotations(const std::vector<EffectSyntax::Annotation>& annotations);

} // namespace Qx::Host::Effects
