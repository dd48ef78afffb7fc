#include "tools/qxhost/commands/convert/ConvertCommand.h"

#include "tools/qxhost/commands/HelpFormatter.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/commands/convert/BurnInArguments.h"
#include "tools/qxhost/commands/convert/Conversion.h"
#include "tools/qxhost/commands/convert/ConversionArguments.h"
#include "tools/qxhost/commands/convert/FilterArguments.h"
#include "tools/qxhost/commands/convert/ManyConversions.h"
#include "tools/qxhost/console/Wording.h"
#include "tools/qxhost/farm/run/PiecesOfOneRun.h"
#include "tools/qxhost/pipeline/effects/ToneMap.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>

namespace Qx::Program {

namespace {

constexpr const char* manyGroup = "Many inputs, or pieces of one";
constexpr const char* tableEffect = "LUT.fx";

constexpr const char* convertFooter = R"(Examples:
  qxhost convert clip.mov shot.png --frames 1
      The first frame as one picture.
  qxhost convert clip.mov shot_%05d.png
      Every frame as a picture: shot_00001.png, shot_00002.png, ...
  qxhost convert tape.avi tape.mov --range video --matrix bt601
      For a clip without colour tags: states what its codes mean, so that nothing is guessed.
  qxhost convert clip.mov tape.mov --format v210
      Unencoded frames in a pixel format; 'qxhost formats' lists the formats and their containers.
  qxhost convert tape.raw tape.mov --raw uyvy --size 720x576 --fps 25
      Reads such frames from a file that holds nothing else.
  qxhost convert clip.mov graded.mov --effect cc3.fx --set gain=1.2 --set saturation=0.8
      Through an effect. Several run in the order given; --technique, --set and --texture belong to
      the --effect before them.
  qxhost convert clip.mov shot.mov --in 10:00:05:00 --out 10:00:09:24
      The frames of these time codes and those between them, with their audio.
  qxhost convert A001.mov A002.mov --to 'dailies/{name}.mp4' --jobs 2
      Each of them, two at a time; one that fails leaves the others alone.
  qxhost convert clip.mov dailies.mov --burn-in "{timecode}  {clip}" --position top-left
      With time code and the clip's name drawn into every frame.

Output formats, by the name's ending:
  pictures  png tif tiff bmp jpg jpeg ppm dpx tga webp
  clips     mov mkv mp4 avi mxf webm nut and whatever else FFmpeg writes
  frames    raw yuv rgb bin data, or a pixel format's name (uyvy, v210, ...)

Exit codes: 0 done, 1 failed, 2 wrong command line, 3 input missing or damaged (what could be read
is then written), 4 output, 5 GPU device, 6 effect, LUT or font, 130 interrupted.
No incomplete file is left under the output's name.)";

constexpr const char* shortFooter = R"(Examples:
  qxhost convert clip.mov shot_%05d.png            every frame as a picture
  qxhost convert clip.mov web.mp4 --resize 1280x --lut film.cube
  qxhost convert clip.mov tape.mov --format v210   unencoded frames in a pixel format

Exit codes: 0 done, 1 failed, 2 wrong command line, 3 input, 4 output, 5 GPU device, 6 effect, LUT or
font, 130 interrupted. 'qxhost convert --help-all' shows the rare options and more examples.)";

/// Those that "--help" leaves out.
std::vector<std::string> rareOptions()
{
    return {"--output-range", "--filter",   "--depth",        "--technique",   "--texture",
            "--amount",       "--date",     "--font",         "--font-size",   "--position",
            "--raw",          "--size",     "--fps",          "--row-bytes",   "--output-row-bytes",
            "--pixel-format", "--no-audio", "--audio-option", "--video-option"};
}

float parseAmount(const CLI::App& app, const std::string& word)
{
    const std::optional<float> amount = readNumber(word);
    if (!amount || *amount < 0 || *amount > 1) {
        complain(app, "--amount: invalid value \"" + word + "\": expected a number from 0 to 1");
    }
    return *amount;
}

/// Applies an option to the effect or LUT before it.
void addToStep(const CLI::App& app, EffectRequest& step, const std::string& name, const std::string& value)
{
    if ((name == "--amount") == step.lut.empty()) {
        complain(app, fmt::format("{} {} belongs to {}, but follows {} {}", name, value,
                                  name == "--amount" ? "a --lut" : "an --effect",
                                  step.lut.empty() ? "--effect" : "--lut",
                                  step.lut.empty() ? step.file : step.lut));
    }
    if (name == "--set") {
        step.settings.push_back(parseSetting(app, value));
    } else if (name == "--texture") {
        step.textures.push_back(parseTexture(app, value));
    } else if (name == "--amount") {
        step.settings.push_back({"amount", {parseAmount(app, value)}});
    } else if (!step.technique.empty()) {
        complain(app, "--effect " + step.file + " has two techniques");
    } else {
        step.technique = value;
    }
}

const Names<ToneMap> toneMaps{{"bt2390", ToneMap::bt2390}, {"bt2446a", ToneMap::bt2446a}};

void addToneMap(const CLI::App& app, std::vector<EffectRequest>& effects, const std::string& word)
{
    if (std::any_of(effects.begin(), effects.end(),
                    [](const EffectRequest& each) { return each.mapsTones; })) {
        complain(app, "--tone-map is given twice; after the first, colours are BT.709");
    }
    for (const auto& [name, method] : toneMaps) {
        if (name == CLI::detail::to_lower(word)) {
            effects.push_back(toneMapRequest(method));
            return;
        }
    }
    complain(app, fmt::format("--tone-map: invalid value \"{}\": expected {}", word,
                              listed(namesOf(toneMaps), "or")));
}

/// "--technique", "--set" and "--texture" belong to the "--effect" before them, "--amount" to the "--lut".
/// The order of effects and LUTs on the command line is the order in which they run.
std::vector<EffectRequest> groupEffects(const CLI::App& app)
{
    std::vector<EffectRequest> effects;
    std::map<const CLI::Option*, std::size_t> taken;
    for (const CLI::Option* option : app.parse_order()) {
        const std::string name = option->get_name();
        if (name == "--tone-map") {
            addToneMap(app, effects, option->results().at(taken[option]++));
            continue;
        }
        const bool begins = name == "--effect" || name == "--lut";
        if (!begins && name != "--technique" && name != "--set" && name != "--texture" &&
            name != "--amount") {
            continue;
        }
        const std::string value = option->results().at(taken[option]++);
        if (begins && value.empty()) {
            complain(app, name == "--lut" ? "--lut is empty; give a LUT file"
                                          : "--effect is empty; give an effect's name or file");
        }
        if (name == "--effect") {
            effects.push_back({value, "", {}, ""});
        } else if (name == "--lut") {
            effects.push_back({tableEffect, "", {}, value});
        } else if (effects.empty()) {
            complain(app, fmt::format("{} {} stands before any {} that it could belong to", name, value,
                                      name == "--amount" ? "--lut" : "--effect"));
        } else {
            addToStep(app, effects.back(), name, value);
        }
    }
    return effects;
}

/// The options as they were given, but for some.
std::vector<std::string> argumentsBut(const CLI::App& app, const std::vector<std::string>& others)
{
    std::vector<std::string> arguments;
    std::map<const CLI::Option*, std::size_t> taken;
    for (const CLI::Option* option : app.parse_order()) {
        const std::string name = option->get_name();
        if (option->get_positional() || std::find(others.begin(), others.end(), name) != others.end()) {
            continue;
        }
        if (option->get_items_expected_max() == 0) { // a flag
            arguments.push_back(name);
            continue;
        }
        // Of an option that is given twice, the last value counts.
        const std::vector<std::string>& values = option->results();
        const std::size_t place = std::min(taken[option]++, values.size() - 1);
        arguments.push_back(name + "=" + values.at(place));
    }
    return arguments;
}

} // namespace

