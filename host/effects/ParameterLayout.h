#pragma once

#include "host/effects/CompiledEffect.h"
#include "host/effects/EffectSyntax.h"

namespace Qx::Host::Effects {

/// Turns what was read into the effect's parameters, textures and samplers, resolves the names between them
/// and lays the parameters out behind SystemUniforms by the std140 rules (OpenGL 4.6, 7.6.2.2), matrices by
/// rows. Throws CompileError.
void layOutParameters(const EffectSyntax& syntax, CompiledEffect& effect);

std::vector<CompiledEffect::Annotation>
plainAnnotations(const std::vector<EffectSyntax::Annotation>& annotations);

} // namespace Qx::Host::Effects
