#include "tools/qxhost/commands/CommandLine.h"

#include "host/core/Suggestion.h"
#include "tools/qxhost/commands/LutCommandLine.h"
#include "tools/qxhost/commands/convert/BurnInArguments.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Wording.h"
#include "tools/qxhost/diagnose/DiagnoseCommandLine.h"
#include "tools/qxhost/media/ClipReader.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <cmath>
#include <fmt/format.h>
#include <map>
#include <tuple>

namespace Qx::Program {

namespace {

constexpr const char* program = "qxhost";
constexpr const char* tableEffect = "LUT.fx";

constexpr const char* mainFooter = R"(Examples:
  qxhost convert clip.mov shot_%05d.png            every frame as a picture, RGB
  qxhost convert clip.mov graded.mov --effect cc3.fx --set gain=1.2
  qxhost convert clip.mov tape.mov --format v210   frames in a pixel format, as they are
  qxhost formats                                   the pixel formats
  qxhost effects list                              the effects that can be used by name
  qxhost devices                                   what the conversions can run on
  qxhost diagnose                                  whether the GPU path is healthy and fast enough

'qxhost COMMAND --help' says more about a command.)";

constexpr const char* convertFooter = R"(Examples:
  qxhost convert clip.mov shot.png --frames 1
      The first frame as one picture.
  qxhost convert clip.mov shot_%05d.png
      Every frame as a picture: shot_00001.png, shot_00002.png, ...
  qxhost convert tape.avi tape.mov --range video --matrix bt601
      For a clip without colour tags: says what its codes mean instead of having them guessed.
  qxhost convert clip.mov tape.mov --format v210
      Frames in a pixel format, as they are; 'qxhost formats' lists the formats and what holds them.
  qxhost convert tape.raw tape.mov --raw uyvy --size 720x576 --fps 25
      Reads such frames from a file that holds nothing else.
  qxhost convert clip.mov graded.mov --effect cc3.fx --set gain=1.2 --set saturation=0.8
      Through an effect. Several run in the order given; --technique and --set belong to the --effect
      before them.
  qxhost convert clip.mov dailies.mov --burn-in "{timecode}  {clip}" --position top-left
      With time code and the clip's name written into every frame.

Output formats, by the name's ending:
  pictures  png tif tiff bmp jpg jpeg ppm dpx tga webp
  clips     mov mkv mp4 avi mxf webm nut and whatever else FFmpeg writes
  frames    raw yuv rgb bin data, or a pixel format's name (uyvy, v210, ...)

Exit codes: 0 done, 1 failed, 2 wrong command line, 3 input (missing, or damaged: then what
could be read is written), 4 output, 5 GPU device, 6 effect, LUT or font, 130 interrupted.
Nothing incomplete is left behind under the output's name.)";

constexpr const char* fieldsFooter = R"(Examples:
  qxhost fields tape.mov field_%05d.png
      Two pictures a frame, of half its height: first the field that was first in time.
  qxhost fields tape.avi fields.mkv --order bottom
      A clip of twice the frame rate, for an input that does not say its order, or says it wrong.)";

constexpr const char* thumbnailFooter = R"(Examples:
  qxhost thumbnail clip.mov small.jpg --size 320x180
      The first frame, as large as fits into that size.
  qxhost thumbnail clip.mov small.png --size 320x180 --start 100
      The frame after the first 100.)";

constexpr const char* blackFooter = R"(Examples:
  qxhost black black.png --size 1920x1080
  qxhost black second.mov --size 1920x1080 --frames 25 --format v210)";

constexpr const char* checkFooter = R"(Example:
  qxhost effects check my/glow.fx my/blur.fx

Prints the compiler's messages as FILE:LINE:COLUMN. Exit codes: 0 no errors, 1 errors, 3 a file is
missing (the others are checked), 5 GPU device.)";

constexpr const char* watchFooter = R"(Examples:
  qxhost effects watch my/glow.fx --input photo.png --output look.png
      Draws photo.png through glow.fx into look.png, again each time glow.fx or a file that it
      includes is saved. A viewer that reloads shows the look.
  qxhost effects watch my
      Compiles what is saved in the directory and prints the messages.

The file's directory stands in for the user's templates meanwhile. A file that does not compile
leaves the last good effect, and the picture, as they are. Ctrl-C ends it.)";

constexpr const char* describeFooter = R"(Example:
  qxhost effects describe cc3.fx

Shows what an effect has: techniques and their passes, parameters with type, default, range and label,
textures and samplers. Exit codes: 0 done, 1 the effect has errors, 3 the file is missing.)";

[[noreturn]] void complain(const std::string& text, const std::string& command = "")
{
    throw Failure(ExitCode::usage,
                  text + "; see '" + program + (command.empty() ? "" : " " + command) + " --help'");
}

/// Values that an option takes by name, as one table for checking, help and meaning.
template <class T>
using Names = std::vector<std::pair<std::string, T>>;

