#include "host/luts/LUTReader.h"
#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/pipeline/device/HostSession.h"
#include "tools/qxhost/pipeline/effects/EffectFile.h"
#include "tools/qxhost/pipeline/look/LookDecision.h"
#include "tools/qxhost/pipeline/look/LookFile.h"
#include "tools/qxhost/pipeline/look/LookMapping.h"
#include "tools/qxhost/pipeline/look/LookSteps.h"
#include "tools/qxhost/pipeline/look/LookTable.h"
#include "tools/qxhost/pipeline/output/SmallFile.h"

#include <algorithm>
#include <fmt/format.h>
#include <optional>

namespace Qx::Program {

namespace {

constexpr const char* exportFooter = R"(Examples:
  qxhost look export warm.look.toml warm.cube --size 33
      As a table, which other programs read too.
  qxhost look export warm.look.toml warm.cdl
      As slope, offset, power and saturation, where the look is no more than that.
  qxhost look export fade.look.toml fade.cube --frame 50
      As it is in frame 50, of a look with key frames.

A look can be exported if what it makes of a colour depends on that colour alone: not on its place, its
neighbours, the time, or other pictures. The colours that are tried also tell how far the file is off.
Exit codes: 0 done, 3 the look is missing or wrong, 4 output, 5 GPU device, 6 the look cannot be
exported, or what it names is missing.)";

struct LookExportOptions
{
    std::filesystem::path file;
    std::filesystem::path output;
    std::int64_t size = 33;
    std::optional<std::int64_t> frame; ///< of the key frames
    bool force = false;
    bool json = false;
    std::string device;
};

/// The ending without its dot, in lower case.
std::string formOf(const std::filesystem::path& output)
{
    const std::string ending = CLI::detail::to_lower(output.extension().string());
    return ending.empty() ? "" : ending.substr(1);
}

void refuseTimeCodes(const Look& look, const std::filesystem::path& file)
{
    for (const LookLink& link : look.links) {
        for (const LookParameter& parameter : link.parameters) {
            const auto byTimeCode = std::find_if(parameter.keys.begin(), parameter.keys.end(),
                                                 [](const KeyFrame& key) { return !key.timeCode.empty(); });
            if (link.on && byTimeCode != parameter.keys.end()) {
                throw Failure(
                    ExitCode::effect,
                    fmt::format("{}: {}: the key frame at {} is of a clip, which an export does not "
                                "have; give it by the number of a frame",
                                file.string(), parameter.name, byTimeCode->timeCode));
            }
        }
    }
}

/// The look as it is drawn, with the values of one frame.
Look drawnLook(const LookExportOptions& options)
{
    Look look = readLook(options.file);
    settleNames(look, options.file);
    if (options.frame) {
        refuseTimeCodes(look, options.file);
        look = frozenAt(look, *options.frame);
    }
    return look;
}

std::shared_ptr<const Media::FileSet> filesOf(const Look& look, const std::filesystem::path& file)
{
    auto files = std::make_shared<Media::FileSet>();
    files->add(file);
    for (const LookLink& link : look.links) {
        files->add(link.kind == LookLink::Kind::lut ? std::filesystem::path(link.file)
                                                    : effectPath(link.file));
        for (const LookTexture& texture : link.textures) {
            files->add(texture.file);
        }
    }
    return files;
}

[[noreturn]] void refuseExport(const LookExportOptions& options, const std::string& obstacle,
                               const char* what)
{
    const bool hasKeys = obstacle.ends_with("has key frames");
    throw Failure(ExitCode::effect,
                  fmt::format("{}: {}: {}{}", options.file.string(), what, obstacle,
                              hasKeys ? "; --frame N exports what it is in that frame" : ""));
}

class LookExportCommand : public CommandWithOptions<LookExportOptions>
{
public:
    void addOptions(CLI::App& app) override
    {
        app.add_option("FILE", options_.file, "A look, a .look.toml file")->option_text(" ");
        app.add_option("OUTPUT", options_.output, "A .cube file, or for CDL a .cdl or .cc file")
            ->option_text(" ");
        const auto setSize = [this](const std::string& word) {
            options_.size = parseCount("--size", word, fewestTablePoints);
            if (options_.size > mostTablePoints) {
                throw invalidValue("--size", word,
                                   fmt::format("{} to {} points", fewestTablePoints, mostTablePoints));
            }
        };
        app.add_option_function<std::string>("--size", setSize,
                                             "Points of an edge of the table, 17 to 65. Default: 33")
            ->option_text("N");
        app.add_option_function<std::string>(
               "--frame",
               [this](const std::string& word) { options_.frame = parseCount("--frame", word, 0); },
               "The frame whose values are exported")
            ->option_text("N");
        app.add_flag("--force", options_.force, "Replace an existing file");
        app.add_flag("--json", options_.json, "Print what was done as JSON");
        addDevice(app, options_.device);
        app.footer(exportFooter);
    }

