#pragma once

#include "host/effects/framework/EffectSyntax.h"

#include <cstddef>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace Qx::Host::Effects {

/// What the pieces of an effect refer to, and what it costs to inline their calls.
class CallGraph
{
public:
    /// `syntax` lives longer than this object. Throws CompileError for functions that call each other in a
    /// circle or too deep, and for calls that multiply beyond bounds.
    explicit CallGraph(const EffectSyntax& syntax);

    /// The entry function of the shader. Throws CompileError unless there is exactly one with a body.
    const EffectSyntax::Piece& entryOf(const EffectSyntax::Shader& shader) const;

    /// The names that the shader's entry function and arguments reach, declared or not.
    std::unordered_set<std::string_view> namesReachedBy(const EffectSyntax::Shader& shader) const;
    /// The same of both shaders of a pass.
    std::unordered_set<std::string_view> namesReachedBy(const EffectSyntax::Pass& pass) const;

    /// Tokens of the entry function with every call replaced by the function called.
    std::size_t inlinedTokens(const EffectSyntax::Shader& shader) const;
    /// Tokens of the pass's entry functions with every call replaced by the function called.
    std::size_t inlinedTokens(const EffectSyntax::Pass& pass) const;

    static constexpr std::size_t mostInlinedTokens = 1U << 17U;

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
        std::size_t tokens = 0;
    };

    std::size_t costOf(std::size_t piece, std::size_t depth);
    std::optional<std::size_t> costOfCall(std::size_t caller, const Token& callee, std::size_t depth);
    bool mayCall(std::size_t caller, std::size_t callee) const;

    const EffectSyntax& syntax_;
    std::unordered_map<std::string_view, std::vector<std::size_t>> piecesByName_;
    std::vector<Cost> costs_;
};

} // namespace Qx::Host::Effects