const Names<Media::Range> ranges{{"video", Media::Range::video}, {"full", Media::Range::full}};
const Names<Media::Matrix> matrices{{"bt601", Media::Matrix::bt601}, {"bt709", Media::Matrix::bt709}};
const Names<Media::Depth> depths{{"8", Media::Depth::bits8}, {"16", Media::Depth::bits16}};
const Names<Image::Filter> filters{{"point", Image::Filter::Point},
                                   {"catmullrom", Image::Filter::CatmullRom},
                                   {"mitchell", Image::Filter::Mitchell}};

template <class T>
std::vector<std::string> namesOf(const Names<T>& names)
{
    std::vector<std::string> words;
    for (const auto& [name, value] : names) {
        words.push_back(name);
    }
    return words;
}

float parseAmount(const std::string& word)
{
    float amount = 0;
    const char* end = word.data() + word.size();
    const auto [stopped, error] = std::from_chars(word.data(), end, amount);
    if (word.empty() || error != std::errc() || stopped != end || !(amount >= 0 && amount <= 1)) {
        complain("--amount " + word + ": write a number from 0 to 1, as in --amount 0.5", "convert");
    }
    return amount;
}

/// Adds an option that takes one of the names.
template <class T, class Target>
CLI::Option* addChoice(CLI::App& app, const std::string& option, Target& target, const Names<T>& names,
                       const std::string& description)
{
    const auto set = [&target, &names, option](const std::string& word) {
        for (const auto& [name, value] : names) {
            if (name == CLI::detail::to_lower(word)) {
                target = value;
                return;
            }
        }
        throw CLI::ValidationError(option, "\"" + word + "\" is none of " + listed(namesOf(names)));
    };
    return app.add_option_function<std::string>(option, set, description)
        ->option_text(CLI::detail::join(namesOf(names), "|"));
}

CLI::Option* addCount(CLI::App& app, const std::string& option, std::int64_t& target, std::int64_t smallest,
                      const std::string& description)
{
    const auto set = [&target, option, smallest](const std::string& word) {
        std::int64_t value = 0;
        const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
        if (error == std::errc::result_out_of_range && word.front() != '-') {
            throw CLI::ValidationError(option, "\"" + word + "\" is too large");
        }
        if (error != std::errc() || end != word.data() + word.size() || value < smallest) {
            throw CLI::ValidationError(option, "\"" + word + "\" is no whole number from " +
                                                   std::to_string(smallest) + " on");
        }
        target = value;
    };
    return app.add_option_function<std::string>(option, set, description)->option_text("N");
}

/// Reads "WxH".
void parseSize(const std::string& option, const std::string& word, unsigned& width, unsigned& height)
{
    const char* end = word.data() + word.size();
    const auto isNumber = [](std::errc error) {
        return error == std::errc() || error == std::errc::result_out_of_range;
    };
    const auto [cross, first] = std::from_chars(word.data(), end, width);
    bool good = isNumber(first) && cross != end && (*cross == 'x' || *cross == 'X');
    bool fits = first == std::errc();
    if (good) {
        const auto [stopped, second] = std::from_chars(cross + 1, end, height);
        good = isNumber(second) && stopped == end;
        fits = fits && second == std::errc();
    }
    if (good && !fits) {
        throw CLI::ValidationError(option, "\"" + word + "\" is too large; the largest picture is " +
                                               std::to_string(Media::ClipReader::largestSide) + " each way");
    }
    if (!good || width == 0 || height == 0) {
        throw CLI::ValidationError(option, "\"" + word + "\" is no size; write WIDTHxHEIGHT, as 1920x1080");
    }
}

CLI::Option* addSize(CLI::App& app, unsigned& width, unsigned& height, const std::string& description)
{
    return app
        .add_option_function<std::string>(
            "--size",
            [&width, &height](const std::string& word) { parseSize("--size", word, width, height); },
            description)
        ->option_text("WxH");
}

/// Reads "25", "29.97" or "30000/1001".
Media::Rational parseRate(const std::string& word)
{
    constexpr int largest = 1000000;
    const char* end = word.data() + word.size();
    Media::Rational rate;
    auto [stopped, error] = std::from_chars(word.data(), end, rate.num);
    if (error == std::errc() && stopped != end && *stopped == '/') {
        std::tie(stopped, error) = [&] {
            const auto result = std::from_chars(stopped + 1, end, rate.den);
            return std::pair(result.ptr, result.ec);
        }();
    } else if (error == std::errc() && stopped != end) {
        double value = 0;
        const auto result = std::from_chars(word.data(), end, value);
        stopped = result.ptr;
        error = value > 0 && value < largest ? result.ec : std::errc::invalid_argument;
        // 23.976, 29.97 and their kind mean N x 1000 / 1001.
        const double nearest = error == std::errc() ? std::round(value * 1.001) : 0;
        const bool isNtsc =
            std::abs(value - nearest / 1.001) < 0.005 && std::abs(value - std::round(value)) > 0.005;
        rate = isNtsc ? Media::Rational{static_cast<int>(nearest) * 1000, 1001}
                      : Media::Rational{static_cast<int>(std::lround(value * 1000)), 1000};
    }
    if (error != std::errc() || stopped != end || rate.num <= 0 || rate.den <= 0 || rate.num > largest ||
        rate.den > largest) {
        throw CLI::ValidationError("--fps",
                                   "\"" + word + "\" is no frame rate; write 25, 29.97 or 30000/1001");
    }
    return rate;
}

