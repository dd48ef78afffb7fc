#include "host/effects/hlsl/EntryCall.h"

#include "host/core/Suggestion.h"
#include "host/effects/CompiledEffect.h"

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

constexpr std::string_view inputs = "TEXCOORD0 to TEXCOORD7, COLOR0, COLOR1, VPOS and VFACE";
/// The first components of a float4, as the vector.
std::string firstOf(const NumericType& vector, const std::string& four)
{
    constexpr std::array<std::string_view, 4> first{".x)", ".xy)", ".xyz)", ")"};
    return std::string(vector.spelling()) + '(' + four + std::string(first.at(vector.columns - 1));
}

} // namespace

EntryCall::EntryCall(const EffectSyntax& syntax, const EffectSyntax::Piece& entry,
                     const EffectSyntax::Pass& pass, const VertexCall* vertex)
    : ShaderCall(syntax, entry, pass.shader, vertex == nullptr ? 1 : 1 + vertex->missing().size()),
      vertex_(vertex),
      taken_(vertex == nullptr ? 0 : vertex->outputs().size())
{
    addReturned();
    addParameters();
    chooseColour(pass);
}

void EntryCall::addResult(const EffectSyntax::Type& type, const Token& name,
                          std::optional<std::uint32_t> /*elements*/, const std::optional<Token>& semantic,
                          const std::string& expression)
{
    const IndexedSemantic meaning(semantic ? semantic->text : std::string_view());
    const bool codes = meaning.is("COLORCODE");
    const bool colour = meaning.is("COLOR") || meaning.is("SV_Target") || (codes && meaning.index == 0);
    const bool depth = meaning.is("DEPTH") || meaning.is("SV_Depth");
    if ((!colour && !depth) || meaning.index >= CompiledEffect::Pass::results) {
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

/// The first is drawn, and so are those that have a target. What is dropped is said of the pass of the first.
void EntryCall::chooseColour(const EffectSyntax::Pass& pass)
{
    if (colours_.empty()) {
        throw CompileError(entry().name.at, inQuotes(entry().name.text) +
                                                " has no result; a pixel shader returns float4 : COLOR");
    }
    drawn_ = pass.result == 0 ? colours_.begin() : colours_.find(pass.result);
    for (auto other = std::next(colours_.begin()); other != colours_.end(); ++other) {
        if (pass.targets.at(other->first) == CompiledEffect::Pass::callersTarget) {
            dropped_.push_back(other->second.name);
        }
    }
    if (pass.result != 0) {
        dropped_.clear();
    }
}

std::set<std::size_t> EntryCall::results() const
{
    std::set<std::size_t> numbers;
    for (const auto& [number, colour] : colours_) {
        numbers.insert(number);
    }
    return numbers;
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

void EntryCall::refuseInOut(const EffectSyntax::FunctionParameter& parameter) const
{
    throw CompileError(parameter.name.at, "the parameter " + inQuotes(parameter.name.text) +
                                              " of a pixel shader cannot be inout");
}

std::string EntryCall::input(const EffectSyntax::Type& type, const Token& name,
                             const std::optional<Token>& semantic, std::size_t row)
{
    if (!semantic) {
        throw CompileError(name.at, "the input " + inQuotes(name.text) + " of pixel shader " +
                                        inQuotes(entry().name.text) +
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
    const std::string read =
        row == 0 ? std::string(semantic->text) : std::string(meaning.name) + std::to_string(meaning.index);
    if (const auto output = vertex_ != nullptr ? vertex_->outputNamed(meaning) : std::nullopt) {
        taken_[*output] = true;
        return firstOf(vector, "qxfx_vertex.of" + std::to_string(*output));
    }
    if (meaning.is("TEXCOORD") && vertex_ != nullptr) {
        return missingInput({semantic->at, "the pixel shader reads the input " + inQuotes(read) +
                                               ", which the vertex shader " + inQuotes(vertex_->name()) +
                                               " does not give"},
                            vector);
    }
    if (meaning.is("TEXCOORD") && meaning.index < CompiledEffect::SystemUniforms::maxTexCoords) {
        const std::string index = "qxfx_coordinates[" + std::to_string(meaning.index) + ']';
        return padded(vector, '(' + index + ".xy + (" + index + ".zw - " + index + ".xy) * qxfx_uv)");
    }
    if (meaning.is("VPOS")) {
        return padded(vector, "qxfx_texel");
    }
    if (meaning.is("SV_Position")) {
        return padded(vector, "qxfx_pixel");
    }
    if (meaning.is("VFACE") || meaning.is("SV_IsFrontFace") || (meaning.is("COLOR") && meaning.index == 0)) {
        return spread(vector, "1.0"); // a rectangle shows its front, and its colour is white
    }
    if (meaning.is("COLOR") && meaning.index == 1) {
        return spread(vector, "0.0"); // nothing is added to it
    }
    if (!isOfMesh(meaning.name)) {
        throw CompileError(semantic->at, "pixel shaders have no input " + inQuotes(semantic->text) +
                                             likelyInput(semantic->text) + "; there are " +
                                             std::string(inputs));
    }
    return missingInput({semantic->at, "the pixel shader reads the input " + inQuotes(read) +
                                           ", which comes from a mesh; there are " + std::string(inputs)},
                        vector);
}

void EntryCall::write(const std::vector<std::string>& first, const WriteLine& writeLine,
                      const WriteTokens& writeTokens) const
{
    writeMissing(writeLine);
    writeLine("float4 qxfx_colourAt(int2 qxfx_texel, float2 qxfx_pixel) {");
    writeLine("float2 qxfx_uv = qxfx_pixel * qxfx_area.zw;");
    for (const std::string& line : first) {
        writeLine(line);
    }
    writeCall(writeLine, writeTokens);
    writeLine("return " + drawn_->second.expression + "; }");
}

} // namespace Qx::Host::Effects