void ConvertCommand::addConversion(CLI::App& app)
{
    addColour(app, options_);
    addEffects(app);
    addBurnIn(app, options_.burnIn);
    addFilters(app, options_.filters, shortFilters_);
    addRange(app, options_.picked, "Frames", true);
    addRawInput(app, options_.raw, SizeOption::ofInput);
    addOutput(app, options_);
    addAudio(app, options_);
}

void ConvertCommand::addOptions(CLI::App& app)
{
    addFiles(app, options_, "A clip, a picture, a pattern such as shot_%05d.png, or raw frames");
    addConversion(app);
    addMany(app);
    addSegments(app, manyGroup);
    addOther(app, options_);
    app.add_flag_callback("--no-progress", [this] { options_.progress = false; })->group("");
    app.set_help_all_flag("--help-all", "Show the rare options and more examples too")
        ->group("Other options");
    app.footer(convertFooter);
    app.formatter(std::make_shared<HelpFormatter>(rareOptions(), shortFooter));
}

void ConvertCommand::checkConversion(const CLI::App& app)
{
    checkFiles(app, options_);
    options_.effects = groupEffects(app);
    checkBurnIn(app, options_.burnIn);
    checkRange(app);
    options_.filters.shortForms = graphOf(shortFilters_);
    if (options_.format && !options_.filters.after.empty()) {
        complain(app, "--after filters pictures on their way to an encoder; it cannot be combined with "
                      "--format, which writes frames unencoded");
    }
}

