#include "host/effects/hlsl/EntryCall.h"

#include "host/core/Suggestion.h"
#include "host/effects/CompiledEffect.h"
#include "host/effects/hlsl/HlslNames.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <tuple>

namespace Qx::Host::Effects {
namespace {

std::string likelyInput(std::string_view semantic)
{
    static constexpr std::array<std::string_view, 2> inputs{"TEXCOORD0", "VPOS"};
    return didYouMean(semantic, inputs);
}

/// What vertices have, and neither a rectangle nor its pixels.
bool isOfMesh(std::string_view semantic)
{
    static constexpr std::array<std::string_view, 16> names{
        "POSITION", "POSITIONT",    "NORMAL",      "TANGENT",      "BINORMAL", "BLENDWEIGHT",
        "PSIZE",    "BLENDINDICES", "TESSFACTOR",  "FOG",          "DEPTH",    "SAMPLE",
        "TEXCOORD", "COLOR",        "SV_VertexID", "SV_InstanceID"};
    return std::any_of(names.begin(), names.end(),
                       [&](std::string_view name) { return equalIgnoringCase(semantic, name); });
}

/// "TEXCOORD3" as its name and 3.
struct IndexedSemantic
{
    std::string_view name;
    std::size_t index = 0;

    explicit IndexedSemantic(std::string_view text) : name(text)
    {
        constexpr std::size_t most = 2; // digits
        std::size_t digits = 0;
        while (digits < std::min(most, text.size()) && isDigit(text[text.size() - 1 - digits])) {
            ++digits;
        }
        name.remove_suffix(digits);
        for (const char c : text.substr(name.size())) {
            index = index * 10 + static_cast<std::size_t>(c - '0');
        }
    }

