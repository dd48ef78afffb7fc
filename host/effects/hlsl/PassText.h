#pragma once

#include "host/effects/CompiledEffect.h"
#include "host/effects/framework/EffectSyntax.h"
#include "host/effects/hlsl/CallGraph.h"
#include "host/effects/hlsl/VertexCall.h"

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

namespace Qx::Host::Effects {

/// One pass as plain HLSL. Each token has a line of its own, so that a line of the text identifies the token.
struct PassText
{
    std::string hlsl;
    std::vector<Location> lines; ///< where line i + 1 of the text comes from

    /// Line at which each piece begins, from 1, and its index in EffectSyntax::pieces, ascending. The last
    /// entry is where the pieces end, with the number of pieces as its index.
    std::vector<std::pair<std::size_t, std::size_t>> pieces;

    std::unordered_set<std::string_view> names; ///< that the pass reaches, declared or not
    std::vector<CompileError> missing; ///< see ShaderCall: the i-th has the specialization constant i + 1
    std::vector<CompileError> warnings;
    CompiledEffect::Corners corners;   ///< of its vertex shader
    std::vector<std::uint32_t> places; ///< of each sampler of the effect: see CompiledEffect::PackedShader

    /// The piece that a line is part of; nothing for lines that the compiler adds.
    std::optional<std::size_t> pieceAt(std::size_t line) const;
};

/// Writes the HLSL of passes: what the entry function reaches, the parameters and samplers that this uses,
/// and a main() that gives the entry function its inputs and writes its result.
class PassWriter
{
public:
    /// The shader of a text; empty if it does not compile.
    using Compile = std::function<std::vector<std::uint32_t>(const std::string& hlsl)>;

    /// Both live longer than this object; `effect` has its parameters and samplers. `compile` is for vertex
    /// shaders, whose results are judged by what becomes of them. Throws what CallGraph throws.
    PassWriter(const EffectSyntax& syntax, const CompiledEffect& effect, Compile compile);

    /// Throws CompileError if an entry function is missing, ambiguous or of a wrong signature. The functions
    /// `withoutBody`, by their index in EffectSyntax::pieces, are only declared: to find errors in the
    /// others.
    PassText write(const EffectSyntax::Pass& pass, const std::set<std::size_t>& withoutBody = {}) const;

    /// The numbers N of the results COLORN of the pass's shader. Throws as write() does.
    std::set<std::size_t> resultsOf(const EffectSyntax::Pass& pass) const;

    /// How a PackedShader reads samplers of single texels that are read at a TEXCOORDn as it is.
    enum class Reads
    {
        AnyPlace, ///< there
        OwnPlace  ///< at the fragment's own place; without any, the text has no `places`
    };

    /// What one call of a PackedShader's main() gives.
    enum class Gives
    {
        PackedTexel, ///< 16 bytes: several texels
        OneTexel     ///< the four codes of one texel, in the order of memory
    };

    /// The text of the PackedShader for these depths, of a pass for which write() succeeded.
    PassText writePacked(const EffectSyntax::Pass& pass, CompiledEffect::PackedShader::Depths depths,
                         Reads reads, Gives gives = Gives::PackedTexel) const;

    /// The names that vertex shaders reach.
    std::unordered_set<std::string_view> namesOfVertices() const;

    /// Whether one fragment may draw several texels, one after the other, and the longer text is worth it.
    bool canBePacked(const EffectSyntax::Pass& pass) const;

private:
    VertexForm formOf(const EffectSyntax::Pass& pass) const;

    const EffectSyntax& syntax_;
    const CompiledEffect& effect_;
    const Compile compile_;
    const CallGraph calls_;
    const std::unordered_set<std::string_view> assigned_; ///< parameters, which are variables then
    mutable std::map<std::string, VertexForm> forms_;     ///< found already, by what they were found with
};

} // namespace Qx::Host::Effects