void ConvertCommand::check(const CLI::App& app)
{
    collectInputs(app);
    checkConversion(app);
    if (segments_ && app.count("--to") > 0) {
        complain(app, "--segments splits one conversion, --to converts many; give one of them");
    }
    if (segments_) {
        segmentArguments_ = conversionArguments(app);
        segmentJobs_ = app.count("--jobs") > 0 ? many_.jobs : 0;
    }
}

ExitCode ConvertCommand::run(Console& console)
{
    if (segments_) {
        return runInSegments(console);
    }
    return many_.to.empty() ? runConversion(options_, console) : convertMany(many_, console);
}

ExitCode ConvertCommand::runInSegments(Console& console)
{
    return Farm::convertInPieces({.options = options_,
                                  .arguments = segmentArguments_,
                                  .pieces = *segments_ > 0 ? segments_ : std::nullopt,
                                  .jobs = segmentJobs_},
                                 console);
}

void ConvertCommand::addSegments(CLI::App& app, const std::string& group)
{
    const auto set = [this](const std::string& word) {
        segments_ = word == "auto" ? 0 : parseCount("--segments", word, 1, ", or auto");
    };
    app.add_option_function<std::string>("--segments", set, "Convert in N pieces, and join them")
        ->option_text("N|auto")
        ->group(group);
}

std::vector<std::string> ConvertCommand::conversionArguments(const CLI::App& app)
{
    return argumentsBut(app, {"--to", "--jobs", "--json", "--segments", "--job", "--copy-input", "--force",
                              "--quiet", "--device", "--no-progress"});
}

void ConvertCommand::addMany(CLI::App& app)
{
    const std::string group = manyGroup;
    app.add_option("--to", many_.to, "Convert each INPUT to this name; fields: {name}, {folder}")
        ->option_text("NAME")
        ->group(group);
    addCount(app, "--jobs", many_.jobs, 1, "Inputs, or pieces, to convert at a time. Default: 1, or 2")
        ->group(group);
    app.add_option("MORE", many_.inputs)->group("");
}

/// With "--to", OUTPUT is an input like the others. The options are then checked for the first of them.
void ConvertCommand::collectInputs(const CLI::App& app)
{
    if (app.count("--to") == 0) {
        if (!many_.inputs.empty()) {
            complain(app, "unexpected argument \"" + many_.inputs.front().string() +
                              "\"; several inputs need --to NAME");
        }
        if (app.count("--jobs") > 0 && !segments_) {
            complain(app,
                     "--jobs is for several inputs, or pieces of one; add --to NAME, or --segments auto");
        }
        return;
    }
    if (many_.to.empty()) {
        complain(app, "--to is empty; give a name, such as 'dailies/{name}.mp4'");
    }
    requireValue(app, options_.input, "INPUT");
    if (!options_.output.empty()) {
        many_.inputs.insert(many_.inputs.begin(), options_.output);
    }
    many_.inputs.insert(many_.inputs.begin(), options_.input);
    options_.output = outputFor(options_.input, many_.to);
    many_.arguments = argumentsBut(app, {"--to", "--jobs", "--json"});
    many_.force = options_.force;
    many_.quiet = options_.quiet;
    many_.json = options_.json;
}

void ConvertCommand::addEffects(CLI::App& app)
{
    const auto addText = [&](const std::string& name, const std::string& text, const std::string& about) {
        app.add_option(name, texts_, about)
            ->option_text(text)
            ->allow_extra_args(false)
            ->take_all()
            ->group("Effects");
    };
    addText("--effect", "FILE.fx", "Run an effect: a name of 'qxhost effects list' or a path");
    addText("--technique", "NAME", "The effect's technique. Default: its first");
    addText("--set", "NAME=V[,V...]", "A parameter of the effect; several values for a vector");
    addText("--texture", "NAME=FILE", "A picture or clip for another texture of the effect");
    addText("--lut", "FILE",
            "Apply a LUT: a name of 'qxhost lut list' or a path.\nEffects and LUTs run in the "
            "order given");
    addText("--tone-map", CLI::detail::join(namesOf(toneMaps), "|"), "Make BT.709 of PQ, HLG or BT.2020");
    addText("--amount", "A", "How far the LUT before it changes the picture,\nfrom 0 to 1. Default: 1");
    addDate(app, options_.date)->group("Effects");
}

namespace {

const Registered<ConvertCommand> registeredConvert(
    {.name = "convert",
     .order = 10,
     .about = "Convert a clip or picture on the GPU",
     .examples = R"(  qxhost convert clip.mov shot_%05d.png            every frame as a picture, RGB
  qxhost convert clip.mov graded.mov --effect cc3.fx --set gain=1.2
  qxhost convert clip.mov tape.mov --format v210   unencoded frames in a pixel format
)"});

} // namespace

} // namespace Qx::Program
