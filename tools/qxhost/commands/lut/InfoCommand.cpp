#include "host/core/Printable.h"
#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/commands/lut/WithoutDevice.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/pipeline/effects/LutFile.h"

#include <algorithm>
#include <fmt/format.h>
#include <limits>

namespace Qx::Program {

namespace {

namespace fs = std::filesystem;

constexpr const char* footer =
    R"(Shows what a LUT file holds, the size and domain of its table, the error of a table that was made from
curves or matrices, and whether the catalogue lists the file.)";

struct InfoOptions
{
    fs::path file;
    bool json = false;
};

std::string tableText(const Host::LUTReading& reading)
{
    const std::string size = fmt::format("{0} x {0} x {0}", reading.table->getSize());
    return reading.facts.baked
               ? size + ", made from it with an error of at most " + errorInCodes(reading.facts.error)
               : size;
}

struct Extent
{
    float low = std::numeric_limits<float>::max();
    float high = std::numeric_limits<float>::lowest();
};

Extent extentOf(const iHostImage3D& table)
{
    Extent extent;
    const auto edge = static_cast<std::size_t>(table.getSize());
    for (std::size_t i = 0; i < 4 * edge * edge * edge; ++i) {
        if (i % 4 != 3) {
            extent.low = std::min(extent.low, table.getData()[i]);
            extent.high = std::max(extent.high, table.getData()[i]);
        }
    }
    return extent;
}

Json describe(const fs::path& file, const Host::LUTReading& reading)
{
    const Extent extent = extentOf(*reading.table);
    const TableDomain domain = reading.table->getDomain();
    const std::vector<fs::path> listed = listedLuts();
    Json info;
    info["file"] = file.string();
    info["title"] = reading.facts.title;
    info["contents"] = reading.facts.contents;
    info["size"] = reading.table->getSize();
    info["baked"] = reading.facts.baked;
    info["error"] = reading.facts.error;
    info["domain"]["min"] = domain.min;
    info["domain"]["max"] = domain.max;
    info["lowest"] = extent.low;
    info["highest"] = extent.high;
    info["remarks"] = reading.facts.remarks;
    info["listed"] = std::any_of(listed.begin(), listed.end(), [&](const fs::path& other) {
        std::error_code ignored;
        return fs::equivalent(other, file, ignored);
    });
    return info;
}

std::string listedText(const Json& info, const fs::path& file)
{
    if (info["listed"].get<bool>()) {
        return "yes; 'convert --lut " + file.filename().string() + "' finds it by its name";
    }
    const std::string reason = whyNotListed(file);
    return "no; " + (reason.empty() ? "'qxhost lut install' copies it to a LUT directory" : reason);
}

std::string domainText(const TableDomain& domain)
{
    const auto text = [](const std::array<float, 3>& c) {
        return c[0] == c[1] && c[1] == c[2] ? fmt::format("{}", c[0])
                                            : fmt::format("({}, {}, {})", c[0], c[1], c[2]);
    };
    return text(domain.min) + " to " + text(domain.max);
}

ExitCode info(const InfoOptions& options, Console& console)
{
    const WithoutDevice host(console);
    const fs::path file = lutPath(options.file.string());
    const Host::LUTReading reading = readLut(file.string());
    const Json described = describe(file, reading);
    if (options.json) {
        console.data(jsonText(described));
        return ExitCode::ok;
    }
    std::string text = Host::printable(file.string()) + "\n";
    const auto row = [&](const char* name, const std::string& value) {
        text += fmt::format("  {:<8} {}\n", name, value);
    };
    if (!reading.facts.title.empty()) {
        row("title", reading.facts.title);
    }
    row("holds", reading.facts.contents);
    row("table", tableText(reading));
    row("domain", domainText(reading.table->getDomain()) + "; colours outside are clamped to it");
    row("colours",
        fmt::format("{} to {}", described["lowest"].get<float>(), described["highest"].get<float>()));
    for (const std::string& remark : reading.facts.remarks) {
        row("remark", remark);
    }
    row("listed", Host::printable(listedText(described, file)));
    console.data(text);
    return ExitCode::ok;
}

class InfoCommand : public CommandWithOptions<InfoOptions>
{
public:
    void addOptions(CLI::App& app) override
    {
        app.add_option("FILE", options_.file, "A LUT file, or a name of 'qxhost lut list'")->option_text(" ");
        app.add_flag("--json", options_.json, "Print JSON");
        app.footer(footer);
    }

    void check(const CLI::App& app) override { requireValue(app, options_.file, "FILE"); }
    ExitCode run(Console& console) override { return info(options_, console); }
};

const Registered<InfoCommand>
    registered({.name = "lut info", .order = 30, .about = "Show what a LUT file holds"});

} // namespace

} // namespace Qx::Program
