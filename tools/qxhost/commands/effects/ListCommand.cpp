#include "QxFxResources/Manager.h"
#include "platform/Text.h"
#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/console/Wording.h"
#include "tools/qxhost/pipeline/device/HostSession.h"
#include "tools/qxhost/pipeline/device/HostText.h"
#include "tools/qxhost/pipeline/effects/EffectFile.h"

#include <algorithm>
#include <atomic>
#include <fmt/format.h>
#include <future>
#include <map>
#include <thread>

namespace Qx::Program {

namespace {

using FxResources::Manager;
using FxResources::ShaderEffectInfo;

struct EffectListOptions
{
    std::string device;
    bool json = false;
};

/// Describes an effect of the catalogue. Compiles it, unless the cache has it.
Json describe(const ShaderEffectInfo& info)
{
    const Qx::Ptr<iShaderEffect> effect = info.getShader();
    Json techniques = Json::array();
    Json drawable = Json::array();
    Json needs = Json::object();
    if (effect) {
        for (const TechniqueUse& use : techniqueUses(*effect, narrow(info.getFullPath()))) {
            techniques.push_back(use.name);
            if (use.needs.empty()) {
                drawable.push_back(use.name);
            } else {
                needs[use.name] = use.needs;
            }
        }
    }
    return {{"name", narrow(info.name)},
            {"directory", narrow(info.directory)},
            {"compiled", static_cast<bool>(effect)},
            {"techniques", techniques},
            {"drawable", drawable},
            {"needs", needs}};
}

/// All of them, in their order. Compiles several at a time.
Json describeAll(const Qx::Vector<ShaderEffectInfo>& effects, Console& console)
{
    std::vector<Json> described(effects.size());
    std::atomic<std::size_t> next{0};
    const auto describeSome = [&] {
        for (std::size_t i = next++; i < effects.size(); i = next++) {
            if (console.interactive()) {
                console.status(
                    fmt::format("Loading {} ({} of {})", narrow(effects[i].name), i + 1, effects.size()));
            }
            described[i] = describe(effects[i]);
        }
    };
    std::vector<std::future<void>> workers;
    for (unsigned i = 0; i < std::max(std::thread::hardware_concurrency(), 1U); ++i) {
        workers.push_back(std::async(std::launch::async, describeSome));
    }
    for (std::future<void>& worker : workers) {
        worker.get();
    }
    if (console.interactive()) {
        console.endStatus(false);
    }
    return described;
}

/// What `convert` needs beyond the effect: "--texture To=FILE", or for some of its techniques
/// "--texture Background=FILE for OverPicture".
std::string needsText(const Json& effect)
{
    std::map<std::string, std::vector<std::string>> techniquesByOption;
    for (const auto& [technique, options] : effect["needs"].items()) {
        for (const Json& option : options) {
            techniquesByOption[option].push_back(technique);
        }
    }
    std::vector<std::string> texts;
    for (const auto& [option, techniques] : techniquesByOption) {
        const bool all = techniques.size() == effect["techniques"].size();
        texts.push_back(all ? option : option + " for " + listed(techniques));
    }
    return fmt::format("{}", fmt::join(texts, ", "));
}

std::string effectTable(const Json& effects)
{
    std::vector<std::vector<std::string>> rows{
        {"NAME", "TECHNIQUES", "DRAWABLE", "STATE", "DIRECTORY", "CONVERT NEEDS"}};
    for (const Json& effect : effects) {
        const bool compiled = effect["compiled"].get<bool>();
        rows.push_back({effect["name"], compiled ? std::to_string(effect["techniques"].size()) : "-",
                        compiled ? std::to_string(effect["drawable"].size()) : "-",
                        compiled ? "ready" : "broken", effect["directory"], needsText(effect)});
    }
    return table(rows);
}

ExitCode list(const EffectListOptions& options, Console& console)
{
    const HostSession host(options.device, &console);
    const Json effects = describeAll(Manager::instance().effects(), console);
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
        app.footer(
            "DRAWABLE counts the techniques that 'qxhost convert --effect' draws as they are; CONVERT NEEDS "
            "says which\noptions the others need. Those of LUT.fx are for --lut. Effects are compiled unless "
            "they are in the cache\n('qxhost effects cache').");
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
