#include "host/effects/hlsl/CallGraph.h"

#include "host/core/Suggestion.h"

#include <algorithm>
#include <string>

namespace Qx::Host::Effects {
namespace {

using Kind = EffectSyntax::Piece::Kind;

constexpr std::size_t deepestCalls = 256;
constexpr std::size_t mostNamesakes = 64;

// Every call is replaced by the function called; the cost of that grows with the square of the number of
// calls.
constexpr std::size_t tokensOfCall = 64;

} // namespace

CallGraph::CallGraph(const EffectSyntax& syntax) : syntax_(syntax), costs_(syntax.pieces.size())
{
    for (std::size_t i = 0; i < syntax.pieces.size(); ++i) {
        const EffectSyntax::Piece& piece = syntax.pieces[i];
        std::vector<std::size_t>& namesakes = piecesByName_[piece.name.text];
        if (namesakes.size() >= mostNamesakes) {
            throw CompileError(piece.name.at, inQuotes(piece.name.text) + " is declared more than " +
                                                  std::to_string(mostNamesakes) + " times");
        }
        namesakes.push_back(i);
    }
    for (std::size_t i = 0; i < syntax.pieces.size(); ++i) {
        costOf(i, 0);
    }
}

bool CallGraph::mayCall(std::size_t caller, std::size_t callee) const
{
    const EffectSyntax::Piece& piece = syntax_.pieces[callee];
    if (piece.kind != Kind::Function || !piece.function.hasBody) {
        return false;
    }
    const std::vector<std::size_t>& namesakes = piecesByName_.at(piece.name.text);
    if (callee == caller) {
        return namesakes.size() == 1; // else it may be another function of that name that is called
    }
    // A name means what was declared before it.
    return callee < caller || std::any_of(namesakes.begin(), namesakes.end(), [&](std::size_t i) {
               return i < caller && !syntax_.pieces[i].function.hasBody;
           });
}

std::size_t CallGraph::costOf(std::size_t index, std::size_t depth)
{
    const EffectSyntax::Piece& piece = syntax_.pieces[index];
    Cost& cost = costs_[index];
    if (cost.state == Cost::State::Known) {
        return cost.tokens;
    }
    if (cost.state == Cost::State::Open) {
        throw CompileError(piece.name.at, "function " + inQuotes(piece.name.text) +
                                              " calls itself, directly or through others; shaders cannot");
    }
    if (depth > deepestCalls) {
        throw CompileError(piece.name.at, "calls of functions are nested more than " +
                                              std::to_string(deepestCalls) + " deep");
    }
    cost.state = Cost::State::Open;
    std::size_t tokens = piece.text.size();
    for (std::size_t i = piece.bodyBegin; i < piece.text.size() && piece.kind == Kind::Function; ++i) {
        // Members and variables may have the names of functions.
        const bool calls =
            i + 1 < piece.text.size() && piece.text[i + 1].is("(") && !piece.text[i - 1].is(".");
        const std::optional<std::size_t> call =
            calls ? costOfCall(index, piece.text[i], depth) : std::nullopt;
        tokens += call.value_or(0);
        if (call && tokens > mostInlinedTokens) {
            throw CompileError(piece.name.at, "function " + inQuotes(piece.name.text) + " has more than " +
                                                  std::to_string(mostInlinedTokens) +
                                                  " tokens after inlining all that it calls");
        }
    }
    cost = {Cost::State::Known, tokens};
    return tokens;
}

/// Of the dearest function that the token may call. Nothing if no piece has that name.
std::optional<std::size_t> CallGraph::costOfCall(std::size_t caller, const Token& callee, std::size_t depth)
{
    const auto found = piecesByName_.find(callee.text);
    if (found == piecesByName_.end()) {
        return std::nullopt;
    }
    std::size_t dearest = 0;
    for (const std::size_t i : found->second) {
        if (mayCall(caller, i)) {
            dearest = std::max(dearest, costOf(i, depth + 1) + tokensOfCall);
        }
    }
    return dearest;
}

const EffectSyntax::Piece& CallGraph::entryOf(const EffectSyntax::Shader& shader) const
{
    const EffectSyntax::Piece* entry = nullptr;
    if (const auto found = piecesByName_.find(shader.entry.text); found != piecesByName_.end()) {
        for (const std::size_t i : found->second) {
            const EffectSyntax::Piece& piece = syntax_.pieces[i];
            if (piece.kind != Kind::Function || !piece.function.hasBody) {
                continue;
            }
            if (entry != nullptr) {
                throw CompileError(shader.entry.at, "there are two functions " + inQuotes(shader.entry.text) +
                                                        "; the name of an entry function has to be unique");
            }
            entry = &piece;
        }
    }
    if (entry == nullptr) {
        std::vector<std::string_view> functions;
        for (const EffectSyntax::Piece& piece : syntax_.pieces) {
            if (piece.kind == Kind::Function) {
                functions.push_back(piece.name.text);
            }
        }
        throw CompileError(shader.entry.at, "there is no function " + inQuotes(shader.entry.text) +
                                                didYouMean(shader.entry.text, functions));
    }
    return *entry;
}

std::unordered_set<std::string_view> CallGraph::namesReachedBy(const EffectSyntax::Shader& shader) const
{
    std::unordered_set<std::string_view> names{shader.entry.text};
    std::vector<std::string_view> open{shader.entry.text};
    const auto reach = [&](const std::vector<Token>& tokens) {
        for (const Token& token : tokens) {
            if (token.kind == TokenKind::Identifier && names.insert(token.text).second) {
                open.push_back(token.text);
            }
        }
    };
    for (const std::vector<Token>& argument : shader.arguments) {
        reach(argument);
    }
    while (!open.empty()) {
        const auto found = piecesByName_.find(open.back());
        open.pop_back();
        if (found != piecesByName_.end()) {
            for (const std::size_t i : found->second) {
                reach(syntax_.pieces[i].text);
            }
        }
    }
    return names;
}

std::unordered_set<std::string_view> CallGraph::namesReachedBy(const EffectSyntax::Pass& pass) const
{
    std::unordered_set<std::string_view> names = namesReachedBy(pass.shader);
    if (pass.vertex) {
        names.merge(namesReachedBy(pass.vertex));
    }
    return names;
}

std::size_t CallGraph::inlinedTokens(const EffectSyntax::Shader& shader) const
{
    return costs_[static_cast<std::size_t>(&entryOf(shader) - syntax_.pieces.data())].tokens;
}

std::size_t CallGraph::inlinedTokens(const EffectSyntax::Pass& pass) const
{
    constexpr std::size_t corners = 4;
    return inlinedTokens(pass.shader) + (pass.vertex ? corners * inlinedTokens(pass.vertex) : 0);
}

} // namespace Qx::Host::Effects
