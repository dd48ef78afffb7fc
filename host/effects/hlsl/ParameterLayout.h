#pragma once

#include "host/effects/CompiledEffect.h"
#include "host/effects/framework/EffectSyntax.h"
#include "host/effects/framework/Problems.h"

namespace Qx::Host::Effects {

/// How a parameter lies in the uniform buffer.
struct ParameterPlacement
{
    std::uint32_t alignment = 4;
    std::uint32_t rowStride = 0; ///< bytes from one row or element to the next
    std::uint32_t bytes = 4;
};

/// By the parameter's rows, columns and elements.
ParameterPlacement placementOf(const CompiledEffect::Parameter& parameter);

/// Turns what was read into the effect's parameters, textures and samplers, resolves the names between them
/// and lays the parameters out behind SystemUniforms by the std140 rules (OpenGL 4.6, 7.6.2.2), matrices by
/// rows, and TextureUniforms behind them. What is wrong with one of them becomes a problem and the next is
/// looked at. Throws CompileError when they take too much.
void layOutParameters(const EffectSyntax& syntax, CompiledEffect& effect, Problems& problems);

std::vector<CompiledEffect::Annotation>
plainAnnotations(const std::vector<EffectSyntax::Annotation>& annotations);

} // namespace Qx::Host::Effects