    void check(const CLI::App& app) override
    {
        requireValue(app, options_.file, "FILE");
        requireValue(app, options_.output, "OUTPUT");
        const std::string form = formOf(options_.output);
        if (form != "cube" && form != "cdl" && form != "cc") {
            complain(app, fmt::format("OUTPUT {}: expected a name that ends in .cube, .cdl or .cc",
                                      options_.output.string()));
        }
        if (form != "cube" && app.count("--size") > 0) {
            complain(app, "--size is for .cube files; a correction has no points");
        }
    }

    ExitCode run(Console& console) override
    {
        const HostSession host(options_.device, &console);
        const Look look = drawnLook(options_);
        const auto kept = filesOf(look, options_.file);
        checkWritable(options_.output, options_.force, kept);
        const MappingVerdict verdict = examineMapping(look, options_.file);
        if (!verdict.isMapping()) {
            refuseExport(options_, verdict.obstacle, "is no pure mapping of colours");
        }
        return formOf(options_.output) == "cube" ? writeTable(look, kept, console)
                                                 : writeDecision(look, kept, console);
    }

private:
    ExitCode writeTable(const Look& look, const std::shared_ptr<const Media::FileSet>& kept, Console& console)
    {
        const LookTable table = tableOf(look, static_cast<int>(options_.size));
        writeText(options_.output, cubeText(table, titleOf(look, options_.output)), options_.force, kept);
        const bool isCoarse = table.largestError() > 1.0 / 1023 && table.size < mostTablePoints;
        console.note(
            fmt::format("{}: a table of {} points an edge; of many colours between them, the worst is "
                        "off by {}{}",
                        options_.output.string(), table.size, Host::lutErrorInCodes(table.largestError()),
                        isCoarse ? "; --size 65 comes nearer" : ""));
        if (options_.json) {
            console.data(jsonText({{"output", options_.output.string()},
                                   {"points", table.size},
                                   {"largestError", table.largestError()},
                                   {"tetrahedralError", table.tetrahedralError},
                                   {"trilinearError", table.trilinearError}}));
        }
        return ExitCode::ok;
    }

    ExitCode writeDecision(const Look& look, const std::shared_ptr<const Media::FileSet>& kept,
                           Console& console)
    {
        const DecisionFit fit = decisionOf(look);
        if (!fit.obstacle.empty()) {
            refuseExport(options_, fit.obstacle, "is no CDL; export a .cube file instead");
        }
        writeText(options_.output,
                  Host::textOf(fit.decision, titleOf(look, options_.output), formOf(options_.output)),
                  options_.force, kept);
        console.note(fmt::format(
            "{}: slope {}, offset {}, power {}, saturation {}; of many colours, the worst "
            "is off by {} where programs clamp between the steps, and by {} where they "
            "do not",
            options_.output.string(), fmt::join(fit.decision.slope, " "), fmt::join(fit.decision.offset, " "),
            fmt::join(fit.decision.power, " "), fit.decision.saturation,
            Host::lutErrorInCodes(fit.clampedError), Host::lutErrorInCodes(fit.unclampedError)));
        if (options_.json) {
            console.data(jsonText({{"output", options_.output.string()},
                                   {"slope", fit.decision.slope},
                                   {"offset", fit.decision.offset},
                                   {"power", fit.decision.power},
                                   {"saturation", fit.decision.saturation},
                                   {"clampedError", fit.clampedError},
                                   {"unclampedError", fit.unclampedError}}));
        }
        return ExitCode::ok;
    }
};

const Registered<LookExportCommand> registeredLookExport({.name = "look export",
                                                          .order = 20,
                                                          .about = "Make a .cube table or a CDL of a look"});

} // namespace

} // namespace Qx::Program
