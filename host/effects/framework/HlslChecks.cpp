#include "host/effects/framework/HlslChecks.h"

#include "host/effects/framework/MatrixSwizzles.h"
#include "host/effects/framework/Preprocessor.h"
#include "host/effects/framework/ReservedWords.h"
#include "host/effects/framework/SamplerType.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <unordered_map>

namespace Qx::Host::Effects {
namespace {

// The HLSL compiler recurses over operators and chains of else; these bounds keep it far inside the stack
// that it is given.
constexpr std::size_t longestStatement = 16384;
constexpr std::size_t longestRunOfOperators = 64;
constexpr std::size_t longestChainOfBranches = 256;

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

void refuseWord(const Token& token, const Token& next)
{
    static constexpr std::array<std::string_view, 6> declared{"struct",  "cbuffer",      "tbuffer",
                                                              "typedef", "SamplerState", "sampler_state"};
    static constexpr std::array<std::string_view, 10> foreign{
        "class", "namespace", "interface",    "template", "this",
        "goto",  "asm",       "asm_fragment", "compile",  "operator"};
    // Followed by something else, "texture" or "pass" is a name that the effect declares.
    const bool named = next.kind == TokenKind::Identifier;
    const bool declares = SamplerType::named(token.text) || isTextureType(token.text) ||
                          equalIgnoringCase(token.text, "technique") || equalIgnoringCase(token.text, "pass");
    if ((named && declares) || std::find(declared.begin(), declared.end(), token.text) != declared.end()) {
        throw CompileError(token.at, inQuotes(token.text) +
                                         " is not allowed inside a function or value; declare "
                                         "textures, samplers and types at the top of the file");
    }
    if (std::find(foreign.begin(), foreign.end(), token.text) != foreign.end()) {
        throw CompileError(token.at, inQuotes(token.text) + " is not part of the effect language here");
    }
    static constexpr std::array<std::string_view, 8> otherSizes{
        "double", "min16float", "min10float", "min16int", "min12int", "min16uint", "int64_t", "uint64_t"};
    const auto isType = [&](std::string_view type) {
        return token.text.substr(0, type.size()) == type &&
               token.text.find_first_not_of("1234x", type.size()) == std::string_view::npos;
    };
    if (std::any_of(otherSizes.begin(), otherSizes.end(), isType)) {
        throw CompileError(token.at, inQuotes(token.text) +
                                         " is not part of the effect language here; use float "
                                         "or int");
    }
    refuseReservedPrefix(token);
}

/// Bounds the constructs that the HLSL compiler handles by recursion.
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
                                             " consecutive operators");
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

/// The value between two brackets, or 1 if it is not constant.
double sizeBetween(const Token* open, const Token* close, const ConstantReader::Names& names)
{
    std::vector<Token> inside(open + 1, close);
    Token end;
    end.at = close->at;
    inside.push_back(end);
    try {
        const ConstantValue value = ConstantReader(inside.data(), names).readExpression();
        return value.components.size() == 1 ? std::max(value.components[0], 1.0) : 1.0;
    } catch (const CompileError&) {
        return 1.0; // an index, or an error that the HLSL compiler reports
    }
}

/// Checks dimensions such as "[2][3]" from their first bracket on. Returns the token after them.
const Token* checkArraySize(const Token* token, const Token* end, const ConstantReader::Names& names,
                            double most)
{
    constexpr std::ptrdiff_t longest = 64; // tokens; sizes are short
    const Location at = token->at;
    double size = 1.0;
    while (token != end && token->is("[")) {
        const Token* const last = end - token > longest ? token + longest : end;
        const Token* const close = std::find_if(token, last, [](const Token& t) { return t.is("]"); });
        if (close == last) {
            return token;
        }
        size *= sizeBetween(token, close, names);
        token = close + 1;
    }
    if (size > most) {
        throw CompileError(at, "an array has " + std::to_string(static_cast<unsigned>(most)) +
                                   " elements at most");
    }
    return token;
}

/// The constants of a function, such as "const int count = 4;", for the sizes of its arrays.
class LocalConstants
{
public:
    explicit LocalConstants(const ConstantReader::Names& outer) : outer_(outer) {}

    std::optional<ConstantValue> find(const Token& name) const
    {
        const auto found = values_.find(name.text);
        return found == values_.end() ? outer_(name) : std::optional(found->second);
    }

    /// To be called at each token.
    void note(const Token* token, const Token* end)
    {
        constexpr std::ptrdiff_t longest = 64; // tokens; sizes are short
        if (!token->is("const") || end - token < 4) {
            return;
        }
        const Token* const last = end - token > longest ? token + longest : end;
        const Token* const equals = std::find_if(token, last, [](const Token& t) { return t.is("="); });
        const Token* const stop =
            std::find_if(equals, last, [](const Token& t) { return t.is(";") || t.is(","); });
        if (stop == last) {
            return;
        }
        std::vector<Token> value(equals + 1, stop);
        value.emplace_back();
        try {
            values_[equals[-1].text] = ConstantReader(value.data(), [this](const Token& name) {
                                           return find(name);
                                       }).readExpression();
        } catch (const CompileError&) {
            // Not a constant, or an error that the HLSL compiler reports.
        }
    }

private:
    const ConstantReader::Names& outer_;
    std::unordered_map<std::string_view, ConstantValue> values_;
};

} // namespace

std::vector<Token> checkedHlsl(const std::vector<Token>& tokens, const ConstantReader::Names& names,
                               double mostElements)
{
    std::vector<Token> kept;
    kept.reserve(tokens.size());
    Chains chains;
    LocalConstants constants(names);
    const auto constantNamed = [&](const Token& name) { return constants.find(name); };
    const Token* const end = tokens.data() + tokens.size();
    const Token* judged = tokens.data(); // the sizes of arrays are checked up to here
    for (const Token* token = tokens.data(); token != end; ++token) {
        if (isHint(token, end, kept.empty() ? nullptr : &kept.back())) {
            token = std::find_if(token, end, [](const Token& t) { return t.is("]"); });
            continue;
        }
        if (token->kind == TokenKind::String || token->is("#") || token->is("##") || token->is("...")) {
            throw CompileError(token->at,
                               inQuotes(token->text) + " is not allowed inside a function or value");
        }
        if (token->kind == TokenKind::Identifier) {
            refuseWord(*token, token + 1 != end ? token[1] : Token());
            if (!kept.empty() && NumericType::named(kept.back().text)) {
                refuseHlslWord(*token);
            }
        }
        if (token->is("[") && token >= judged) {
            judged = checkArraySize(token, end, constantNamed, mostElements);
        }
        constants.note(token, end);
        chains.count(*token);
        kept.push_back(*token);
    }
    return withoutMatrixSwizzles(kept);
}

} // namespace Qx::Host::Effects
