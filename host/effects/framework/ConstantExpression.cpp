#include "host/effects/framework/ConstantExpression.h"

#include "host/effects/framework/Limits.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <numeric>
#include <string>
#include <utility>

namespace Qx::Host::Effects {
namespace {

struct Operator
{
    std::string_view text;
    int precedence;
};

// C's order of precedence, the lowest first.
constexpr std::array<Operator, 18> operators{{{"||", 1},
                                              {"&&", 2},
                                              {"|", 3},
                                              {"^", 4},
                                              {"&", 5},
                                              {"==", 6},
                                              {"!=", 6},
                                              {"<", 7},
                                              {">", 7},
                                              {"<=", 7},
                                              {">=", 7},
                                              {"<<", 8},
                                              {">>", 8},
                                              {"+", 9},
                                              {"-", 9},
                                              {"*", 10},
                                              {"/", 10},
                                              {"%", 10}}};

std::int64_t toInteger(double value)
{
    // Converting a value out of range is undefined in C++.
    constexpr double bound = 9.0e18;
    return std::isnan(value) ? 0 : static_cast<std::int64_t>(std::clamp(value, -bound, bound));
}

double bitOperation(std::string_view op, double a, double b)
{
    const auto x = static_cast<std::uint64_t>(toInteger(a));
    const auto y = static_cast<std::uint64_t>(toInteger(b));
    const std::uint64_t result = op == "|"    ? (x | y)
                                 : op == "^"  ? (x ^ y)
                                 : op == "&"  ? (x & y)
                                 : op == "<<" ? (x << (y & 31U))
                                              : (x >> (y & 31U));
    return static_cast<double>(static_cast<std::int64_t>(result));
}

double apply(const Token& op, double a, double b, bool integer)
{
    const std::string_view text = op.text;
    if ((text == "/" || text == "%") && b == 0.0) {
        throw CompileError(op.at, "division by zero");
    }
    switch (text[0]) {
    case '+':
        return a + b;
    case '-':
        return a - b;
    case '*':
        return a * b;
    case '/':
        return integer ? std::trunc(a / b) : a / b;
    case '%':
        return std::fmod(a, b);
    case '=':
        return a == b ? 1.0 : 0.0;
    case '!':
        return a != b ? 1.0 : 0.0;
    default:
        break;
    }
    if (text == "<<" || text == ">>" || text == "|" || text == "^" || text == "&") {
        return bitOperation(text, a, b);
    }
    const bool holds = text == "&&"   ? a != 0.0 && b != 0.0
                       : text == "||" ? a != 0.0 || b != 0.0
                       : text == "<"  ? a < b
                       : text == ">"  ? a > b
                       : text == "<=" ? a <= b
                                      : a >= b;
    return holds ? 1.0 : 0.0;
}

/// Component by component; a scalar is combined with every component of the other.
template <typename Function>
ConstantValue zip(const Token& at, const ConstantValue& a, const ConstantValue& b, Function function)
{
    const std::size_t count = std::max(a.components.size(), b.components.size());
    if ((a.components.size() != count && a.components.size() != 1) ||
        (b.components.size() != count && b.components.size() != 1)) {
        throw CompileError(at.at, inQuotes(at.text) + " combines " + std::to_string(a.components.size()) +
                                      " and " + std::to_string(b.components.size()) + " components");
    }
    ConstantValue result;
    result.integer = a.integer && b.integer;
    result.components.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
        result.components[i] = function(a.components[a.components.size() == 1 ? 0 : i],
                                        b.components[b.components.size() == 1 ? 0 : i]);
    }
    return result;
}

using Unary = double (*)(double);
using Binary = double (*)(double, double);
constexpr double pi = 3.14159265358979323846;

const std::vector<std::pair<std::string_view, Unary>>& unaryFunctions()
{
    static const std::vector<std::pair<std::string_view, Unary>> table{
        {"abs", [](double x) { return std::fabs(x); }},
        {"sqrt", [](double x) { return std::sqrt(x); }},
        {"rsqrt", [](double x) { return 1.0 / std::sqrt(x); }},
        {"sin", [](double x) { return std::sin(x); }},
        {"cos", [](double x) { return std::cos(x); }},
        {"tan", [](double x) { return std::tan(x); }},
        {"exp", [](double x) { return std::exp(x); }},
        {"exp2", [](double x) { return std::exp2(x); }},
        {"log", [](double x) { return std::log(x); }},
        {"log2", [](double x) { return std::log2(x); }},
        {"log10", [](double x) { return std::log10(x); }},
        {"floor", [](double x) { return std::floor(x); }},
        {"ceil", [](double x) { return std::ceil(x); }},
        {"round", [](double x) { return std::nearbyint(x); }},
        {"trunc", [](double x) { return std::trunc(x); }},
        {"frac", [](double x) { return x - std::floor(x); }},
        {"sign", [](double x) { return x > 0.0   ? 1.0
                                       : x < 0.0 ? -1.0
                                                 : 0.0; }},
        {"asin", [](double x) { return std::asin(x); }},
        {"acos", [](double x) { return std::acos(x); }},
        {"atan", [](double x) { return std::atan(x); }},
        {"sinh", [](double x) { return std::sinh(x); }},
        {"cosh", [](double x) { return std::cosh(x); }},
        {"tanh", [](double x) { return std::tanh(x); }},
        {"radians", [](double x) { return x * pi / 180.0; }},
        {"degrees", [](double x) { return x * 180.0 / pi; }},
        {"saturate", [](double x) { return std::min(std::max(x, 0.0), 1.0); }}};
    return table;
}

const std::vector<std::pair<std::string_view, Binary>>& binaryFunctions()
{
    static const std::vector<std::pair<std::string_view, Binary>> table{
        {"min", [](double x, double y) { return std::min(x, y); }},
        {"max", [](double x, double y) { return std::max(x, y); }},
        {"pow", [](double x, double y) { return std::pow(x, y); }},
        {"fmod", [](double x, double y) { return std::fmod(x, y); }},
        {"atan2", [](double x, double y) { return std::atan2(x, y); }},
        {"step", [](double edge, double x) { return x >= edge ? 1.0 : 0.0; }}};
    return table;
}

double dot(const Token& at, const ConstantValue& a, const ConstantValue& b)
{
    const ConstantValue products = zip(at, a, b, std::multiplies<>());
    return std::accumulate(products.components.begin(), products.components.end(), 0.0);
}

using Arguments = std::vector<ConstantValue>;
using OfVectors = ConstantValue (*)(const Token& at, const Arguments& arguments);

struct VectorFunction
{
    std::string_view name;
    std::size_t arguments;
    OfVectors function;
};

ConstantValue single(double value)
{
    return {{value}, false};
}

ConstantValue cross(const Token& at, const Arguments& arguments)
{
    const std::vector<double>& a = arguments[0].components;
    const std::vector<double>& b = arguments[1].components;
    if (a.size() != 3 || b.size() != 3) {
        throw CompileError(at.at, "'cross' takes two vectors of 3 components");
    }
    return {{a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]}, false};
}

