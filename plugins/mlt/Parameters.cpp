#include "plugins/mlt/Parameters.h"

#include "host/core/Suggestion.h"
#include "host/effects/Supplies.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <optional>
#include <string_view>

namespace Qx::Mlt {

namespace {

using Host::CompiledEffect;
using Program::ParameterSetting;
using Parameter = CompiledEffect::Parameter;

/// Properties of MLT's own that may have the name of a parameter.
constexpr std::array reserved{
    "in",       "out",        "id",       "disable", "effect",  "technique", "lut",           "length",
    "position", "properties", "resource", "track",   "a_track", "b_track",   "always_active", "device"};

bool isReserved(std::string_view name)
{
    return std::find(reserved.begin(), reserved.end(), name) != reserved.end();
}

/// The property that holds the parameter; empty if none does.
std::string propertyOf(mlt_properties properties, const std::string& parameter)
{
    const std::string prefixed = "set." + parameter;
    if (mlt_properties_get(properties, prefixed.c_str()) != nullptr) {
        return prefixed;
    }
    const bool isThere =
        !isReserved(parameter) && mlt_properties_get(properties, parameter.c_str()) != nullptr;
    return isThere ? parameter : std::string();
}

/// Numbers with anything of " ,;:/x" between them, whatever the locale; empty if there is something else.
std::vector<float> numbersIn(std::string_view text)
{
    std::vector<float> numbers;
    const char* at = text.data();
    const char* const end = at + text.size();
    while (at != end) {
        if (std::string_view(" ,:/").find(*at) != std::string_view::npos) {
            ++at;
            continue;
        }
        float number = 0;
        const auto [stopped, error] = std::from_chars(at, end, number);
        if (error != std::errc() || !std::isfinite(number)) {
            return {};
        }
        numbers.push_back(number);
        at = stopped;
    }
    return numbers;
}

std::vector<float> colourAt(mlt_properties properties, const char* name, const Moment& moment,
                            std::size_t components)
{
    const mlt_color colour = mlt_properties_anim_get_color(properties, name, moment.position, moment.length);
    std::vector<float> values;
    for (const std::uint8_t code : {colour.r, colour.g, colour.b, colour.a}) {
        values.push_back(static_cast<float>(code) / 255.0F);
    }
    values.resize(components);
    return values;
}

std::vector<float> vectorAt(mlt_properties properties, const char* name, const Moment& moment,
                            std::size_t components)
{
    const mlt_rect rect = mlt_properties_anim_get_rect(properties, name, moment.position, moment.length);
    std::vector<float> values;
    for (const double component : {rect.x, rect.y, rect.w, rect.h}) {
        values.push_back(static_cast<float>(component));
    }
    values.resize(components);
    return values;
}

/// The value at that moment; empty if the text is none.
std::vector<float> valueAt(mlt_properties properties, const char* name, std::string_view text,
                           const Moment& moment, std::size_t components)
{
    if (text == "true" || text == "false") {
        return {text == "true" ? 1.0F : 0.0F};
    }
    const bool isAnimated = text.find('=') != std::string_view::npos;
    const bool isColour = (components == 3 || components == 4) && (text.find('#') != std::string_view::npos ||
                                                                   text.find("0x") != std::string_view::npos);
    if (isColour) {
        return colourAt(properties, name, moment, components);
    }
    if (!isAnimated) {
        std::vector<float> numbers = numbersIn(text);
        if (!numbers.empty()) {
            return numbers;
        }
    }
    if (components == 1 && (isAnimated || text.ends_with('%'))) {
        const double value = mlt_properties_anim_get_double(properties, name, moment.position, moment.length);
        return {static_cast<float>(value)};
    }
    if (isAnimated && components <= 4) {
        return vectorAt(properties, name, moment, components);
    }
    return {};
}

/// What MLT and its programs set on services, besides what begins with '_'.
bool isOfOthers(std::string_view name)
{
    constexpr std::array prefixes{"_",    "mlt_", "kdenlive", "shotcut",    "meta.", "texture.",
                                  "set.", "xml_", "filter",   "transition", "sox_"};
    return isReserved(name) || name.find(':') != std::string_view::npos ||
           std::any_of(prefixes.begin(), prefixes.end(),
                       [&](const char* prefix) { return name.starts_with(prefix); });
}

std::vector<std::string> settableNames(const CompiledEffect& effect)
{
    std::vector<std::string> names;
    for (const Parameter& parameter : effect.parameters) {
        if (parameter.semantic == CompiledEffect::Semantic::None) {
            names.push_back(parameter.name);
        }
    }
    return names;
}

} // namespace

std::size_t componentsOf(const Parameter& parameter)
{
    return std::size_t{parameter.rows} * parameter.columns * std::max<std::uint32_t>(parameter.elements, 1);
}

std::vector<ParameterSetting> settingsOf(mlt_properties properties, const CompiledEffect& effect,
                                         const Moment& moment, std::vector<std::string>& problems)
{
    std::vector<ParameterSetting> settings;
    for (const Parameter& parameter : effect.parameters) {
        const std::string property = propertyOf(properties, parameter.name);
        if (property.empty()) {
            continue;
        }
        const std::size_t components = componentsOf(parameter);
        const char* const text = mlt_properties_get(properties, property.c_str());
        std::vector<float> values = valueAt(properties, property.c_str(), text, moment, components);
        const bool isFinite =
            std::all_of(values.begin(), values.end(), [](float value) { return std::isfinite(value); });
        if (values.empty() || !isFinite || (values.size() != 1 && values.size() != components)) {
            problems.push_back(property + ": invalid value \"" + text + "\": expected " +
                               (components == 1 ? std::string("a number")
                                                : std::to_string(components) + " numbers, or one for all") +
                               ", or key frames of them");
            continue;
        }
        settings.push_back({parameter.name, std::move(values)});
    }
    return settings;
}

std::vector<std::string> likelyMistakes(mlt_properties properties, const CompiledEffect& effect,
                                        const std::vector<std::string>& known)
{
    std::vector<std::string> lines;
    const std::vector<std::string> names = settableNames(effect);
    for (int i = 0; i < mlt_properties_count(properties); ++i) {
        const std::string name = mlt_properties_get_name(properties, i);
        const bool isPrefixed = name.starts_with("set.");
        const std::string parameter = isPrefixed ? name.substr(4) : name;
        const auto isIn = [&](const std::vector<std::string>& list) {
            return std::find(list.begin(), list.end(), parameter) != list.end();
        };
        if (isIn(names) || (!isPrefixed && (isOfOthers(name) || isIn(known)))) {
            continue;
        }
        const std::string meant = Host::didYouMean(parameter, names);
        if (isPrefixed || !meant.empty()) {
            lines.push_back(name + ": the effect has no parameter \"" + parameter + "\"" + meant);
        }
    }
    return lines;
}

} // namespace Qx::Mlt
