// Types, structs and functions.

#include "host/effects/framework/EffectParser.h"

#include "host/core/Suggestion.h"
#include "host/effects/framework/Limits.h"
#include "host/effects/framework/ReservedWords.h"
#include "host/effects/framework/TokenLists.h"

#include <algorithm>
#include <array>

namespace Qx::Host::Effects {

namespace {

/// Without those around a name that is a whole argument, as macros leave them: what is read through a sampler
/// is decided by its name.
std::vector<Token> withoutParentheses(const std::vector<Token>& body)
{
    std::vector<Token> result;
    result.reserve(body.size());
    for (std::size_t i = 0; i < body.size(); ++i) {
        const std::size_t end = result.size();
        const bool isArgument = i + 1 < body.size() && (body[i + 1].is(",") || body[i + 1].is(")")) &&
                                end > 2 && (result[end - 3].is("(") || result[end - 3].is(","));
        if (isArgument && body[i].is(")") && result[end - 1].kind == TokenKind::Identifier &&
            result[end - 2].is("(")) {
            result.erase(result.end() - 2);
        } else {
            result.push_back(body[i]);
        }
    }
    return result;
}

} // namespace

void EffectParser::parseStruct()
{
    EffectSyntax::Piece piece;
    piece.kind = EffectSyntax::Piece::Kind::Struct;
    piece.text.push_back(reader_.take());
    piece.name = reader_.expectName("the name of the struct");
    claimTypeName(piece.name);
    piece.text.push_back(piece.name);
    piece.text.push_back(reader_.peek());
    reader_.expect("{", "after the name of the struct");
    while (!reader_.peek().is("}")) {
        if (reader_.accept(";")) {
            continue;
        }
        const Qualifiers qualifiers = parseQualifiers();
        const EffectSyntax::Type type = parseType();
        do {
            EffectSyntax::Member member;
            member.type = type;
            member.name = reader_.expectName("the name of a member");
            refuseReservedName(member.name);
            const Tokens dimensions = parseDimensions();
            member.elements = knownElements(dimensions);
            member.semantic = parseSemantic();
            append(piece.text, qualifiers.kept);
            append(piece.text, type.tokens);
            piece.text.push_back(member.name);
            append(piece.text, dimensions);
            if (!reader_.peek().is(",") && !reader_.peek().is(";")) {
                throw reader_.unexpected("';'", "after the member " + inQuotes(member.name.text));
            }
            Token semicolon = reader_.peek();
            semicolon.text = ";";
            piece.text.push_back(semicolon);
            piece.members.push_back(std::move(member));
        } while (reader_.accept(","));
        reader_.expect(";", "after the member");
    }
    if (piece.members.empty()) {
        throw CompileError(piece.name.at, "struct " + inQuotes(piece.name.text) + " has no member");
    }
    piece.text.push_back(reader_.take());
    piece.text.push_back(reader_.peek());
    reader_.expect(";", "after the struct");
    double numbers = 0.0;
    for (const EffectSyntax::Member& member : piece.members) {
        numbers += numbersIn(member.type, member.elements);
    }
    claimSize(piece.name, numbers);
    structs_.emplace(piece.name.text, effect_.pieces.size());
    effect_.pieces.push_back(std::move(piece));
}

/// The numbers in a variable, as far as they can be counted.
double EffectParser::numbersIn(const EffectSyntax::Type& type, std::optional<std::uint32_t> elements) const
{
    const auto named = sizes_.find(type.tokens[0].text);
    const double one = type.numeric            ? type.numeric->components()
                       : named != sizes_.end() ? named->second
                                               : 1.0;
    return one * std::max(elements.value_or(1), 1U);
}

/// Types of arrays of types multiply to more than the HLSL compiler has memory for.
void EffectParser::claimSize(const Token& name, double numbers)
{
    if (numbers > Limits::structNumbers) {
        throw CompileError(name.at, inQuotes(name.text) + " has more than " +
                                        std::to_string(Limits::structNumbers) + " numbers");
    }
    double& known = sizes_[name.text];
    known = std::max(known, numbers);
}

void EffectParser::parseTypedef()
{
    EffectSyntax::Piece piece;
    piece.kind = EffectSyntax::Piece::Kind::Typedef;
    piece.text.push_back(reader_.take());
    const Qualifiers qualifiers = parseQualifiers();
    const EffectSyntax::Type type = parseType();
    append(piece.text, qualifiers.kept);
    append(piece.text, type.tokens);
    piece.name = reader_.expectName("the new name of the type");
    claimTypeName(piece.name);
    piece.text.push_back(piece.name);
    const Tokens dimensions = parseDimensions();
    append(piece.text, dimensions);
    piece.text.push_back(reader_.peek());
    reader_.expect(";", "after the typedef");
    if (type.numeric && dimensions.empty()) {
        typedefs_[piece.name.text] = *type.numeric;
    }
    claimSize(piece.name, numbersIn(type, knownElements(dimensions)));
    effect_.pieces.push_back(std::move(piece));
}

EffectParser::Qualifiers EffectParser::parseQualifiers()
{
    Qualifiers result;
    for (;;) {
        const Token& token = reader_.peek();
        if (token.is("static")) {
            result.isStatic = true;
        } else if (token.is("const")) {
            result.isConst = true;
        } else if (token.is("uniform")) {
            result.isUniform = true;
        } else if (token.is("out")) {
            result.isOut = true;
            result.kept.push_back(token);
        } else if (token.is("inout")) {
            result.isOut = true;
            result.isInOut = true;
            result.kept.push_back(token);
        } else if (!isOneOf(token.text,
                            {"in", "shared", "extern", "volatile", "inline", "row_major", "column_major",
                             "precise", "nointerpolation", "linear", "centroid"}) ||
                   token.kind != TokenKind::Identifier) {
            return result;
        }
        reader_.take();
    }
}

EffectSyntax::Type EffectParser::parseType()
{
    EffectSyntax::Type type;
    const Token name = reader_.expectName("a type");
    refuseReservedPrefix(name);
    type.tokens.push_back(name);
    type.numeric = NumericType::named(name.text);
    if (const auto found = typedefs_.find(name.text); found != typedefs_.end()) {
        type.numeric = found->second;
    }
    type.sampler = SamplerType::named(name.text);
    if (type.sampler) {
        type.tokens[0].text = type.sampler->spelling();
    }
    if (isOneOf(name.text, {"vector", "matrix"}) && reader_.peek().is("<")) {
        type.tokens.push_back(reader_.take());
        const Tokens inside = reader_.takeUntil(">", "the type");
        append(type.tokens, inside);
        type.tokens.push_back(reader_.take());
        const bool matrix = name.is("matrix");
        std::string spelt(inside.empty() ? std::string_view() : inside[0].text);
        spelt += inside.size() > 2 ? std::string(inside[2].text) : "";
        spelt += matrix && inside.size() > 4 ? "x" + std::string(inside[4].text) : "";
        type.numeric = NumericType::named(spelt);
        if (inside.size() != (matrix ? 5U : 3U) || !type.numeric) {
            throw CompileError(name.at, matrix ? "a matrix type is written matrix<float, ROWS, COLUMNS>"
                                               : "a vector type is written vector<float, COMPONENTS>");
        }
        type.tokens.assign(1, name);
        if (type.numeric->scalar != NumericType::Scalar::Other) {
            type.tokens[0].text = type.numeric->spelling();
        }
    }
    return type;
}

EffectParser::Tokens EffectParser::parseDimensions(double mostElements)
{
    Tokens dimensions;
    while (reader_.peek().is("[")) {
        append(dimensions, reader_.takeBracketed("the size of an array"));
    }
    return checked(dimensions, mostElements);
}

/// Of an array in plain HLSL, whose dimensions the HLSL compiler checks.
std::optional<std::uint32_t> EffectParser::knownElements(const Tokens& dimensions)
{
    if (dimensions.empty()) {
        return std::nullopt;
    }
    try {
        return elementsOf(dimensions, dimensions[0], static_cast<std::size_t>(Limits::arrayElements));
    } catch (const CompileError&) {
        return 0;
    }
}

void EffectParser::parseDeclaration(const Qualifiers& qualifiers)
{
    if (reader_.peek().kind != TokenKind::Identifier) {
        throw reader_.unexpected("a technique, parameter, texture, sampler, struct or function", {});
    }
    EffectSyntax::Type type = parseType();
    checkType(type);
    const Token name = reader_.expectName("a name after the type " + inQuotes(type.tokens[0].text));
    if (reader_.peek().is("(")) {
        parseFunction(qualifiers, std::move(type), name);
    } else {
        parseVariables(qualifiers, type, name);
    }
}

void EffectParser::parseFunction(const Qualifiers& qualifiers, EffectSyntax::Type type, const Token& name)
{
    EffectSyntax::Piece piece;
    refuseReservedName(name);
    piece.name = name;
    localArrays_.clear();
    piece.text = qualifiers.kept;
    append(piece.text, type.tokens);
    piece.text.push_back(name);
    piece.function.name = name;
    piece.function.result = std::move(type);
    piece.text.push_back(reader_.take());
    if (reader_.peek().is("void") && reader_.peekNext().is(")")) {
        reader_.take();
    }
    while (!reader_.peek().is(")")) {
        if (!piece.function.parameters.empty()) {
            piece.text.push_back(reader_.peek());
            reader_.expect(",", "between the parameters of " + inQuotes(name.text));
        }
        parseFunctionParameter(piece);
        if (piece.function.parameters.size() > Limits::functionParameters) {
            throw CompileError(piece.function.parameters.back().name.at,
                               "a function has " + std::to_string(Limits::functionParameters) +
                                   " parameters at most");
        }
    }
    piece.text.push_back(reader_.take());
    piece.function.semantic = parseSemantic();
    parseBody(piece);
    localArrays_.clear();
    effect_.pieces.push_back(std::move(piece));
}

void EffectParser::parseFunctionParameter(EffectSyntax::Piece& piece)
{
    EffectSyntax::FunctionParameter parameter;
    const Qualifiers qualifiers = parseQualifiers();
    parameter.uniform = qualifiers.isUniform;
    parameter.output = qualifiers.isOut;
    parameter.input = !qualifiers.isOut || qualifiers.isInOut;
    parameter.type = parseType();
    const bool unnamed = reader_.peek().is(",") || reader_.peek().is(")"); // as in "float f(float);"
    if (unnamed) {
        parameter.name = reader_.peek();
        parameter.name.text = {};
    } else {
        parameter.name = reader_.expectName("the name of a parameter of " + inQuotes(piece.name.text));
        refuseReservedName(parameter.name);
    }
    const Tokens dimensions = parseDimensions();
    if (parameter.type.sampler && !dimensions.empty() && !unnamed) {
        parseSemantic();
        for (const Token& element : claimLocalElements(dimensions, parameter.name)) {
            if (element.text != localArrays_[parameter.name.text].front().text) {
                Token comma = element;
                comma.kind = TokenKind::Punctuator;
                comma.text = ",";
                piece.text.push_back(comma);
            }
            EffectSyntax::FunctionParameter each = parameter;
            each.name = element;
            append(piece.text, qualifiers.kept);
            each.typeAt = piece.text.size();
            append(piece.text, parameter.type.tokens);
            piece.text.push_back(element);
            piece.function.parameters.push_back(std::move(each));
        }
        return;
    }
    parameter.elements = knownElements(dimensions);
    parameter.semantic = parseSemantic();
    append(piece.text, qualifiers.kept);
    parameter.typeAt = piece.text.size();
    append(piece.text, parameter.type.tokens);
    if (!unnamed) {
        piece.text.push_back(parameter.name);
    }
    append(piece.text, dimensions);
    if (reader_.peek().is("=")) {
        piece.text.push_back(reader_.take());
        parameter.defaultValue = checked(reader_.takeUntil(",)", "the value of a parameter"));
        if (parameter.defaultValue.empty()) {
            throw reader_.unexpected("a value", "after '='");
        }
        refuseFloatRemainder(parameter.defaultValue);
        append(piece.text, parameter.defaultValue);
    }
    piece.function.parameters.push_back(std::move(parameter));
}

/// The HLSL compiler needs a constant here, and folds remainders of whole numbers only.
void EffectParser::refuseFloatRemainder(const Tokens& value) const
{
    const auto remainder =
        std::find_if(value.begin(), value.end(), [](const Token& token) { return token.is("%"); });
    if (remainder == value.end()) {
        return;
    }
    Tokens tokens = value;
    tokens.push_back(endTokenAfter(tokens, remainder->at));
    bool whole = false;
    try {
        whole = ConstantReader(tokens.data(), [this](const Token& name) { return constantNamed(name); })
                    .readInitializer()
                    .integer;
    } catch (const CompileError&) {
        // An expression that cannot be evaluated here may be a float.
    }
    if (!whole) {
        throw CompileError(remainder->at,
                           "'%' of floats is not allowed in the default of a parameter; write the "
                           "result instead");
    }
}

void EffectParser::parseBody(EffectSyntax::Piece& piece)
{
    if (reader_.peek().is(";")) {
        piece.text.push_back(reader_.take());
        return;
    }
    if (!reader_.peek().is("{")) {
        throw reader_.unexpected("'{'", "before the body of " + inQuotes(piece.name.text));
    }
    piece.function.hasBody = true;
    piece.bodyBegin = piece.text.size();
    for (const EffectSyntax::FunctionParameter& parameter : piece.function.parameters) {
        if (const auto shape = parameter.elements ? std::nullopt : shapeOf(parameter.type)) {
            initializers_.rememberLocal(parameter.name, *shape);
        }
    }
    const Tokens body = checked(reader_.takeBracketed("the body of " + inQuotes(piece.name.text)));
    append(piece.text, initializers_.arrangedBody(withoutTextureMethods(withoutParentheses(body))));
}

/// Refuses a word that looks like a mistyped keyword. Others may be types that the HLSL compiler knows.
void EffectParser::checkType(const EffectSyntax::Type& type) const
{
    static constexpr std::array<std::string_view, 22> words{
        "technique", "texture",  "sampler",  "struct", "typedef", "float", "float2", "float3",
        "float4",    "float3x3", "float4x4", "half",   "half2",   "half3", "half4",  "half4x4",
        "int",       "int2",     "bool",     "void",   "string",  "pass"};
    const Token& name = type.tokens[0];
    const bool known = type.numeric || type.sampler || typeNames_.count(name.text) != 0 ||
                       isOneOf(name.text, {"void", "vector", "matrix", "dword", "DWORD", "unsigned"});
    if (known) {
        return;
    }
    std::string likely = didYouMean(name.text, words);
    likely = likely.empty() ? didYouMean(name.text, typeNames_) : likely;
    if (!likely.empty()) {
        throw CompileError(name.at, "there is no " + inQuotes(name.text) + likely);
    }
}

} // namespace Qx::Host::Effects
