#include "host/effects/framework/Initializers.h"

#include "host/effects/framework/TokenLists.h"

#include <algorithm>

namespace Qx::Host::Effects {
namespace {

using Tokens = std::vector<Token>;

Token punctuator(std::string_view text, const Token& at)
{
    Token token = at;
    token.kind = TokenKind::Punctuator;
    token.text = text;
    return token;
}

/// The index of the partner of the bracket at `at`, or the number of tokens.
std::size_t partnerOf(const Tokens& tokens, std::size_t at)
{
    std::size_t depth = 0;
    for (std::size_t i = at; i < tokens.size(); ++i) {
        const Token& token = tokens[i];
        if (token.is("{") || token.is("(") || token.is("[")) {
            ++depth;
        } else if ((token.is("}") || token.is(")") || token.is("]")) && --depth == 0) {
            return i;
        }
    }
    return tokens.size();
}

bool isName(const Tokens& tokens, std::size_t at)
{
    return at < tokens.size() && tokens[at].kind == TokenKind::Identifier;
}

bool isSwizzle(std::string_view text)
{
    constexpr std::size_t most = 4;
    return text.size() <= most && (text.find_first_not_of("xyzw") == std::string_view::npos ||
                                   text.find_first_not_of("rgba") == std::string_view::npos);
}

} // namespace

/// An expression, or a braced list of values.
struct Initializers::Value
{
    Tokens expression;
    bool isList = false;
    std::vector<Value> list;
};

/// One or more numbers of a flat list.
struct Initializers::Number
{
    Tokens expression;
    std::size_t components = 1;
};

std::size_t Shape::components() const
{
    if (parts.empty()) {
        return type.components();
    }
    std::size_t sum = 0;
    for (const Shape& part : parts) {
        sum += part.components();
    }
    return array ? sum * elements.value_or(1) : sum;
}

Shape Shape::arrayOf(Shape element, std::optional<std::uint32_t> elements)
{
    Shape array;
    array.parts.push_back(std::move(element));
    array.array = true;
    array.elements = elements;
    return array;
}

std::optional<Shape> Initializers::arrayOf(Shape shape, const Tokens& dimensions) const
{
    constexpr double most = 4096;
    constexpr std::size_t mostDimensions = 16;
    std::vector<std::optional<std::uint32_t>> sizes;
    for (std::size_t i = 0; i < dimensions.size() && sizes.size() <= mostDimensions;) {
        const std::size_t close = partnerOf(dimensions, i);
        if (close == i + 1) {
            sizes.emplace_back();
        } else {
            Tokens inside(dimensions.begin() + static_cast<std::ptrdiff_t>(i) + 1,
                          dimensions.begin() + static_cast<std::ptrdiff_t>(close));
            inside.push_back(endTokenAfter(inside, dimensions[i].at));
            try {
                const double size = ConstantReader(inside.data(), names_).readExpression().components.at(0);
                if (!(size >= 1.0 && size <= most)) {
                    return std::nullopt;
                }
                sizes.emplace_back(static_cast<std::uint32_t>(size));
            } catch (const CompileError&) {
                return std::nullopt;
            }
        }
        i = close + 1;
    }
    if (sizes.size() > mostDimensions) {
        return std::nullopt;
    }
    for (auto size = sizes.rbegin(); size != sizes.rend(); ++size) {
        shape = Shape::arrayOf(std::move(shape), *size);
        if (shape.components() > Shape::mostComponents) {
            return std::nullopt;
        }
    }
    return shape;
}

void Initializers::splitWholeMatrix(NumericType& type, Token& name, Tokens& dimensions)
{
    const bool whole = type.scalar == NumericType::Scalar::Int || type.scalar == NumericType::Scalar::Bool;
    if (!whole || type.rows == 1) {
        return;
    }
    dimensions.push_back(punctuator("[", name));
    dimensions.push_back(this->whole(type.rows, name));
    dimensions.push_back(punctuator("]", name));
    type.rows = 1;
    name.text = type.spelling();
}

Token Initializers::whole(std::size_t number, const Token& at)
{
    Token token = at;
    token.kind = TokenKind::Number;
    token.text = texts_.emplace_back(std::to_string(number));
    return token;
}

/// Reads up to a ',' or '}' outside of brackets. The brackets match.
Initializers::Value Initializers::read(const Token*& token, const Token* end)
{
    Value value;
    if (token->is("{")) {
        value.isList = true;
        ++token;
        while (token != end && !token->is("}")) {
            value.list.push_back(read(token, end));
            token += token != end && token->is(",") ? 1 : 0;
        }
        token += token != end ? 1 : 0;
        return value;
    }
    std::size_t depth = 0;
    for (; token != end; ++token) {
        const bool opens = token->is("(") || token->is("[") || token->is("{");
        const bool closes = token->is(")") || token->is("]") || token->is("}");
        if (depth == 0 && (closes || token->is(","))) {
            break;
        }
        depth += opens ? 1U : 0U;
        depth -= closes ? 1U : 0U;
        value.expression.push_back(*token);
    }
    return value;
}

/// Whether the HLSL compiler takes the value as it is: an expression of as many numbers, as far as they can
/// be counted, or a list of what fits each part.
bool Initializers::fits(const Shape& shape, const Value& value) const
{
    if (!value.isList) {
        return !shape.array && !value.expression.empty() &&
               componentsOf(value.expression).value_or(shape.components()) == shape.components();
    }
    const auto allFit = [&](const Shape& part) {
        return std::all_of(value.list.begin(), value.list.end(),
                           [&](const Value& item) { return fits(part, item); });
    };
    if (shape.array) {
        return value.list.size() == shape.elements.value_or(static_cast<std::uint32_t>(value.list.size())) &&
               !value.list.empty() && allFit(shape.parts[0]);
    }
    if (!shape.parts.empty()) {
        return std::equal(shape.parts.begin(), shape.parts.end(), value.list.begin(), value.list.end(),
                          [&](const Shape& part, const Value& item) { return fits(part, item); });
    }
    const NumericType& type = shape.type;
    Shape row;
    row.type = {type.scalar, 1, type.rows > 1 ? type.columns : 1};
    return type.components() > 1 && value.list.size() == (type.rows > 1 ? type.rows : type.columns) &&
           allFit(row);
}

/// Returns false if it cannot be told how many numbers an expression is.
bool Initializers::flatten(const Value& value, std::vector<Number>& numbers) const
{
    if (value.isList) {
        bool known = true;
        for (const Value& item : value.list) {
            known = flatten(item, numbers) && known;
        }
        return known;
    }
    const std::optional<std::size_t> components = componentsOf(value.expression);
    numbers.push_back({value.expression, components.value_or(1)});
    return components && !value.expression.empty();
}

std::optional<std::size_t> Initializers::componentsOf(const Tokens& expression) const
{
    const bool named = std::any_of(expression.begin(), expression.end(), [](const Token& token) {
        return token.kind == TokenKind::Identifier && !token.is("true") && !token.is("false");
    });
    if (!named) {
        return 1;
    }
    const std::size_t begin = expression[0].is("-") || expression[0].is("+") ? 1 : 0;
    const std::size_t size = expression.size();
    if (size > 2 && expression[size - 2].is(".") && isSwizzle(expression.back().text)) {
        return expression.back().text.size();
    }
    if (size == begin + 1) {
        const auto local = locals_.find(expression.back().text);
        const auto global = globals_.find(expression.back().text);
        return local != locals_.end()     ? std::optional(local->second)
               : global != globals_.end() ? std::optional(global->second)
                                          : std::nullopt;
    }
    const auto type = isName(expression, begin) ? NumericType::named(expression[begin].text) : std::nullopt;
    const bool constructs =
        type && expression[begin + 1].is("(") && partnerOf(expression, begin + 1) + 1 == size;
    return constructs ? std::optional<std::size_t>(type->components()) : std::nullopt;
}

/// Takes the numbers of the shape from `next` on.
void Initializers::write(const Shape& shape, const Number*& next, Tokens& to)
{
    const Token at = next->expression.front();
    if (!shape.parts.empty()) {
        const std::size_t count = shape.array ? shape.elements.value_or(1) : shape.parts.size();
        for (std::size_t i = 0; i < count; ++i) {
            to.push_back(punctuator(i == 0 ? "{" : ",", at));
            write(shape.parts[shape.array ? 0 : i], next, to);
        }
        to.push_back(punctuator("}", at));
        return;
    }
    const std::size_t components = shape.type.components();
    if (components == next->components) {
        append(to, (next++)->expression);
        return;
    }
    Token name = at;
    name.kind = TokenKind::Identifier;
    name.text = shape.type.spelling();
    to.push_back(name);
    to.push_back(punctuator("(", at));
    for (std::size_t given = 0; given < components; given += (next++)->components) {
        if (given > 0) {
            to.push_back(punctuator(",", at));
        }
        append(to, next->expression);
    }
    to.push_back(punctuator(")", at));
}

namespace {

/// The numbers of components of the vectors and matrices that the shape consists of, in their order.
void addVectors(const Shape& shape, std::vector<std::size_t>& sizes)
{
    for (std::size_t i = 0; i < (shape.array ? shape.elements.value_or(1) : 1); ++i) {
        for (const Shape& part : shape.parts) {
            addVectors(part, sizes);
        }
    }
    if (shape.parts.empty()) {
        sizes.push_back(shape.type.components());
    }
}

} // namespace

Initializers::Tokens Initializers::arranged(const Shape& shape, Tokens& dimensions, Tokens value,
                                            const Token& name)
{
    const Token* token = value.data();
    const Value given = read(token, value.data() + value.size());
    if (token != value.data() + value.size() || !given.isList) {
        return value;
    }
    Shape known = shape;
    std::vector<Number> numbers;
    const bool countable = flatten(given, numbers);
    std::size_t sum = 0;
    for (const Number& number : numbers) {
        sum += number.components;
    }
    if (numbers.empty()) {
        throw CompileError(name.at, "the list of values of " + inQuotes(name.text) + " is empty");
    }
    if (std::any_of(numbers.begin(), numbers.end(),
                    [](const Number& number) { return number.expression.empty(); })) {
        throw CompileError(name.at, "a value is missing in the list of " + inQuotes(name.text));
    }
    const bool asIs = fits(shape, given);
    if (shape.array && !shape.elements) {
        const std::size_t each = shape.parts[0].components();
        known.elements = static_cast<std::uint32_t>(asIs ? given.list.size() : sum / each);
        dimensions.insert(dimensions.begin() + 1, whole(*known.elements, name));
    }
    const std::size_t expected = known.components();
    if (asIs || (!countable && numbers.size() != expected)) {
        return value;
    }
    if (sum != expected) {
        throw CompileError(name.at, inQuotes(name.text) + " takes " + std::to_string(expected) +
                                        " numbers; " + std::to_string(sum) + " are given");
    }
    // An expression that is part of two vectors would have to be split.
    std::vector<std::size_t> vectors;
    addVectors(known, vectors);
    std::size_t open = 0;
    auto vector = vectors.begin();
    for (const Number& number : numbers) {
        open += number.components;
        if (open > *vector) {
            throw CompileError(number.expression.front().at,
                               "this value is part of two vectors of " + inQuotes(name.text) +
                                   "; write the numbers of each vector on their own");
        }
        if (open == *vector) {
            open = 0;
            ++vector;
        }
    }
    Tokens arranged;
    const Number* next = numbers.data();
    write(known, next, arranged);
    return arranged;
}

Initializers::Tokens Initializers::arrangedBody(const Tokens& body)
{
    constexpr std::size_t mostWork =
        4U << 20U; // components looked at; then the HLSL compiler sees the rest as it is
    Tokens result;
    result.reserve(body.size());
    for (std::size_t i = 0; i < body.size();) {
        const bool declares = isName(body, i) && isName(body, i + 1) && (i == 0 || !body[i - 1].is("."));
        std::optional<Shape> type = declares && work_ < mostWork ? types_(body[i]) : std::nullopt;
        work_ += type ? type->components() : 0;
        Token name = body[i++];
        if (!type) {
            result.push_back(name);
            continue;
        }
        Tokens ofType; // dimensions
        if (type->parts.empty()) {
            splitWholeMatrix(type->type, name, ofType);
        }
        result.push_back(name);
        do {
            arrangeVariable(body, i, *type, ofType, result);
        } while (result.back().is(",") && isName(body, i));
    }
    locals_.clear();
    return result;
}

/// Takes one variable of a declaration from `at` on, with the ',' or ';' after it.
void Initializers::arrangeVariable(const Tokens& body, std::size_t& at, const Shape& type,
                                   const Tokens& ofType, Tokens& to)
{
    const auto take = [&body, &at](Tokens& taken, std::size_t end) {
        for (; at < std::min(end, body.size()); ++at) {
            taken.push_back(body[at]);
        }
    };
    const Token name = body[at];
    take(to, at + 1);
    Tokens dimensions;
    while (at < body.size() && body[at].is("[")) {
        take(dimensions, partnerOf(body, at) + 1);
    }
    append(dimensions, ofType);
    const std::optional<Shape> shape = arrayOf(type, dimensions);
    Tokens value;
    if (at + 1 < body.size() && body[at].is("=") && body[at + 1].is("{")) {
        take(value, at + 1);
        Tokens list;
        take(list, partnerOf(body, at) + 1);
        append(value, shape ? arranged(*shape, dimensions, std::move(list), name) : list);
    }
    append(to, dimensions);
    append(to, value);
    if (shape) {
        locals_[name.text] = shape->components();
    }
    while (at < body.size() && !body[at].is(",") && !body[at].is(";") && !body[at].is("}")) {
        const bool opens = body[at].is("(") || body[at].is("[") || body[at].is("{");
        take(to, opens ? partnerOf(body, at) + 1 : at + 1);
    }
    take(to, at + 1);
}

} // namespace Qx::Host::Effects
