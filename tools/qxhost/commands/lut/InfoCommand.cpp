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

constexpr const char* infoFooter =
    R"(Shows what a LUT file holds, the steps that 'convert' draws it in, the largest difference of these from
OpenColorIO's result, and whether the catalogue lists the file.)";

struct InfoOptions
{
    fs::path file;
    bool json = false;
};

std::string colourText(const std::array<float, 3>& c)
{
    return c[0] == c[1] && c[1] == c[2] ? fmt::format("{}", c[0])
                                        : fmt::format("({}, {}, {})", c[0], c[1], c[2]);
}

std::string domainText(const TableDomain& domain)
{
    return colourText(domain.min) + " to " + colourText(domain.max);
}

std::string tableText(const iHostImage3D& table)
{
    return fmt::format("{0} x {0} x {0}", table.getSize());
}

/// A step for people, and for programs.
struct StepText
{
    std::string operator()(const Host::LUTCurves& curves) const
    {
        return fmt::format("curves of {} points from {}{}", curves.points.size(), domainText(curves.domain),
                           curves.keepsHue ? ", which keep the hue" : "");
    }
    std::string operator()(const Host::LUTMatrix& matrix) const
    {
        std::string text = "a matrix,";
        for (const auto& row : matrix.rows) {
            text += fmt::format(" [{:.6g} {:.6g} {:.6g} {:+.6g}]", row[0], row[1], row[2], row[3]);
        }
        return text;
    }
    std::string operator()(const Host::LUTTable& step) const
    {
        return fmt::format("a table of {} from {}, {}", tableText(*step.table),
                           domainText(step.table->getDomain()), step.trilinear ? "trilinear" : "tetrahedral");
    }
    std::string operator()(const Host::LUTInverse& inverse) const
    {
        const int edge = inverse.table->getSize() - 2;
        return fmt::format("the inverse of a table of {0} x {0} x {0}", edge);
    }
};

struct Extent
{
    float low = std::numeric_limits<float>::max();
    float high = std::numeric_limits<float>::lowest();

    void take(const float* colour)
    {
        low = std::min({low, colour[0], colour[1], colour[2]});
        high = std::max({high, colour[0], colour[1], colour[2]});
    }
};

/// The least and the largest number that comes out: of a single table its entries, else of many colours.
Extent extentOf(const Host::LUTSteps& steps)
{
    Extent extent;
    if (const Qx::Ptr<iHostImage3D> table = Host::singleTable(steps)) {
        const auto edge = static_cast<std::size_t>(table->getSize());
        for (std::size_t i = 0; i < edge * edge * edge; ++i) {
            extent.take(table->getData() + 4 * i);
        }
        return extent;
    }
    constexpr int colours = 17;
    for (int i = 0; i < colours * colours * colours; ++i) {
        const auto part = [](int at) { return static_cast<float>(at) / (colours - 1); };
        const auto colour =
            Host::apply(steps, {part(i % colours), part(i / colours % colours), part(i / colours / colours)});
        extent.take(colour.data());
    }
    return extent;
}

Json describe(const fs::path& file, const Host::LUTReading& reading)
{
    const Extent extent = extentOf(reading.steps);
    const std::vector<fs::path> listed = listedLuts();
    Json info;
    info["file"] = file.string();
    info["title"] = reading.facts.title;
    info["contents"] = reading.facts.contents;
    info["steps"] = Json::array();
    for (const Host::LUTStep& step : reading.steps) {
        info["steps"].push_back(std::visit(StepText(), step));
    }
    info["error"] = reading.error;
    if (const Qx::Ptr<iHostImage3D> table = Host::singleTable(reading.steps)) {
        const TableDomain domain = table->getDomain();
        info["size"] = table->getSize();
        info["domain"]["min"] = domain.min;
        info["domain"]["max"] = domain.max;
    }
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
    const char* name = "steps";
    for (const Json& step : described["steps"]) {
        row(name, step.get<std::string>());
        name = "";
    }
    row("error", reading.error == 0.0 ? "none" : "at most " + Host::lutErrorInCodes(reading.error));
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
        app.footer(infoFooter);
    }

    void check(const CLI::App& app) override { requireValue(app, options_.file, "FILE"); }
    ExitCode run(Console& console) override { return info(options_, console); }
};

const Registered<InfoCommand>
    registeredLutInfo({.name = "lut info", .order = 30, .about = "Show what a LUT file holds"});

} // namespace

} // namespace Qx::Program
