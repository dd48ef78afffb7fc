#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/commands/lut/LutPicture.h"
#include "tools/qxhost/commands/lut/WithoutDevice.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/pipeline/effects/LutFile.h"
#include "tools/qxhost/pipeline/output/PictureOutput.h"

namespace Qx::Program {

namespace {

constexpr const char* previewFooter = R"(Example:
  qxhost lut preview film.cube film.png

Draws, from the top: a colour chart before and after the LUT; the LUT's curves for grey (red, green and
blue out against grey in); and ramps from black to grey, red, green, blue, cyan, magenta and yellow, each
before and after.)";

struct PreviewOptions
{
    std::filesystem::path file;
    std::filesystem::path output;
    bool force = false;
};

ExitCode preview(const PreviewOptions& options, Console& console)
{
    const WithoutDevice host(console);
    requireOnePicture(options.output, "a preview");
    const Host::LUTReading reading = readLut(options.file.string());
    const std::string name = options.file.filename().string();
    const auto kept = std::make_shared<Media::FileSet>();
    kept->add(lutPath(options.file.string()));
    writePicture(drawLut(reading.steps, name, reading.facts.contents), options.output, options.force, kept);
    console.note(options.output.string() + ": before and after, curves of grey, and ramps of " +
                 reading.facts.contents);
    return ExitCode::ok;
}

class PreviewCommand : public CommandWithOptions<PreviewOptions>
{
public:
    void addOptions(CLI::App& app) override
    {
        app.add_option("FILE", options_.file, "A LUT file, or a name of 'qxhost lut list'")->option_text(" ");
        app.add_option("OUTPUT", options_.output, "The picture to write")->option_text(" ");
        app.add_flag("--force", options_.force, "Replace an existing picture");
        app.footer(previewFooter);
    }

    void check(const CLI::App& app) override
    {
        requireValue(app, options_.file, "FILE");
        requireValue(app, options_.output, "OUTPUT");
    }

    ExitCode run(Console& console) override { return preview(options_, console); }
};

const Registered<PreviewCommand>
    registeredPreview({.name = "lut preview", .order = 40, .about = "Draw what a LUT does"});

} // namespace

} // namespace Qx::Program
