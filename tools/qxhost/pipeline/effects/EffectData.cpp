#include "tools/qxhost/pipeline/effects/EffectData.h"

#include "host/effects/Supplies.h"
#include "host/effects/TextureSources.h"
#include "host/effects/framework/ParameterRange.h"
#include "tools/qxhost/pipeline/effects/EffectTextures.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace Qx::Program {

namespace {

using Host::CompiledEffect;
using Host::Diagnostic;

Json placeData(const Diagnostic::Place& place)
{
    return {{"file", place.file}, {"line", place.line}, {"column", place.column}};
}

Json diagnosticData(const Diagnostic& diagnostic)
{
    Json data{{"severity", diagnostic.severity == Diagnostic::Severity::Error ? "error" : "warning"}};
    data.update(placeData(diagnostic.at));
    data["text"] = diagnostic.text;
    if (!diagnostic.technique.empty()) {
        data["technique"] = diagnostic.technique;
        data["pass"] = diagnostic.pass;
        data["otherPasses"] = diagnostic.otherPasses;
    }
    if (!diagnostic.excerpt.empty()) {
        data["excerpt"] = diagnostic.excerpt;
        data["caret"] = diagnostic.caret;
    }
    if (!diagnostic.macro.empty()) {
        data["macro"] = {{"name", diagnostic.macro}, {"body", placeData(diagnostic.macroBody)}};
    }
    for (const Diagnostic::Place& place : diagnostic.includedFrom) {
        data["includedFrom"].push_back(placeData(place));
    }
    if (!diagnostic.notes.empty()) {
        data["notes"] = diagnostic.notes;
    }
    return data;
}

Json annotationsData(const std::vector<CompiledEffect::Annotation>& annotations)
{
    Json data = Json::array();
    for (const CompiledEffect::Annotation& annotation : annotations) {
        data.push_back({{"type", annotation.type}, {"name", annotation.name}, {"value", annotation.value}});
    }
    return data;
}

Json valuesData(const CompiledEffect::Parameter& parameter)
{
    Json data = Json::array();
    for (const double value : defaultOf(parameter)) {
        if (parameter.type == CompiledEffect::ScalarType::Float) {
            data.push_back(static_cast<float>(value));
        } else if (parameter.type == CompiledEffect::ScalarType::Bool) {
            data.push_back(value != 0);
        } else {
            data.push_back(static_cast<std::int64_t>(value));
        }
    }
    return data;
}

Json parameterData(const CompiledEffect::Parameter& parameter)
{
    const Host::ParameterRange range = Host::rangeOf(parameter);
    Json data{{"name", parameter.name}, {"type", typeOf(parameter)}};
    if (const std::string filled = filledWith(parameter); !filled.empty()) {
        data["filledWith"] = filled;
    } else {
        data["default"] = valuesData(parameter);
    }
    if (const std::string_view given = Host::meaningOf(Host::supplyOf(parameter)); !given.empty()) {
        data["given"] = given;
    }
    if (range.least) {
        data["minimum"] = *range.least;
    }
    if (range.most) {
        data["maximum"] = *range.most;
    }
    if (!range.label.empty()) {
        data["label"] = range.label;
    }
    if (!parameter.place.empty()) {
        data["register"] = parameter.place;
    }
    data["annotations"] = annotationsData(parameter.annotations);
    return data;
}

Json techniqueData(const CompiledEffect::Technique& technique, const CompiledEffect& effect)
{
    Json passes = Json::array();
    for (const CompiledEffect::Pass& pass : technique.passes) {
        Json samplers = Json::array();
        for (const std::uint32_t sampler : pass.samplers) {
            samplers.push_back(effect.samplers[sampler].name);
        }
        Json data{{"name", pass.name}, {"samplers", samplers}};
        if (pass.target != CompiledEffect::Pass::callersTarget) {
            data["target"] = effect.textures[pass.target].name;
        }
        if (pass.result != 0) {
            data["result"] = "COLOR" + std::to_string(pass.result);
        }
        passes.push_back(data);
    }
    const std::optional<std::size_t> picture = Host::pictureTexture(effect, technique);
    return {{"name", technique.name},
            {"passes", passes},
            {"picture", picture ? Json(effect.textures[*picture].name) : Json()},
            {"annotations", annotationsData(technique.annotations)}};
}

Json samplerData(const CompiledEffect::Sampler& sampler, const CompiledEffect& effect)
{
    Json data{{"name", sampler.name},
              {"texture", effect.textures[sampler.texture].name},
              {"filter", nameOf(sampler.filter)},
              {"mipFilter", nameOf(sampler.mip)},
              {"addressU", nameOf(sampler.addressU)},
              {"addressV", nameOf(sampler.addressV)}};
    if (const std::string place = registerOf(sampler); !place.empty()) {
        data["register"] = place;
    }
    return data;
}

} // namespace

