#include "tools/qxhost/commands/convert/ConversionArguments.h"

#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/media/Matrices.h"

#include <algorithm>
#include <fmt/format.h>

namespace Qx::Program {

namespace {

/// File names have no longer numbers.
std::int64_t parseNumber(const std::string& option, const std::string& word)
{
    constexpr std::int64_t largest = 999'999'999;
    const std::int64_t number = parseCount(option, word, 0);
    if (number > largest) {
        throw CLI::ValidationError(
            option, fmt::format("\"{}\" is too large; the largest number is {}", word, largest));
    }
    return number;
}

const Names<Media::Range> ranges{{"video", Media::Range::video}, {"full", Media::Range::full}};
const Names<Media::Matrix> matrices = Media::matrixWords();
const Names<Media::Depth> depths{{"8", Media::Depth::bits8}, {"16", Media::Depth::bits16}};
const Names<Image::Filter> filters{{"point", Image::Filter::Point},
                                   {"catmullrom", Image::Filter::CatmullRom},
                                   {"mitchell", Image::Filter::Mitchell}};

/// Throws CLI::ValidationError if standard output cannot be written in that.
std::string containerNamed(const std::string& word)
{
    std::string name = CLI::detail::to_lower(word);
    const std::vector<std::string> known = Media::pipeContainers();
    if (std::find(known.begin(), known.end(), name) != known.end()) {
        return name;
    }
    const bool isKin = name == "mp4" || name == "m4v";
    throw invalidValue("--container", word,
                       listed(known, "or") +
                           (isKin ? "; mp4 has its index before what it lists, so it cannot be "
                                    "written to a pipe; mov is written in fragments"
                                  : ""));
}

const Names<Media::AlphaKind> alphaKinds{{"straight", Media::AlphaKind::straight},
                                         {"premultiplied", Media::AlphaKind::premultiplied},
                                         {"none", Media::AlphaKind::none}};

const Names<Media::Dither> ditherWords{{"none", Media::Dither::none},
                                       {"error-diffusion", Media::Dither::errorDiffusion},
                                       {"blue-noise", Media::Dither::blueNoise}};

const Names<Media::MissingPictures> missingWords{{"hold", Media::MissingPictures::hold},
                                                 {"black", Media::MissingPictures::black},
                                                 {"fail", Media::MissingPictures::fail}};

/// Commands have some of the options only.
bool isGivenOption(const CLI::App& app, const char* name)
{
    const CLI::Option* const option = app.get_option_no_throw(name);
    return option != nullptr && option->count() > 0;
}

} // namespace

void addFiles(CLI::App& app, ConvertOptions& options, const std::string& output)
{
    app.add_option("INPUT", options.input, "Any clip or picture that FFmpeg reads, raw frames, or -")
        ->option_text(" ");
    app.add_option("OUTPUT", options.output, output)->option_text(" ");
}

void addRange(CLI::App& app, FrameRangeOptions& range, const std::string& group, bool withEnd)
{
    const auto setStart = [&range](const std::string& word) {
        const bool isCount = word.find_first_not_of("-0123456789") == std::string::npos;
        range.startTime.reset();
        range.start = 0;
        if (isCount) {
            range.start = parseCount("--start", word, 0, ", or a time, such as 00:01:02.5 or 12.5s");
        } else {
            range.startTime = parseTime("--start", word, "a frame's number or ");
        }
    };
    app.add_option_function<std::string>(
           "--start", setStart,
           withEnd ? "Skip N frames, or begin at a time: 00:01:02.5 or 12.5s"
                   : "Take the frame after the first N, or at a time:\n00:01:02.5 or 12.5s")
        ->option_text("N|TIME")
        ->group(group);
    addTimeCode(app, "--in", range.in,
                withEnd ? "Begin with the frame of this time code" : "Take the frame of this time code")
        ->group(group);
    if (!withEnd) {
        return;
    }
    addCount(app, "--frames", range.frames, 1, "Take at most N frames")->group(group);
    app.add_option_function<std::string>(
           "--duration",
           [&range](const std::string& word) {
               range.duration = parseTime("--duration", word, "");
               if (*range.duration == FrameRangeOptions::Time::zero()) {
                   throw invalidValue("--duration", word, "more than nothing");
               }
           },
           "Take no more than lasts so long: 00:01:02.5 or 12.5s")
        ->option_text("TIME")
        ->group(group);
    addTimeCode(app, "--out", range.out, "End with the frame of this time code")->group(group);
}

void checkRange(const CLI::App& app)
{
    const auto refuseBoth = [&app](const char* one, const char* other, const char* what) {
        if (isGivenOption(app, one) && isGivenOption(app, other)) {
            complain(app, fmt::format("{} and {} both say {}; give one of them", one, other, what));
        }
    };
    refuseBoth("--start", "--in", "where to begin");
    refuseBoth("--frames", "--duration", "where to end");
    refuseBoth("--frames", "--out", "where to end");
    refuseBoth("--duration", "--out", "where to end");
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

void addAlphaAndDither(CLI::App& app, ConvertOptions& options)
{
    const std::string group = "Colour";
    addChoice(app, "--alpha", options.alpha, alphaKinds,
              "Whether colours of the input are multiplied by their\nalpha, or that it has none. Default: "
              "straight;\npremultiplied for OpenEXR")
        ->group(group);
    addChoice(app, "--dither", options.dither, ditherWords,
              "Where codes of 8 bits are made, keep the mean of what\nrounding would lose. Default: none; "
              "without a word:\nerror-diffusion")
        ->option_text("[WORD]")
        ->group(group);
}

void settleDither(std::vector<std::string>& words)
{
    const auto isKind = [](const std::string& word) {
        return std::any_of(ditherWords.begin(), ditherWords.end(),
                           [&](const auto& each) { return each.first == CLI::detail::to_lower(word); });
    };
    for (std::size_t i = 0; i < words.size() && words[i] != "--"; ++i) {
        if (words[i] != "--dither") {
            continue;
        }
        const bool hasKind = i + 1 < words.size() && isKind(words[i + 1]);
        words[i] += "=" + (hasKind ? words[i + 1] : "error-diffusion");
        if (hasKind) {
            words.erase(words.begin() + static_cast<std::ptrdiff_t>(i) + 1);
        }
    }
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
    addRate(app, raw.frameRate, "Frames per second, also of numbered pictures. Default: 25")->group(group);
    addCount(app, "--row-bytes", raw.rowBytes, 1, "Bytes from one row to the next. Default: the format's own")
        ->group(group);
}

void addSequence(CLI::App& app, SequenceOptions& sequence)
{
    const std::string group = "Numbered pictures";
    const auto addNumber = [&](const std::string& option, std::optional<std::int64_t>& number,
                               const std::string& about) {
        app.add_option_function<std::string>(
               option, [&number, option](const std::string& word) { number = parseNumber(option, word); },
               about)
            ->option_text("N")
            ->group(group);
    };
    addNumber("--start-number", sequence.startNumber, "First picture to read. Default: the lowest number");
    addChoice(app, "--missing", sequence.missing, missingWords,
              "Put in the picture before or black where numbers are\nmissing, or fail. Default: end there")
        ->group(group);
    addNumber("--renumber", sequence.renumber,
              "Number of the first picture written. Default: the\ninput's own, else 1");
}

void addOutput(CLI::App& app, ConvertOptions& options)
{
    const std::string group = "Output";
    addPixelFormat(app, "--format", options.format, "Write frames of a format of 'qxhost formats' unencoded")
        ->group(group);
    addOutputRowBytes(app, options.outputRowBytes)->group(group);
    app.add_option_function<std::string>(
           "--container", [&options](const std::string& word) { options.container = containerNamed(word); },
           "Container of standard output (OUTPUT -): nut, mkv, mov,\nwebm, ts, y4m, or raw with --format; or "
           "pictures, one\nafter the other: png, dpx, exr, ... Default: nut")
        ->option_text("NAME")
        ->group(group);
    app.add_option("--codec", options.codec, "FFmpeg's name of the encoder. Default: by the output's name")
        ->option_text("NAME")
        ->group(group);
    app.add_option("--pixel-format", options.pixelFormat, "FFmpeg's name of a format that the encoder takes")
        ->option_text("NAME")
        ->group(group);
    app.add_option("--profile", options.profile,
                   "Of the codec: hq or 4444 (ProRes), hqx (DNxHR), main10 (H.265), ...")
        ->option_text("NAME")
        ->group(group);
    addNumber(app, "--quality", options.rate.quality, 0, 100,
              "Quality of the encoder, 0 to 100, instead of its default")
        ->group(group);
    addBitRate(app, "--bitrate", options.rate.bitRate, "Bits a second of the video: 20M, 800k")->group(group);
    addEncoderOption(app, "--video-option", options.videoOptions,
                     "An option of the encoder, FFmpeg's name: preset=slow")
        ->group(group);
    app.add_flag("--force", options.force, "Replace existing output files")->group(group);
}

void addAudio(CLI::App& app, ConvertOptions& options)
{
    const std::string group = "Audio";
    app.add_option_function<std::string>(
           "--audio-codec",
           [&options](const std::string& word) {
               options.audio = word != "none";
               options.audioCodec = options.audio ? word : "";
           },
           "Copy, none or FFmpeg's name of an encoder. Default: copy if it fits")
        ->option_text("NAME")
        ->group(group);
    addEncoderOption(app, "--audio-option", options.audioOptions,
                     "An option of the audio encoder, such as b=256k")
        ->group(group);
    app.add_flag_callback(
           "--no-audio", [&options] { options.audio = false; }, "Leave the audio out")
        ->group(group);
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
    if (!options.container.empty() && !options.writesStandardOutput()) {
        complain(app, "--container is for standard output (OUTPUT -); the name of a file says what it is");
    }
    if (!options.audio && !options.audioCodec.empty()) {
        complain(app, fmt::format("--audio-codec {} encodes what --no-audio leaves out; give one of them",
                                  options.audioCodec));
    }
    if (options.container == "raw" && !options.format) {
        complain(app, "--container raw needs the format of its frames; add --format NAME ('qxhost formats')");
    }
    if (options.json && options.writesStandardOutput()) {
        complain(app, "--json and OUTPUT - both go to standard output; leave one of them out");
    }
    options.format = formatFor(app, options.output, options.format);
    if (options.format && (!options.codec.empty() || !options.pixelFormat.empty())) {
        complain(app, std::string(options.codec.empty() ? "--pixel-format" : "--codec") +
                          " cannot be combined with --format, which writes frames unencoded");
    }
    for (const char* option : {"--profile", "--quality", "--bitrate", "--video-option"}) {
        if (options.format && isGivenOption(app, option)) {
            complain(app, std::string(option) +
                              " cannot be combined with --format, which writes frames unencoded");
        }
    }
    if (isGivenOption(app, "--quality") && isGivenOption(app, "--bitrate")) {
        complain(app, "--quality and --bitrate both say how large the output is; give one of them");
    }
    checkOutputRows(app, options.format, options.outputRowBytes);
    if (!options.raw.format) {
        options.raw.format = pixelFormatOf(options.input);
    }
}

} // namespace Qx::Program