template <class Target>
CLI::Option* addRate(CLI::App& app, Target& rate, const std::string& description)
{
    return app
        .add_option_function<std::string>(
            "--fps", [&rate](const std::string& word) { rate = parseRate(word); }, description)
        ->option_text("R");
}

CLI::Option* addPixelFormat(CLI::App& app, const std::string& option, std::optional<PixelFormat>& target,
                            const std::string& description)
{
    const auto set = [&target, option](const std::string& word) { target = parsePixelFormat(option, word); };
    return app.add_option_function<std::string>(option, set, description)->option_text("NAME[:BITS]");
}

CLI::Option* addDevice(CLI::App& app, std::string& device)
{
    return app
        .add_option("--device", device, "GPU to use: part of its name, or its number in 'qxhost devices'")
        ->option_text("NAME|N");
}

/// A usage line that says what the command needs; the rest of the help as the library lays it out.
class HelpFormatter : public CLI::Formatter
{
public:
    std::string make_usage(const CLI::App* app, std::string name) const override
    {
        std::string usage = "Usage: " + name;
        for (const CLI::Option* option : app->get_options()) {
            if (option->get_positional()) {
                const bool many = option->get_expected_max() > 1;
                usage += " " + option->get_name(true) + (many ? "..." : "");
            }
        }
        const bool hasCommands = !app->get_subcommands({}).empty();
        return "\n" + usage + (hasCommands ? " COMMAND" : " [OPTIONS]") + "\n";
    }

    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override
    {
        // The library leaves two empty lines between groups, and none or one at the end.
        std::string text = CLI::detail::find_and_replace(
            CLI::Formatter::make_help(app, std::move(name), mode), "\n\n\n", "\n\n");
        text.erase(text.find_last_not_of('\n') + 1);
        return text + "\n";
    }
};

/// What an option says of the step before it.
void addToStep(EffectRequest& step, const std::string& name, const std::string& value)
{
    if ((name == "--amount") == step.lut.empty()) {
        complain(fmt::format("{} {} belongs to {}, and what stands before it is {} {}", name, value,
                             name == "--amount" ? "a --lut" : "an --effect",
                             step.lut.empty() ? "--effect" : "--lut",
                             step.lut.empty() ? step.file : step.lut),
                 "convert");
    }
    if (name == "--set") {
        step.settings.push_back(parseSetting(value, "convert"));
    } else if (name == "--amount") {
        step.settings.push_back({"amount", {parseAmount(value)}});
    } else if (!step.technique.empty()) {
        complain("--effect " + step.file + " has two techniques", "convert");
    } else {
        step.technique = value;
    }
}

/// "--technique" and "--set" speak of the "--effect" before them, "--amount" of the "--lut", and all of these
/// run one after the other, so their order on the command line counts.
std::vector<EffectRequest> groupEffects(const CLI::App& app)
{
    std::vector<EffectRequest> effects;
    std::map<const CLI::Option*, std::size_t> taken;
    for (const CLI::Option* option : app.parse_order()) {
        const std::string name = option->get_name();
        const bool begins = name == "--effect" || name == "--lut";
        if (!begins && name != "--technique" && name != "--set" && name != "--amount") {
            continue;
        }
        const std::string value = option->results().at(taken[option]++);
        if (begins && value.empty()) {
            complain(name == "--lut" ? "--lut is empty; give a LUT file"
                                     : "--effect is empty; give an effect's name or file",
                     "convert");
        }
        if (name == "--effect") {
            effects.push_back({value, "", {}, ""});
        } else if (name == "--lut") {
            effects.push_back({tableEffect, "", {}, value});
        } else if (effects.empty()) {
            complain(fmt::format("{} {} stands before any {} that it could belong to", name, value,
                                 name == "--amount" ? "--lut" : "--effect"),
                     "convert");
        } else {
            addToStep(effects.back(), name, value);
        }
    }
    return effects;
}

void addColour(CLI::App& app, ConvertOptions& options)
{
    const std::string group = "Colour";
    addChoice(app, "--range", options.range, ranges, "Range of the input's codes, whatever its tags say")
        ->group(group);
    addChoice(app, "--matrix", options.matrix, matrices, "Matrix of the input, whatever its tags say")
        ->group(group);
    addChoice(app, "--output-range", options.outputRange, ranges,
              "Range of the RGB made. Default: full; video for a clip\nof YCbCr without effects, which keeps "
              "what is beyond\nblack and white")
        ->group(group);
    addChoice(app, "--filter", options.filter, filters, "How chroma is interpolated. Default: catmullrom")
        ->group(group);
    addChoice(app, "--depth", options.depth, depths,
              "Bits of a component on the GPU. Default: 8 for inputs\nof 8 bits, 16 for deeper ones")
        ->group(group);
}

