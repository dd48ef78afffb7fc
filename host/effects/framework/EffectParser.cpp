// The top level of an effect, and what several kinds of declarations share.

#include "host/effects/framework/EffectParser.h"

#include "host/effects/framework/HlslChecks.h"
#include "host/effects/framework/Limits.h"
#include "host/effects/framework/ReservedWords.h"
#include "host/effects/framework/TokenLists.h"

namespace Qx::Host::Effects {
namespace {

bool isStateObject(std::string_view type)
{
    return isOneOf(type, {"BlendState", "DepthStencilState", "RasterizerState"});
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
    tellOfPassesLeftOut();
    completeSamplers();
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
    if (reader_.peek().is("[")) {
        reader_.takeBracketed("an attribute"); // attributes of other compilers, such as [maxvertexcount]
        return;
    }
    const Qualifiers qualifiers = parseQualifiers(); // they may come before every kind of declaration
    refuseForeign();
    const std::string_view word = reader_.peek().text;
    if (startsTechnique()) {
        parseTechnique();
    } else if (reader_.isKeyword("PixelShader") || reader_.isKeyword("VertexShader")) {
        parseShaderVariable();
    } else if (reader_.peek().is("cbuffer") || reader_.peek().is("tbuffer")) {
        parseBuffer();
    } else if (isStateObject(word)) {
        parseStateObject();
    } else if (isTextureType(word)) {
        parseTexture();
    } else if (SamplerType::named(word) || reader_.peek().is("SamplerState")) {
        parseSamplers();
    } else if (reader_.peek().is("struct")) {
        parseStruct();
    } else if (reader_.peek().is("typedef")) {
        parseTypedef();
    } else if (reader_.isKeyword("string")) {
        parseText();
    } else {
        parseDeclaration(qualifiers);
    }
}

/// The variables of a buffer are parameters like others.
void EffectParser::parseBuffer()
{
    reader_.take();
    if (reader_.peek().kind == TokenKind::Identifier) {
        reader_.take();
    }
    parseSemantic();
    reader_.expect("{", "before the parameters of a buffer");
    while (!reader_.accept("}")) {
        if (startsTechnique() || reader_.peek().is("struct")) {
            throw reader_.unexpected("'}'", "after the parameters of a buffer");
        }
        parseDeclaration(parseQualifiers());
    }
}

/// A variable such as "BlendState off { BlendEnable[0] = false; };", which passes may set without effect.
void EffectParser::parseStateObject()
{
    reader_.take();
    claimName(reader_.expectName("the name of the state"));
    if (reader_.peek().is("{")) {
        reader_.takeBracketed("the state");
    }
    reader_.expect(";", "after the state");
}

void EffectParser::refuseForeign() const
{
    const Token& token = reader_.peek();
    if (token.kind == TokenKind::Unknown) {
        throw unknownToken(token);
    }
    for (const std::string_view word :
         {"sampler_state", "SamplerComparisonState", "namespace", "class", "interface", "template",
          "stateblock", "compile", "pass", "RenderTargetView", "DepthStencilView", "Buffer", "RWTexture2D",
          "GeometryShader", "ComputeShader", "HullShader", "DomainShader"}) {
        if (reader_.isKeyword(word)) {
            throw CompileError(token.at, inQuotes(token.text) +
                                             " is not part of the effect language here; it has techniques, "
                                             "textures, samplers, parameters and functions");
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

EffectParser::Suffixes EffectParser::parseSuffixes()
{
    Suffixes suffixes;
    while (reader_.accept(":")) {
        const Token name = reader_.expectName("a semantic");
        const bool place = isOneOf(name.text, {"register", "packoffset"});
        if (reader_.peek().is("(") && place) {
            suffixes.place = reader_.takeBracketed("the register");
        } else {
            suffixes.semantic = name;
        }
    }
    return suffixes;
}

std::optional<ConstantValue> EffectParser::constantNamed(const Token& name) const
{
    const auto found = constants_.find(name.text);
    return found == constants_.end() ? std::nullopt : std::optional(found->second);
}

EffectParser::Tokens EffectParser::checked(const Tokens& tokens, double mostElements)
{
    return checkedHlsl(
        withoutArrays(tokens), [this](const Token& name) { return constantNamed(name); }, mostElements);
}

void EffectParser::claimName(const Token& name)
{
    refuseReservedName(name);
    if (!names_.insert(name.text).second) {
        throw CompileError(name.at, inQuotes(name.text) + " is already declared");
    }
}

void EffectParser::claimTypeName(const Token& name)
{
    refuseReservedName(name);
    typeNames_.insert(name.text);
}

} // namespace Qx::Host::Effects
