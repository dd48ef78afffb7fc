#pragma once

#include "host/effects/CompiledEffect.h"
#include "host/effects/framework/EffectSyntax.h"
#include "host/effects/framework/Problems.h"

#include <string_view>
#include <unordered_set>

namespace Qx::Host::Effects {

/// The layout of a parameter in the uniform buffer.
struct ParameterPlacement
{
    std::uint32_t alignment = 4;
    std::uint32_t rowStride = 0; ///< bytes from one row or element to the next
    std::uint32_t bytes = 4;
};

/// Depends on the parameter's rows, columns and elements only.
ParameterPlacement placementOf(const CompiledEffect::Parameter& parameter);

/// Fills in the effect's parameters, textures and samplers and resolves the names between them. The
/// parameters follow SystemUniforms by the std140 rules (OpenGL 4.6, 7.6.2.2), matrices by rows;
/// TextureUniforms follow them. An error in one becomes a problem, and the next is processed. Throws
/// CompileError if they take too much.
void layOutParameters(const EffectSyntax& syntax, CompiledEffect& effect, Problems& problems);

/// Makes identity the default of those 4x4 matrices, of the names given, that have none.
void giveIdentities(const EffectSyntax& syntax, const std::unordered_set<std::string_view>& names,
                    CompiledEffect& effect);

std::vector<CompiledEffect::Annotation>
plainAnnotations(const std::vector<EffectSyntax::Annotation>& annotations);

} // namespace Qx::Host::Effects
