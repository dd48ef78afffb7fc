#include "host/effects/HlslChecks.h"

#include "host/effects/Preprocessor.h"

#include <algorithm>
#include <array>
#include <string>

namespace Qx::Host::Effects {
namespace {

// The HLSL compiler recurses over operators and chains of else; these bounds keep it far inside the stack
// that it is given.
constexpr std::size_t longestStatement = 16384;
constexpr std::size_t longestRunOfOperators = 64;
constexpr std::size_t longestChainOfBranches = 512;
constexpr double largestArray = 65536.0;

bool isHint(const Token* token, const Token* end, const Token* previous)
{
    static constexpr std::array<std::string_view, 6> hints{"unroll",  "loop",    "branch",
                                                           "flatten", "fastopt", "call"};
    if (!token->is("[") || end - token < 3 || previous == nullptr) {
        return false;
    }
    const bool statementStart = previous->is(";") || previous->is("{") || previous->is("}") ||
                                previous->is(")") || previous->is("else");
    return statementStart && std::find(hints.begin(), hints.end(), token[1].text) != hints.end();
}

void refuseWord(const Token& token)
{
    static constexpr std::array<std::string_view, 20> declared{
        "sampler",      "sampler2D", "sampler1D", "sampler3D", "samplerCUBE", "sampler_state",
        "SamplerState", "texture",   "Texture",   "texture2D", "Texture2D",   "Texture3D",
        "TextureCube",  "struct",    "cbuffer",   "tbuffer",   "typedef",     "SamplerComparisonState",
        "technique",    "pass"};
    static constexpr std::array<std::string_view, 10> foreign{
        "class", "namespace", "interface",    "template", "this",
        "goto",  "asm",       "asm_fragment", "compile",  "operator"};
    if (std::find(declared.begin(), declared.end(), token.text) != declared.end()) {
        throw CompileError(token.at, inQuotes(token.text) +
                                         " cannot stand inside a function or value; declare "
                                         "textures, samplers and types at the top of the file");
    }
    if (std::find(foreign.begin(), foreign.end(), token.text) != foreign.end()) {
        throw CompileError(token.at, inQuotes(token.text) + " is not part of the effect language here");
    }
    if (token.text.substr(0, 5) == "qxfx_") {
        throw CompileError(token.at, "names that begin with 'qxfx_' are reserved");
    }
}

/// Lengths of what the HLSL compiler follows by recursion.
class Chains
{
public:
    void count(const Token& token)
    {
        const bool ends = token.is(";") || token.is("{") || token.is("}");
        statement_ = ends ? 0 : statement_ + 1;
        if (statement_ > longestStatement) {
            throw CompileError(token.at, "a statement or list has " + std::to_string(longestStatement) +
                                             " tokens at most");
        }
        const bool isOperator = token.kind == TokenKind::Punctuator && !ends && !token.is(")") &&
                                !token.is("]") && !token.is(",") && !token.is("(") && !token.is("[");
        operators_ = isOperator ? operators_ + 1 : 0;
        if (operators_ > longestRunOfOperators) {
            throw CompileError(token.at, "more than " + std::to_string(longestRunOfOperators) +
                                             " operators stand in a row");
        }
        countBranches(token);
    }

private:
    void countBranches(const Token& token)
    {
        const bool nests = token.is("if") || token.is("for") || token.is("while") || token.is("do") ||
                           token.is("?") || token.is("switch");
        branches_ += nests ? 1 : 0;
        if (branches_ > longestChainOfBranches) {
            throw CompileError(token.at, "more than " + std::to_string(longestChainOfBranches) +
                                             " branches or loops in one function");
        }
    }

    std::size_t statement_ = 0;
    std::size_t operators_ = 0;
    std::size_t branches_ = 0;
};

void checkArraySize(const Token* token, const Token* end)
{
    double value = 0.0;
    bool integer = false;
    if (token->is("[") && end - token > 2 && token[1].kind == TokenKind::Number && token[2].is("]") &&
        readNumber(token[1].text, value, integer) && value > largestArray) {
        throw CompileError(token[1].at, "an array has " +
                                            std::to_string(static_cast<unsigned>(largestArray)) +
                                            " elements at most");
    }
}

} // namespace

std::vector<Token> checkedHlsl(std::vector<Token> tokens)
{
    std::vector<Token> kept;
    kept.reserve(tokens.size());
    Chains chains;
    const Token* const end = tokens.data() + tokens.size();
    for (const Token* token = tokens.data(); token != end; ++token) {
        if (isHint(token, end, kept.empty() ? nullptr : &kept.back())) {
            token = std::find_if(token, end, [](const Token& t) { return t.is("]"); });
            continue;
        }
        if (token->kind == TokenKind::String || token->is("#") || token->is("##") || token->is("...")) {
            throw CompileError(token->at, inQuotes(token->text) + " cannot stand inside a function or value");
        }
        if (token->kind == TokenKind::Identifier) {
            refuseWord(*token);
        }
        checkArraySize(token, end);
        chains.count(*token);
        kept.push_back(*token);
    }
    return kept;
}

} // namespace Qx::Host::Effects