ConstantValue normalized(const Token& at, const Arguments& arguments)
{
    const double length = std::sqrt(dot(at, arguments[0], arguments[0]));
    if (length == 0.0) {
        throw CompileError(at.at, "division by zero: the length of this vector is 0");
    }
    return zip(at, arguments[0], single(length), std::divides<>());
}

ConstantValue mixed(const Token& at, const Arguments& arguments)
{
    const ConstantValue difference = zip(at, arguments[1], arguments[0], std::minus<>());
    return zip(at, arguments[0], zip(at, difference, arguments[2], std::multiplies<>()), std::plus<>());
}

const std::vector<VectorFunction>& vectorFunctions()
{
    static const std::vector<VectorFunction> table{
        {"dot", 2, [](const Token& at, const Arguments& a) { return single(dot(at, a[0], a[1])); }},
        {"length", 1,
         [](const Token& at, const Arguments& a) { return single(std::sqrt(dot(at, a[0], a[0]))); }},
        {"distance", 2,
         [](const Token& at, const Arguments& a) {
             const ConstantValue between = zip(at, a[0], a[1], std::minus<>());
             return single(std::sqrt(dot(at, between, between)));
         }},
        {"normalize", 1, normalized},
        {"cross", 2, cross},
        {"lerp", 3, mixed},
        {"clamp", 3, [](const Token& at, const Arguments& a) {
             const auto larger = [](double x, double y) { return std::max(x, y); };
             const auto smaller = [](double x, double y) { return std::min(x, y); };
             return zip(at, zip(at, a[0], a[1], larger), a[2], smaller);
         }}};
    return table;
}

} // namespace

ConstantValue fitted(ConstantValue value, NumericType::Scalar scalar, std::size_t count, bool spread,
                     const Token& at)
{
    if (spread && value.components.size() == 1) {
        value.components.resize(count, value.components[0]);
    }
    if (value.components.size() != count) {
        throw CompileError(at.at, inQuotes(at.text) + " takes " + std::to_string(count) + " values; " +
                                      std::to_string(value.components.size()) + " are given");
    }
    value.integer = scalar != NumericType::Scalar::Float;
    for (double& component : value.components) {
        if (scalar == NumericType::Scalar::Bool) {
            component = component != 0.0 ? 1.0 : 0.0;
        } else if (value.integer) {
            component = std::trunc(component);
        }
    }
    return value;
}

