// Variables outside functions: constants and parameters.

#include "host/effects/framework/EffectParser.h"

#include "host/effects/framework/Limits.h"
#include "host/effects/framework/TokenLists.h"

#include <algorithm>

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

void EffectParser::parseConstant(bool isConst, const EffectSyntax::Type& type, const Token& name)
{
    EffectSyntax::Piece piece;
    piece.kind = EffectSyntax::Piece::Kind::Constant;
    piece.name = name;
    piece.type = type;
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
    const Tokens dimensions = parseDimensions();
    append(piece.text, dimensions);
    parseSemantic();
    parseAnnotations();
    if (reader_.peek().is("=")) {
        piece.text.push_back(reader_.take());
        const Tokens value = checked(reader_.takeUntil(",;", "the value of " + inQuotes(name.text)));
        if (value.empty()) {
            throw reader_.unexpected("a value", "after '='");
        }
        piece.bodyBegin = piece.text.size();
        append(piece.text, value);
        if (isConst && dimensions.empty()) {
            rememberConstant(type, name, value);
        }
    }
    Token semicolon = reader_.peek();
    semicolon.kind = TokenKind::Punctuator;
    semicolon.text = ";";
    piece.text.push_back(semicolon);
    effect_.pieces.push_back(std::move(piece));
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

void EffectParser::parseParameter(const EffectSyntax::Type& type, const Token& name)
{
    EffectSyntax::Parameter parameter;
    parameter.type = type;
    parameter.name = name;
    checkParameterType(type, name);
    const Tokens dimensions = parseDimensions();
    parameter.elements = dimensions.empty() ? 0 : elementsOf(dimensions, name);
    parameter.semantic = parseSemantic();
    parameter.annotations = parseAnnotations();
    if (reader_.accept("=")) {
        const std::size_t count = type.numeric->components() * std::max(parameter.elements, 1U);
        parameter.defaultValue = fitted(
            evaluateInitializer(reader_.takeUntil(",;", "the default of " + inQuotes(name.text)), name),
            type.numeric->scalar, count, parameter.elements == 0, name);
    }
    effect_.parameters.push_back(std::move(parameter));
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

std::uint32_t EffectParser::elementsOf(const Tokens& dimensions, const Token& name)
{
    if (std::count_if(dimensions.begin(), dimensions.end(), [](const Token& t) { return t.is("["); }) != 1) {
        throw CompileError(dimensions[0].at,
                           "parameter " + inQuotes(name.text) + " has more than one dimension");
    }
    const ConstantValue value = evaluateInitializer({dimensions.begin() + 1, dimensions.end() - 1}, name);
    constexpr double most = Limits::uniformBytes / 16.0;
    const double count = value.components[0];
    if (value.components.size() != 1 || !value.integer || !(count >= 1.0) || count > most) {
        throw CompileError(dimensions[0].at, "the size of array " + inQuotes(name.text) +
                                                 " is a whole number from 1 to " +
                                                 std::to_string(static_cast<int>(most)));
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
