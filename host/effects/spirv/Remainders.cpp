#include "host/effects/spirv/Remainders.h"

#include "host/effects/framework/ConstantExpression.h"

#include <algorithm>
#include <cstddef>

#include <glslang/SPIRV/spirv.hpp>

namespace Qx::Host::Effects {
namespace {

constexpr std::size_t boundAt = 3; // of ids, in the module's header
constexpr std::size_t header = 5;
constexpr std::uint32_t words = 5; // opcode, type, result, two operands

void addBinary(std::vector<std::uint32_t>& to, spv::Op op, std::uint32_t type, std::uint32_t result,
               std::uint32_t left, std::uint32_t right)
{
    to.insert(to.end(),
              {words << spv::WordCountShift | static_cast<std::uint32_t>(op), type, result, left, right});
}

Token inserted(const Token& at, TokenKind kind, std::string_view text)
{
    Token token = at;
    token.kind = kind;
    token.text = text;
    return token;
}

/// Behind the bracket that closes the one at `token`, or the end.
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

/// Behind the divisor that begins there: signs and casts, a value, and what selects from it or calls it.
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

/// Whether a constant of whole numbers may be needed at the token that comes next.
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

std::vector<Token> keepRemainders(const std::vector<Token>& tokens)
{
    std::vector<Token> kept;
    kept.reserve(tokens.size());
    const Token* const end = tokens.data() + tokens.size();
    std::vector<const Token*> open; // where the divisors that were begun end; one may hold others
    ConstantContext context;
    for (const Token* token = tokens.data(); token != end; ++token) {
        for (; !open.empty() && open.back() == token; open.pop_back()) {
            kept.push_back(inserted(*token, TokenKind::Punctuator, ")"));
        }
        context.next(token, end);
        kept.push_back(*token);
        if (token->is("%") && token + 1 != end && (!context.holds() || isFloat(token[1]))) {
            kept.push_back(inserted(*token, TokenKind::Identifier, "qxfx_divisor"));
            kept.push_back(inserted(*token, TokenKind::Punctuator, "("));
            open.push_back(behindDivisor(token + 1, end));
        }
    }
    for (; !open.empty(); open.pop_back()) {
        kept.push_back(inserted(tokens.back(), TokenKind::Punctuator, ")"));
    }
    return kept;
}

void useRemaindersOfHlsl(std::vector<std::uint32_t>& spirv)
{
    std::vector<std::uint32_t> changed;
    changed.reserve(spirv.size());
    changed.assign(spirv.begin(), spirv.begin() + header);
    for (std::size_t at = header; at < spirv.size();) {
        const std::size_t count = spirv[at] >> spv::WordCountShift;
        const auto op = static_cast<spv::Op>(spirv[at] & spv::OpCodeMask);
        if (op == spv::OpSMod) {
            const std::uint32_t type = spirv[at + 1];
            const std::uint32_t quotient = changed[boundAt]++;
            const std::uint32_t product = changed[boundAt]++;
            addBinary(changed, spv::OpSDiv, type, quotient, spirv[at + 3], spirv[at + 4]);
            addBinary(changed, spv::OpIMul, type, product, quotient, spirv[at + 4]);
            addBinary(changed, spv::OpISub, type, spirv[at + 2], spirv[at + 3], product);
        } else if (op == spv::OpFMod) {
            addBinary(changed, spv::OpFRem, spirv[at + 1], spirv[at + 2], spirv[at + 3], spirv[at + 4]);
        } else {
            changed.insert(changed.end(), spirv.begin() + static_cast<std::ptrdiff_t>(at),
                           spirv.begin() + static_cast<std::ptrdiff_t>(at + count));
        }
        at += count;
    }
    spirv = std::move(changed);
}

} // namespace Qx::Host::Effects