    bool is(std::string_view word) const { return equalIgnoringCase(name, word); }

private:
    static bool isDigit(char c) { return c >= '0' && c <= '9'; }
};

constexpr std::string_view inputs = "TEXCOORD0 to TEXCOORD7, COLOR0, COLOR1, VPOS and VFACE";
constexpr std::uint32_t mostElements = 16; // of an array of inputs; there are 16 texture coordinates

std::string missingName(std::size_t number)
{
    return "qxfx_missing" + std::to_string(number);
}

/// The name of a type for the HLSL compiler.
std::string spellingOf(const EffectSyntax::Type& type)
{
    const bool plain = type.numeric && type.numeric->scalar != NumericType::Scalar::Other;
    return std::string(plain ? type.numeric->spelling() : hlslName(type.tokens[0].text));
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
    if (usedArguments_ < pass.shader.arguments.size()) {
        throw CompileError(pass.shader.entry.at,
                           inQuotes(pass.shader.entry.text) + " has " + std::to_string(usedArguments_) +
                               " uniform parameters; " + std::to_string(pass.shader.arguments.size()) +
                               " arguments are given");
    }
    chooseColour();
}

const EffectSyntax::Piece* EntryCall::structureNamed(const Token& name) const
{
    const auto found = std::find_if(syntax_.pieces.begin(), syntax_.pieces.end(), [&](const auto& piece) {
        return piece.kind == EffectSyntax::Piece::Kind::Struct && piece.name.text == name.text;
    });
    return found == syntax_.pieces.end() ? nullptr : &*found;
}

std::string EntryCall::newVariable(const EffectSyntax::Type& type, std::uint32_t elements)
{
    std::string name = "qxfx_value" + std::to_string(variables_++);
    before_.push_back(spellingOf(type) + ' ' + name +
                      (elements == 0 ? "" : '[' + std::to_string(elements) + ']') + ';');
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

/// A result, or a struct of results.
void EntryCall::addOutput(const EffectSyntax::Type& type, const Token& name,
                          const std::optional<Token>& semantic, const std::string& expression)
{
    const EffectSyntax::Piece* const structure = structureNamed(type.tokens[0]);
    if (structure == nullptr) {
        addResult(type, name, semantic, expression);
        return;
    }
    for (const EffectSyntax::Member& member : structure->members) {
        addResult(member.type, member.name, member.semantic,
                  expression + '.' + std::string(hlslName(member.name.text)));
    }
}

void EntryCall::addResult(const EffectSyntax::Type& type, const Token& name,
                          const std::optional<Token>& semantic, const std::string& expression)
{
    constexpr std::size_t targets = 4;
    const IndexedSemantic meaning(semantic ? semantic->text : std::string_view());
    const bool codes = meaning.is("COLORCODE");
    const bool colour = meaning.is("COLOR") || meaning.is("SV_Target") || (codes && meaning.index == 0);
    const bool depth = meaning.is("DEPTH") || meaning.is("SV_Depth");
    if ((!colour && !depth) || meaning.index >= targets) {
        throw CompileError(semantic ? semantic->at : name.at,
                           "the result " + inQuotes(name.text) + " of a pixel shader has the semantic COLOR" +
                               (semantic ? ", not " + inQuotes(semantic->text) : std::string()));
    }
    if (depth) {
        dropped_.push_back(name);
        return;
    }
    if (!type.numeric || type.numeric->rows != 1 || type.numeric->columns != 4 ||
        type.numeric->scalar != NumericType::Scalar::Float) {
        throw CompileError(name.at, "the colour " + inQuotes(name.text) + " is a float4, not " +
                                        inQuotes(type.tokens[0].text));
    }
    if (!colours_.emplace(meaning.index, Colour{name, expression, codes}).second) {
        throw CompileError(name.at, "a pixel shader has one colour for a target; " + inQuotes(name.text) +
                                        " is a second");
    }
}

/// The first is drawn.
void EntryCall::chooseColour()
{
    if (colours_.empty()) {
        throw CompileError(entry_.name.at, inQuotes(entry_.name.text) +
                                               " has no result; a pixel shader returns float4 : COLOR");
    }
    for (auto other = std::next(colours_.begin()); other != colours_.end(); ++other) {
        dropped_.push_back(other->second.name);
    }
}

std::vector<CompileError> EntryCall::warnings() const
{
    std::vector<CompileError> warnings;
    for (const Token& name : dropped_) {
        warnings.emplace_back(name.at, "the result " + inQuotes(name.text) +
                                           " is computed and dropped: a pass draws the first colour only");
    }
    std::sort(warnings.begin(), warnings.end(), [](const CompileError& a, const CompileError& b) {
        return std::tuple(a.at().file, a.at().line, a.at().column) <
               std::tuple(b.at().file, b.at().line, b.at().column);
    });
    return warnings;
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
    } else if (structureNamed(parameter.type.tokens[0]) != nullptr || parameter.elements ||
               (parameter.type.numeric && parameter.type.numeric->rows > 1)) {
        const std::string variable = newVariable(parameter.type, parameter.elements.value_or(0));
        addInput(parameter.type, parameter.name, parameter.elements, parameter.semantic, variable);
        arguments_.push_back({variable, nullptr});
    } else {
        arguments_.push_back({input(parameter.type, parameter.name, parameter.semantic, 0), nullptr});
    }
}

void EntryCall::addUniform(const EffectSyntax::FunctionParameter& parameter)
{
    if (usedArguments_ < pass_.shader.arguments.size()) {
        arguments_.push_back({{}, &pass_.shader.arguments[usedArguments_++]});
    } else if (!parameter.defaultValue.empty()) {
        arguments_.push_back({{}, &parameter.defaultValue});
    } else {
        throw CompileError(pass_.shader.entry.at, "no argument is given for the uniform parameter " +
                                                      inQuotes(parameter.name.text) + " of " +
                                                      inQuotes(pass_.shader.entry.text));
    }
}

/// Gives a variable, or each of its parts, its value.
void EntryCall::addInput(const EffectSyntax::Type& type, const Token& name,
                         std::optional<std::uint32_t> elements, const std::optional<Token>& semantic,
                         const std::string& variable)
{
    const EffectSyntax::Piece* const structure = structureNamed(type.tokens[0]);
    const std::uint32_t rows = type.numeric ? type.numeric->rows : 1;
    if (elements && (structure != nullptr || *elements == 0 || *elements > mostElements)) {
        throw CompileError(name.at, "the input " + inQuotes(name.text) + " is an array of 1 to " +
                                        std::to_string(mostElements) + " numbers or vectors");
    }
    if (structure != nullptr) {
        for (const EffectSyntax::Member& member : structure->members) {
            addInput(member.type, member.name, member.elements, member.semantic,
                     variable + '.' + std::string(hlslName(member.name.text)));
        }
        return;
    }
    for (std::uint32_t i = 0; i < elements.value_or(1) * rows; ++i) {
        std::string part = variable;
        if (elements) {
            part.append(1, '[').append(std::to_string(i / rows)).append(1, ']');
        }
        if (rows > 1) {
            part.append(1, '[').append(std::to_string(i % rows)).append(1, ']');
        }
        before_.push_back(part.append(" = ").append(input(type, name, semantic, i)).append(1, ';'));
    }
}

/// The value of an input, or of the row of it that lies `row` places after the first.
std::string EntryCall::input(const EffectSyntax::Type& type, const Token& name,
                             const std::optional<Token>& semantic, std::size_t row)
{
    if (!semantic) {
        throw CompileError(name.at, "the input " + inQuotes(name.text) + " of pixel shader " +
                                        inQuotes(entry_.name.text) +
                                        " has no semantic; write : TEXCOORD0, : VPOS "
                                        "or 'uniform' before its type");
    }
    if (!type.numeric || type.numeric->scalar == NumericType::Scalar::Other) {
        throw CompileError(name.at,
                           "the input " + inQuotes(name.text) + " is a float, float2, float3 or float4");
    }
    IndexedSemantic meaning(semantic->text);
    meaning.index += row;
    const NumericType vector{type.numeric->scalar, 1, type.numeric->columns};
    const std::string spelling(vector.spelling());
    const auto padded = [&](const std::string& pair) {
        constexpr std::array<std::string_view, 4> rest{".x)", ")", ", 0.0)", ", 0.0, 1.0)"};
        return spelling + '(' + pair + std::string(rest.at(vector.columns - 1));
    };
    if (meaning.is("TEXCOORD") && meaning.index < CompiledEffect::SystemUniforms::maxTexCoords) {
        const std::string index = "qxfx_coordinates[" + std::to_string(meaning.index) + ']';
        return padded('(' + index + ".xy + (" + index + ".zw - " + index + ".xy) * qxfx_uv)");
    }
    if (meaning.is("VPOS")) {
        return padded("qxfx_texel");
    }
    if (meaning.is("SV_Position")) {
        return padded("qxfx_pixel");
    }
    const auto spread = [&](std::string_view value) { return '(' + spelling + ')' + std::string(value); };
    if (meaning.is("VFACE") || meaning.is("SV_IsFrontFace") || (meaning.is("COLOR") && meaning.index == 0)) {
        return spread("1.0"); // a rectangle shows its front, and its colour is white
    }
    if (meaning.is("COLOR") && meaning.index == 1) {
        return spread("0.0"); // nothing is added to it
    }
    if (!isOfMesh(meaning.name)) {
        throw CompileError(semantic->at, "pixel shaders have no input " + inQuotes(semantic->text) +
                                             likelyInput(semantic->text) + "; there are " +
                                             std::string(inputs));
    }
    const std::string read =
        row == 0 ? std::string(semantic->text) : std::string(meaning.name) + std::to_string(meaning.index);
    missing_.emplace_back(semantic->at, "the pixel shader reads the input " + inQuotes(read) +
                                            ", which comes from a mesh; there are " + std::string(inputs));
    return spread(missingName(missing_.size()));
}

void EntryCall::write(const std::vector<std::string>& first,
                      const std::function<void(std::string_view)>& writeLine,
                      const std::function<void(const Tokens&)>& writeTokens) const
{
    for (std::size_t i = 1; i <= missing_.size(); ++i) {
        writeLine("[[vk::constant_id(" + std::to_string(i) + ")]] const float " + missingName(i) + " = 0.0;");
    }
    writeLine("float4 qxfx_colourAt(int2 qxfx_texel, float2 qxfx_pixel) {");
    writeLine("float2 qxfx_uv = qxfx_pixel * qxfx_area.zw;");
    for (const std::string& line : first) {
        writeLine(line);
    }
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
    writeLine("return " + colours_.begin()->second.expression + "; }");
}

} // namespace Qx::Host::Effects
