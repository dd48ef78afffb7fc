#include "tools/qxhost/studio/session/Controls.h"

#include "host/core/AsciiCase.h"
#include "host/effects/Supplies.h"
#include "host/effects/framework/AnnotationNumbers.h"
#include "host/effects/framework/ParameterRange.h"
#include "tools/qxhost/pipeline/effects/EffectData.h"
#include "tools/qxhost/pipeline/look/LookKeys.h"

#include <algorithm>
#include <initializer_list>
#include <string>
#include <string_view>

namespace Qx::Program::Studio {

namespace {

using Host::CompiledEffect;
using Parameter = CompiledEffect::Parameter;

/// The text of the first annotation with one of the names, whose case is ignored; empty without one.
std::string noteOf(const Parameter& parameter, std::initializer_list<std::string_view> names)
{
    for (const CompiledEffect::Annotation& annotation : parameter.annotations) {
        const std::string name = Host::asciiLower(annotation.name);
        if (std::find(names.begin(), names.end(), name) != names.end()) {
            return annotation.value;
        }
    }
    return {};
}

const char* typeName(const Parameter& parameter)
{
    switch (parameter.type) {
    case CompiledEffect::ScalarType::Int:
        return "int";
    case CompiledEffect::ScalarType::Bool:
        return "bool";
    case CompiledEffect::ScalarType::Float:
        break;
    }
    return "float";
}

/// "Off;Soft;Hard" are 0, 1 and 2; "Half=0.5;Whole=1" say their values.
Json choicesIn(const std::string& text)
{
    Json choices = Json::array();
    std::size_t begin = 0;
    while (begin < text.size()) {
        const std::size_t end = std::min(text.find(';', begin), text.size());
        const std::string choice = text.substr(begin, end - begin);
        const std::size_t equals = choice.rfind('=');
        const std::vector<double> value = equals == std::string::npos
                                              ? std::vector<double>{}
                                              : Host::Effects::numbersIn(choice.substr(equals + 1));
        if (value.size() == 1) {
            choices.push_back({{"text", choice.substr(0, equals)}, {"value", value.front()}});
        } else if (!choice.empty()) {
            choices.push_back({{"text", choice}, {"value", choices.size()}});
        }
        begin = end + 1;
    }
    return choices;
}

bool speaksOfColour(const Parameter& parameter, const std::string& label)
{
    const std::string text = Host::asciiLower(parameter.name + " " + label);
    return text.find("colour") != std::string::npos || text.find("color") != std::string::npos ||
           text.find("tint") != std::string::npos;
}

std::string widgetOf(const Parameter& parameter, const std::string& label, const Json& choices)
{
    std::string widget = Host::asciiLower(noteOf(parameter, {"widget", "uiwidget"}));
    if (widget == "color") {
        widget = "colour";
    }
    for (const char* known : {"slider", "colour", "angle", "choice", "check", "curve", "wheel", "text"}) {
        if (widget == known && (widget != "choice" || !choices.empty())) {
            return widget;
        }
    }
    if (parameter.type == CompiledEffect::ScalarType::Bool) {
        return "check";
    }
    if (!choices.empty() && parameter.columns == 1) {
        return "choice";
    }
    if (parameter.elements > 0) {
        return "curve";
    }
    return parameter.columns >= 3 && speaksOfColour(parameter, label) ? "colour" : "slider";
}

Json repeated(const std::optional<double>& number, std::uint32_t times)
{
    return number ? Json(std::vector<double>(times, *number)) : Json();
}

Json keysOf(const LookParameter* set)
{
    Json keys = Json::array();
    if (set != nullptr) {
        for (const KeyFrame& key : set->keys) {
            keys.push_back(
                {{"frame", key.frame}, {"values", key.values}, {"curve", std::string(wordOf(key.curve))}});
        }
    }
    return keys;
}

/// The wheel that the parameter belongs to, with all parameters that do.
Json wheelOf(const CompiledEffect& effect, const Parameter& parameter)
{
    const std::string role = Host::asciiLower(noteOf(parameter, {"wheel", "uiwheel"}));
    if (role.empty()) {
        return {};
    }
    Json names = Json::array();
    for (const Parameter& each : effect.parameters) {
        if (Host::asciiLower(noteOf(each, {"wheel", "uiwheel"})) == role) {
            names.push_back(each.name);
        }
    }
    return {{"role", role}, {"of", names}};
}

Json controlOf(const CompiledEffect& effect, const Parameter& parameter, const LookLink& link,
               std::int64_t frame)
{
    const Host::ParameterRange range = Host::rangeOf(parameter);
    const std::string label = range.label.empty() ? parameter.name : range.label;
    const Json choices = choicesIn(noteOf(parameter, {"choices", "uichoices"}));
    const std::vector<double> step = Host::Effects::numbersIn(noteOf(parameter, {"step", "uistep"}));
    const std::string unit = noteOf(parameter, {"unit", "uiunit"});
    const LookParameter* const set = link.parameter(parameter.name);
    const std::uint32_t size = controlSize(parameter);
    Json control{{"name", parameter.name},
                 {"label", label},
                 {"group", noteOf(parameter, {"group", "uigroup"})},
                 {"type", typeName(parameter)},
                 {"size", size}};
    control["default"] = defaultOf(parameter);
    std::vector<float> values = set != nullptr ? set->valuesAt(frame) : std::vector<float>{};
    if (values.size() == 1) {
        values.assign(size, values.front());
    }
    control["values"] = values.size() == size ? Json(values) : control["default"];
    control["minimum"] = repeated(range.least, size);
    control["maximum"] = repeated(range.most, size);
    control["step"] = step.size() == 1 && step.front() > 0 ? Json(step.front()) : Json();
    control["unit"] = unit.empty() ? Json() : Json(unit);
    control["widget"] = widgetOf(parameter, label, choices);
    control["choices"] = choices;
    control["wheel"] = wheelOf(effect, parameter);
    control["keys"] = keysOf(set);
    return control;
}

} // namespace

std::uint32_t controlSize(const Parameter& parameter)
{
    return parameter.columns * std::max(parameter.elements, 1U);
}

bool isControl(const Parameter& parameter)
{
    constexpr std::uint32_t mostPoints = 16; // of a curve
    const bool fits = parameter.elements == 0 ? parameter.columns <= 4
                                              : parameter.columns == 1 && parameter.elements <= mostPoints;
    return parameter.semantic == CompiledEffect::Semantic::None && parameter.rows == 1 && fits &&
           Host::supplyOf(parameter) == Host::Supply::None;
}

Json controlsOf(const CompiledEffect& effect, const LookLink& link, std::int64_t frame)
{
    Json controls = Json::array();
    for (const Parameter& parameter : effect.parameters) {
        const bool isOfTable = link.kind == LookLink::Kind::lut && parameter.name != "amount";
        if (isControl(parameter) && !isOfTable) {
            controls.push_back(controlOf(effect, parameter, link, frame));
        }
    }
    return controls;
}

} // namespace Qx::Program::Studio
