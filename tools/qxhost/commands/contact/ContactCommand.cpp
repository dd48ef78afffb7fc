#include "QxFxResources/Manager.h"
#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/commands/contact/ContactSheet.h"
#include "tools/qxhost/commands/convert/ConversionArguments.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/console/Wording.h"
#include "tools/qxhost/pipeline/device/HostSession.h"
#include "tools/qxhost/pipeline/device/HostText.h"
#include "tools/qxhost/pipeline/effects/EffectFile.h"
#include "tools/qxhost/pipeline/effects/LutFile.h"
#include "tools/qxhost/pipeline/output/PictureOutput.h"
#include "tools/qxhost/pipeline/output/SmallFile.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <string_view>

namespace Qx::Program {

namespace {

constexpr const char* contactFooter = R"(Examples:
  qxhost contact clip.mov effects.png
      The first frame through each effect of the catalogue and each installed LUT.
  qxhost contact clip.mov glows.png --start 100 --effect qx-glow.fx --effect my/glow.fx
      Another frame through each technique of these.
  qxhost contact clip.mov luts.png --lut film.cube --lut show.cube --columns 2 --size 480x270

Effects have their default values, and those of the catalogue their first technique. What needs more than
one picture is named below the pictures.)";

struct ContactOptions
{
    ConvertOptions conversion;
    ContactLayout layout;
    std::vector<std::string> effects; ///< as they are named; empty: the catalogue's
    std::vector<std::string> luts;
    bool json = false; ///< of the conversion, for failures
};

/// The catalogue's effects that conversions are made of, and nobody means by themselves.
constexpr std::array<std::string_view, 6> partsOfConversions{
    "Alpha.fx", "ColourConvert.fx", "ColourConvert2020.fx", "ColourConvert444.fx", "LUT.fx", "null.fx"};

/// What cannot be drawn, and why.
struct LeftOut
{
    std::string label;
    std::string why;
};

EffectRequest lutRequest(const std::string& lut)
{
    EffectRequest request;
    request.file = tableEffect;
    request.lut = lut;
    return request;
}

/// A named effect: a cell for each technique. Throws Failure (effect) if there is none of this name.
std::vector<EffectRequest> requestsOf(const std::string& effect)
{
    std::vector<EffectRequest> requests;
    const std::vector<TechniqueUse> uses = techniqueUses(*obtainEffect(effect), effectPath(effect));
    for (const TechniqueUse& use : uses) {
        EffectRequest request;
        request.file = effect;
        request.technique = uses.size() > 1 ? use.name : "";
        requests.push_back(request);
    }
    return requests;
}

std::vector<EffectRequest> namedRequests(const ContactOptions& options)
{
    std::vector<EffectRequest> requests;
    for (const std::string& effect : options.effects) {
        for (EffectRequest& request : requestsOf(effect)) {
            requests.push_back(std::move(request));
        }
    }
    for (const std::string& lut : options.luts) {
        static_cast<void>(obtainLut(lut)); // throws if there is none
        requests.push_back(lutRequest(lut));
    }
    return requests;
}

std::vector<EffectRequest> cataloguedRequests()
{
    std::vector<EffectRequest> requests;
    for (const FxResources::ShaderEffectInfo& info : FxResources::Manager::instance().effects()) {
        EffectRequest request;
        request.file = narrow(info.name);
        const bool isPart = std::find(partsOfConversions.begin(), partsOfConversions.end(), request.file) !=
                            partsOfConversions.end();
        if (!isPart) {
            requests.push_back(request);
        }
    }
    for (const std::filesystem::path& lut : listedLuts()) {
        requests.push_back(lutRequest(lut.string()));
    }
    return requests;
}

/// What an effect needs beyond one picture; empty if nothing.
std::string needsOf(const EffectRequest& request)
{
    if (!request.lut.empty()) {
        return {};
    }
    for (const TechniqueUse& use : techniqueUses(*obtainEffect(request.file), effectPath(request.file))) {
        if (request.technique.empty() || use.name == request.technique) {
            return listed(use.needs);
        }
    }
    return {};
}

/// A request's cell; or why there is none. A lost device ends everything.
void drawCell(const ContactDrawing& drawing, const EffectRequest& request, std::vector<ContactCell>& cells,
              std::vector<LeftOut>& leftOut)
{
    try {
        if (const std::string needs = needsOf(request); !needs.empty()) {
            leftOut.push_back(
                {labelOf(request), fmt::format("{}: needs more than the frame: 'qxhost convert' "
                                               "draws it with {}",
                                               labelOf(request), needs)});
            return;
        }
        cells.push_back({labelOf(request), drawing.draw({request})});
    } catch (const Failure& failure) {
        if (failure.code() != ExitCode::effect) {
            throw;
        }
        leftOut.push_back({labelOf(request), failure.what()});
    }
}

std::string lastLineOf(const std::vector<LeftOut>& leftOut)
{
    std::vector<std::string> labels;
    for (const LeftOut& each : leftOut) {
        labels.push_back(each.label);
    }
    return labels.empty() ? "" : "Not drawn: " + listed(labels);
}

std::shared_ptr<const Media::FileSet> filesRead(const ContactOptions& options,
                                                const std::vector<EffectRequest>& requests)
{
    auto files = std::make_shared<Media::FileSet>();
    files->add(options.conversion.input);
    for (const EffectRequest& request : requests) {
        files->add(request.lut.empty() ? effectPath(request.file) : lutPath(request.lut));
    }
    return files;
}

Json describe(const ContactOptions& options, const MemoryPicture& sheet,
              const std::vector<ContactCell>& cells, const std::vector<LeftOut>& leftOut)
{
    Json json{
        {"output", options.conversion.output.string()}, {"width", sheet.width}, {"height", sheet.height}};
    json["drawn"] = Json::array();
    for (const ContactCell& cell : cells) {
        json["drawn"].push_back(cell.label);
    }
    json["notDrawn"] = Json::array();
    for (const LeftOut& each : leftOut) {
        json["notDrawn"].push_back({{"name", each.label}, {"why", each.why}});
    }
    return json;
}

ExitCode contact(const ContactOptions& options, Console& console)
{
    const ConvertOptions& conversion = options.conversion;
    console.setQuiet(conversion.quiet);
    requireOnePicture(conversion.output, "a contact sheet");
    const HostSession host(conversion.device, &console);
    const bool isNamed = !options.effects.empty() || !options.luts.empty();
    const std::vector<EffectRequest> requests = isNamed ? namedRequests(options) : cataloguedRequests();
    const std::shared_ptr<const Media::FileSet> kept = filesRead(options, requests);
    checkWritable(conversion.output, conversion.force, kept);
    const ContactDrawing drawing(convertToMemory(conversion, console), options.layout);
    std::vector<ContactCell> cells{{"The frame itself", drawing.draw({})}};
    std::vector<LeftOut> leftOut;
    for (std::size_t i = 0; i < requests.size(); ++i) {
        if (console.interactive()) {
            console.status(
                fmt::format("Drawing {} ({} of {})", labelOf(requests[i]), i + 1, requests.size()));
        }
        drawCell(drawing, requests[i], cells, leftOut);
    }
    if (console.interactive()) {
        console.endStatus(false);
    }
    const std::string heading =
        conversion.readsStandardInput() ? "Standard input" : conversion.input.filename().string();
    const MemoryPicture sheet = drawSheet(cells, options.layout, heading, lastLineOf(leftOut));
    writePicture(sheet, conversion.output, conversion.force, kept);
    for (const LeftOut& each : leftOut) {
        console.note("not drawn: " + each.why);
    }
    console.note(fmt::format("{}: {} x {} pixels, {} pictures", conversion.output.string(), sheet.width,
                             sheet.height, cells.size()));
    if (options.json) {
        console.data(jsonText(describe(options, sheet, cells, leftOut)));
    }
    return ExitCode::ok;
}

class ContactCommand : public CommandWithOptions<ContactOptions>
{
public:
    void addOptions(CLI::App& app) override
    {
        ConvertOptions& conversion = options_.conversion;
        addFiles(app, conversion, "A picture");
        const std::string group = "Contact sheet";
        const auto addNames = [&](const std::string& option, std::vector<std::string>& names,
                                  const std::string& text, const std::string& about) {
            app.add_option(option, names, about)
                ->option_text(text)
                ->allow_extra_args(false)
                ->take_all()
                ->group(group);
        };
        addNames("--effect", options_.effects, "FILE.fx",
                 "An effect, with all its techniques. Default: those of the\ncatalogue, with their first");
        addNames("--lut", options_.luts, "FILE", "A LUT. Default: those of 'qxhost lut list'");
        addCount(app, "--columns", options_.layout.columns, 1, "Pictures in a row. Default: 5")->group(group);
        addSize(app, "--size", options_.layout.width, options_.layout.height,
                "Largest width and height of each. Default: 320x180")
            ->group(group);
        addRange(app, conversion.picked, group, false);
        app.add_flag("--force", conversion.force, "Replace an existing picture")->group(group);
        addColour(app, conversion);
        addRawInput(app, conversion.raw, SizeOption::ofOutput);
        addOther(app, conversion);
        app.footer(contactFooter);
    }

    void check(const CLI::App& app) override
    {
        ConvertOptions& conversion = options_.conversion;
        if (conversion.output == Media::standardName) {
            complain(app, "OUTPUT -: a contact sheet is written to a file only; give it a name");
        }
        checkFiles(app, conversion);
        checkRange(app);
        for (const std::vector<std::string>& names : {options_.effects, options_.luts}) {
            if (std::find(names.begin(), names.end(), "") != names.end()) {
                complain(app, "--effect or --lut is empty; give a name or a file");
            }
        }
        // The frame as people see it: with square pixels, and made BT.709 if it is of high dynamic range.
        conversion.step = ShrinkPicture{.width = 16384, .height = 16384};
        conversion.picked.frames = 1;
        conversion.audio = false;
        options_.json = conversion.json;
    }

    ExitCode run(Console& console) override { return contact(options_, console); }
};

const Registered<ContactCommand> registeredContact(
    {.name = "contact", .order = 35, .about = "Draw a frame through all effects and LUTs, on one picture"});

} // namespace

} // namespace Qx::Program
