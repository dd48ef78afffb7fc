#include "tools/qxhost/commands/convert/ConversionArguments.h"

#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/media/Matrices.h"

namespace Qx::Program {

namespace {

const Names<Media::Range> ranges{{"video", Media::Range::video}, {"full", Media::Range::full}};
const Names<Media::Matrix> matrices = Media::matrixWords();
const Names<Media::Depth> depths{{"8", Media::Depth::bits8}, {"16", Media::Depth::bits16}};
const Names<Image::Filter> filters{{"point", Image::Filter::Point},
                                   {"catmullrom", Image::Filter::CatmullRom},
                                   {"mitchell", Image::Filter::Mitchell}};

} // namespace

void addFiles(CLI::App& app, ConvertOptions& options, const std::string& output)
{
    app.add_option("INPUT", options.input, "Any clip or picture that FFmpeg reads, or raw frames")
        ->option_text(" ");
    app.add_option("OUTPUT", options.output, output)->option_text(" ");
}

void addStart(CLI::App& app, ConvertOptions& options)
{
    addCount(app, "--start", options.start, 0, "Skip the first N frames")->group("Frames");
}

void addColour(CLI::App& app, ConvertOptions& options)
{
    const std::string group = "Colour";
    addChoice(app, "--range", options.range, ranges, "Range of the input's codes; overrides its tags")
        ->group(group);
    addChoice(app, "--matrix", options.matrix, matrices, "Matrix of the input; overrides its tags")
        ->group(group);
    addChoice(app, "--output-range", options.outputRange, ranges,
              "Range of the RGB made. Default: full; video for a clip\nof YCbCr without effects, which keeps "
              "codes beyond\nblack and white")
        ->group(group);
    addChoice(app, "--filter", options.filter, filters, "How chroma is interpolated. Default: catmullrom")
        ->group(group);
    addChoice(app, "--depth", options.depth, depths,
              "Bits per component on the GPU. Default: 8 for inputs\nof 8 bits, 16 for deeper ones")
        ->group(group);
}

void addRawInput(CLI::App& app, RawInputOptions& raw, SizeOption sizeOption)
{
    const std::string group = "Raw input";
    addPixelFormat(
        app, "--raw", raw.format,
        "INPUT holds nothing but frames of this format ('qxhost\nformats'). Not needed if its name "
        "ends in a format")
        ->group(group);
    raw.sizeOption = sizeOption == SizeOption::ofInput ? "--size" : "--raw-size";
    addSize(app, raw.sizeOption, raw.width, raw.height, "Their size in pixels")->group(group);
    addRate(app, raw.frameRate, "Frames per second. Default: 25")->group(group);
    addCount(app, "--row-bytes", raw.rowBytes, 1, "Bytes from one row to the next. Default: the format's own")
        ->group(group);
}

void addOutput(CLI::App& app, ConvertOptions& options)
{
    const std::string group = "Output";
    addPixelFormat(app, "--format", options.format,
                   "Write frames of this pixel format unencoded\n('qxhost formats')")
        ->group(group);
    addOutputRowBytes(app, options.outputRowBytes)->group(group);
    app.add_option("--codec", options.codec, "FFmpeg's name of the encoder. Default: by the output's name")
        ->option_text("NAME")
        ->group(group);
    app.add_option("--pixel-format", options.pixelFormat, "FFmpeg's name of a format that the encoder takes")
        ->option_text("NAME")
        ->group(group);
    app.add_flag("--force", options.force, "Replace existing output files")->group(group);
}

void addOther(CLI::App& app, ConvertOptions& options)
{
    const std::string group = "Other options";
    addDevice(app, options.device)->group(group);
    app.add_flag("--quiet", options.quiet, "Print nothing but errors")->group(group);
    app.add_flag("--json", options.json, "Print what was done as JSON to standard output")->group(group);
    app.set_help_flag("-h,--help", "Show this help")->group(group);
}

void checkFiles(const CLI::App& app, ConvertOptions& options)
{
    requireValue(app, options.input, "INPUT");
    requireValue(app, options.output, "OUTPUT");
    options.format = formatFor(app, options.output, options.format);
    if (options.format && (!options.codec.empty() || !options.pixelFormat.empty())) {
        complain(app, std::string(options.codec.empty() ? "--pixel-format" : "--codec") +
                          " cannot be combined with --format, which writes frames unencoded");
    }
    checkOutputRows(app, options.format, options.outputRowBytes);
    if (!options.raw.format) {
        options.raw.format = pixelFormatOf(options.input);
    }
}

} // namespace Qx::Program
