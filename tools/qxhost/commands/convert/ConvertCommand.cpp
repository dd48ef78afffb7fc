#include "tools/qxhost/commands/convert/ConvertCommand.h"

#include "host/core/Suggestion.h"
#include "tools/qxhost/commands/CommandLine.h"
#include "tools/qxhost/commands/HelpFormatter.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/commands/convert/BurnInArguments.h"
#include "tools/qxhost/commands/convert/Conversion.h"
#include "tools/qxhost/commands/convert/ConversionArguments.h"
#include "tools/qxhost/commands/convert/FilterArguments.h"
#include "tools/qxhost/commands/convert/ManyConversions.h"
#include "tools/qxhost/commands/convert/Preset.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Wording.h"
#include "tools/qxhost/farm/run/PiecesOfOneRun.h"
#include "tools/qxhost/pipeline/effects/ToneMap.h"

#include <algorithm>
#include <fmt/format.h>
#include <functional>
#include <map>
#include <optional>

namespace Qx::Program {

namespace {

namespace fs = std::filesystem;

constexpr const char* severalGroup = "Many inputs, and pieces of one";

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
      Through an effect. Effects and LUTs run in the order given; --technique, --set and --texture belong to
      the --effect before them.
  qxhost convert clip.mov shot.mov --in 10:00:05:00 --out 10:00:09:24
      The frames of these time codes and those between them, with their audio.
  qxhost convert A001.mov A002.mov --to 'dailies/{name}.mp4' --jobs 2
      Each of them, two at a time; one that fails leaves the others alone.
  qxhost convert plate_%06d.dpx graded_%06d.exr --lut film.cube
      A sequence, whose numbers are kept.
  ffmpeg -i clip.mov -f nut -c:v rawvideo - | qxhost convert - - | ffmpeg -i - out.mkv
      From standard input to standard output.
  qxhost convert clip.mov dailies.mov --burn-in "{timecode}  {clip}" --position top-left
      With time code and the clip's name drawn into every frame.

Output formats, by the name's ending:
  pictures  png tif tiff bmp jpg jpeg ppm dpx exr tga webp
  clips     mov mkv mp4 avi mxf webm nut and whatever else FFmpeg writes
  frames    raw yuv rgb bin data, or a pixel format's name (uyvy, v210, ...)

Exit codes: 0 done, 1 failed, 2 wrong command line, 3 input missing or damaged (what could be read
is then written), 4 output, 5 GPU device, 6 effect, LUT or font, 130 interrupted.
No incomplete file is left under the output's name.)";

constexpr const char* shortFooter =
    "'qxhost convert --help-all' shows every option, examples and the exit codes.";

/// Those that "--help" shows, at most what fits a screen and a half; "--help-all" has every one.
std::vector<std::string> usualOptions()
{
    return {"INPUT",         "OUTPUT",   "--range",  "--matrix",  "--effect",  "--set",
            "--lut",         "--look",   "--resize", "--start",   "--in",      "--frames",
            "--out",         "--format", "--codec",  "--profile", "--quality", "--force",
            "--audio-codec", "--to",     "--preset", "--json",    "--help",    "--help-all"};
}

float parseAmount(const CLI::App& app, const std::string& word)
{
    const std::optional<float> amount = readNumber(word);
    if (!amount || *amount < 0 || *amount > 1) {
        complain(app, "--amount: invalid value \"" + word + "\": expected a number from 0 to 1");
    }
    return *amount;
}

/// The option that begins a step.
enum class Beginning
{
    effect,
    lut,
    ocio,
    look
};

constexpr const char* optionOf(Beginning beginning)
{
    switch (beginning) {
    case Beginning::lut:
        return "--lut";
    case Beginning::ocio:
        return "--ocio";
    case Beginning::look:
        return "--look";
    case Beginning::effect:
        break;
    }
    return "--effect";
}

Beginning beginningOf(const EffectRequest& step)
{
    if (step.isLook()) {
        return Beginning::look;
    }
    return step.ocio ? Beginning::ocio : step.lut.empty() ? Beginning::effect : Beginning::lut;
}

/// What was given to that option.
std::string valueOf(const EffectRequest& step)
{
    switch (beginningOf(step)) {
    case Beginning::lut:
        return step.lut;
    case Beginning::ocio:
        return step.ocio->config.string();
    case Beginning::look:
        return step.look.string();
    case Beginning::effect:
        break;
    }
    return step.file;
}

/// What the further options of steps belong to, one of these.
const std::map<std::string, std::vector<Beginning>> furtherOptions{
    {"--technique", {Beginning::effect}}, {"--set", {Beginning::effect}},
    {"--texture", {Beginning::effect}},   {"--amount", {Beginning::lut, Beginning::ocio}},
    {"--from", {Beginning::ocio}},        {"--to", {Beginning::ocio}},
    {"--display", {Beginning::ocio}},     {"--view", {Beginning::ocio}}};

/// "a --lut or an --ocio".
std::string ownersOf(const std::string& name)
{
    std::vector<std::string> owners;
    for (const Beginning owner : furtherOptions.at(name)) {
        owners.push_back(std::string(owner == Beginning::lut ? "a " : "an ") + optionOf(owner));
    }
    return listed(owners, "or");
}

/// Sets a part of "--ocio", once.
void setOnce(const CLI::App& app, std::string& part, const std::string& name, const std::string& value)
{
    if (value.empty()) {
        complain(app, name + " is empty; 'qxhost ocio' lists the names of a configuration");
    }
    if (!part.empty()) {
        complain(app, fmt::format("{} is given twice for one --ocio", name));
    }
    part = value;
}

/// Applies an option to the effect, LUT or change of colour spaces before it.
void addToStep(const CLI::App& app, EffectRequest& step, const std::string& name, const std::string& value)
{
    const std::vector<Beginning>& owners = furtherOptions.at(name);
    const Beginning beginning = beginningOf(step);
    if (std::find(owners.begin(), owners.end(), beginning) == owners.end()) {
        complain(app, fmt::format("{} {} belongs to {}, but follows {} {}", name, value, ownersOf(name),
                                  optionOf(beginning), valueOf(step)));
    }
    if (name == "--from") {
        setOnce(app, step.ocio->from, name, value);
    } else if (name == "--to") {
        setOnce(app, step.ocio->to, name, value);
    } else if (name == "--display") {
        setOnce(app, step.ocio->display, name, value);
    } else if (name == "--view") {
        setOnce(app, step.ocio->view, name, value);
    } else if (name == "--set") {
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

/// The step that an option begins, if it begins one.
std::optional<EffectRequest> beginStep(const CLI::App& app, const std::string& name, const std::string& value)
{
    if (name == "--effect") {
        if (value.empty()) {
            complain(app, "--effect is empty; give an effect's name or file");
        }
        return EffectRequest{value, "", {}, ""};
    }
    if (name == "--lut") {
        if (value.empty()) {
            complain(app, "--lut is empty; give a LUT file");
        }
        if (value.ends_with(".look.toml")) {
            complain(app, fmt::format("--lut {0} names a look, which is no LUT; give --look {0}", value));
        }
        return EffectRequest{tableEffect, "", {}, value};
    }
    if (name == "--ocio") {
        if (value.empty()) {
            complain(app, "--ocio is empty; give an OpenColorIO configuration, such as studio.ocio");
        }
        EffectRequest step{tableEffect, "", {}, ""};
        step.ocio.emplace().config = value;
        return step;
    }
    if (name == "--look") {
        if (value.empty()) {
            complain(app, "--look is empty; give a look, such as warm.look.toml");
        }
        EffectRequest step{"", "", {}, ""};
        step.look = value;
        return step;
    }
    return {};
}

/// Colours come from one end and go to another; a view of a display is one of them.
void checkEnds(const CLI::App& app, const Host::ColourSpaceChange& change)
{
    if (change.display.empty() && !change.view.empty()) {
        complain(app, fmt::format("--view {}: add the --display that has it", change.view));
    }
    const int ends =
        (change.from.empty() ? 0 : 1) + (change.to.empty() ? 0 : 1) + (change.display.empty() ? 0 : 1);
    if (ends != 2) {
        complain(app, fmt::format("--ocio {}: expected two of --from SPACE, --to SPACE and --display NAME; "
                                  "'qxhost ocio {}' lists them",
                                  change.config.string(), change.config.string()));
    }
}

/// "--technique", "--set" and "--texture" belong to the "--effect" before them, "--amount" to the "--lut".
/// The order of effects and LUTs on the command line is the order in which they run.
/// "--to" belongs to the "--ocio" before it unless it has a field, as the name for many inputs has; that name
/// is put into `to`.
std::vector<EffectRequest> groupEffects(const CLI::App& app, std::optional<std::string>& to)
{
    std::vector<EffectRequest> effects;
    for (const auto& [option, name, value] : givenOptions(app)) {
        if (name == "--tone-map") {
            addToneMap(app, effects, value);
            continue;
        }
        const bool ofOcio = !effects.empty() && effects.back().ocio && value.find('{') == std::string::npos;
        if (name == "--to" && !ofOcio) {
            to = value;
        } else if (std::optional<EffectRequest> step = beginStep(app, name, value)) {
            effects.push_back(*std::move(step));
        } else if (furtherOptions.count(name) == 0) {
            continue;
        } else if (effects.empty()) {
            complain(app, fmt::format("{} {} stands before any {} that it could belong to", name, value,
                                      optionOf(furtherOptions.at(name).front())));
        } else {
            addToStep(app, effects.back(), name, value);
        }
    }
    for (const EffectRequest& effect : effects) {
        if (effect.ocio) {
            checkEnds(app, *effect.ocio);
        }
    }
    return effects;
}

/// The options as they were given, but for some, and for "--to" with this value.
std::vector<std::string> argumentsBut(const CLI::App& app, const std::vector<std::string>& others,
                                      const std::string& to = {})
{
    std::vector<std::string> arguments;
    for (const GivenOption& each : givenOptions(app)) {
        const bool isOther = std::find(others.begin(), others.end(), each.name) != others.end();
        if (!isOther && (each.name != "--to" || each.value != to)) {
            arguments.push_back(each.isFlag() ? each.name : each.name + "=" + each.value);
        }
    }
    return arguments;
}

/// What is wrong with a command line; empty if nothing is.
std::string complaintAbout(const std::vector<std::string>& words)
{
    try {
        parseCommandLine(words);
        return {};
    } catch (const Failure& failure) {
        return failure.what();
    }
}

/// If a preset makes a command line wrong, throws Failure (usage) with the line of the first option with
/// which it is. `withFirst` gives the command line with so many of the preset's options.
void complainByLine(const Preset& preset,
                    const std::function<std::vector<std::string>(std::size_t)>& withFirst)
{
    const std::string complaint = complaintAbout(withFirst(preset.options.size()));
    if (complaint.empty() || complaintAbout(withFirst(0)) == complaint) {
        return;
    }
    for (std::size_t i = 0; i < preset.options.size(); ++i) {
        if (complaintAbout(withFirst(i + 1)) == complaint) {
            complainOfPreset(preset.file, preset.options[i].line, complaint);
        }
    }
}

} // namespace

/// The preset's options come first, so that those of the command line have the last word.
std::optional<std::vector<std::string>> ConvertCommand::expanded(const CLI::App& app)
{
    if (app.count("--preset") == 0) {
        return {};
    }
    Preset preset = readPreset(presetFile(preset_));
    checkPreset(preset);
    std::vector<std::string> given;
    std::vector<std::string> words;
    for (const GivenOption& each : givenOptions(app)) {
        if (each.name != "--preset") {
            given.push_back(each.name);
            words.push_back(each.isFlag() ? each.name : each.name + "=" + each.value);
        }
    }
    words.emplace_back("--");
    for (const fs::path& file : {options_.input, options_.output}) {
        if (!file.empty()) {
            words.push_back(file.string());
        }
    }
    for (const fs::path& file : many_.inputs) {
        words.push_back(file.string());
    }
    preset.options = givingWayTo(given, std::move(preset.options));
    const std::vector<std::string> name = CLI::detail::split(commandName(app), ' ');
    const auto withFirst = [&](std::size_t count) {
        std::vector<std::string> all = name;
        for (std::size_t i = 0; i < count; ++i) {
            all.push_back(preset.options[i].word);
        }
        all.insert(all.end(), words.begin(), words.end());
        return all;
    };
    complainByLine(preset, withFirst);
    return withFirst(preset.options.size());
}

/// Throws Failure (usage), which names the line, for an option that the command has not, or a value that the
/// option does not take.
void ConvertCommand::checkPreset(const Preset& preset)
{
    ConvertCommand command;
    CLI::App app;
    app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    command.addOptions(app);
    std::vector<std::string> known;
    for (const CLI::Option* option : app.get_options()) {
        known.insert(known.end(), option->get_lnames().begin(), option->get_lnames().end());
    }
    for (const Preset::Option& option : preset.options) {
        const std::string key = option.name.substr(2);
        if (std::find(known.begin(), known.end(), key) == known.end()) {
            complainOfPreset(preset.file, option.line,
                             "convert has no option " + key + Host::didYouMean(key, known));
        }
        try {
            std::vector<std::string> word{option.word};
            settleDither(word);
            app.parse(word);
        } catch (const CLI::ParseError& error) {
            complainOfPreset(preset.file, option.line, error.what());
        }
    }
}

void ConvertCommand::addConversion(CLI::App& app)
{
    addColour(app, options_);
    addAlphaAndDither(app, options_);
    addEffects(app);
    addBurnIn(app, texts_);
    addFilters(app, options_.filters, shortFilters_);
    app.add_flag("--rotate", options_.rotates, "Turn and flip pictures as players would")
        ->group("FFmpeg's filters");
    addRange(app, options_.picked, "Frames", true);
    addSequence(app, options_.sequence);
    addRawInput(app, options_.raw, SizeOption::ofInput);
    addOutput(app, options_);
    addAudio(app, options_);
}

void ConvertCommand::addOptions(CLI::App& app)
{
    addFiles(app, options_, "A clip, a picture, shot_%05d.png, raw frames, or -");
    addConversion(app);
    addMany(app);
    addSegments(app, severalGroup);
    addPreset(app);
    addOther(app, options_);
    app.add_flag_callback("--no-progress", [this] { options_.progress = false; })->group("");
    app.set_help_all_flag("--help-all", "Show every option, with examples")->group("Other options");
    app.footer(convertFooter);
    app.formatter(std::make_shared<HelpFormatter>(usualOptions(), shortFooter));
}

std::optional<std::string> ConvertCommand::takeSteps(const CLI::App& app)
{
    std::optional<std::string> to;
    options_.effects = groupEffects(app, to);
    return to;
}

void ConvertCommand::checkConversion(const CLI::App& app)
{
    checkFiles(app, options_);
    options_.burnIns = groupBurnIns(app);
    checkRange(app);
    options_.filters.deinterlace = shortFilters_.deinterlace;
    options_.filters.shortForms = graphOf(shortFilters_);
    if (options_.format && options_.dithers()) {
        complain(app, "--dither is for pictures that are encoded; it cannot be combined with --format");
    }
    if (options_.format && !options_.filters.after.empty()) {
        complain(app, "--after filters pictures on their way to an encoder; it cannot be combined with "
                      "--format, which writes frames unencoded");
    }
}

void ConvertCommand::check(const CLI::App& app)
{
    const std::optional<std::string> to = takeSteps(app);
    collectInputs(app, to);
    checkConversion(app);
    if (segments_ && to) {
        complain(app, "--segments splits one conversion, --to converts many; give one of them");
    }
    if (segments_ && (options_.input == Media::standardName || options_.output == Media::standardName)) {
        complain(app, "--segments needs files: standard input and output (-) cannot be split");
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

void ConvertCommand::addPreset(CLI::App& app)
{
    app.add_option("--preset", preset_, "Options from a file: a name of 'qxhost presets', or a file")
        ->option_text("NAME|FILE")
        ->group("Other options");
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
    return argumentsBut(app, {"--jobs", "--json", "--segments", "--job", "--copy-input", "--force", "--quiet",
                              "--device", "--no-progress"});
}

CLI::Option* ConvertCommand::addTo(CLI::App& app, const char* value, const char* about)
{
    return app.add_option("--to", texts_, about)->option_text(value)->allow_extra_args(false)->take_all();
}

void ConvertCommand::addMany(CLI::App& app)
{
    const std::string group = severalGroup;
    addTo(app, "NAME", "Convert each INPUT to this name; fields: {name}, {folder}")->group(group);
    addCount(app, "--jobs", many_.jobs, 1, "Inputs or pieces to convert at a time. Default: 1, or 2")
        ->group(group);
    app.add_option("MORE", many_.inputs)->group("");
}

/// With "--to", OUTPUT is an input like the others. The options are then checked for the first of them.
void ConvertCommand::collectInputs(const CLI::App& app, const std::optional<std::string>& to)
{
    if (!to) {
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
    many_.to = *to;
    if (many_.to.empty()) {
        complain(app, "--to is empty; give a name, such as 'dailies/{name}.mp4'");
    }
    requireValue(app, options_.input, "INPUT");
    if (!options_.output.empty()) {
        many_.inputs.insert(many_.inputs.begin(), options_.output);
    }
    many_.inputs.insert(many_.inputs.begin(), options_.input);
    for (const fs::path& input : many_.inputs) {
        if (input == Media::standardName) {
            complain(app, "standard input (-) cannot be one of several inputs; convert it by itself");
        }
    }
    options_.output = outputFor(options_.input, many_.to);
    many_.arguments = argumentsBut(app, {"--jobs", "--json"}, many_.to);
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
    addText("--lut", "FILE", "Apply a LUT: a name of 'qxhost lut list' or a path");
    addText("--look", "FILE", "The steps of a look, a .look.toml file");
    addText("--tone-map", CLI::detail::join(namesOf(toneMaps), "|"), "Make BT.709 of PQ, HLG or BT.2020");
    addText("--amount", "A", "How far the LUT before it changes the picture,\nfrom 0 to 1. Default: 1");
    addText("--ocio", "CONFIG", "Change colour spaces of an OpenColorIO configuration");
    addText(
        "--from", "SPACE",
        "The colour space of the picture; without it, the display's.\n--to SPACE is the one to make of it");
    addText("--display", "NAME", "Or the display to make it for, with the --view after it");
    addText("--view", "NAME", "A view of the display. Default: its first");
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
