#include "plugins/mlt/InstalledEffects.h"
#include "plugins/mlt/ModuleHost.h"
#include "plugins/mlt/Parameters.h"
#include "plugins/mlt/Services.h"

#include "host/effects/EffectCompilation.h"
#include "host/effects/Supplies.h"
#include "host/effects/framework/ParameterRange.h"
#include "host/gpu/GPUService.h"
#include "platform/Text.h"
#include "tools/qxhost/pipeline/effects/EffectData.h"

#include <climits>
#include <fmt/format.h>
#include <string>

namespace Qx::Mlt {

namespace {

using Host::CompiledEffect;
using Parameter = CompiledEffect::Parameter;

void destroyProperties(void* properties)
{
    mlt_properties_close(static_cast<mlt_properties>(properties));
}

void set(mlt_properties properties, const char* name, const std::string& value)
{
    mlt_properties_set_string(properties, name, value.c_str());
}

mlt_properties addChild(mlt_properties parent, const std::string& name)
{
    mlt_properties child = mlt_properties_new();
    mlt_properties_set_data(parent, name.c_str(), child, 0, destroyProperties, nullptr);
    return child;
}

/// MLT's type for a parameter's values.
const char* typeOf(const Parameter& parameter)
{
    const std::size_t components = componentsOf(parameter);
    if (components > 1) {
        return components <= 4 ? "rect" : "string";
    }
    switch (parameter.type) {
    case CompiledEffect::ScalarType::Bool:
        return "boolean";
    case CompiledEffect::ScalarType::Int:
        return "integer";
    case CompiledEffect::ScalarType::Float:
        break;
    }
    return "float";
}

std::string defaultText(const Parameter& parameter)
{
    std::string text;
    for (const double value : Program::defaultOf(parameter)) {
        text += (text.empty() ? "" : " ") + fmt::format("{}", static_cast<float>(value));
    }
    return text;
}

void describeParameter(mlt_properties list, const Parameter& parameter, int number)
{
    mlt_properties entry = addChild(list, std::to_string(number));
    const Host::ParameterRange range = Host::rangeOf(parameter);
    const bool isMoving = componentsOf(parameter) <= 4;
    set(entry, "identifier", parameter.name);
    set(entry, "title", range.label.empty() ? parameter.name : range.label);
    set(entry, "type", typeOf(parameter));
    set(entry, "default", defaultText(parameter));
    if (range.least) {
        set(entry, "minimum", fmt::format("{}", *range.least));
    }
    if (range.most) {
        set(entry, "maximum", fmt::format("{}", *range.most));
    }
    set(entry, "mutable", "yes");
    set(entry, "animation", isMoving ? "yes" : "no");
}

/// Parameters that nobody but the user sets.
bool isForUser(const Parameter& parameter)
{
    return parameter.semantic == CompiledEffect::Semantic::None &&
           Host::supplyOf(parameter) == Host::Supply::None;
}

void describeTechniques(mlt_properties list, const CompiledEffect& effect, int number)
{
    mlt_properties entry = addChild(list, std::to_string(number));
    set(entry, "identifier", "technique");
    set(entry, "title", "Technique");
    set(entry, "type", "string");
    set(entry, "default", effect.techniques.front().name);
    set(entry, "mutable", "yes");
    set(entry, "widget", "combo");
    mlt_properties values = addChild(entry, "values");
    for (std::size_t i = 0; i < effect.techniques.size(); ++i) {
        set(values, std::to_string(i).c_str(), effect.techniques[i].name);
    }
}

mlt_properties describe(const char* id, const std::string& file, const CompiledEffect& effect)
{
    mlt_properties description = mlt_properties_new();
    set(description, "schema_version", "7.0");
    set(description, "type", "filter");
    set(description, "identifier", id);
    set(description, "title", file);
    set(description, "version", "1");
    set(description, "language", "en");
    set(description, "description", "The effect " + file + ", which qx.effect draws.");
    mlt_properties tags = addChild(description, "tags");
    set(tags, "0", "Video");
    mlt_properties parameters = addChild(description, "parameters");
    int number = 0;
    for (const Parameter& parameter : effect.parameters) {
        if (isForUser(parameter)) {
            describeParameter(parameters, parameter, number++);
        }
    }
    describeTechniques(parameters, effect, number);
    return description;
}

} // namespace

mlt_properties describeEffect(mlt_service_type /*type*/, const char* id, void* /*data*/)
{
    try {
        const std::string file = std::string(std::string_view(id).substr(effectPrefix.size())) + ".fx";
        const auto installed = installedEffects();
        const auto found = installed.find(file.substr(0, file.rfind('.')));
        if (found == installed.end()) {
            return nullptr;
        }
        if (const std::string failure = startHost(); !failure.empty()) {
            mlt_log_warning(nullptr, "%s\n", failure.c_str());
            return nullptr;
        }
        const std::string path = found->second.string();
        const Host::EffectCompilation compilation = Host::gpuService().examineEffectFile(
            fromUTF8(LightweightString<char>(std::string_view(path))), {});
        if (!compilation.effect) {
            mlt_log_warning(nullptr, "%s: does not compile\n%s\n", path.c_str(),
                            compilation.messages.c_str());
            return nullptr;
        }
        return describe(id, file, *compilation.effect);
    } catch (const std::exception& error) {
        mlt_log_error(nullptr, "%s: %s\n", id, error.what());
        return nullptr;
    }
}

mlt_properties describeFromFile(mlt_service_type /*type*/, const char* /*id*/, void* data)
{
    const char* const directory = mlt_environment("MLT_DATA");
    const std::string file =
        std::string(directory != nullptr ? directory : "") + "/qx/" + static_cast<char*>(data);
    return mlt_properties_parse_yaml(file.c_str());
}

} // namespace Qx::Mlt
