#include "host/effects/framework/EffectParser.h"

#include "host/core/Suggestion.h"
#include "host/effects/framework/EffectStates.h"
#include "host/effects/framework/HlslChecks.h"
#include "host/effects/framework/ReservedWords.h"

#include <algorithm>
#include <array>

namespace Qx::Host::Effects {
namespace {

bool isOneOf(std::string_view text, std::initializer_list<std::string_view> list)
{
    return std::find(list.begin(), list.end(), text) != list.end();
}

Token endTokenAfter(const std::vector<Token>& tokens, Location otherwise)
{
    Token end;
    end.at = tokens.empty() ? otherwise : tokens.back().at;
    return end;
}

/// For the name of anything that an effect declares.
void checkName(const Token& name)
{
    refuseReservedPrefix(name);
    refuseHlslWord(name);
}

void append(std::vector<Token>& to, const std::vector<Token>& tokens)
{
    to.insert(to.end(), tokens.begin(), tokens.end());
}

} // namespace

EffectSyntax EffectParser::parse()
{
    // A mistake in a macro is one problem, however often the macro is used; finding the end of each use may
    // mean reading to the end of the file.
    constexpr int mostFailures = 50;
    int failures = 0;
    while (!reader_.atEnd()) {
        const Token* const item = reader_.position();
        try {
            parseGlobal();
        } catch (const LimitError&) {
            throw;
        } catch (const CompileError& error) {
            problems_.fail(error);
            if (problems_.enough() || ++failures == mostFailures) {
                throw;
            }
            effect_.complete = false;
            reader_.skipItem(item);
        }
        checkSize(*item);
    }
    return std::move(effect_);
}

void EffectParser::checkSize(const Token& item) const
{
    // Later stages compare each of these with each of others.
    const auto check = [&](std::size_t count, std::size_t most, const char* what) {
        if (count > most) {
            throw LimitError(item.at, "an effect has " + std::to_string(most) + ' ' + what + " at most");
        }
    };
    check(passes_, Limits::passes, "passes");
    check(effect_.pieces.size() + effect_.textures.size() + effect_.samplers.size(), Limits::declarations,
          "functions, types, constants, textures and samplers");
}

void EffectParser::parseGlobal()
{
    if (reader_.accept(";")) {
        return;
    }
    refuseForeign();
    if (reader_.isKeyword("technique")) {
        parseTechnique();
    } else if (reader_.isKeyword("texture") || reader_.isKeyword("texture2D")) {
        parseTexture();
    } else if (reader_.isKeyword("sampler") || reader_.isKeyword("sampler2D") ||
               reader_.isKeyword("sampler3D")) {
        parseSampler();
    } else if (reader_.peek().is("struct")) {
        parseStruct();
    } else if (reader_.peek().is("typedef")) {
        parseTypedef();
    } else if (reader_.isKeyword("string")) {
        parseText();
    } else if (reader_.peek().is("[")) {
        reader_.takeBracketed("an attribute"); // attributes of other compilers, such as [maxvertexcount]
    } else {
        parseDeclaration();
    }
}

void EffectParser::refuseForeign() const
{
    const Token& token = reader_.peek();
    if (token.kind == TokenKind::Unknown) {
        throw unknownToken(token);
    }
    for (const std::string_view word :
         {"technique10", "technique11",      "texture1D",        "texture3D",    "textureCUBE",
          "sampler1D",   "samplerCUBE",      "sampler_state",    "SamplerState", "SamplerComparisonState",
          "cbuffer",     "tbuffer",          "namespace",        "class",        "interface",
          "template",    "pixelshader",      "vertexshader",     "stateblock",   "compile",
          "pass",        "RenderTargetView", "DepthStencilView", "BlendState",   "Buffer",
          "RWTexture2D"}) {
        if (reader_.isKeyword(word)) {
            throw CompileError(token.at, inQuotes(token.text) +
                                             " is not part of the effect language here; it has techniques, "
                                             "2D textures and samplers");
        }
    }
}

EffectParser::Annotations EffectParser::parseAnnotations()
{
    Annotations annotations;
    if (!reader_.accept("<")) {
        return annotations;
    }
    while (!reader_.accept(">")) {
        if (reader_.atEnd()) {
            throw reader_.unexpected("'>'", "after the annotations");
        }
        EffectSyntax::Annotation annotation;
        annotation.type = reader_.expectName("the type of an annotation, or '>',");
        annotation.name = reader_.expectName("the name of an annotation");
        annotation.at = annotation.name.at;
        reader_.expect("=", "after the name of an annotation");
        const Tokens value = reader_.takeUntil(";>", "the value of an annotation");
        reader_.expect(";", "after the value of an annotation");
        if (value.empty()) {
            throw CompileError(annotation.at,
                               "annotation " + inQuotes(annotation.name.text) + " has no value");
        }
        for (const Token& token : value) {
            if (token.is("=")) {
                throw CompileError(token.at, "';' is missing after the value of annotation " +
                                                 inQuotes(annotation.name.text));
            }
            const bool text = token.kind == TokenKind::String;
            annotation.value += text ? token.text.substr(1, token.text.size() - 2) : token.text;
        }
        if (annotation.value.size() > Limits::textBytes) {
            throw CompileError(annotation.at, "the value of an annotation has " +
                                                  std::to_string(Limits::textBytes) + " characters at most");
        }
        annotations.push_back(std::move(annotation));
    }
    return annotations;
}

void EffectParser::parseTechnique()
{
    const Token keyword = reader_.take();
    EffectSyntax::Technique technique;
    technique.name = reader_.expectName("the name of the technique");
    const std::string context = "in technique " + inQuotes(technique.name.text);
    for (const EffectSyntax::Technique& other : effect_.techniques) {
        if (other.name.text == technique.name.text) {
            throw CompileError(technique.name.at,
                               "technique " + inQuotes(technique.name.text) + " is already declared");
        }
    }
    if (effect_.techniques.size() >= Limits::techniques) {
        throw CompileError(keyword.at,
                           "an effect has " + std::to_string(Limits::techniques) + " techniques at most");
    }
    technique.annotations = parseAnnotations();
    reader_.expect("{", context);
    while (!reader_.accept("}")) {
        if (!reader_.isKeyword("pass")) {
            throw reader_.unexpected("'pass' or '}'", context);
        }
        technique.passes.push_back(parsePass());
        ++passes_;
    }
    if (technique.passes.empty()) {
        throw CompileError(technique.name.at, "technique " + inQuotes(technique.name.text) + " has no pass");
    }
    effect_.techniques.push_back(std::move(technique));
}

EffectSyntax::Pass EffectParser::parsePass()
{
    EffectSyntax::Pass pass;
    pass.keyword = reader_.take();
    if (reader_.peek().kind == TokenKind::Identifier) {
        pass.name = reader_.expectName("the name of the pass");
    }
    parseAnnotations();
    reader_.expect("{", "after 'pass'");
    while (!reader_.accept("}")) {
        if (!reader_.accept(";")) {
            parseState(pass);
        }
    }
    if (pass.entry.kind == TokenKind::End) {
        throw CompileError(pass.keyword.at,
                           "the pass has no pixel shader; write PixelShader = compile ps_3_0 FUNCTION();");
    }
    return pass;
}

void EffectParser::parseState(EffectSyntax::Pass& pass)
{
    const Token name = reader_.expectName("a state such as PixelShader, or '}',");
    const std::string state = inQuotes(name.text);
    const bool indexed = reader_.peek().is("[");
    if (indexed) {
        reader_.takeBracketed("the index of a state");
    }
    reader_.expect("=", "after the state " + state);
    if (equalIgnoringCase(name.text, "PixelShader")) {
        parseCompile(pass);
        return;
    }
    const Tokens value = reader_.takeUntil(";", "the value of state " + state);
    reader_.expect(";", "after the state " + state);
    if (equalIgnoringCase(name.text, "VertexShader")) {
        if (value.size() != 1 || !equalIgnoringCase(value[0].text, "NULL")) {
            problems_.fail({name.at, "vertex shaders are not supported: a pass draws one rectangle; leave "
                                     "VertexShader out"});
        }
    } else if (indexed || !isRenderState(name.text)) {
        problems_.fail({name.at, "unknown state " + state + " in a pass" + likelyRenderState(name.text)});
    } else if (value.empty()) {
        problems_.fail({name.at, "the state " + state + " has no value"});
    }
}

void EffectParser::parseCompile(EffectSyntax::Pass& pass)
{
    if (pass.entry.kind != TokenKind::End) {
        throw CompileError(reader_.peek().at, "the pass has two pixel shaders");
    }
    if (!reader_.isKeyword("compile")) {
        throw reader_.unexpected("'compile ps_3_0 FUNCTION()'", "as the pixel shader");
    }
    reader_.take();
    const Token profile = reader_.expectName("the profile 'ps_3_0'");
    const std::array<std::string_view, 5> profiles{"ps_2_0", "ps_2_a", "ps_2_b", "ps_2_sw", "ps_3_0"};
    if (std::none_of(profiles.begin(), profiles.end(),
                     [&](std::string_view known) { return equalIgnoringCase(known, profile.text); })) {
        problems_.fail({profile.at, "unknown profile " + inQuotes(profile.text) + "; write ps_3_0"});
    }
    pass.entry = reader_.expectName("the function to compile");
    if (!reader_.peek().is("(")) {
        throw reader_.unexpected("'('", "after the function to compile");
    }
    const Token open = reader_.take();
    while (!reader_.peek().is(")")) {
        pass.arguments.push_back(
            checked(reader_.takeUntil(",)", "the arguments of the function to compile", &open)));
        if (pass.arguments.back().empty()) {
            throw CompileError(reader_.peek().at, "an argument is missing");
        }
        if (reader_.accept(",") && reader_.peek().is(")")) {
            throw CompileError(reader_.peek().at, "an argument is missing");
        }
    }
    reader_.expect(")", "after the arguments");
    reader_.expect(";", "after the pixel shader");
}

void EffectParser::parseTexture()
{
    reader_.take();
    do {
        EffectSyntax::Texture texture;
        texture.name = reader_.expectName("the name of the texture");
        claimName(texture.name);
        parseSemantic();
        texture.annotations = parseAnnotations();
        effect_.textures.push_back(std::move(texture));
    } while (reader_.accept(","));
    reader_.expect(";", "after the texture");
}

void EffectParser::parseSampler()
{
    EffectSyntax::Sampler sampler;
    sampler.dimensions = equalIgnoringCase(reader_.take().text, "sampler3D") ? 3 : 2;
    sampler.name = reader_.expectName("the name of the sampler");
    claimName(sampler.name);
    if (reader_.peek().is("[")) {
        throw CompileError(reader_.peek().at, "arrays of samplers are not supported");
    }
    parseSemantic();
    parseAnnotations();
    const std::string name = inQuotes(sampler.name.text);
    if (!reader_.peek().is("=") && !reader_.peek().is("{")) {
        throw reader_.unexpected("'= sampler_state { Texture = <NAME>; }'", "after sampler " + name);
    }
    if (reader_.accept("=")) {
        if (!reader_.isKeyword("sampler_state")) {
            throw reader_.unexpected("'sampler_state'", "after sampler " + name);
        }
        reader_.take();
    }
    reader_.expect("{", "after 'sampler_state'");
    const bool allKnown = parseSamplerState(sampler);
    reader_.expect(";", "after sampler " + name);
    if (sampler.texture.kind == TokenKind::End) {
        if (allKnown) {
            throw CompileError(sampler.name.at,
                               "sampler " + name + " has no texture; write Texture = <NAME>;");
        }
        effect_.complete = false; // one of the unknown states may be a mistyped Texture
    }
    effect_.samplers.push_back(std::move(sampler));
}

/// Returns whether all states are known.
bool EffectParser::parseSamplerState(EffectSyntax::Sampler& sampler)
{
    SamplerStates states;
    bool allKnown = true;
    while (!reader_.accept("}")) {
        if (reader_.accept(";")) {
            continue;
        }
        const Token name = reader_.expectName("a state of the sampler, or '}',");
        reader_.expect("=", "after the state " + inQuotes(name.text));
        if (equalIgnoringCase(name.text, "Texture")) {
            const std::string_view close = reader_.accept("<") ? ">" : reader_.accept("(") ? ")" : "";
            sampler.texture = reader_.expectName("the name of a texture");
            if (!close.empty()) {
                reader_.expect(close, "after the name of the texture");
            }
        } else {
            const Tokens value = reader_.takeUntil(";}", "the value of state " + inQuotes(name.text));
            try {
                states.set(name, value, problems_);
            } catch (const CompileError& error) {
                problems_.fail(error); // the next state can be read
                allKnown = false;
            }
        }
        if (!reader_.peek().is("}")) {
            reader_.expect(";", "after the state " + inQuotes(name.text));
        }
    }
    states.apply(sampler, problems_);
    return allKnown;
}

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
        const Qualifiers qualifiers = parseQualifiers();
        const EffectSyntax::Type type = parseType();
        do {
            EffectSyntax::Member member;
            member.type = type;
            member.name = reader_.expectName("the name of a member");
            checkName(member.name);
            const Tokens dimensions = parseDimensions();
            member.array = !dimensions.empty();
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
    effect_.pieces.push_back(std::move(piece));
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
    effect_.pieces.push_back(std::move(piece));
}

void EffectParser::parseText()
{
    // Strings outside annotations are for other programs; shaders cannot use them.
    reader_.take();
    claimName(reader_.expectName("the name of the text"));
    parseSemantic();
    parseAnnotations();
    if (reader_.accept("=")) {
        reader_.takeUntil(";", "the text");
    }
    reader_.expect(";", "after the text");
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
    type.sampler = equalIgnoringCase(name.text, "sampler") || equalIgnoringCase(name.text, "sampler2D") ||
                   equalIgnoringCase(name.text, "sampler3D");
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

EffectParser::Tokens EffectParser::parseDimensions()
{
    Tokens dimensions;
    while (reader_.peek().is("[")) {
        append(dimensions, reader_.takeBracketed("the size of an array"));
    }
    return checked(dimensions);
}

std::optional<Token> EffectParser::parseSemantic()
{
    std::optional<Token> semantic;
    while (reader_.accept(":")) {
        const Token name = reader_.expectName("a semantic");
        const bool place = isOneOf(name.text, {"register", "packoffset"});
        if (reader_.peek().is("(") && place) {
            reader_.takeBracketed("the register");
        } else {
            semantic = name;
        }
    }
    return semantic;
}

void EffectParser::parseDeclaration()
{
    const Qualifiers qualifiers = parseQualifiers();
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
    checkName(name);
    piece.name = name;
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
        piece.function.parameters.push_back(parseFunctionParameter(piece));
        if (piece.function.parameters.size() > Limits::functionParameters) {
            throw CompileError(piece.function.parameters.back().name.at,
                               "a function has " + std::to_string(Limits::functionParameters) +
                                   " parameters at most");
        }
    }
    piece.text.push_back(reader_.take());
    piece.function.semantic = parseSemantic();
    parseBody(piece);
    effect_.pieces.push_back(std::move(piece));
}

EffectSyntax::FunctionParameter EffectParser::parseFunctionParameter(EffectSyntax::Piece& piece)
{
    EffectSyntax::FunctionParameter parameter;
    const Qualifiers qualifiers = parseQualifiers();
    parameter.uniform = qualifiers.isUniform;
    parameter.output = qualifiers.isOut;
    parameter.input = !qualifiers.isOut || qualifiers.isInOut;
    parameter.type = parseType();
    parameter.name = reader_.expectName("the name of a parameter of " + inQuotes(piece.name.text));
    checkName(parameter.name);
    const Tokens dimensions = parseDimensions();
    parameter.array = !dimensions.empty();
    parameter.semantic = parseSemantic();
    append(piece.text, qualifiers.kept);
    append(piece.text, parameter.type.tokens);
    piece.text.push_back(parameter.name);
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
    return parameter;
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
    append(piece.text, checked(reader_.takeBracketed("the body of " + inQuotes(piece.name.text))));
}

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

std::optional<ConstantValue> EffectParser::constantNamed(const Token& name) const
{
    const auto found = constants_.find(name.text);
    return found == constants_.end() ? std::nullopt : std::optional(found->second);
}

EffectParser::Tokens EffectParser::checked(const Tokens& tokens) const
{
    return checkedHlsl(tokens, [this](const Token& name) { return constantNamed(name); });
}

void EffectParser::claimName(const Token& name)
{
    checkName(name);
    if (!names_.insert(name.text).second) {
        throw CompileError(name.at, inQuotes(name.text) + " is already declared");
    }
}

void EffectParser::claimTypeName(const Token& name)
{
    checkName(name);
    typeNames_.insert(name.text);
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
