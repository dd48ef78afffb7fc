#include "host/effects/hlsl/EntryCall.h"

#include "host/core/Suggestion.h"
#include "host/effects/CompiledEffect.h"
#include "host/effects/hlsl/HlslNames.h"

#include <algorithm>
#include <array>

namespace Qx::Host::Effects {
namespace {

std::string likelyInput(std::string_view semantic)
{
    static constexpr std::array<std::string_view, 2> inputs{"TEXCOORD0", "VPOS"};
    constexpr std::string_view spelt = "TEXCOORD";
    return equalIgnoringCase(semantic.substr(0, spelt.size()), spelt) ? std::string()
                                                                      : didYouMean(semantic, inputs);
}

bool isColour(std::string_view semantic)
{
    return equalIgnoringCase(semantic, "COLOR") || equalIgnoringCase(semantic, "COLOR0") ||
           equalIgnoringCase(semantic, "SV_Target") || equalIgnoringCase(semantic, "SV_Target0");
}

bool isColourCode(std::string_view semantic)
{
    return equalIgnoringCase(semantic, "COLORCODE") || equalIgnoringCase(semantic, "COLORCODE0");
}

/// The i of TEXCOORDi; maxTexCoords or more for other semantics.
std::size_t coordinateOf(std::string_view semantic)
{
    constexpr std::string_view word = "TEXCOORD";
    constexpr std::size_t none = CompiledEffect::SystemUniforms::maxTexCoords;
    if (!equalIgnoringCase(semantic.substr(0, word.size()), word)) {
        return none;
    }
    const std::string_view number = semantic.substr(word.size());
    if (number.empty()) {
        return 0;
    }
    const bool digit = number.size() == 1 && number[0] >= '0' && number[0] <= '9';
    return digit ? static_cast<std::size_t>(number[0] - '0') : none;
}

/// The name of a type for the HLSL compiler.
std::string spellingOf(const EffectSyntax::Type& type)
{
    const bool plain = type.numeric && type.numeric->scalar != NumericType::Scalar::Other;
    return std::string(plain ? type.numeric->spelling() : type.tokens[0].text);
}

} // namespace

EntryCall::EntryCall(const EffectSyntax& syntax, const EffectSyntax::Piece& entry,
                     const EffectSyntax::Pass& pass)
    : syntax_(syntax), entry_(entry), pass_(pass)
{
    addResult();
    for (const EffectSyntax::FunctionParameter& parameter : entry.function.parameters) {
        addParameter(parameter);
    }
    if (usedArguments_ < pass.arguments.size()) {
        throw CompileError(pass.entry.at, inQuotes(pass.entry.text) + " has " +
                                              std::to_string(usedArguments_) + " uniform parameters; " +
                                              std::to_string(pass.arguments.size()) + " arguments are given");
    }
    if (colour_.empty()) {
        throw CompileError(entry.name.at, inQuotes(entry.name.text) +
                                              " has no result; a pixel shader returns float4 : COLOR");
    }
}

const EffectSyntax::Piece* EntryCall::structureNamed(const Token& name) const
{
    const auto found = std::find_if(syntax_.pieces.begin(), syntax_.pieces.end(), [&](const auto& piece) {
        return piece.kind == EffectSyntax::Piece::Kind::Struct && piece.name.text == name.text;
    });
    return found == syntax_.pieces.end() ? nullptr : &*found;
}

std::string EntryCall::newVariable(const EffectSyntax::Type& type)
{
    const std::string name = "qxfx_value" + std::to_string(variables_++);
    before_.push_back(spellingOf(type) + ' ' + name + ';');
    return name;
}

void EntryCall::addResult()
{
    const EffectSyntax::Function& function = entry_.function;
    const EffectSyntax::Type& type = function.result;
    if (type.tokens[0].is("void")) {
        return;
    }
    receiver_ = spellingOf(type) + " qxfx_result = ";
    addOutput(type, entry_.name, function.semantic, "qxfx_result");
}

/// The result is a colour, or a struct with one.
void EntryCall::addOutput(const EffectSyntax::Type& type, const Token& name,
                          const std::optional<Token>& semantic, const std::string& expression)
{
    const EffectSyntax::Piece* const structure = structureNamed(type.tokens[0]);
    if (structure == nullptr) {
        addColour(type, name, semantic, expression);
        return;
    }
    for (const EffectSyntax::Member& member : structure->members) {
        addColour(member.type, member.name, member.semantic,
                  expression + '.' + std::string(member.name.text));
    }
}

void EntryCall::addColour(const EffectSyntax::Type& type, const Token& name,
                          const std::optional<Token>& semantic, const std::string& expression)
{
    if (!semantic || !(isColour(semantic->text) || isColourCode(semantic->text))) {
        throw CompileError(semantic ? semantic->at : name.at,
                           "the result " + inQuotes(name.text) + " of a pixel shader has the semantic COLOR" +
                               (semantic ? ", not " + inQuotes(semantic->text) : std::string()));
    }
    if (!type.numeric || type.numeric->rows != 1 || type.numeric->columns != 4 ||
        type.numeric->scalar != NumericType::Scalar::Float) {
        throw CompileError(name.at, "the colour " + inQuotes(name.text) + " is a float4, not " +
                                        inQuotes(type.tokens[0].text));
    }
    if (!colour_.empty()) {
        throw CompileError(name.at, "a pixel shader has one colour; " + inQuotes(name.text) + " is a second");
    }
    colour_ = expression;
    givesCodes_ = isColourCode(semantic->text);
}

void EntryCall::addParameter(const EffectSyntax::FunctionParameter& parameter)
{
    if (parameter.uniform) {
        addUniform(parameter);
    } else if (parameter.output) {
        if (parameter.input) {
            throw CompileError(parameter.name.at, "the parameter " + inQuotes(parameter.name.text) +
                                                      " of a pixel shader cannot be inout");
        }
        const std::string variable = newVariable(parameter.type);
        addOutput(parameter.type, parameter.name, parameter.semantic, variable);
        arguments_.push_back({variable, nullptr});
    } else if (const EffectSyntax::Piece* structure = structureNamed(parameter.type.tokens[0])) {
        addStructure(parameter, *structure);
    } else {
        arguments_.push_back(
            {input(parameter.type, parameter.name, parameter.array, parameter.semantic), nullptr});
    }
}

void EntryCall::addUniform(const EffectSyntax::FunctionParameter& parameter)
{
    if (usedArguments_ < pass_.arguments.size()) {
        arguments_.push_back({{}, &pass_.arguments[usedArguments_++]});
    } else if (!parameter.defaultValue.empty()) {
        arguments_.push_back({{}, &parameter.defaultValue});
    } else {
        throw CompileError(pass_.entry.at, "no argument is given for the uniform parameter " +
                                               inQuotes(parameter.name.text) + " of " +
                                               inQuotes(pass_.entry.text));
    }
}

void EntryCall::addStructure(const EffectSyntax::FunctionParameter& parameter,
                             const EffectSyntax::Piece& structure)
{
    const std::string variable = newVariable(parameter.type);
    for (const EffectSyntax::Member& member : structure.members) {
        before_.push_back(variable + '.' + std::string(member.name.text) + " = " +
                          input(member.type, member.name, member.array, member.semantic) + ';');
    }
    arguments_.push_back({variable, nullptr});
}

std::string EntryCall::input(const EffectSyntax::Type& type, const Token& name, bool array,
                             const std::optional<Token>& semantic) const
{
    if (!semantic) {
        throw CompileError(name.at, "the input " + inQuotes(name.text) + " of pixel shader " +
                                        inQuotes(entry_.name.text) +
                                        " has no semantic; write : TEXCOORD0, : VPOS "
                                        "or 'uniform' before its type");
    }
    const std::size_t coordinate = coordinateOf(semantic->text);
    const bool position = equalIgnoringCase(semantic->text, "VPOS");
    if (!position && coordinate >= CompiledEffect::SystemUniforms::maxTexCoords) {
        throw CompileError(semantic->at, "pixel shaders have no input " + inQuotes(semantic->text) +
                                             likelyInput(semantic->text) +
                                             "; there are TEXCOORD0 to TEXCOORD7 and VPOS");
    }
    if (!type.numeric || type.numeric->rows != 1 || array ||
        type.numeric->scalar == NumericType::Scalar::Other) {
        throw CompileError(name.at,
                           "the input " + inQuotes(name.text) + " is a float, float2, float3 or float4");
    }
    const std::string index = "qxfx_coordinates[" + std::to_string(coordinate) + ']';
    const std::string pair =
        position ? "qxfx_texel" : '(' + index + ".xy + (" + index + ".zw - " + index + ".xy) * qxfx_uv)";
    const std::string spelling(type.numeric->spelling());
    switch (type.numeric->columns) {
    case 1:
        return spelling + '(' + pair + ".x)";
    case 2:
        return spelling + '(' + pair + ')';
    case 3:
        return spelling + '(' + pair + ", 0.0)";
    default:
        return spelling + '(' + pair + ", 0.0, 1.0)";
    }
}

void EntryCall::write(const std::function<void(std::string_view)>& writeLine,
                      const std::function<void(const Tokens&)>& writeTokens) const
{
    writeLine("float4 qxfx_colourAt(int2 qxfx_texel, float2 qxfx_pixel) {");
    writeLine("float2 qxfx_uv = qxfx_pixel * qxfx_area.zw;");
    for (const std::string& line : before_) {
        writeLine(line);
    }
    writeLine(receiver_ + std::string(hlslName(entry_.name.text)) + '(');
    for (std::size_t i = 0; i < arguments_.size(); ++i) {
        if (i > 0) {
            writeLine(",");
        }
        if (arguments_[i].tokens != nullptr) {
            writeTokens(*arguments_[i].tokens);
        } else {
            writeLine(arguments_[i].text);
        }
    }
    writeLine(");");
    writeLine("return " + colour_ + "; }");
}

} // namespace Qx::Host::Effects