void addEffects(CLI::App& app)
{
    static std::vector<std::string> texts; // read through parse_order()
    texts.clear();
    const auto addText = [&](const std::string& name, const std::string& text, const std::string& about) {
        app.add_option(name, texts, about)
            ->option_text(text)
            ->allow_extra_args(false)
            ->take_all()
            ->group("Effects");
    };
    addText("--effect", "FILE.fx", "Run an effect: a name of 'qxhost effects list' or a path");
    addText("--technique", "NAME", "The effect's technique. Default: its first");
    addText("--set", "NAME=V[,V...]", "A parameter of the effect; several values for a vector");
    addText("--lut", "FILE",
            "Apply a LUT: a name of 'qxhost lut list' or a path.\nEffects and LUTs run in the "
            "order given");
    addText("--amount", "A", "How far the LUT before it changes the picture,\nfrom 0 to 1. Default: 1");
}

/// What describes an input of nothing but frames. `sizeOption`: "--size" stands for its size, not for what
/// the command makes.
void addRawInput(CLI::App& app, RawInputOptions& raw, bool sizeOption)
{
    const std::string group = "Raw input";
    addPixelFormat(
        app, "--raw", raw.format,
        "INPUT is nothing but frames of this format ('qxhost\nformats'). Not needed for a name that "
        "ends in one")
        ->group(group);
    if (sizeOption) {
        addSize(app, raw.width, raw.height, "Their size in pixels")->group(group);
    } else {
        raw.sizeOption = "--raw-size";
        app.add_option_function<std::string>(
               "--raw-size",
               [&raw](const std::string& word) { parseSize("--raw-size", word, raw.width, raw.height); },
               "Their size in pixels")
            ->option_text("WxH")
            ->group(group);
    }
    addRate(app, raw.frameRate, "Frames a second. Default: 25")->group(group);
    addCount(app, "--row-bytes", raw.rowBytes, 1, "Bytes from one row to the next. Default: the format's own")
        ->group(group);
}

CLI::Option* addOutputRowBytes(CLI::App& app, std::int64_t& rowBytes)
{
    return addCount(app, "--output-row-bytes", rowBytes, 1,
                    "Bytes from one row to the next in a raw file.\nDefault: the format's own");
}

void addOutput(CLI::App& app, ConvertOptions& options)
{
    const std::string group = "Output";
    addPixelFormat(app, "--format", options.format,
                   "Write frames of this pixel format as they are\n('qxhost formats')")
        ->group(group);
    addOutputRowBytes(app, options.outputRowBytes)->group(group);
    app.add_option("--codec", options.codec, "FFmpeg's name of the encoder. Default: by the output's name")
        ->option_text("NAME")
        ->group(group);
    app.add_option("--pixel-format", options.pixelFormat, "FFmpeg's name of a format the encoder takes")
        ->option_text("NAME")
        ->group(group);
    app.add_flag("--force", options.force, "Replace output files that exist")->group(group);
}

void addOther(CLI::App& app, ConvertOptions& options)
{
    const std::string group = "Other options";
    addDevice(app, options.device)->group(group);
    app.add_flag("--quiet", options.quiet, "Say nothing but errors")->group(group);
    app.add_flag("--json", options.json, "Print what was done as JSON on standard output")->group(group);
    app.set_help_flag("-h,--help", "Show this help")->group(group);
}

void addFiles(CLI::App& app, ConvertOptions& options, const std::string& output)
{
    app.add_option("INPUT", options.input, "Any clip or picture that FFmpeg reads, or raw frames")
        ->option_text(" ");
    app.add_option("OUTPUT", options.output, output)->option_text(" ");
}

CLI::App* addConvert(CLI::App& app, ConvertOptions& options)
{
    CLI::App* convert = app.add_subcommand("convert", "Convert a clip or picture on the GPU");
    addFiles(*convert, options, "A clip, a picture, a pattern such as shot_%05d.png, or raw frames");
    addColour(*convert, options);
    addEffects(*convert);
    addBurnIn(*convert, options.burnIn);
    const std::string frames = "Frames";
    addCount(*convert, "--start", options.start, 0, "Leave out the first N frames")->group(frames);
    addCount(*convert, "--frames", options.frames, 1, "Convert N frames at most")->group(frames);
    addRawInput(*convert, options.raw, true);
    addOutput(*convert, options);
    convert
        ->add_flag_callback(
            "--no-audio", [&options] { options.audio = false; }, "Leave the audio out")
        ->group("Output");
    addOther(*convert, options);
    convert->footer(convertFooter);
    return convert;
}

const Names<Media::FieldOrder> fieldOrders{{"top", Media::FieldOrder::topFirst},
                                           {"bottom", Media::FieldOrder::bottomFirst}};

