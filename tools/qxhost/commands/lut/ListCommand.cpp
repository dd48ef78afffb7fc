#include "host/core/Printable.h"
#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/lut/WithoutDevice.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/pipeline/effects/LutFile.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <fmt/format.h>

namespace Qx::Program {

namespace {

namespace fs = std::filesystem;

constexpr const char* lutListFooter =
    R"(Lists the LUT files in the user's LUT directory, then in the machine's. The ending must be that of a kind of
LUT, in lower case: Film.cube is listed, Film.CUBE is not. 'convert --lut' takes these names.)";

struct LutListOptions
{
    bool json = false;
};

Json describe(const fs::path& file)
{
    const Host::LUTReading reading = Host::readLUT(file);
    Json entry{{"name", file.filename().string()}, {"directory", file.parent_path().string()}};
    entry["readable"] = !reading.steps.empty();
    if (!reading.steps.empty()) {
        entry["contents"] = reading.facts.contents;
        entry["error"] = reading.error;
    } else {
        entry["reason"] = reading.failure;
    }
    return entry;
}

std::string listText(const Json& luts)
{
    std::size_t name = 4;
    std::size_t holds = 5;
    const auto contents = [](const Json& lut) {
        return lut["readable"].get<bool>() ? lut["contents"].get<std::string>() : "cannot be read";
    };
    for (const Json& lut : luts) {
        name = std::max(name, lut["name"].get<std::string>().size());
        holds = std::max(holds, contents(lut).size());
    }
    std::string text = fmt::format("{:<{}}  {:<{}}  {}\n", "NAME", name, "HOLDS", holds, "DIRECTORY");
    for (const Json& lut : luts) {
        text += fmt::format("{:<{}}  {:<{}}  {}\n", Host::printable(lut["name"].get<std::string>()), name,
                            contents(lut), holds, Host::printable(lut["directory"].get<std::string>()));
    }
    return text;
}

/// Tells why a file is not listed, where the user may not expect it.
void noteUnlisted(Console& console)
{
    for (const fs::path& directory : lutDirectories()) {
        std::error_code error;
        for (fs::directory_iterator at(directory, error); !error && at != fs::directory_iterator();
             at.increment(error)) {
            const std::string reason = whyNotListed(at->path());
            if (!reason.empty() && hasLutExtension(at->path())) {
                console.note(at->path().string() + " is not listed: " + reason);
            }
        }
    }
}

ExitCode list(const LutListOptions& options, Console& console)
{
    const WithoutDevice host(console);
    Json luts = Json::array();
    for (const fs::path& file : listedLuts()) {
        luts.push_back(describe(file));
    }
    if (options.json) {
        console.data(jsonText(luts));
    } else if (luts.empty()) {
        console.note("no LUTs are installed; 'qxhost lut install FILE' copies them to " +
                     lutDirectories().front().string());
    } else {
        console.data(listText(luts));
    }
    noteUnlisted(console);
    const bool broken =
        std::any_of(luts.begin(), luts.end(), [](const Json& lut) { return !lut["readable"].get<bool>(); });
    if (broken) {
        console.note("'qxhost lut info FILE' shows why a LUT cannot be read");
    }
    return ExitCode::ok;
}

class LutListCommand : public CommandWithOptions<LutListOptions>
{
public:
    void addOptions(CLI::App& app) override
    {
        app.add_flag("--json", options_.json, "Print JSON");
        app.footer(lutListFooter);
    }

    ExitCode run(Console& console) override { return list(options_, console); }
};

const Registered<LutListCommand>
    registeredLutList({.name = "lut list", .order = 10, .about = "List the LUTs that can be used by name"});

} // namespace

} // namespace Qx::Program
