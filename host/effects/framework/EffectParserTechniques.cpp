// Techniques and their passes.

#include "host/effects/framework/EffectParser.h"

#include "host/effects/framework/EffectStates.h"
#include "host/effects/framework/Limits.h"
#include "host/effects/framework/TokenLists.h"

#include <algorithm>
#include <array>

namespace Qx::Host::Effects {

namespace {

/// The functions of a Direct3D 10 pass that set what a filled rectangle does not need.
bool setsState(std::string_view function)
{
    static constexpr std::array<std::string_view, 3> functions{"SetBlendState", "SetDepthStencilState",
                                                               "SetRasterizerState"};
    return std::find(functions.begin(), functions.end(), function) != functions.end();
}

} // namespace

bool EffectParser::startsTechnique() const
{
    return reader_.isKeyword("technique") || reader_.isKeyword("technique10") ||
           reader_.isKeyword("technique11");
}

void EffectParser::parseTechnique()
{
    const Token keyword = reader_.take();
    EffectSyntax::Technique technique;
    const auto isTaken = [this](std::string_view name) {
        return std::any_of(effect_.techniques.begin(), effect_.techniques.end(),
                           [name](const auto& other) { return other.name.text == name; });
    };
    if (reader_.peek().is("{") || reader_.peek().is("<")) {
        std::string& name =
            effect_.texts.emplace_back("Technique" + std::to_string(effect_.techniques.size() + 1));
        while (isTaken(name)) {
            name += '_';
        }
        technique.name = keyword;
        technique.name.text = name;
    } else {
        technique.name = reader_.expectName("the name of the technique");
    }
    const std::string context = "in technique " + inQuotes(technique.name.text);
    if (isTaken(technique.name.text)) {
        throw CompileError(technique.name.at,
                           "technique " + inQuotes(technique.name.text) + " is already declared");
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
    pass.annotations = parseAnnotations();
    reader_.expect("{", "after 'pass'");
    while (!reader_.accept("}")) {
        if (!reader_.accept(";")) {
            parseState(pass);
        }
    }
    if (pass.shader.entry.kind == TokenKind::End) {
        throw CompileError(pass.keyword.at,
                           "the pass has no pixel shader; write PixelShader = compile ps_3_0 FUNCTION();");
    }
    return pass;
}

void EffectParser::parseState(EffectSyntax::Pass& pass)
{
    const Token name = reader_.expectName("a state such as PixelShader, or '}',");
    const std::string state = inQuotes(name.text);
    if (reader_.peek().is("(")) {
        parseStateCall(pass, name);
        return;
    }
    const bool indexed = reader_.peek().is("[");
    if (indexed) {
        reader_.takeBracketed("the index of a state");
    }
    reader_.expect("=", "after the state " + state);
    if (equalIgnoringCase(name.text, "PixelShader")) {
        parsePixelShader(pass);
        reader_.expect(";", "after the pixel shader");
        return;
    }
    const Tokens value = reader_.takeUntil(";", "the value of state " + state);
    reader_.expect(";", "after the state " + state);
    if (equalIgnoringCase(name.text, "VertexShader")) {
        refuseVertexShader(name, value);
    } else if (equalIgnoringCase(name.text, "Texture") || equalIgnoringCase(name.text, "Sampler")) {
        problems_.warn({name.at, "the state " + state +
                                     " of a pass is ignored; write the texture into the "
                                     "sampler_state of a sampler"});
    } else if (indexed ? !isNumberedState(name.text) : !isRenderState(name.text)) {
        problems_.fail({name.at, "unknown state " + state + " in a pass" + likelyRenderState(name.text)});
    } else if (value.empty()) {
        problems_.fail({name.at, "the state " + state + " has no value"});
    }
}

/// A state of Direct3D 10 is a call: "SetPixelShader(CompileShader(ps_4_0, f()));".
void EffectParser::parseStateCall(EffectSyntax::Pass& pass, const Token& name)
{
    if (name.is("SetPixelShader")) {
        reader_.take();
        parsePixelShader(pass);
        reader_.expect(")", "after the pixel shader");
    } else {
        const Tokens call = reader_.takeBracketed("the arguments of " + inQuotes(name.text));
        const Tokens value(call.begin() + 1, call.end() - 1);
        if (name.is("SetVertexShader") || name.is("SetGeometryShader")) {
            refuseVertexShader(name, value);
        } else if (!setsState(name.text)) {
            problems_.fail({name.at, "unknown function " + inQuotes(name.text) + " in a pass"});
        }
    }
    reader_.expect(";", "after the call of " + inQuotes(name.text));
}

void EffectParser::refuseVertexShader(const Token& name, const Tokens& value)
{
    if (value.size() != 1 || !equalIgnoringCase(value[0].text, "NULL")) {
        problems_.fail({name.at, "vertex shaders are not supported: a pass draws one rectangle; leave " +
                                     std::string(name.text) + " out"});
    }
}

void EffectParser::parsePixelShader(EffectSyntax::Pass& pass)
{
    if (pass.shader.entry.kind != TokenKind::End) {
        throw CompileError(reader_.peek().at, "the pass has two pixel shaders");
    }
    if (reader_.isKeyword("NULL")) {
        reader_.take();
    } else {
        pass.shader = parseShader();
    }
}

/// A compilation, or a variable that holds one, in brackets or not.
EffectSyntax::Shader EffectParser::parseShader()
{
    if (reader_.isKeyword("asm")) {
        throw CompileError(reader_.peek().at,
                           "shaders in assembly language ('asm') are not supported; write the "
                           "shader as a function, and compile that");
    }
    if (reader_.isKeyword("compile")) {
        reader_.take();
        return parseCompilation();
    }
    if (reader_.peek().is("CompileShader")) {
        reader_.take();
        reader_.expect("(", "after 'CompileShader'");
        EffectSyntax::Shader shader = parseCompilation();
        reader_.expect(")", "after the function to compile");
        return shader;
    }
    const std::string_view close = reader_.accept("<") ? ">" : reader_.accept("(") ? ")" : "";
    const auto variable = shaders_.find(reader_.peek().text);
    if (variable == shaders_.end()) {
        throw reader_.unexpected("'compile ps_3_0 FUNCTION()'", "as the pixel shader");
    }
    const Token name = reader_.take();
    const std::size_t index = reader_.peek().is("[") ? parseShaderIndex(name) : 0;
    if (!close.empty()) {
        reader_.expect(close, "after the name of the shader");
    }
    if (index >= variable->second.size()) {
        throw CompileError(name.at, "there is no shader number " + std::to_string(index) + " in " +
                                        inQuotes(name.text) + "; the last is number " +
                                        std::to_string(variable->second.size() - 1));
    }
    return variable->second[index];
}

/// A parameter counts with its default.
std::size_t EffectParser::parseShaderIndex(const Token& shaders)
{
    Tokens tokens = reader_.takeBracketed("the number of a shader");
    tokens.erase(tokens.begin());
    tokens.back() = endTokenAfter({tokens.begin(), tokens.end() - 1}, shaders.at);
    const auto valueOf = [&](const Token& name) -> std::optional<ConstantValue> {
        const auto parameter =
            std::find_if(effect_.parameters.begin(), effect_.parameters.end(),
                         [&](const auto& candidate) { return candidate.name.text == name.text; });
        if (parameter == effect_.parameters.end()) {
            return constantNamed(name);
        }
        problems_.warn({name.at, "the shader is chosen by the default of " + inQuotes(name.text) +
                                     ", whatever is set later"});
        return parameter->defaultValue.value_or(ConstantValue::ofInteger(0));
    };
    ConstantReader reader(tokens.data(), valueOf);
    const ConstantValue value = reader.readExpression();
    const double index = value.components[0];
    constexpr double most = Limits::passes;
    if (reader.position()->kind != TokenKind::End || value.components.size() != 1 || !(index >= 0.0) ||
        index > most) {
        throw CompileError(shaders.at, "the number of a shader of " + inQuotes(shaders.text) +
                                           " is a whole number from 0 on");
    }
    return static_cast<std::size_t>(index);
}

/// "ps_3_0 FUNCTION(ARGUMENTS)", with a comma after the profile in the form of Direct3D 10.
EffectSyntax::Shader EffectParser::parseCompilation()
{
    EffectSyntax::Shader shader;
    const Token profile = reader_.expectName("the profile 'ps_3_0'");
    // The language is the same for all; a file for an early one does not use what that lacks.
    static constexpr std::array<std::string_view, 16> profiles{
        "ps_1_1",           "ps_1_2",  "ps_1_3", "ps_1_4",  "ps_2_0",           "ps_2_a",
        "ps_2_b",           "ps_2_sw", "ps_3_0", "ps_3_sw", "ps_4_0_level_9_0", "ps_4_0_level_9_1",
        "ps_4_0_level_9_3", "ps_4_0",  "ps_4_1", "ps_5_0"};
    if (std::none_of(profiles.begin(), profiles.end(),
                     [&](std::string_view known) { return equalIgnoringCase(known, profile.text); })) {
        problems_.fail({profile.at, "unknown profile " + inQuotes(profile.text) + "; write ps_3_0"});
    }
    reader_.accept(",");
    shader.entry = reader_.expectName("the function to compile");
    if (!reader_.peek().is("(")) {
        throw reader_.unexpected("'('", "after the function to compile");
    }
    const Token open = reader_.take();
    while (!reader_.peek().is(")")) {
        shader.arguments.push_back(
            checked(reader_.takeUntil(",)", "the arguments of the function to compile", &open)));
        if (shader.arguments.back().empty()) {
            throw CompileError(reader_.peek().at, "an argument is missing");
        }
        if (reader_.accept(",") && reader_.peek().is(")")) {
            throw CompileError(reader_.peek().at, "an argument is missing");
        }
    }
    reader_.expect(")", "after the arguments");
    return shader;
}

/// "PixelShader shaders[2] = { compile ps_2_0 f(), compile ps_2_0 g() };"
void EffectParser::parseShaderVariable()
{
    const bool pixel = equalIgnoringCase(reader_.take().text, "PixelShader");
    const Token name = reader_.expectName("the name of the shader");
    claimName(name);
    parseDimensions();
    parseSemantic();
    parseAnnotations();
    reader_.expect("=", "after the name of the shader");
    if (!pixel) {
        reader_.takeUntil(";", "the shader"); // no pass can use it
    } else if (reader_.accept("{")) {
        do {
            shaders_[name.text].push_back(parseShader());
        } while (reader_.accept(",") && !reader_.peek().is("}"));
        reader_.expect("}", "after the shaders");
    } else {
        shaders_[name.text].push_back(parseShader());
    }
    reader_.expect(";", "after the shader");
}

} // namespace Qx::Host::Effects