Json diagnosticsData(const std::vector<Diagnostic>& diagnostics)
{
    Json data = Json::array();
    std::transform(diagnostics.begin(), diagnostics.end(), std::back_inserter(data), diagnosticData);
    return data;
}

Json effectData(const CompiledEffect& effect, const std::filesystem::path& file)
{
    Json data{{"techniques", Json::array()},
              {"parameters", Json::array()},
              {"textures", Json::array()},
              {"samplers", Json::array()}};
    for (const CompiledEffect::Technique& technique : effect.techniques) {
        data["techniques"].push_back(techniqueData(technique, effect));
    }
    for (const CompiledEffect::Parameter& parameter : effect.parameters) {
        data["parameters"].push_back(parameterData(parameter));
    }
    for (std::size_t i = 0; i < effect.textures.size(); ++i) {
        data["textures"].push_back({{"name", effect.textures[i].name},
                                    {"given", givenTo(effect, i, file)},
                                    {"annotations", annotationsData(effect.textures[i].annotations)}});
    }
    for (const CompiledEffect::Sampler& sampler : effect.samplers) {
        data["samplers"].push_back(samplerData(sampler, effect));
    }
    return data;
}

std::string typeOf(const CompiledEffect::Parameter& parameter)
{
    static constexpr std::array names{"float", "int", "bool"};
    std::string text = names.at(static_cast<std::size_t>(parameter.type));
    text += parameter.rows > 1 ? std::to_string(parameter.rows) + 'x' : "";
    text += parameter.rows > 1 || parameter.columns > 1 ? std::to_string(parameter.columns) : "";
    return parameter.elements == 0 ? text : text + '[' + std::to_string(parameter.elements) + ']';
}

std::vector<double> defaultOf(const CompiledEffect::Parameter& parameter)
{
    constexpr std::size_t rowStride = 16; // of matrices and arrays in the uniform buffer
    const std::size_t rows = std::size_t{parameter.rows} * std::max(parameter.elements, 1U);
    std::vector<double> values;
    for (std::size_t row = 0; row < rows; ++row) {
        for (std::size_t column = 0; column < parameter.columns; ++column) {
            const std::byte* const at = parameter.defaultValue.data() + row * rowStride + column * 4;
            if (parameter.type == CompiledEffect::ScalarType::Float) {
                float value = 0;
                std::memcpy(&value, at, sizeof value);
                values.push_back(value);
            } else {
                std::int32_t value = 0;
                std::memcpy(&value, at, sizeof value);
                values.push_back(value);
            }
        }
    }
    return values;
}

std::string filledWith(const CompiledEffect::Parameter& parameter)
{
    static constexpr std::array names{"",
                                      "size of texture ",
                                      "largest code of texture ",
                                      "size of the target",
                                      "largest code of the target",
                                      "1 on its diagonal",
                                      "chosen by its default"};
    return names.at(static_cast<std::size_t>(parameter.semantic)) + parameter.semanticTexture;
}

std::string registerOf(const CompiledEffect::Sampler& sampler)
{
    return sampler.registerIndex == CompiledEffect::Sampler::noRegister
               ? std::string()
               : 's' + std::to_string(sampler.registerIndex);
}

std::string nameOf(CompiledEffect::Filter filter)
{
    return filter == CompiledEffect::Filter::Point ? "Point" : "Linear";
}

std::string nameOf(CompiledEffect::Mip mip)
{
    static constexpr std::array names{"None", "Point", "Linear"};
    return names.at(static_cast<std::size_t>(mip));
}

std::string nameOf(CompiledEffect::Address address)
{
    static constexpr std::array names{"Clamp", "Wrap", "Mirror", "Border"};
    return names.at(static_cast<std::size_t>(address));
}

} // namespace Qx::Program