CLI::App* addFields(CLI::App& app, ConvertOptions& options, SeparateFields& fields)
{
    CLI::App* command = app.add_subcommand("fields", "Take the frames of a clip apart into their fields");
    addFiles(*command, options, "A clip of twice the rate, or a pattern such as field_%05d.png");
    const std::string frames = "Frames";
    addChoice(*command, "--order", fields.order, fieldOrders,
              "Which field comes first. Default: as the input says,\nand top where it says nothing")
        ->group(frames);
    addCount(*command, "--start", options.start, 0, "Leave out the first N frames")->group(frames);
    addCount(*command, "--frames", options.frames, 1, "Take N frames at most")->group(frames);
    addColour(*command, options);
    addRawInput(*command, options.raw, true);
    addOutput(*command, options);
    addOther(*command, options);
    command->footer(fieldsFooter);
    return command;
}

CLI::App* addThumbnail(CLI::App& app, ConvertOptions& options, ShrinkPicture& shrink)
{
    CLI::App* command = app.add_subcommand("thumbnail", "Make a small picture of a frame");
    addFiles(*command, options, "A picture");
    const std::string picture = "Picture";
    addSize(*command, shrink.width, shrink.height, "Largest width and height in pixels")->group(picture);
    command->add_flag("--stretch", shrink.stretch, "Make it exactly that size, whatever the frame's shape")
        ->group(picture);
    addCount(*command, "--start", options.start, 0, "Take the frame after the first N")->group(picture);
    addColour(*command, options);
    addRawInput(*command, options.raw, false);
    addOutput(*command, options);
    addOther(*command, options);
    command->footer(thumbnailFooter);
    return command;
}

CLI::App* addBlack(CLI::App& app, BlackOptions& options)
{
    CLI::App* command = app.add_subcommand("black", "Make a black picture or clip");
    command->add_option("OUTPUT", options.output, "A picture, a clip or raw frames")->option_text(" ");
    addSize(*command, options.width, options.height, "Its size in pixels");
    command->add_flag("--transparent", options.transparent, "Alpha is 0, where the output holds alpha");
    addCount(*command, "--frames", options.frames, 1, "Frames to write. Default: 1");
    addRate(*command, options.frameRate, "Frames a second. Default: 25");
    addPixelFormat(*command, "--format", options.format, "Write frames of this pixel format as they are");
    addOutputRowBytes(*command, options.outputRowBytes);
    command->add_flag("--force", options.force, "Replace an output file that exists");
    addDevice(*command, options.device);
    command->add_flag("--quiet", options.quiet, "Say nothing but errors");
    command->add_flag("--json", options.json, "Print what was done as JSON on standard output");
    command->footer(blackFooter);
    return command;
}

CLI::App* addWatch(CLI::App& effects, EffectsWatchOptions& options, std::vector<std::string>& settings)
{
    CLI::App* watch = effects.add_subcommand(
        "watch", "Compile effects each time they are saved, and show one on a picture");
    watch
        ->add_option(
            "FILE", options.file,
            "An effect file, a directory of them, or an effect's name.\nDefault: the whole catalogue")
        ->option_text(" ");
    watch->add_option("--input", options.input, "The picture, or clip, to show the effect on")
        ->option_text("FILE");
    watch->add_option("--output", options.output, "The picture to write each time")->option_text("FILE");
    watch->add_option("--technique", options.technique, "The technique shown. Default: the effect's first")
        ->option_text("NAME");
    watch->add_option("--set", settings, "A parameter of the effect; several values for a vector")
        ->option_text("NAME=V[,V...]")
        ->allow_extra_args(false)
        ->take_all();
    watch->add_flag("--force", options.force, "Replace an output file that exists when watching begins");
    addDevice(*watch, options.device);
    watch->footer(watchFooter);
    return watch;
}

void refuseExtras(const CLI::App& app, const std::string& command)
{
    std::vector<std::string> extras = app.remaining();
    std::erase(extras, "--"); // which the library counts among them
    if (extras.empty()) {
        return;
    }
    const std::string& first = extras.front();
    std::vector<std::string> known;
    if (first.starts_with("-")) {
        for (const CLI::Option* option : app.get_options()) {
            for (const std::string& name : option->get_lnames()) {
                known.push_back("--" + name);
            }
        }
        complain("there is no option " + first + Host::didYouMean(first.substr(0, first.find('=')), known),
                 command);
    }
    for (const CLI::App* sub : app.get_subcommands({})) {
        known.push_back(sub->get_name());
    }
    if (!known.empty()) {
        complain("there is no command \"" + first + "\"" + Host::didYouMean(first, known), command);
    }
    complain("\"" + first + "\" is one argument too many", command);
}

void requireValue(const std::filesystem::path& value, const std::string& name, const std::string& command)
{
    if (value.empty()) {
        complain(name + " is missing", command);
    }
}

void requireSize(unsigned width, const std::string& command)
{
    if (width == 0) {
        complain("--size is missing; write --size WIDTHxHEIGHT, as --size 320x180", command);
    }
}