std::string_view NumericType::spelling() const
{
    static const std::vector<std::string> names = [] {
        std::vector<std::string> list;
        for (const std::string base : {"float", "int", "bool"}) {
            for (int row = 0; row < 4; ++row) {
                for (int column = 1; column <= 4; ++column) {
                    const std::string size = std::to_string(column);
                    list.push_back(base + (row > 0      ? std::to_string(row + 1) + 'x' + size
                                           : column > 1 ? size
                                                        : std::string()));
                }
            }
        }
        return list;
    }();
    return names.at(static_cast<std::size_t>(scalar) * 16 + (rows - 1) * 4 + columns - 1);
}

std::optional<NumericType> NumericType::named(std::string_view name)
{
    static constexpr std::array<std::pair<std::string_view, Scalar>, 8> scalars{{{"float", Scalar::Float},
                                                                                 {"half", Scalar::Float},
                                                                                 {"fixed", Scalar::Float},
                                                                                 {"int", Scalar::Int},
                                                                                 {"bool", Scalar::Bool},
                                                                                 {"uint", Scalar::Other},
                                                                                 {"dword", Scalar::Other},
                                                                                 {"double", Scalar::Other}}};
    for (const auto& [base, scalar] : scalars) {
        if (name.substr(0, base.size()) != base) {
            continue;
        }
        const std::string_view rest = name.substr(base.size());
        const auto dimension = [&](std::size_t i) { return static_cast<std::uint32_t>(rest[i] - '0'); };
        const auto inRange = [&](std::size_t i) { return rest[i] >= '1' && rest[i] <= '4'; };
        if (rest.empty()) {
            return NumericType{scalar, 1, 1};
        }
        if (rest.size() == 1 && inRange(0)) {
            return NumericType{scalar, 1, dimension(0)};
        }
        if (rest.size() == 3 && inRange(0) && rest[1] == 'x' && inRange(2)) {
            return NumericType{scalar, dimension(0), dimension(2)};
        }
    }
    if (name == "vector") {
        return NumericType{Scalar::Float, 1, 4};
    }
    return name == "matrix" ? std::optional(NumericType{Scalar::Float, 4, 4}) : std::nullopt;
}

/// Bounds the depth of the recursion, so that no input exhausts the stack.
class ConstantReader::Depth
{
public:
    explicit Depth(ConstantReader& reader) : depth_(reader.depth_)
    {
        if (++depth_ > Limits::nesting) {
            throw CompileError(reader.token_->at, "the expression is nested more than " +
                                                      std::to_string(Limits::nesting) + " deep");
        }
    }
    ~Depth() { --depth_; }
    Depth(const Depth&) = delete;
    Depth& operator=(const Depth&) = delete;

private:
    std::size_t& depth_;
};

ConstantValue ConstantReader::readInitializer()
{
    if (!token_->is("{")) {
        return readExpression();
    }
    const Depth depth(*this);
    ConstantValue result;
    result.components.clear();
    expect("{");
    while (!token_->is("}")) {
        const ConstantValue part = readInitializer();
        result.components.insert(result.components.end(), part.components.begin(), part.components.end());
        if (!accept(",") && !token_->is("}")) {
            throw CompileError(token_->at, "',' or '}' is missing in the list of values");
        }
    }
    const Location at = token_->at;
    expect("}");
    if (result.components.empty()) {
        throw CompileError(at, "the list of values is empty");
    }
    return result;
}

ConstantValue ConstantReader::readExpression()
{
    const Depth depth(*this);
    const ConstantValue condition = readBinary(1);
    const Token question = *token_;
    if (!accept("?")) {
        return condition;
    }
    const ConstantValue first = readExpression();
    expect(":");
    const ConstantValue second = readExpression();
    if (condition.components.size() != 1) {
        throw CompileError(question.at, "the condition before '?' is not a single value");
    }
    return condition.components[0] != 0.0 ? first : second;
}

ConstantValue ConstantReader::readBinary(int lowest)
{
    const Depth depth(*this);
    ConstantValue left = readUnary();
    for (;;) {
        const auto found = std::find_if(operators.begin(), operators.end(), [&](const Operator& candidate) {
            return token_->is(candidate.text) && candidate.precedence >= lowest;
        });
        if (found == operators.end()) {
            return left;
        }
        const Token op = *token_++;
        const ConstantValue right = readBinary(found->precedence + 1);
        const bool integer = left.integer && right.integer;
        left = zip(op, left, right, [&](double a, double b) { return apply(op, a, b, integer); });
    }
}

ConstantValue ConstantReader::readUnary()
{
    const Depth depth(*this);
    const Token op = *token_;
    if (!op.is("-") && !op.is("+") && !op.is("!") && !op.is("~")) {
        return readPostfix();
    }
    ++token_;
    ConstantValue value = readUnary();
    for (double& component : value.components) {
        component = op.is("-")   ? -component
                    : op.is("!") ? (component == 0.0 ? 1.0 : 0.0)
                    : op.is("~") ? static_cast<double>(~toInteger(component))
                                 : component;
    }
    return value;
}

