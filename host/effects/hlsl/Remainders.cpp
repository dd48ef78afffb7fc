#include "host/effects/hlsl/Remainders.h"

#include <algorithm>
#include <cstddef>

namespace Qx::Host::Effects {
namespace {

Token inserted(const Token& at, TokenKind kind, std::string_view text)
{
    Token token = at;
    token.kind = kind;
    token.text = text;
    return token;
}

/// The token after the partner of the bracket at `token`, or the end.
const Token* behindBracket(const Token* token, const Token* end)
{
    std::size_t depth = 0;
    for (; token != end; ++token) {
        if (token->is("(") || token->is("[")) {
            ++depth;
        } else if ((token->is(")") || token->is("]")) && --depth == 0) {
            return token + 1;
        }
    }
    return end;
}

/// The token after the divisor that begins at `token`: signs and casts, a value, and its selections and
/// calls.
const Token* behindDivisor(const Token* token, const Token* end)
{
    const auto isSign = [](const Token& t) {
        return t.is("+") || t.is("-") || t.is("!") || t.is("~") || t.is("++") || t.is("--");
    };
    const auto isValue = [](const Token& t) {
        return t.kind == TokenKind::Identifier || t.kind == TokenKind::Number || t.is("(");
    };
    token = std::find_if_not(token, end, isSign);
    while (token != end && token->is("(")) {
        token = behindBracket(token, end);
        if (token == end || !isValue(*token)) {
            break;
        }
    }
    token += token != end && isValue(*token) ? 1 : 0;
    while (token != end) {
        if (token->is("[") || token->is("(")) {
            token = behindBracket(token, end);
        } else if (token->is(".") && token + 1 != end) {
            token += 2;
        } else if (token->is("++") || token->is("--")) {
            ++token;
        } else {
            break;
        }
    }
    return token;
}

/// Whether HLSL may need a constant whole number at the next token.
class ConstantContext
{
public:
    void next(const Token* token, const Token* end)
    {
        if (token->is(";") || token->is("{") || token->is("}")) {
            declaration_ = false;
            label_ = false;
        } else if (token->is("const") && token + 1 != end) {
            const auto type = NumericType::named(token[1].text);
            declaration_ = type && type->scalar != NumericType::Scalar::Float;
        } else if (token->is("case")) {
            label_ = true;
        } else if (token->is(":")) {
            label_ = false;
        } else if (token->is("[")) {
            ++brackets_;
        } else if (token->is("]")) {
            --brackets_;
        }
    }

    bool holds() const { return declaration_ || label_ || brackets_ != 0; }

private:
    bool declaration_ = false;
    bool label_ = false;
    std::size_t brackets_ = 0;
};

bool isFloat(const Token& token)
{
    double value = 0.0;
    bool integer = true;
    return token.kind == TokenKind::Number && readNumber(token.text, value, integer) && !integer;
}

std::vector<Token> kept(const std::vector<Token>& tokens)
{
    std::vector<Token> result;
    result.reserve(tokens.size());
    const Token* const end = tokens.data() + tokens.size();
    std::vector<const Token*> open; // the ends of the open divisors, which may be nested
    ConstantContext context;
    for (const Token* token = tokens.data(); token != end; ++token) {
        for (; !open.empty() && open.back() == token; open.pop_back()) {
            result.push_back(inserted(*token, TokenKind::Punctuator, ")"));
        }
        context.next(token, end);
        result.push_back(*token);
        if (token->is("%") && token + 1 != end && (!context.holds() || isFloat(token[1]))) {
            result.push_back(inserted(*token, TokenKind::Identifier, "qxfx_divisor"));
            result.push_back(inserted(*token, TokenKind::Punctuator, "("));
            open.push_back(behindDivisor(token + 1, end));
        }
    }
    for (; !open.empty(); open.pop_back()) {
        result.push_back(inserted(tokens.back(), TokenKind::Punctuator, ")"));
    }
    return result;
}

/// Such a constant may be the size of an array, which has to be a constant for the HLSL compiler too.
bool isWholeConstant(const EffectSyntax::Piece& piece)
{
    return piece.kind == EffectSyntax::Piece::Kind::Constant && piece.type.numeric &&
           piece.type.numeric->scalar != NumericType::Scalar::Float;
}

} // namespace

const std::string_view remainderFunctions = R"(
float qxfx_divisor(float x) { return x; }
float2 qxfx_divisor(float2 x) { return x; }
float3 qxfx_divisor(float3 x) { return x; }
float4 qxfx_divisor(float4 x) { return x; }
int qxfx_divisor(int x) { return x; }
int2 qxfx_divisor(int2 x) { return x; }
int3 qxfx_divisor(int3 x) { return x; }
int4 qxfx_divisor(int4 x) { return x; }
uint qxfx_divisor(uint x) { return x; }
uint2 qxfx_divisor(uint2 x) { return x; }
uint3 qxfx_divisor(uint3 x) { return x; }
uint4 qxfx_divisor(uint4 x) { return x; }
int qxfx_divisor(bool x) { return int(x); }
)";

void keepRemainders(EffectSyntax& effect)
{
    for (EffectSyntax::Technique& technique : effect.techniques) {
        for (EffectSyntax::Pass& pass : technique.passes) {
            for (EffectSyntax::Tokens& argument : pass.shader.arguments) {
                argument = kept(argument);
            }
        }
    }
    for (EffectSyntax::Piece& piece : effect.pieces) {
        if (piece.bodyBegin != 0 && !isWholeConstant(piece)) {
            const auto body = piece.text.begin() + static_cast<std::ptrdiff_t>(piece.bodyBegin);
            const EffectSyntax::Tokens changed = kept({body, piece.text.end()});
            piece.text.erase(body, piece.text.end());
            piece.text.insert(piece.text.end(), changed.begin(), changed.end());
        }
    }
}

} // namespace Qx::Host::Effects