/// The format that was named, or the one that the file's name ends in. They may not disagree.
std::optional<PixelFormat> formatFor(const std::filesystem::path& file,
                                     const std::optional<PixelFormat>& named, const std::string& command)
{
    const std::optional<PixelFormat> byName = pixelFormatOf(file);
    if (!named || !byName) {
        return named ? named : byName;
    }
    if (named->info != byName->info) {
        complain("--format " + named->name() + " does not go with the name " + file.filename().string() +
                     "; end it in ." + named->info->word + " or .raw",
                 command);
    }
    return named;
}

void checkOutputRows(const std::optional<PixelFormat>& format, std::int64_t rowBytes,
                     const std::string& command)
{
    if (rowBytes != 0 && !format) {
        complain("--output-row-bytes: is for raw frames; add --format NAME ('qxhost formats' lists them)",
                 command);
    }
}

/// What INPUT and OUTPUT say by their names.
void checkFiles(const CLI::App& app, ConvertOptions& options)
{
    const std::string command = app.get_name();
    refuseExtras(app, command);
    requireValue(options.input, "INPUT", command);
    requireValue(options.output, "OUTPUT", command);
    options.format = formatFor(options.output, options.format, command);
    if (options.format && (!options.codec.empty() || !options.pixelFormat.empty())) {
        complain(std::string(options.codec.empty() ? "--pixel-format" : "--codec") +
                     " does not go with --format, which writes frames as they are",
                 command);
    }
    checkOutputRows(options.format, options.outputRowBytes, command);
    if (!options.raw.format) {
        options.raw.format = pixelFormatOf(options.input);
    }
}

/// All of the program's arguments and where their values go.
class Parser
{
public:
    Parser()
    {
        app_.name(program);
        app_.formatter(std::make_shared<HelpFormatter>());
        app_.set_help_flag("-h,--help", "Show this help");
        app_.get_formatter()->column_width(30);
        app_.get_formatter()->label("Positionals", "Arguments");
        app_.allow_extras();
        app_.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
        app_.add_flag("--version", version_, "Show the version");
        convert_ = addConvert(app_, convertOptions_);
        fields_ = addFields(app_, fieldsOptions_, separateFields_);
        thumbnail_ = addThumbnail(app_, thumbnailOptions_, shrinkPicture_);
        black_ = addBlack(app_, blackOptions_);
        effects_ = app_.add_subcommand("effects", "List, check, describe or watch effects");
        list_ = effects_->add_subcommand("list", "List the effects that can be used by name");
        addDevice(*list_, listOptions_.device);
        list_->add_flag("--json", listOptions_.json, "Print JSON");
        check_ = effects_->add_subcommand("check", "Compile effect files and print the compiler's messages");
        check_->add_option("FILE", checkOptions_.files, "Effect files")->option_text(" ");
        addDevice(*check_, checkOptions_.device);
        check_->add_flag("--json", checkOptions_.json, "Print JSON");
        check_->footer(checkFooter);
        formats_ = app_.add_subcommand("formats", "List the pixel formats and how they lie in memory");
        formats_->add_flag("--json", formatsOptions_.json, "Print JSON");
        formats_->add_flag("--markdown", formatsOptions_.markdown,
                           "Print a page with pictures of the layouts");
        watch_ = addWatch(*effects_, watchOptions_, watchSettings_);
        lut_ = addLut(app_, lutOptions_);
        describe_ =
            effects_->add_subcommand("describe", "Show an effect's techniques, parameters and textures");
        describe_->add_option("FILE", describeOptions_.file, "An effect file, or a name of the catalogue")
            ->option_text(" ");
        describe_->add_flag("--json", describeOptions_.json, "Print JSON");
        describe_->footer(describeFooter);
        addCache();
        devices_ = app_.add_subcommand("devices", "List the devices that conversions can run on");
        devices_->add_flag("--json", devicesOptions_.json, "Print JSON");
        diagnose_ = addDiagnose(app_, diagnoseOptions_);
        for (CLI::App* command : app_.get_subcommands({})) {
            command->group("Commands");
        }
        list_->group("Commands");
        check_->group("Commands");
        watch_->group("Commands");
        for (CLI::App* command : lut_->get_subcommands({})) {
            command->group("Commands");
        }
        describe_->group("Commands");
        cache_->group("Commands");
        app_.footer(mainFooter); // last, because commands take over their parent's
    }

    Command parse(std::vector<std::string> arguments)
    {
        std::reverse(arguments.begin(), arguments.end()); // as the library wants a vector
        try {
            app_.parse(arguments);
        } catch (const CLI::CallForHelp&) {
            return ShowText{app_.help()};
        } catch (const CLI::ParseError& error) {
            complain(error.what(), chosenCommand());
        }
        return command();
    }

private:
    void addCache()
    {
        cache_ = effects_->add_subcommand("cache", "Compiled effects and pipelines that are kept on disk");
        cacheInfo_ = cache_->add_subcommand("info", "Show where they are and how much there is");
        cacheClear_ = cache_->add_subcommand("clear", "Remove them; they are made anew when needed");
        for (CLI::App* command : {cacheInfo_, cacheClear_}) {
            command->add_flag("--json", cacheOptions_.json, "Print JSON");
            command->group("Commands");
        }
    }

