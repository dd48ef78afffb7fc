#pragma once

#include "host/effects/CompiledEffect.h"
#include "host/effects/EffectSyntax.h"

#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace Qx::Host::Effects {

/// One pass as plain HLSL, a token a line, so that a line of the text tells the token.
struct PassText
{
    std::string hlsl;
    std::vector<Location> lines; ///< where line i + 1 of the text comes from
};

/// Writes the HLSL of passes: what the entry function reaches, the parameters and samplers that this uses,
/// and a main() that gives the entry function its inputs.
class PassWriter
{
public:
    /// Both live longer than this object; `effect` has its parameters and samplers. Throws CompileError for
    /// functions that call each other in a circle or too deep, and for calls that multiply beyond bounds.
    PassWriter(const EffectSyntax& syntax, const CompiledEffect& effect);

    /// Throws CompileError when the entry function cannot serve as one.
    PassText write(const EffectSyntax::Pass& pass) const;

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

    const EffectSyntax& syntax_;
    const CompiledEffect& effect_;
    std::unordered_map<std::string_view, std::vector<std::size_t>> piecesByName_;
    std::vector<Cost> costs_;
};

} // namespace Qx::Host::Effects
