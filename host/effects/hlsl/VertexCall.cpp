#include "host/effects/hlsl/VertexCall.h"

#include "host/core/Suggestion.h"
#include "host/effects/CompiledEffect.h"
#include "host/effects/spirv/CornerForms.h"
#include "host/effects/spirv/CornerTrial.h"

#include <algorithm>
#include <array>
#include <initializer_list>

namespace Qx::Host::Effects {
namespace {

using Spirv::Form;

constexpr std::string_view corners = "a pass draws one rectangle, whose corners have POSITION, TEXCOORD0 to "
                                     "TEXCOORD7, COLOR0, COLOR1 and SV_VertexID";

bool isPosition(const IndexedSemantic& semantic)
{
    return semantic.index == 0 &&
           (semantic.is("POSITION") || semantic.is("POSITIONT") || semantic.is("SV_Position"));
}

/// What only vertices of a mesh have.
bool isOfMeshAlone(const IndexedSemantic& semantic)
{
    static constexpr std::array<std::string_view, 13> names{
        "NORMAL", "TANGENT",       "BINORMAL", "BLENDWEIGHT", "BLENDINDICES", "PSIZE",    "TESSFACTOR",
        "FOG",    "SV_InstanceID", "TEXCOORD", "COLOR",       "POSITION",     "POSITIONT"};
    return std::any_of(names.begin(), names.end(), [&](std::string_view name) { return semantic.is(name); });
}

/// A number or a vector as a float4, padded with 0 and 1.
std::string asFour(const std::string& value, std::uint32_t columns)
{
    constexpr std::array<std::string_view, 4> rest{", 0.0, 0.0, 1.0)", ", 0.0, 1.0)", ", 1.0)", ")"};
    return "float4(" + value + std::string(rest.at(columns - 1));
}

std::string textOf(std::initializer_list<std::string_view> parts)
{
    std::string text;
    for (const std::string_view part : parts) {
        text += part;
    }
    return text;
}

/// Direct3D 9 keeps colours between vertices and pixels from 0 to 1 in the profiles before vs_3_0.
bool clampsColours(const Token& profile)
{
    return equalIgnoringCase(profile.text.substr(0, 4), "vs_1") ||
           equalIgnoringCase(profile.text.substr(0, 4), "vs_2");
}

} // namespace

VertexCall::VertexCall(const EffectSyntax& syntax, const EffectSyntax::Piece& entry,
                       const EffectSyntax::Shader& shader)
    : ShaderCall(syntax, entry, shader, 1), shader_(shader)
{
    addReturned();
    addParameters();
    if (place_.empty()) {
        throw CompileError(entry.name.at, "the vertex shader " + inQuotes(entry.name.text) +
                                              " has no result with the semantic POSITION");
    }
}

std::optional<std::size_t> VertexCall::outputNamed(const IndexedSemantic& semantic) const
{
    const auto found = std::find_if(outputs_.begin(), outputs_.end(), [&](const Output& output) {
        return semantic.is(output.name) && semantic.index == output.index;
    });
    return found == outputs_.end() ? std::nullopt
                                   : std::optional(static_cast<std::size_t>(found - outputs_.begin()));
}

std::string VertexCall::input(const EffectSyntax::Type& type, const Token& name,
                              const std::optional<Token>& semantic, std::size_t row)
{
    if (!semantic) {
        throw CompileError(name.at, "the input " + inQuotes(name.text) + " of vertex shader " +
                                        inQuotes(entry().name.text) +
                                        " has no semantic; write : POSITION, : TEXCOORD0 or 'uniform' before "
                                        "its type");
    }
    IndexedSemantic meaning(semantic->text);
    meaning.index += row;
    if (meaning.is("SV_VertexID") && type.numeric) {
        numbered_ = true;
        return '(' + std::string(type.tokens[0].text) + ")qxfx_number";
    }
    if (!type.numeric || type.numeric->scalar == NumericType::Scalar::Other) {
        throw CompileError(name.at,
                           "the input " + inQuotes(name.text) + " is a float, float2, float3 or float4");
    }
    const NumericType vector{type.numeric->scalar, 1, type.numeric->columns};
    if (isPosition(meaning)) {
        constexpr std::array<std::string_view, 4> first{"x", "xy", "xyz", "xyzw"};
        return std::string(vector.spelling()) + "(qxfx_corner." + std::string(first.at(vector.columns - 1)) +
               ')';
    }
    if (meaning.is("TEXCOORD") && meaning.index < CompiledEffect::SystemUniforms::maxTexCoords) {
        return padded(vector, "(qxfx_coordinate(" + std::to_string(meaning.index) + ", qxfx_at))");
    }
    if (meaning.is("COLOR") && meaning.index < 2) {
        return spread(vector, meaning.index == 0 ? "1.0" : "0.0"); // as of a pixel without a vertex shader
    }
    if (!isOfMeshAlone(meaning)) {
        static constexpr std::array<std::string_view, 2> known{"POSITION", "TEXCOORD0"};
        throw CompileError(semantic->at, "vertex shaders have no input " + inQuotes(semantic->text) +
                                             didYouMean(semantic->text, known) + "; " + std::string(corners));
    }
    const std::string read =
        row == 0 ? std::string(semantic->text) : std::string(meaning.name) + std::to_string(meaning.index);
    return missingInput({semantic->at, "the vertex shader reads the input " + inQuotes(read) +
                                           ", which comes from a mesh; " + std::string(corners)},
                        vector);
}

void VertexCall::addResult(const EffectSyntax::Type& type, const Token& name,
                           std::optional<std::uint32_t> elements, const std::optional<Token>& semantic,
                           const std::string& expression)
{
    if (!semantic) {
        throw CompileError(name.at,
                           "the result " + inQuotes(name.text) +
                               " of a vertex shader has no semantic; write : POSITION or : TEXCOORD0");
    }
    if (!type.numeric) {
        throw CompileError(name.at,
                           "the result " + inQuotes(name.text) + " is a float, float2, float3 or float4");
    }
    const std::vector<std::string> parts = partsOf(type, name, elements, expression);
    for (std::size_t i = 0; i < parts.size(); ++i) {
        IndexedSemantic meaning(semantic->text);
        meaning.index += i;
        std::string value = asFour(parts[i], type.numeric->columns);
        if (isPosition(meaning)) {
            place_ = std::move(value);
            placeName_ = name;
            continue;
        }
        if (outputNamed(meaning)) {
            throw CompileError(semantic->at, "a vertex shader has one result " + inQuotes(semantic->text) +
                                                 "; " + inQuotes(name.text) + " is a second");
        }
        if (meaning.is("COLOR") && clampsColours(shader_.profile)) {
            value = textOf({"saturate(", value, ")"});
        }
        constexpr std::size_t mostOutputs = 32; // as Direct3D has it
        if (outputs_.size() == mostOutputs) {
            throw CompileError(name.at, "a vertex shader has " + std::to_string(mostOutputs) +
                                            " results at most, beside its position");
        }
        outputs_.push_back({meaning.name, meaning.index, std::move(value)});
    }
}

void VertexCall::writeFunction(const std::vector<std::string>& first, const WriteLine& writeLine,
                               const WriteTokens& writeTokens) const
{
    writeMissing(writeLine);
    writeLine("struct qxfx_Corner { float4 place;");
    for (std::size_t i = 0; i < outputs_.size(); ++i) {
        writeLine("float4 of" + std::to_string(i) + ';');
    }
    writeLine("};");
    writeLine("qxfx_Corner qxfx_cornerAt(float4 qxfx_corner, float2 qxfx_at, uint qxfx_number) {");
    for (const std::string& line : first) {
        writeLine(line);
    }
    writeCall(writeLine, writeTokens);
    writeLine("qxfx_Corner qxfx_made;");
    writeLine("qxfx_made.place = " + place_ + ';');
    for (std::size_t i = 0; i < outputs_.size(); ++i) {
        writeLine("qxfx_made.of" + std::to_string(i) + " = " + outputs_[i].value + ';');
    }
    writeLine("return qxfx_made; }");
}

void VertexCall::writeProbe(const WriteLine& writeLine) const
{
    writeLine("struct qxfx_Probe { float4 place : SV_Target0;");
    for (std::size_t i = 0; i < outputs_.size(); ++i) {
        writeLine("float4 of" + std::to_string(i) + " : SV_Target" + std::to_string(i + 1) + ';');
    }
    writeLine("};");
    writeLine("qxfx_Probe main(float4 qxfx_probe : TEXCOORD0) {");
    writeLine(
        textOf({"qxfx_Corner qxfx_vertex = qxfx_cornerAt(float4(qxfx_probe.xy, 0.0, 1.0), qxfx_probe.zw, ",
                numbered_ ? "uint(qxfx_probe.z + 2.0 * qxfx_probe.w));" : "0);"}));
    writeLine("qxfx_Probe qxfx_made; qxfx_made.place = qxfx_vertex.place;");
    for (std::size_t i = 0; i < outputs_.size(); ++i) {
        const std::string name = "of" + std::to_string(i);
        writeLine(textOf({"qxfx_made.", name, " = qxfx_vertex.", name, ";"}));
    }
    writeLine("return qxfx_made; }");
}

/// Says what would draw nothing.
void VertexCall::judge(const std::vector<std::uint32_t>& spirv, const std::vector<std::byte>& uniforms,
                       bool knowsSizes, VertexForm& form) const
{
    const std::string self = "the vertex shader " + inQuotes(name()) + ' ';
    constexpr unsigned drawn = 0b1011U; // z does not count
    const Spirv::CornerTrial trial = Spirv::tryCorners(spirv, uniforms);
    const auto unwritten = [&](unsigned components) {
        std::string letters;
        for (std::size_t c = 0; c < 4; ++c) {
            letters += (components >> c & 1U) != 0 ? std::string(1, "xyzw"[c]) : "";
        }
        return self + "does not write " + (letters == "xyzw" ? "" : letters + " of ") + "its position " +
               inQuotes(placeName_.text);
    };
    if ((trial.unwritten & drawn) != 0) {
        form.error.emplace(placeName_.at, unwritten(trial.unwritten) + "; give each component a value");
        return;
    }
    if ((trial.unwrittenInBranches & drawn) != 0) {
        form.warnings.emplace_back(placeName_.at, unwritten(trial.unwrittenInBranches) +
                                                      " in every branch; give each component a value first");
        return;
    }
    if (form.hasOnePlace) {
        form.error.emplace(shader_.entry.at,
                           self + "gives all corners of the rectangle that a pass draws the same "
                                  "position; techniques that draw a mesh cannot be used");
        return;
    }
    const std::uint32_t count = numbered_ ? 3 : 4;
    if (trial.readsParameters) {
        using Positions = CompiledEffect::Corners::Positions;
        form.corners = {std::string(name()), spirv, count,
                        knowsSizes ? Positions::MayBePixels : Positions::OfSpace};
    }
    const std::string complaint = complaintOf(trial, count, knowsSizes);
    if (complaint.empty()) {
        return;
    }
    if (trial.readsParameters) {
        form.warnings.emplace_back(shader_.entry.at,
                                   "with the values that its parameters begin with, " + self + complaint);
    } else {
        form.error.emplace(shader_.entry.at, self + complaint);
    }
}

VertexForm VertexCall::formOf(const std::vector<std::uint32_t>& spirv, const std::vector<std::byte>& uniforms,
                              bool knowsSizes) const
{
    VertexForm form;
    form.affine.resize(outputs_.size());
    const auto outputs = Spirv::outputForms(spirv);
    const auto place = outputs.find(0);
    if (spirv.empty()) {
        return form; // there is an error, which the pass's shader will show
    }
    if (place == outputs.end()) {
        judge(spirv, uniforms, knowsSizes, form); // nothing writes it: newer optimizers leave it out
        return form;
    }
    const auto& [x, y, z, w] = place->second;
    const auto isUniform = [](const Form& number) { return number.kind == Form::Kind::Uniform; };
    const auto isAffine = [](const Form& number) { return number.kind != Form::Kind::Other; };
    form.keepsPlace = !numbered_ && x.copiedInput == 0U && y.copiedInput == 1U && w.value == 1.0F;
    form.placeIsAffine = std::all_of(place->second.begin(), place->second.end(), isAffine);
    form.hasOnePlace = isUniform(x) && isUniform(y) && isUniform(w);
    for (std::size_t i = 0; i < outputs_.size(); ++i) {
        const auto found = outputs.find(static_cast<std::uint32_t>(i + 1));
        form.affine[i] = !numbered_ && found != outputs.end() &&
                         std::all_of(found->second.begin(), found->second.end(), isAffine);
        if (outputs_[i].index == 0 && equalIgnoringCase(outputs_[i].name, "TEXCOORD") && form.affine[i]) {
            form.keepsCoordinate = found->second[0].copiedInput == 2U && found->second[1].copiedInput == 3U;
        }
    }
    judge(spirv, uniforms, knowsSizes, form);
    return form;
}

void VertexCall::writeInterpolation(const VertexForm& form, const std::vector<bool>& used, bool knowsSizes,
                                    const std::vector<std::string>& texels, const WriteLine& writeLine) const
{
    const auto corner = [](std::string_view at, std::string_view number) {
        return "qxfx_cornerAt(qxfx_placeOf(" + std::string(at) + ", qxfx_pixels), " + std::string(at) + ", " +
               std::string(number) + ");";
    };
    const std::optional<std::size_t> coordinate = outputNamed(IndexedSemantic("TEXCOORD0"));
    const bool movesCoordinate = coordinate && !form.keepsCoordinate;
    const bool mayBeShifted = knowsSizes && (!form.keepsPlace || movesCoordinate);
    bool affine = true;
    for (std::size_t i = 0; i < used.size(); ++i) {
        affine = affine && (!used[i] || form.affine[i]);
    }
    const bool hasTriangles = !numbered_ && (!affine || !(form.keepsPlace || form.placeIsAffine));
    const auto writeCorners = [&](const std::string& type) {
        writeLine(type + "qxfx_c0 = " + corner("float2(0.0, 0.0)", "0"));
        writeLine(type + "qxfx_c1 = " + corner("float2(1.0, 0.0)", "1"));
        writeLine(type + "qxfx_c2 = " + corner("float2(0.0, 1.0)", "2"));
    };
    writeLine("float2 qxfx_pixels = 0.0;");
    if (!form.keepsPlace || !affine || mayBeShifted) {
        writeCorners("qxfx_Corner ");
    }
    if (knowsSizes && !form.keepsPlace && !numbered_) {
        writeLine("qxfx_pixels = qxfx_pixelsAcross(qxfx_c0.place, qxfx_c1.place, qxfx_c2.place);");
        writeCorners("");
    }
    if (hasTriangles) { // the second is (1, 0), (0, 1), (1, 1)
        writeLine("qxfx_Corner qxfx_c3 = " + corner("float2(1.0, 1.0)", "3"));
    }
    writeLine("float2 qxfx_at = qxfx_uv;");
    if (mayBeShifted) {
        writeLine("float2 qxfx_moved = qxfx_shareOf(qxfx_c0.place.xy / qxfx_c0.place.w);");
        std::string shifted = "qxfx_isHalf(-qxfx_moved / qxfx_area.zw)";
        const std::string origin = "qxfx_coordinate(0, float2(0.0, 0.0))";
        if (movesCoordinate) {
            writeLine("float2 qxfx_slid = qxfx_c0.of" + std::to_string(*coordinate) + ".xy - " + origin +
                      ';');
            shifted += " || qxfx_isHalf(qxfx_slid / (qxfx_coordinate(0, qxfx_area.zw) - " + origin + "))";
        }
        for (const std::string& texel : texels) { // half of them is as much of another size
            shifted += textOf({" || qxfx_isHalf(-qxfx_moved / ", texel, ")"});
            shifted += movesCoordinate ? textOf({" || qxfx_isHalf(qxfx_slid / ", texel, ")"}) : "";
        }
        writeLine("if (" + shifted + ") qxfx_at -= 0.5 * qxfx_area.zw;");
    }
    if (!form.keepsPlace) {
        writeLine("float2 qxfx_drawn = qxfx_at;");
        writeLine(
            "qxfx_at = qxfx_between(qxfx_c0.place, qxfx_c1.place, qxfx_c2.place, qxfx_drawn, qxfx_uv);");
    }
    if (!form.keepsPlace && hasTriangles) {
        writeLine(
            "if (qxfx_at.x + qxfx_at.y > 1.0) qxfx_at = 1.0 - qxfx_between(qxfx_c3.place, qxfx_c2.place, "
            "qxfx_c1.place, qxfx_drawn, 1.0 - qxfx_uv);");
    }
    if (!form.keepsPlace && !numbered_) {
        writeLine("qxfx_cover(qxfx_c0.place, qxfx_c1.place, qxfx_c2.place, qxfx_at);");
    }
    if (affine && !numbered_) {
        writeLine("qxfx_Corner qxfx_vertex = " + corner("qxfx_at", "0"));
        return;
    }
    writeLine("qxfx_Corner qxfx_vertex = qxfx_c0;");
    const auto writeTriangle = [&](std::string_view from, std::string_view x, std::string_view y) {
        for (std::size_t i = 0; i < used.size(); ++i) {
            const std::string of = ".of" + std::to_string(i);
            if (used[i]) {
                writeLine(textOf({"qxfx_vertex", of, " = ", from, of, " + (", x, of, " - ", from, of,
                                  ") * qxfx_along.x + (", y, of, " - ", from, of, ") * qxfx_along.y;"}));
            }
        }
    };
    writeLine("float2 qxfx_along = qxfx_at;");
    writeTriangle("qxfx_c0", "qxfx_c1", "qxfx_c2");
    if (hasTriangles) {
        writeLine("if (qxfx_at.x + qxfx_at.y > 1.0) { qxfx_along = 1.0 - qxfx_at;");
        writeTriangle("qxfx_c3", "qxfx_c2", "qxfx_c1");
        writeLine("}");
    }
}

} // namespace Qx::Host::Effects