    Command cacheCommand()
    {
        if (!cacheInfo_->parsed() && !cacheClear_->parsed()) {
            refuseExtras(*cache_, "effects cache");
            throw Failure(ExitCode::usage, "a command is missing after effects cache", app_.help());
        }
        const bool clear = cacheClear_->parsed();
        refuseExtras(clear ? *cacheClear_ : *cacheInfo_,
                     clear ? "effects cache clear" : "effects cache info");
        cacheOptions_.action = clear ? EffectsCacheOptions::Action::Clear : EffectsCacheOptions::Action::Info;
        return cacheOptions_;
    }

    std::string chosenCommand() const
    {
        std::string name;
        for (const CLI::App* app = &app_; !app->get_subcommands().empty();) {
            app = app->get_subcommands().front();
            name += (name.empty() ? "" : " ") + app->get_name();
        }
        return name;
    }

    Command command()
    {
        if (convert_->parsed()) {
            checkFiles(*convert_, convertOptions_);
            convertOptions_.effects = groupEffects(*convert_);
            checkBurnIn(*convert_, convertOptions_.burnIn);
            return convertOptions_;
        }
        if (fields_->parsed()) {
            checkFiles(*fields_, fieldsOptions_);
            fieldsOptions_.step = separateFields_;
            fieldsOptions_.audio = false; // its packets' times are the frames'
            return fieldsOptions_;
        }
        if (thumbnail_->parsed()) {
            checkFiles(*thumbnail_, thumbnailOptions_);
            requireSize(shrinkPicture_.width, "thumbnail");
            thumbnailOptions_.step = shrinkPicture_;
            thumbnailOptions_.frames = 1;
            thumbnailOptions_.audio = false;
            return thumbnailOptions_;
        }
        if (black_->parsed()) {
            refuseExtras(*black_, "black");
            requireValue(blackOptions_.output, "OUTPUT", "black");
            requireSize(blackOptions_.width, "black");
            blackOptions_.format = formatFor(blackOptions_.output, blackOptions_.format, "black");
            checkOutputRows(blackOptions_.format, blackOptions_.outputRowBytes, "black");
            return blackOptions_;
        }
        if (formats_->parsed()) {
            refuseExtras(*formats_, "formats");
            return formatsOptions_;
        }
        if (list_->parsed()) {
            refuseExtras(*list_, "effects list");
            return listOptions_;
        }
        if (check_->parsed()) {
            refuseExtras(*check_, "effects check");
            requireValue(checkOptions_.files.empty() ? "" : checkOptions_.files.front(), "FILE",
                         "effects check");
            return checkOptions_;
        }
        if (watch_->parsed()) {
            refuseExtras(*watch_, "effects watch");
            return watchCommand();
        }
        if (lut_->parsed()) {
            return lutCommand();
        }
        if (describe_->parsed()) {
            refuseExtras(*describe_, "effects describe");
            requireValue(describeOptions_.file, "FILE", "effects describe");
            return describeOptions_;
        }
        if (cache_->parsed()) {
            return cacheCommand();
        }
        if (devices_->parsed()) {
            refuseExtras(*devices_, "devices");
            return devicesOptions_;
        }
        if (diagnose_->parsed()) {
            return diagnoseCommand();
        }
        if (effects_->parsed()) {
            refuseExtras(*effects_, "effects");
            throw Failure(ExitCode::usage, "a command is missing after effects", app_.help());
        }
        refuseExtras(app_, "");
        if (!version_) {
            throw Failure(ExitCode::usage, "a command is missing", app_.help());
        }
        return ShowText{std::string(program) + " " QX_VERSION "\n"};
    }

    Command lutCommand()
    {
        if (lut_->get_subcommands().empty()) {
            refuseExtras(*lut_, "lut");
            throw Failure(ExitCode::usage, "a command is missing after lut", app_.help());
        }
        const CLI::App& command = *lut_->get_subcommands().front();
        const std::string name = "lut " + command.get_name();
        refuseExtras(command, name);
        lutOptions_.action = lutActionNamed(command.get_name());
        if (lutOptions_.action == LutOptions::Action::install) {
            requireValue(lutOptions_.files.empty() ? "" : lutOptions_.files.front(), "FILE", name);
        } else if (lutOptions_.action != LutOptions::Action::list) {
            requireValue(lutOptions_.file, "FILE", name);
        }
        if (lutOptions_.action == LutOptions::Action::preview) {
            requireValue(lutOptions_.output, "OUTPUT", name);
        }
        return lutOptions_;
    }

    /// A file called "-" stands for standard output.
    void chooseDiagnoseOutput()
    {
        diagnoseOptions_.json = diagnoseOptions_.jsonFile == "-";
        diagnoseOptions_.page = diagnoseOptions_.html == "-";
        if (diagnoseOptions_.json && diagnoseOptions_.page) {
            complain("--html - and --json - both want standard output; give one of them a file", "diagnose");
        }
        if (diagnoseOptions_.json) {
            diagnoseOptions_.jsonFile.clear();
        }
        if (diagnoseOptions_.page) {
            diagnoseOptions_.html.clear();
        }
    }

