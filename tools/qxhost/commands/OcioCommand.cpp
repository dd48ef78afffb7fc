#include "host/luts/ColourSpaces.h"
#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/console/Wording.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <fmt/format.h>

namespace Qx::Program {

namespace {

constexpr const char* ocioFooter = R"(Lists what 'convert --ocio' takes:
  qxhost convert in.mov out.mov --ocio studio.ocio --from "log camera" --to scene_linear
  qxhost convert in.mov out.mov --ocio studio.ocio --from "log camera" --display sRGB --view Film)";

struct OcioOptions
{
    std::filesystem::path config;
    bool json = false;
};

Json describe(const Host::ColourSpaceList& list)
{
    Json described;
    described["description"] = list.description;
    described["spaces"] = Json::array();
    for (const Host::ColourSpaceList::Space& space : list.spaces) {
        described["spaces"].push_back(
            {{"name", space.name}, {"family", space.family}, {"description", space.description}});
    }
    described["roles"] = list.roles;
    described["displays"] = Json::array();
    for (const Host::ColourSpaceList::Display& display : list.displays) {
        described["displays"].push_back({{"name", display.name}, {"views", display.views}});
    }
    return described;
}

std::string textOf(const Host::ColourSpaceList& list)
{
    std::size_t name = 0;
    for (const Host::ColourSpaceList::Space& space : list.spaces) {
        name = std::max(name, space.name.size());
    }
    std::string text = "Colour spaces:\n";
    for (const Host::ColourSpaceList::Space& space : list.spaces) {
        std::string line = fmt::format("  {:<{}}  {}", space.name, name,
                                       space.description.empty() ? space.family : space.description);
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    text += "Roles:\n";
    for (const std::string& role : list.roles) {
        text += "  " + role + "\n";
    }
    text += "Displays and their views:\n";
    for (const Host::ColourSpaceList::Display& display : list.displays) {
        text += "  " + display.name + ": " + listed(display.views, "and") + "\n";
    }
    return text;
}

class OcioCommand : public CommandWithOptions<OcioOptions>
{
public:
    void addOptions(CLI::App& app) override
    {
        app.add_option("CONFIG", options_.config, "An OpenColorIO configuration, a .ocio file")
            ->option_text(" ");
        app.add_flag("--json", options_.json, "Print JSON");
        app.footer(ocioFooter);
    }

    void check(const CLI::App& app) override { requireValue(app, options_.config, "CONFIG"); }

    ExitCode run(Console& console) override
    {
        const Host::ColourSpaceList list = Host::listColourSpaces(options_.config);
        if (!list.failure.empty()) {
            throw Failure(ExitCode::input, list.failure);
        }
        console.data(options_.json ? jsonText(describe(list)) : textOf(list));
        return ExitCode::ok;
    }
};

const Registered<OcioCommand>
    registeredOcio({.name = "ocio",
                    .order = 65,
                    .about = "List the colour spaces and displays of an OpenColorIO configuration"});

} // namespace

} // namespace Qx::Program
