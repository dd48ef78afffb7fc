#include "host/effects/hlsl/AssignedParameters.h"

#include <algorithm>
#include <array>
#include <vector>

namespace Qx::Host::Effects {
namespace {

using NameSet = std::unordered_set<std::string_view>;

bool assigns(const Token& token)
{
    static constexpr std::array<std::string_view, 13> operators{
        "=", "+=", "-=", "*=", "/=", "%=", "&=", "|=", "^=", "<<=", ">>=", "++", "--"};
    return token.kind == TokenKind::Punctuator &&
           std::find(operators.begin(), operators.end(), token.text) != operators.end();
}

/// The functions that write to an argument.
NameSet functionsWithOutputs(const EffectSyntax& syntax)
{
    NameSet names{"sincos", "modf", "frexp"};
    for (const EffectSyntax::Piece& piece : syntax.pieces) {
        const auto& parameters = piece.function.parameters;
        if (std::any_of(parameters.begin(), parameters.end(), [](const auto& p) { return p.output; })) {
            names.insert(piece.name.text);
        }
    }
    return names;
}

/// The index after the members and elements that are selected of a name before `at`.
std::size_t behindSelections(const std::vector<Token>& tokens, std::size_t at)
{
    while (at + 1 < tokens.size() && (tokens[at].is(".") || tokens[at].is("["))) {
        if (tokens[at].is(".")) {
            at += 2;
            continue;
        }
        std::size_t depth = 0;
        do {
            depth += tokens[at].is("[") ? 1U : 0U;
            depth -= tokens[at].is("]") ? 1U : 0U;
            ++at;
        } while (at < tokens.size() && depth != 0);
    }
    return at;
}

class Finder
{
public:
    explicit Finder(const EffectSyntax& syntax) : writers_(functionsWithOutputs(syntax))
    {
        for (const EffectSyntax::Parameter& parameter : syntax.parameters) {
            parameters_.insert(parameter.name.text);
        }
    }

    void look(const std::vector<Token>& tokens, std::size_t begin)
    {
        std::vector<std::string_view> calls; // what stands before each open parenthesis
        for (std::size_t i = std::max<std::size_t>(begin, 1); i + 1 < tokens.size(); ++i) {
            if (tokens[i].is("(")) {
                calls.push_back(tokens[i - 1].text);
            } else if (tokens[i].is(")") && !calls.empty()) {
                calls.pop_back();
            } else if (parameters_.count(tokens[i].text) != 0 && !tokens[i - 1].is(".")) {
                const bool output = !calls.empty() && writers_.count(calls.back()) != 0;
                if (isAssigned(tokens, i, output)) {
                    found_.insert(tokens[i].text);
                }
            }
        }
    }

    NameSet take() { return std::move(found_); }

private:
    static bool isAssigned(const std::vector<Token>& tokens, std::size_t at, bool output)
    {
        const Token& before = tokens[at - 1];
        const std::size_t behind = behindSelections(tokens, at + 1);
        const bool declared = before.kind == TokenKind::Identifier && !before.is("else") &&
                              !before.is("do") && !before.is("return");
        if (declared || behind >= tokens.size()) {
            return false;
        }
        const Token& after = tokens[behind];
        return before.is("++") || before.is("--") || assigns(after) ||
               (output && (before.is("(") || before.is(",")) && (after.is(",") || after.is(")")));
    }

    const NameSet writers_;
    NameSet parameters_;
    NameSet found_;
};

} // namespace

NameSet assignedParameters(const EffectSyntax& syntax)
{
    Finder finder(syntax);
    for (const EffectSyntax::Piece& piece : syntax.pieces) {
        if (piece.kind == EffectSyntax::Piece::Kind::Function && piece.function.hasBody) {
            finder.look(piece.text, piece.bodyBegin);
        }
    }
    return finder.take();
}

} // namespace Qx::Host::Effects
