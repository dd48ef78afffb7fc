#include "host/core/Printable.h"
#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/convert/Preset.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Json.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fmt/format.h>

namespace Qx::Program {

namespace {

constexpr const char* presetsFooter =
    R"(Lists the presets in the user's directory, then those that were installed with the program. 'convert
--preset' takes these names. A preset of one's own is a TOML file of convert's options; docs/qxhost.md
describes it.)";

struct PresetsOptions
{
    bool json = false;
};

Json describe(const std::filesystem::path& file)
{
    Json entry{{"name", file.stem().string()}, {"file", file.string()}};
    try {
        const Preset preset = readPreset(file);
        entry["about"] = preset.about;
        entry["options"] = Json::array();
        for (const Preset::Option& option : preset.options) {
            entry["options"].push_back(option.word);
        }
    } catch (const Failure& failure) {
        entry["reason"] = failure.what();
    }
    return entry;
}

std::string tableOf(const Json& presets)
{
    const std::string unreadable = "cannot be read";
    std::size_t name = 4;
    std::size_t about = 5;
    for (const Json& preset : presets) {
        name = std::max(name, preset["name"].get<std::string>().size());
        about = std::max(about, preset.value("about", unreadable).size());
    }
    std::string text = fmt::format("{:<{}}  {:<{}}  {}\n", "NAME", name, "ABOUT", about, "FILE");
    for (const Json& preset : presets) {
        text += fmt::format("{:<{}}  {:<{}}  {}\n", Host::printable(preset["name"].get<std::string>()), name,
                            Host::printable(preset.value("about", unreadable)), about,
                            Host::printable(preset["file"].get<std::string>()));
    }
    return text;
}

class PresetsCommand : public CommandWithOptions<PresetsOptions>
{
public:
    void addOptions(CLI::App& app) override
    {
        app.add_flag("--json", options_.json, "Print JSON");
        app.footer(presetsFooter);
    }

    ExitCode run(Console& console) override
    {
        Json presets = Json::array();
        for (const std::filesystem::path& file : listedPresets()) {
            presets.push_back(describe(file));
        }
        console.data(options_.json ? jsonText(presets) : tableOf(presets));
        for (const Json& preset : presets) {
            if (preset.contains("reason")) {
                console.note(preset["reason"].get<std::string>());
            }
        }
        return ExitCode::ok;
    }
};

const Registered<PresetsCommand> registeredPresets(
    {.name = "presets", .order = 15, .about = "List the presets that convert can be given by name"});

} // namespace

} // namespace Qx::Program
