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

bool isNull(const std::vector<Token>& value)
{
    return value.size() == 1 && (equalIgnoringCase(value[0].text, "NULL") || value[0].is("0"));
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
    std::vector<Token> withoutShader;
    reader_.expect("{", context);
    while (!reader_.accept("}")) {
        if (reader_.accept(";")) {
            continue;
        }
        if (!reader_.isKeyword("pass")) {
            throw reader_.unexpected("'pass' or '}'", context);
        }
        EffectSyntax::Pass pass = parsePass();
        if (pass.shader) {
            technique.passes.push_back(std::move(pass));
        } else {
            withoutShader.push_back(pass.keyword);
        }
        ++passes_;
    }
    for (const Token& pass : withoutShader) {
        leftOut_.emplace_back(pass.at, "the pass has no pixel shader and is left out" +
                                           (technique.passes.empty()
                                                ? ", and so is technique " + inQuotes(technique.name.text)
                                                : std::string()));
    }
    if (technique.passes.empty() && withoutShader.empty()) {
        throw CompileError(technique.name.at, "technique " + inQuotes(technique.name.text) + " has no pass");
    }
    if (!technique.passes.empty()) {
        effect_.techniques.push_back(std::move(technique));
    }
}

/// Nothing is drawn without a shader. It is an error only if that is all there is.
void EffectParser::tellOfPassesLeftOut()
{
    for (const CompileError& each : leftOut_) {
        if (effect_.techniques.empty()) {
            problems_.fail(
                {each.at(), "the pass has no pixel shader; write PixelShader = compile ps_3_0 FUNCTION();"});
        } else {
            problems_.warn(each);
        }
    }
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
    const bool vertex = equalIgnoringCase(name.text, "VertexShader");
    if (vertex || equalIgnoringCase(name.text, "PixelShader")) {
        parseShaderOf(pass, vertex ? Stage::Vertex : Stage::Pixel);
        reader_.expect(";", vertex ? "after the vertex shader" : "after the pixel shader");
        return;
    }
    const Tokens value = reader_.takeUntil(";", "the value of state " + state);
    reader_.expect(";", "after the state " + state);
    if (equalIgnoringCase(name.text, "GeometryShader") && isNull(value)) {
        return;
    }
    if (equalIgnoringCase(name.text, "Texture") || equalIgnoringCase(name.text, "Sampler")) {
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
    if (name.is("SetPixelShader") || name.is("SetVertexShader")) {
        reader_.take();
        parseShaderOf(pass, name.is("SetVertexShader") ? Stage::Vertex : Stage::Pixel);
        reader_.expect(")",
                       name.is("SetVertexShader") ? "after the vertex shader" : "after the pixel shader");
    } else {
        const Tokens call = reader_.takeBracketed("the arguments of " + inQuotes(name.text));
        const Tokens value(call.begin() + 1, call.end() - 1);
        if (name.is("SetGeometryShader") || name.is("SetHullShader") || name.is("SetDomainShader") ||
            name.is("SetComputeShader")) {
            if (!isNull(value)) {
                problems_.fail({name.at, "only vertex and pixel shaders are supported: a pass draws one "
                                         "rectangle; leave " +
                                             std::string(name.text) + " out"});
            }
        } else if (!setsState(name.text)) {
            problems_.fail({name.at, "unknown function " + inQuotes(name.text) + " in a pass"});
        }
    }
    reader_.expect(";", "after the call of " + inQuotes(name.text));
}

void EffectParser::parseShaderOf(EffectSyntax::Pass& pass, Stage stage)
{
    EffectSyntax::Shader& shader = stage == Stage::Vertex ? pass.vertex : pass.shader;
    if (shader) {
        throw CompileError(reader_.peek().at, stage == Stage::Vertex ? "the pass has two vertex shaders"
                                                                     : "the pass has two pixel shaders");
    }
    if (isNull({reader_.peek()})) {
        reader_.take();
    } else {
        shader = parseShader(stage);
    }
}

/// A compilation, or a variable that holds one, in brackets or not.
EffectSyntax::Shader EffectParser::parseShader(Stage stage)
{
    if (reader_.isKeyword("asm")) {
        throw CompileError(reader_.peek().at,
                           "shaders in assembly language ('asm') are not supported; write the "
                           "shader as a function, and compile that");
    }
    if (reader_.isKeyword("compile")) {
        reader_.take();
        return parseCompilation(stage);
    }
    if (reader_.peek().is("CompileShader")) {
        reader_.take();
        reader_.expect("(", "after 'CompileShader'");
        EffectSyntax::Shader shader = parseCompilation(stage);
        reader_.expect(")", "after the function to compile");
        return shader;
    }
    const std::string_view close = reader_.accept("<") ? ">" : reader_.accept("(") ? ")" : "";
    const ShaderVariables& variables = shaders_[stage];
    const auto variable = variables.find(reader_.peek().text);
    if (variable == variables.end()) {
        throw stage == Stage::Vertex
            ? reader_.unexpected("'compile vs_3_0 FUNCTION()'", "as the vertex shader")
            : reader_.unexpected("'compile ps_3_0 FUNCTION()'", "as the pixel shader");
    }
    const Token name = reader_.take();
    const std::size_t index = reader_.peek().is("[") ? parseShaderIndex(name) : 0;
    if (!close.empty()) {
        reader_.expect(close, "after the name of the shader");
    }
    if (variable->second.empty()) {
        throw CompileError(name.at, "the shader " + inQuotes(name.text) + " has the error above");
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
        parameter->choosesShader = true;
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
EffectSyntax::Shader EffectParser::parseCompilation(Stage stage)
{
    EffectSyntax::Shader shader;
    const std::string model(stage == Stage::Vertex ? "vs_" : "ps_");
    shader.profile = reader_.expectName("the profile " + inQuotes(model + "3_0"));
    // The language is the same for all; a file for an early one does not use what that lacks.
    static constexpr std::array<std::string_view, 16> profiles{
        "1_1", "1_2",  "1_3",           "1_4",           "2_0",           "2_a", "2_b", "2_sw",
        "3_0", "3_sw", "4_0_level_9_0", "4_0_level_9_1", "4_0_level_9_3", "4_0", "4_1", "5_0"};
    const std::string_view profile = shader.profile.text;
    const bool known = equalIgnoringCase(profile.substr(0, model.size()), model) &&
                       std::any_of(profiles.begin(), profiles.end(), [&](std::string_view each) {
                           return equalIgnoringCase(each, profile.substr(model.size()));
                       });
    const std::string other(stage == Stage::Vertex ? "ps_" : "vs_");
    if (equalIgnoringCase(profile.substr(0, other.size()), other)) {
        problems_.fail({shader.profile.at, inQuotes(profile) + " is a profile of " +
                                               (stage == Stage::Vertex ? "pixel" : "vertex") +
                                               " shaders; write " + model + "3_0"});
    } else if (!known) {
        problems_.fail(
            {shader.profile.at, "unknown profile " + inQuotes(profile) + "; write " + model + "3_0"});
    }
    reader_.accept(",");
    shader.entry = reader_.expectName("the function to compile");
    if (!reader_.peek().is("(")) {
        throw reader_.unexpected("'('", "after the function to compile");
    }
    const Token open = reader_.take();
    while (!reader_.peek().is(")")) {
        const Tokens argument = reader_.takeUntil(",)", "the arguments of the function to compile", &open);
        if (argument.empty()) {
            throw CompileError(reader_.peek().at, "an argument is missing");
        }
        const bool isArray = argument.size() == 1 && arrays_.count(argument[0].text) != 0;
        for (const Token& element : isArray ? arrays_[argument[0].text] : Tokens()) {
            shader.arguments.push_back({element});
            shader.arguments.back().front().at = argument[0].at;
        }
        if (!isArray) {
            shader.arguments.push_back(checked(argument));
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
    const Stage stage = equalIgnoringCase(reader_.take().text, "PixelShader") ? Stage::Pixel : Stage::Vertex;
    const Token name = reader_.expectName("the name of the shader");
    claimName(name);
    shaders_[stage][name.text] = {}; // after an error it is known, without shaders
    parseDimensions();
    parseSemantic();
    parseAnnotations();
    reader_.expect("=", "after the name of the shader");
    std::vector<EffectSyntax::Shader> shaders;
    if (reader_.accept("{")) {
        do {
            shaders.push_back(parseShader(stage));
        } while (reader_.accept(",") && !reader_.peek().is("}"));
        reader_.expect("}", "after the shaders");
    } else {
        shaders.push_back(parseShader(stage));
    }
    reader_.expect(";", "after the shader");
    shaders_[stage][name.text] = std::move(shaders);
}

} // namespace Qx::Host::Effects