ConstantValue ConstantReader::readPostfix()
{
    ConstantValue value = readPrimary();
    while (accept(".")) {
        const Token swizzle = *token_;
        if (swizzle.kind != TokenKind::Identifier) {
            throw CompileError(swizzle.at, "components are missing after '.'");
        }
        ++token_;
        ConstantValue picked;
        picked.integer = value.integer;
        picked.components.clear();
        for (const char c : swizzle.text) {
            std::size_t index = std::string_view("xyzw").find(c);
            index = index == std::string_view::npos ? std::string_view("rgba").find(c) : index;
            if (index >= value.components.size() || picked.components.size() >= 4) {
                throw CompileError(swizzle.at,
                                   inQuotes(swizzle.text) + " does not select components of this value");
            }
            picked.components.push_back(value.components[index]);
        }
        value = std::move(picked);
    }
    return value;
}

ConstantValue ConstantReader::readPrimary()
{
    const Token token = *token_;
    if (token.is("(")) {
        return readCast();
    }
    if (token.kind == TokenKind::Number) {
        ++token_;
        ConstantValue value;
        if (!readNumber(token.text, value.components[0], value.integer)) {
            throw CompileError(token.at, inQuotes(token.text) + " is not a number");
        }
        return value;
    }
    if (token.kind != TokenKind::Identifier) {
        throw CompileError(token.at, token.kind == TokenKind::End
                                         ? std::string("a value is missing")
                                         : "a constant value is expected instead of " + inQuotes(token.text));
    }
    ++token_;
    if (token_->is("(")) {
        return readCall(token);
    }
    if (token.is("true") || token.is("false")) {
        return ConstantValue::ofInteger(token.is("true") ? 1.0 : 0.0);
    }
    std::optional<ConstantValue> value = names_(token);
    if (!value) {
        throw CompileError(token.at, inQuotes(token.text) + " is not a constant");
    }
    return std::move(*value);
}

ConstantValue ConstantReader::readCast()
{
    const bool cast =
        token_[1].kind == TokenKind::Identifier && NumericType::named(token_[1].text) && token_[2].is(")");
    if (cast) {
        const Token name = token_[1];
        token_ += 3;
        ConstantValue value = readUnary();
        const NumericType type = *NumericType::named(name.text);
        if (value.components.size() > type.components()) {
            value.components.resize(type.components());
        }
        return fitted(std::move(value), type.scalar, type.components(), true, name);
    }
    expect("(");
    ConstantValue value = readExpression();
    expect(")");
    return value;
}

ConstantValue ConstantReader::readCall(const Token& name)
{
    std::vector<ConstantValue> arguments;
    expect("(");
    while (!token_->is(")")) {
        arguments.push_back(readExpression());
        if (!accept(",") && !token_->is(")")) {
            throw CompileError(token_->at,
                               "',' or ')' is missing in the arguments of " + inQuotes(name.text));
        }
    }
    expect(")");
    if (const auto type = NumericType::named(name.text); type && !arguments.empty()) {
        ConstantValue joined = arguments[0];
        for (std::size_t i = 1; i < arguments.size(); ++i) {
            joined.components.insert(joined.components.end(), arguments[i].components.begin(),
                                     arguments[i].components.end());
        }
        return fitted(std::move(joined), type->scalar, type->components(), true, name);
    }
    for (const auto& [spelling, function] : unaryFunctions()) {
        if (name.is(spelling) && arguments.size() == 1) {
            ConstantValue value = arguments[0];
            value.integer = false;
            std::transform(value.components.begin(), value.components.end(), value.components.begin(),
                           function);
            return value;
        }
    }
    for (const auto& [spelling, function] : binaryFunctions()) {
        if (name.is(spelling) && arguments.size() == 2) {
            return zip(name, arguments[0], arguments[1], function);
        }
    }
    for (const VectorFunction& candidate : vectorFunctions()) {
        if (name.is(candidate.name) && arguments.size() == candidate.arguments) {
            ConstantValue value = candidate.function(name, arguments);
            value.integer = false;
            return value;
        }
    }
    throw CompileError(name.at, inQuotes(name.text) + " with " + std::to_string(arguments.size()) +
                                    " arguments is not a constant");
}

bool ConstantReader::accept(std::string_view text)
{
    if (!token_->is(text)) {
        return false;
    }
    ++token_;
    return true;
}

void ConstantReader::expect(std::string_view text)
{
    if (!accept(text)) {
        throw CompileError(token_->at,
                           inQuotes(text) + " is expected" +
                               (token_->kind == TokenKind::End ? std::string(" at the end")
                                                               : " instead of " + inQuotes(token_->text)));
    }
}

} // namespace Qx::Host::Effects
