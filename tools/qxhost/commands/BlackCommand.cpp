#include "image/SurfaceUtilities.h"
#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Interruption.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/media/files/PartFiles.h"
#include "tools/qxhost/media/read/ClipReader.h"
#include "tools/qxhost/media/write/FrameWriter.h"
#include "tools/qxhost/pipeline/device/HostSession.h"
#include "tools/qxhost/pipeline/output/FrameDelivery.h"
#include "tools/qxhost/pipeline/output/PictureOutput.h"

#include <atomic>
#include <fmt/format.h>

namespace Qx::Program {

namespace {

constexpr const char* blackFooter = R"(Examples:
  qxhost black black.png --size 1920x1080
  qxhost black second.mov --size 1920x1080 --frames 25 --format v210)";

struct BlackOptions
{
    std::filesystem::path output;
    unsigned width = 0; ///< pixels
    unsigned height = 0;
    bool transparent = false;
    std::optional<PixelFormat> format; ///< of the frames written; empty: the encoder's own
    std::int64_t outputRowBytes = 0;   ///< from a row to the next in a raw file; 0: the format's own
    std::int64_t frames = 1;
    Media::Rational frameRate{25, 1};
    bool force = false;
    std::string device;
    bool quiet = false;
    bool json = false;
};

Media::OutputSettings settingsFor(const BlackOptions& options)
{
    Media::OutputSettings settings;
    settings.width = static_cast<int>(options.width);
    settings.height = static_cast<int>(options.height);
    settings.frameRate = options.frameRate;
    settings.timeBase = {options.frameRate.den, options.frameRate.num};
    settings.alpha = options.transparent;
    settings.colour.matrix = Media::matrixForWidth(settings.width);
    settings.force = options.force;
    settings.expectedFrames = options.frames;
    if (options.format) {
        settings.stored = writtenLayout(*options.format, options.output, options.width, options.height,
                                        static_cast<std::size_t>(options.outputRowBytes));
    }
    return settings;
}

void refuseSizes(const BlackOptions& options)
{
    constexpr auto largest = static_cast<unsigned>(Media::ClipReader::largestSide);
    if (options.width > largest || options.height > largest) {
        throw Failure(ExitCode::usage, fmt::format("--size {}x{}: the largest picture is {} x {} pixels",
                                                   options.width, options.height, largest, largest));
    }
}

/// The frame in host memory. Throws Failure (device).
Image::Surface makeFrame(const BlackOptions& options)
{
    const XY<int> size{static_cast<int>(options.width), static_cast<int>(options.height)};
    const Image::Surface black = Image::createBlackGPUSurface(
        size, options.transparent ? Image::TransparencyType::Straight : Image::TransparencyType::Opaque);
    Image::Surface frame;
    if (black.getGPUSurface()) {
        frame = options.format ? FrameDelivery(*options.format).fromPicture(black, Media::Range::full)
                               : black.copyToHost();
    }
    if (!frame.getHostImage()) {
        failOnDevice(size.x, size.y);
    }
    return frame;
}

/// Returns false if interrupted.
bool writeFrames(const BlackOptions& options, const Image::Surface& frame, Media::iFrameWriter& writer,
                 const std::atomic<bool>& stopped)
{
    const Qx::Ptr<iHostImage> image = frame.getHostImage();
    const void* rows = image->map(iHostImage::Read);
    if (rows == nullptr) {
        failOnDevice(static_cast<int>(options.width), static_cast<int>(options.height));
    }
    for (std::int64_t n = 0; n < options.frames; ++n) {
        if (stopped) {
            return false;
        }
        const Media::Status written =
            writer.write(rows, static_cast<std::ptrdiff_t>(image->getPitch()), {n, 1, {}});
        if (!written) {
            throw Failure(ExitCode::output, written.text());
        }
    }
    if (const Media::Status finished = writer.finish(); !finished) {
        throw Failure(ExitCode::output, finished.text());
    }
    return true;
}

Json describe(const BlackOptions& options, const Media::iFrameWriter& writer)
{
    Json run;
    run["output"] = options.output.string();
    run["files"] = Json::array();
    for (const std::filesystem::path& file : writer.files()) {
        run["files"].push_back(file.string());
    }
    run["format"] = writer.description();
    run["frames"] = options.frames;
    run["width"] = options.width;
    run["height"] = options.height;
    run["warnings"] = writer.warnings();
    return run;
}

ExitCode runBlack(const BlackOptions& options, Console& console)
{
    console.setQuiet(options.quiet);
    refuseSizes(options);
    const HostSession host(options.device, &console);
    const Image::Surface frame = makeFrame(options);
    std::atomic<bool> stopped{false};
    // From here on there are files to clean up.
    const Interruption interruption([&] { stopped = true; }, Media::PartFiles::removeAll);
    auto writer = Media::openWriter(options.output, settingsFor(options));
    if (!writer) {
        throw Failure(ExitCode::output, writer.text());
    }
    if (!writeFrames(options, frame, *writer.value(), stopped)) {
        writer.value().reset();
        throw Failure(ExitCode::interrupted,
                      "interrupted; " + options.output.string() + " was not completed");
    }
    for (const std::string& warning : writer.value()->warnings()) {
        console.note(warning);
    }
    console.note(fmt::format("{}: {} {} of black, {} x {} ({})",
                             writtenFiles(writer.value()->files(), options.output), options.frames,
                             options.frames == 1 ? "frame" : "frames", options.width, options.height,
                             writer.value()->description()));
    if (options.json) {
        console.data(jsonText(describe(options, *writer.value())));
    }
    return ExitCode::ok;
}

class BlackCommand : public CommandWithOptions<BlackOptions>
{
public:
    void addOptions(CLI::App& app) override
    {
        app.add_option("OUTPUT", options_.output, "A picture, a clip or raw frames")->option_text(" ");
        addSize(app, "--size", options_.width, options_.height, "Its size in pixels");
        app.add_flag("--transparent", options_.transparent, "Set alpha to 0, if the output holds alpha");
        addCount(app, "--frames", options_.frames, 1, "Frames to write. Default: 1");
        addRate(app, options_.frameRate, "Frames per second. Default: 25");
        addPixelFormat(app, "--format", options_.format, "Write frames of this pixel format unencoded");
        addOutputRowBytes(app, options_.outputRowBytes);
        app.add_flag("--force", options_.force, "Replace an existing output file");
        addDevice(app, options_.device);
        app.add_flag("--quiet", options_.quiet, "Print nothing but errors");
        app.add_flag("--json", options_.json, "Print what was done as JSON to standard output");
        app.footer(blackFooter);
    }

    void check(const CLI::App& app) override
    {
        requireValue(app, options_.output, "OUTPUT");
        requireSize(app, options_.width);
        options_.format = formatFor(app, options_.output, options_.format);
        checkOutputRows(app, options_.format, options_.outputRowBytes);
    }

    ExitCode run(Console& console) override { return runBlack(options_, console); }
};

const Registered<BlackCommand>
    registeredBlack({.name = "black", .order = 40, .about = "Make a black picture or clip"});

} // namespace

} // namespace Qx::Program