    Command diagnoseCommand()
    {
        refuseExtras(*diagnose_, "diagnose");
        if (!diagnoseOptions_.from.empty() &&
            (diagnoseOptions_.quick || diagnoseOptions_.save || !diagnoseOptions_.only.empty() ||
             !diagnoseOptions_.device.empty())) {
            complain(
                "--from shows a run that was measured before; --quick, --only, --device and --save say how "
                "one is measured",
                "diagnose");
        }
        for (const char* option : {"--html", "--json", "--compare", "--from", "--device"}) {
            if (diagnose_->count(option) > 0 && diagnose_->get_option(option)->as<std::string>().empty()) {
                complain(std::string(option) + " is empty; give it a value or leave it out", "diagnose");
            }
        }
        if (std::isnan(diagnoseOptions_.limit)) {
            complain("--limit: nan is no number of seconds", "diagnose");
        }
        chooseDiagnoseOutput();
        return diagnoseOptions_;
    }

    Command watchCommand()
    {
        if (watchOptions_.input.empty() != watchOptions_.output.empty()) {
            complain("--input and --output belong together: the picture, and where it is shown",
                     "effects watch");
        }
        const bool shows = !watchOptions_.output.empty();
        if (!shows && (!watchOptions_.technique.empty() || !watchSettings_.empty())) {
            complain("--technique and --set say how a picture is shown; give --input and --output too",
                     "effects watch");
        }
        for (const std::string& setting : watchSettings_) {
            watchOptions_.settings.push_back(parseSetting(setting, "effects watch"));
        }
        return watchOptions_;
    }

    CLI::App app_{"Converts clips and pictures between YCbCr and RGB on the GPU, and runs effects on them."};
    bool version_ = false;
    ConvertOptions convertOptions_;
    ConvertOptions fieldsOptions_;
    SeparateFields separateFields_;
    ConvertOptions thumbnailOptions_;
    ShrinkPicture shrinkPicture_;
    BlackOptions blackOptions_;
    FormatsOptions formatsOptions_;
    EffectsListOptions listOptions_;
    EffectsCheckOptions checkOptions_;
    EffectsWatchOptions watchOptions_;
    std::vector<std::string> watchSettings_;
    EffectsDescribeOptions describeOptions_;
    EffectsCacheOptions cacheOptions_;
    DevicesOptions devicesOptions_;
    DiagnoseOptions diagnoseOptions_;
    CLI::App* convert_ = nullptr;
    CLI::App* fields_ = nullptr;
    CLI::App* thumbnail_ = nullptr;
    CLI::App* black_ = nullptr;
    CLI::App* formats_ = nullptr;
    CLI::App* effects_ = nullptr;
    CLI::App* list_ = nullptr;
    CLI::App* check_ = nullptr;
    CLI::App* watch_ = nullptr;
    CLI::App* describe_ = nullptr;
    CLI::App* cache_ = nullptr;
    CLI::App* cacheInfo_ = nullptr;
    CLI::App* cacheClear_ = nullptr;
    CLI::App* devices_ = nullptr;
    CLI::App* diagnose_ = nullptr;
    CLI::App* lut_ = nullptr;
    LutOptions lutOptions_;
};

float parseNumber(const std::string& word, const std::string& setting, const std::string& command)
{
    if (word == "true" || word == "false") {
        return word == "true" ? 1.0F : 0.0F;
    }
    float value = 0;
    const char* end = word.data() + word.size();
    const auto [stopped, error] = std::from_chars(word.data(), end, value);
    if (word.empty() || error != std::errc() || stopped != end || !std::isfinite(value)) {
        complain("--set " + setting + ": \"" + word + "\" is no number (write 0.5, or 1,0.5,0 for a vector)",
                 command);
    }
    return value;
}

} // namespace

ParameterSetting parseSetting(const std::string& text, const std::string& command)
{
    const std::size_t equals = text.find('=');
    if (equals == 0 || equals == std::string::npos) {
        complain("--set " + text + ": write NAME=VALUE, as in --set gain=1.2", command);
    }
    ParameterSetting setting{text.substr(0, equals), {}};
    for (std::size_t begin = equals + 1; begin <= text.size();) {
        const std::size_t comma = std::min(text.find(',', begin), text.size());
        setting.values.push_back(parseNumber(text.substr(begin, comma - begin), text, command));
        begin = comma + 1;
    }
    return setting;
}

Command parseCommandLine(const std::vector<std::string>& arguments)
{
    if (std::optional<MeasureOptions> measure = measureOptionsFrom(arguments)) {
        return *measure;
    }
    std::vector<std::string> words = arguments;
    if (!words.empty() && words.front() == "help") {
        words.erase(words.begin());
        words.emplace_back("--help");
    }
    return Parser().parse(std::move(words));
}

} // namespace Qx::Program
