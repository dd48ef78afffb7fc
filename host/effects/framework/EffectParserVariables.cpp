// Variables outside functions: constants and parameters.

#include "host/effects/framework/EffectParser.h"

#include "host/effects/framework/Limits.h"
#include "host/effects/framework/TokenLists.h"

#include <algorithm>
#include <limits>

namespace Qx::Host::Effects {

void EffectParser::parseVariables(const Qualifiers& qualifiers, const EffectSyntax::Type& type, Token name)
{
    if (type.tokens[0].is("void")) {
        throw CompileError(name.at, "a variable cannot be void");
    }
    for (;;) {
        claimName(name);
        if (qualifiers.isStatic || (qualifiers.isConst && !qualifiers.isUniform)) {
            parseConstant(qualifiers.isConst, type, name);
        } else if (structs_.count(type.tokens[0].text) != 0) {
            parseStructParameter(type, name);
        } else {
            parseParameter(type, name);
        }
        if (!reader_.accept(",")) {
            break;
        }
        name = reader_.expectName("a name");
    }
    reader_.expect(";", "after " + inQuotes(name.text));
}

void EffectParser::parseConstant(bool isConst, EffectSyntax::Type type, const Token& name)
{
    EffectSyntax::Piece piece;
    piece.kind = EffectSyntax::Piece::Kind::Constant;
    piece.name = name;
    Tokens dimensions = parseDimensions();
    if (type.numeric) {
        initializers_.splitWholeMatrix(*type.numeric, type.tokens[0], dimensions);
    }
    piece.type = type;
    parseSemantic();
    parseAnnotations();
    Token equals;
    Tokens value;
    if (reader_.peek().is("=")) {
        equals = reader_.take();
        value = checked(reader_.takeUntil(",;", "the value of " + inQuotes(name.text)));
        if (value.empty()) {
            throw reader_.unexpected("a value", "after '='");
        }
        if (isConst && dimensions.empty()) {
            rememberConstant(type, name, value);
        }
    }
    const std::optional<Shape> element = type.numeric ? shapeOf(type) : shapeOf(type.tokens[0]);
    if (const auto shape = element ? initializers_.arrayOf(*element, dimensions) : std::nullopt) {
        value = value.empty() ? value : initializers_.arranged(*shape, dimensions, std::move(value), name);
        initializers_.rememberGlobal(name, *shape);
    }
    Token word = name;
    word.kind = TokenKind::Identifier;
    word.text = "static";
    piece.text.push_back(word);
    if (isConst) {
        word.text = "const";
        piece.text.push_back(word);
    }
    append(piece.text, type.tokens);
    piece.text.push_back(name);
    append(piece.text, dimensions);
    if (!value.empty()) {
        piece.text.push_back(equals);
        piece.bodyBegin = piece.text.size();
        append(piece.text, value);
    }
    Token semicolon = reader_.peek();
    semicolon.kind = TokenKind::Punctuator;
    semicolon.text = ";";
    piece.text.push_back(semicolon);
    effect_.pieces.push_back(std::move(piece));
}

/// Of a type's name; nothing for unknown types, and for those whose numbers cannot be counted.
std::optional<Shape> EffectParser::shapeOf(const Token& type, std::size_t depth) const
{
    constexpr std::size_t deepest = 16; // structs in structs
    EffectSyntax::Type numeric;
    const auto alias = typedefs_.find(type.text);
    numeric.numeric = alias != typedefs_.end() ? alias->second : NumericType::named(type.text);
    if (numeric.numeric) {
        return shapeOf(numeric);
    }
    const auto structure = structs_.find(type.text);
    if (structure == structs_.end() || depth == deepest) {
        return std::nullopt;
    }
    Shape shape;
    for (const EffectSyntax::Member& member : effect_.pieces[structure->second].members) {
        const std::optional<Shape> part =
            member.type.numeric ? shapeOf(member.type) : shapeOf(member.type.tokens[0], depth + 1);
        if (!part || member.elements == 0U) {
            return std::nullopt;
        }
        shape.parts.push_back(member.elements ? Shape::arrayOf(*part, member.elements) : *part);
        if (shape.components() > Shape::mostComponents) {
            return std::nullopt;
        }
    }
    return shape;
}

std::optional<Shape> EffectParser::shapeOf(const EffectSyntax::Type& type)
{
    if (!type.numeric || type.numeric->scalar == NumericType::Scalar::Other) {
        return std::nullopt;
    }
    Shape shape;
    shape.type = *type.numeric;
    return shape;
}

void EffectParser::rememberConstant(const EffectSyntax::Type& type, const Token& name, const Tokens& value)
{
    constexpr std::size_t longest = 1024; // tokens; a longer value is a table, which no default refers to
    if (!type.numeric || value.size() > longest) {
        return;
    }
    try {
        constants_[name.text] = fitted(evaluateInitializer(value, name), type.numeric->scalar,
                                       type.numeric->components(), true, name);
    } catch (const CompileError&) {
        // It may still be valid HLSL; a default that refers to it is reported as not constant.
    }
}

/// "c4" of "register(c4)", "register(ps_2_0, c[4])" or "packoffset(c4.x)"; empty if the file gives none.
std::string EffectParser::registerOf(const Suffixes& suffixes)
{
    std::string place;
    for (const Token& token : suffixes.place) {
        if (token.is(",")) {
            place.clear(); // of the profile
        } else if (token.kind == TokenKind::Identifier || token.kind == TokenKind::Number || token.is(".")) {
            place += token.text;
        }
    }
    return place;
}

void EffectParser::parseParameter(EffectSyntax::Type type, const Token& name)
{
    EffectSyntax::Parameter parameter;
    parameter.name = name;
    Tokens dimensions = parseDimensions(std::numeric_limits<double>::infinity());
    if (type.numeric) {
        initializers_.splitWholeMatrix(*type.numeric, type.tokens[0], dimensions);
    }
    checkParameterType(type, name);
    parameter.type = type;
    const bool open = dimensions.size() == 2; // "[]"
    parameter.elements =
        dimensions.empty() || open ? 0 : elementsOf(dimensions, name, Limits::parameterElements);
    const Suffixes suffixes = parseSuffixes();
    parameter.semantic = suffixes.semantic;
    parameter.place = registerOf(suffixes);
    parameter.annotations = parseAnnotations();
    const std::size_t each = type.numeric->components();
    if (reader_.accept("=")) {
        ConstantValue value =
            evaluateInitializer(reader_.takeUntil(",;", "the default of " + inQuotes(name.text)), name);
        if (open) {
            const std::size_t given = value.components.size() / each;
            parameter.elements =
                checkedElements(static_cast<double>(given), name.at, name, Limits::parameterElements);
        }
        parameter.defaultValue =
            fitted(std::move(value), type.numeric->scalar, each * std::max(parameter.elements, 1U),
                   parameter.elements == 0, name);
    } else if (open) {
        throw CompileError(dimensions[0].at,
                           "the array " + inQuotes(name.text) + " has no size and no value");
    }
    Shape shape;
    shape.type = {type.numeric->scalar, 1, type.numeric->components() * std::max(parameter.elements, 1U)};
    initializers_.rememberGlobal(name, shape);
    effect_.parameters.push_back(std::move(parameter));
}

/// Each member is a parameter of its own, "NAME.MEMBER". The shaders have a variable, which they begin by
/// filling.
void EffectParser::parseStructParameter(const EffectSyntax::Type& type, const Token& name)
{
    if (reader_.peek().is("[")) {
        throw CompileError(reader_.peek().at,
                           "parameter " + inQuotes(name.text) +
                               " is an array of structs; declare an array for each member");
    }
    parseSemantic();
    parseAnnotations();
    std::optional<ConstantValue> value;
    if (reader_.accept("=")) {
        value = evaluateInitializer(reader_.takeUntil(",;", "the default of " + inQuotes(name.text)), name);
    }
    // A copy: the pieces move when one is added.
    const std::vector<EffectSyntax::Member> members =
        effect_.pieces[structs_.at(type.tokens[0].text)].members;
    std::size_t at = 0;
    for (const EffectSyntax::Member& member : members) {
        EffectSyntax::Parameter parameter;
        parameter.name = name;
        parameter.name.text =
            effect_.texts.emplace_back(std::string(name.text) + '.' + std::string(member.name.text));
        checkParameterType(member.type, parameter.name);
        if (member.elements == 0U) {
            throw CompileError(name.at,
                               "the size of array " + inQuotes(parameter.name.text) + " is not a constant");
        }
        parameter.type = member.type;
        parameter.elements = member.elements.value_or(0);
        parameter.structure = name;
        parameter.member = member.name;
        const std::size_t count =
            std::size_t{member.type.numeric->components()} * std::max(parameter.elements, 1U);
        if (value && at + count <= value->components.size()) {
            ConstantValue part = *value;
            const auto begin = value->components.begin() + static_cast<std::ptrdiff_t>(at);
            part.components.assign(begin, begin + static_cast<std::ptrdiff_t>(count));
            parameter.defaultValue =
                fitted(std::move(part), member.type.numeric->scalar, count, false, parameter.name);
        }
        at += count;
        effect_.parameters.push_back(std::move(parameter));
        if (effect_.parameters.size() > Limits::uniformBytes / sizeof(float)) {
            throw LimitError(name.at, "the parameters up to " + inQuotes(name.text) + " take more than " +
                                          std::to_string(Limits::uniformBytes) + " bytes");
        }
    }
    if (value && value->components.size() != at) {
        throw CompileError(name.at, inQuotes(name.text) + " takes " + std::to_string(at) + " numbers; " +
                                        std::to_string(value->components.size()) + " are given");
    }
    addVariable(type, name);
}

/// A variable of the shaders, without a value.
void EffectParser::addVariable(const EffectSyntax::Type& type, const Token& name)
{
    EffectSyntax::Piece piece;
    piece.kind = EffectSyntax::Piece::Kind::Constant;
    piece.name = name;
    piece.type = type;
    Token word = name;
    word.text = "static";
    piece.text.push_back(word);
    append(piece.text, type.tokens);
    piece.text.push_back(name);
    word.kind = TokenKind::Punctuator;
    word.text = ";";
    piece.text.push_back(word);
    effect_.pieces.push_back(std::move(piece));
}

void EffectParser::checkParameterType(const EffectSyntax::Type& type, const Token& name) const
{
    const std::string spelt = inQuotes(type.tokens[0].text);
    if (!type.numeric || type.numeric->scalar == NumericType::Scalar::Other) {
        throw CompileError(type.tokens[0].at,
                           spelt + " cannot be the type of parameter " + inQuotes(name.text) +
                               "; parameters are float, half, fixed, int or bool, vectors, "
                               "matrices or arrays of them");
    }
    if (type.numeric->rows > 1 && type.numeric->scalar != NumericType::Scalar::Float) {
        throw CompileError(type.tokens[0].at,
                           "parameter " + inQuotes(name.text) + ": a matrix holds floats, not " + spelt);
    }
}

std::uint32_t EffectParser::elementsOf(const Tokens& dimensions, const Token& name, std::size_t most)
{
    if (std::count_if(dimensions.begin(), dimensions.end(), [](const Token& t) { return t.is("["); }) != 1) {
        throw CompileError(dimensions[0].at,
                           "the array " + inQuotes(name.text) + " has more than one dimension");
    }
    const ConstantValue value = evaluateInitializer({dimensions.begin() + 1, dimensions.end() - 1}, name);
    return checkedElements(value.integer && value.components.size() == 1 ? value.components[0] : 0.0,
                           dimensions[0].at, name, most);
}

std::uint32_t EffectParser::checkedElements(double count, Location at, const Token& name, std::size_t most)
{
    if (!(count >= 1.0) || count > static_cast<double>(most)) {
        throw CompileError(at, "the size of array " + inQuotes(name.text) + " is a whole number from 1 to " +
                                   std::to_string(most));
    }
    return static_cast<std::uint32_t>(count);
}

ConstantValue EffectParser::evaluateInitializer(Tokens tokens, const Token& name)
{
    tokens.push_back(endTokenAfter(tokens, name.at));
    ConstantReader reader(tokens.data(), [this](const Token& token) { return constantNamed(token); });
    ConstantValue value = reader.readInitializer();
    if (reader.position()->kind != TokenKind::End) {
        throw CompileError(reader.position()->at, "unexpected " + inQuotes(reader.position()->text) +
                                                      " in the value of " + inQuotes(name.text));
    }
    return value;
}

} // namespace Qx::Host::Effects
