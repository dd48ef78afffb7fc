#pragma once

#include "host/effects/CompiledEffect.h"
#include "host/effects/framework/EffectSyntax.h"

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace Qx::Host::Effects {

/// One pass as plain HLSL, a token a line, so that a line of the text tells the token.
struct PassText
{
    std::string hlsl;
    std::vector<Location> lines; ///< where line i + 1 of the text comes from

    /// Line at which each piece begins, from 1, and its index in EffectSyntax::pieces, ascending. The last
    /// entry is where the pieces end, with the number of pieces as its index.
    std::vector<std::pair<std::size_t, std::size_t>> pieces;

    std::unordered_set<std::string_view> names; ///< that the pass reaches, declared or not

    /// The piece that a line is part of; nothing for what the compiler adds.
    std::optional<std::size_t> pieceAt(std::size_t line) const;
};

/// Writes the HLSL of passes: what the entry function reaches, the parameters and samplers that this uses,
/// and a main() that gives the entry function its inputs and writes its result.
class PassWriter
{
public:
    /// Both live longer than this object; `effect` has its parameters and samplers. Throws CompileError for
    /// functions that call each other in a circle or too deep, and for calls that multiply beyond bounds.
    PassWriter(const EffectSyntax& syntax, const CompiledEffect& effect);

    /// Throws CompileError when the entry function cannot serve as one. The functions `withoutBody`, by their
    /// index in EffectSyntax::pieces, are only declared: for finding what is wrong with the others.
    PassText write(const EffectSyntax::Pass& pass, const std::set<std::size_t>& withoutBody = {}) const;

    /// The text of the PackedShader for components of so many bits. The pass's own text could be written.
    PassText writePacked(const EffectSyntax::Pass& pass, CompiledEffect::PackedShader::Depths depths) const;

    /// Whether a fragment may make several texels, one after the other, and is worth its longer text.
    bool canBePacked(const EffectSyntax::Pass& pass) const;

private:
    struct Cost
    {
        enum class State
        {
            Unknown,
            Open,
            Known
        };
        State state = State::Unknown;
        std::size_t tokens = 0; ///< with every call replaced by the function called
    };

    const EffectSyntax::Piece& findEntry(const EffectSyntax::Pass& pass) const;
    std::size_t costOf(std::size_t piece, std::size_t depth);
    bool mayCall(std::size_t caller, std::size_t callee) const;
    std::unordered_set<std::string_view> reachableFrom(const EffectSyntax::Pass& pass) const;
    bool isTable(std::string_view texture) const;
    std::vector<bool> readByNumberOnly(const EffectSyntax::Pass& pass,
                                       const std::unordered_set<std::string_view>& names) const;
    PassText write(const EffectSyntax::Pass& pass, const std::set<std::size_t>& withoutBody,
                   std::optional<CompiledEffect::PackedShader::Depths> grouped) const;

    const EffectSyntax& syntax_;
    const CompiledEffect& effect_;
    std::unordered_map<std::string_view, std::vector<std::size_t>> piecesByName_;
    std::vector<Cost> costs_;
};

} // namespace Qx::Host::Effects
