#include "QxFxResources/Manager.h"
#include "platform/Text.h"
#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/pipeline/device/HostSession.h"
#include "tools/qxhost/pipeline/device/HostText.h"
#include "tools/qxhost/pipeline/effects/EffectFile.h"

#include <algorithm>
#include <fmt/format.h>

namespace Qx::Program {

namespace {

using FxResources::Manager;
using FxResources::ShaderEffectInfo;

struct EffectListOptions
{
    std::string device;
    bool json = false;
};

/// Describes an effect of the catalogue. Compiles it.
Json describe(const ShaderEffectInfo& info)
{
    const Qx::Ptr<iShaderEffect> effect = info.getShader();
    Json techniques = Json::array();
    if (effect) {
        for (const LightweightString<char>& name : effect->getTechniqueNames()) {
            techniques.push_back(std::string(name.view()));
        }
    }
    return {{"name", narrow(info.name)},
            {"directory", narrow(info.directory)},
            {"compiled", static_cast<bool>(effect)},
            {"techniques", techniques},
            {"drawable",
             effect ? drawableTechniques(*effect, narrow(info.getFullPath())) : std::vector<std::string>()}};
}

std::string effectTable(const Json& effects)
{
    std::size_t widest = 4;
    for (const Json& effect : effects) {
        widest = std::max(widest, effect["name"].get<std::string>().size());
    }
    std::string text = fmt::format("{:<{}}  {:<10}  {:<8}  {:<8}  {}\n", "NAME", widest, "TECHNIQUES",
                                   "DRAWABLE", "STATE", "DIRECTORY");
    for (const Json& effect : effects) {
        const bool compiled = effect["compiled"].get<bool>();
        text += fmt::format("{:<{}}  {:<10}  {:<8}  {:<8}  {}\n", effect["name"].get<std::string>(), widest,
                            compiled ? std::to_string(effect["techniques"].size()) : "-",
                            compiled ? std::to_string(effect["drawable"].size()) : "-",
                            compiled ? "ready" : "broken", effect["directory"].get<std::string>());
    }
    return text;
}

ExitCode list(const EffectListOptions& options, Console& console)
{
    const HostSession host(options.device, &console);
    Json effects = Json::array();
    for (const ShaderEffectInfo& info : Manager::instance().effects()) {
        effects.push_back(describe(info));
    }
    tellComplaints(console); // such as that there are none
    console.data(options.json ? jsonText(effects) : effectTable(effects));
    const bool broken = std::any_of(effects.begin(), effects.end(),
                                    [](const Json& effect) { return !effect["compiled"].get<bool>(); });
    if (broken) {
        console.note("'qxhost effects check FILE' shows the errors of a broken effect");
    }
    return ExitCode::ok;
}

class EffectListCommand : public CommandWithOptions<EffectListOptions>
{
public:
    void addOptions(CLI::App& app) override
    {
        addDevice(app, options_.device);
        app.add_flag("--json", options_.json, "Print JSON");
        app.footer("DRAWABLE counts the techniques that 'qxhost convert --effect' draws as they are. The "
                   "others read "
                   "textures\nthat need --texture; those of LUT.fx are for --lut.");
    }

    ExitCode run(Console& console) override { return list(options_, console); }
};

const Registered<EffectListCommand> registeredEffectList(
    {.name = "effects list",
     .order = 10,
     .about = "List the effects that can be used by name",
     .examples =
         "  qxhost effects list                              the effects that can be used by name\n"});

} // namespace

} // namespace Qx::Program
