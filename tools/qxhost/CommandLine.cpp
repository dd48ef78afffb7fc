#include "tools/qxhost/CommandLine.h"

#include "host/core/Suggestion.h"
#include "tools/qxhost/Failure.h"
#include "tools/qxhost/Wording.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <cmath>
#include <fmt/format.h>
#include <map>

namespace Qx::Program {

namespace {

constexpr const char* program = "qxhost";

constexpr const char* mainFooter = R"(Examples:
  qxhost convert clip.mov shot_%05d.png            every frame as a picture, RGB
  qxhost convert clip.mov graded.mov --effect cc3.fx --set gain=1.2
  qxhost effects list                              the effects that can be used by name
  qxhost devices                                   what the conversions can run on

'qxhost COMMAND --help' says more about a command.)";

constexpr const char* convertFooter = R"(Examples:
  qxhost convert clip.mov shot.png --frames 1
      The first frame as one picture.
  qxhost convert clip.mov shot_%05d.png
      Every frame as a picture: shot_00001.png, shot_00002.png, ...
  qxhost convert tape.avi tape.mov --range video --matrix bt601
      For a clip without colour tags: says what its codes mean instead of having them guessed.
  qxhost convert clip.mov graded.mov --effect cc3.fx --set gain=1.2 --set saturation=0.8
      Through an effect. Several run in the order given; --technique and --set belong to the --effect
      before them.

Output formats, by the name's ending:
  pictures  png tif tiff bmp jpg jpeg ppm dpx tga webp
  clips     mov mkv mp4 avi mxf webm nut and whatever else FFmpeg writes

Exit codes: 0 done, 1 failed, 2 wrong command line, 3 input (missing, or damaged: then
what could be read is written), 4 output, 5 GPU device, 6 effect, 130 interrupted. Nothing incomplete is left behind under the output's name.)";

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
        if (error != std::errc() || end != word.data() + word.size() || value < smallest) {
            throw CLI::ValidationError(option, "\"" + word + "\" is no whole number from " +
                                                   std::to_string(smallest) + " on");
        }
        target = value;
    };
    return app.add_option_function<std::string>(option, set, description)->option_text("N");
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

/// "--technique" and "--set" speak of the "--effect" before them, so their order on the command line counts.
std::vector<EffectRequest> groupEffects(const CLI::App& app)
{
    std::vector<EffectRequest> effects;
    std::map<const CLI::Option*, std::size_t> taken;
    for (const CLI::Option* option : app.parse_order()) {
        const std::string name = option->get_name();
        if (name != "--effect" && name != "--technique" && name != "--set") {
            continue;
        }
        const std::string value = option->results().at(taken[option]++);
        if (name == "--effect" && value.empty()) {
            complain("--effect is empty; give an effect's name or file", "convert");
        }
        if (name == "--effect") {
            effects.push_back({value, "", {}});
        } else if (effects.empty()) {
            complain(fmt::format("{} {} stands before any --effect that it could belong to", name, value),
                     "convert");
        } else if (name == "--set") {
            effects.back().settings.push_back(parseSetting(value, "convert"));
        } else if (!effects.back().technique.empty()) {
            complain("--effect " + effects.back().file + " has two techniques", "convert");
        } else {
            effects.back().technique = value;
        }
    }
    return effects;
}

CLI::App* addConvert(CLI::App& app, ConvertOptions& options)
{
    CLI::App* convert = app.add_subcommand("convert", "Convert a clip or picture to RGB on the GPU");
    convert->add_option("INPUT", options.input, "Any clip or picture that FFmpeg reads")->option_text(" ");
    convert->add_option("OUTPUT", options.output, "A clip, a picture, or a pattern such as shot_%05d.png")
        ->option_text(" ");

    const std::string colour = "Colour";
    addChoice(*convert, "--range", options.range, ranges, "Range of the input's codes, whatever its tags say")
        ->group(colour);
    addChoice(*convert, "--matrix", options.matrix, matrices, "Matrix of the input, whatever its tags say")
        ->group(colour);
    addChoice(*convert, "--output-range", options.outputRange, ranges,
              "Range of the RGB made. Default: full; video for a clip\nof YCbCr without effects, which keeps "
              "what is beyond\nblack and white")
        ->group(colour);
    addChoice(*convert, "--filter", options.filter, filters,
              "How chroma is interpolated. Default: catmullrom")
        ->group(colour);
    addChoice(*convert, "--depth", options.depth, depths,
              "Bits of a component on the GPU. Default: 8 for inputs\nof 8 bits, 16 for deeper ones")
        ->group(colour);

    const std::string effects = "Effects";
    static std::vector<std::string> texts; // read through parse_order()
    texts.clear();
    const auto addText = [&](const std::string& name, const std::string& text, const std::string& about) {
        convert->add_option(name, texts, about)
            ->option_text(text)
            ->allow_extra_args(false)
            ->take_all()
            ->group(effects);
    };
    addText("--effect", "FILE.fx", "Run an effect: a name of 'qxhost effects list' or a path");
    addText("--technique", "NAME", "The effect's technique. Default: its first");
    addText("--set", "NAME=V[,V...]", "A parameter of the effect; several values for a vector");

    const std::string frames = "Frames";
    addCount(*convert, "--start", options.start, 0, "Leave out the first N frames")->group(frames);
    addCount(*convert, "--frames", options.frames, 1, "Convert N frames at most")->group(frames);

    const std::string output = "Output";
    convert
        ->add_option("--codec", options.codec, "FFmpeg's name of the encoder. Default: by the output's name")
        ->option_text("NAME")
        ->group(output);
    convert->add_option("--pixel-format", options.pixelFormat, "FFmpeg's name of a format the encoder takes")
        ->option_text("NAME")
        ->group(output);
    convert
        ->add_flag_callback(
            "--no-audio", [&options] { options.audio = false; }, "Leave the audio out")
        ->group(output);
    convert->add_flag("--force", options.force, "Replace output files that exist")->group(output);

    const std::string other = "Other options";
    addDevice(*convert, options.device)->group(other);
    convert->add_flag("--quiet", options.quiet, "Say nothing but errors")->group(other);
    convert->add_flag("--json", options.json, "Print what was done as JSON on standard output")->group(other);
    convert->set_help_flag("-h,--help", "Show this help")->group(other);
    convert->footer(convertFooter);
    return convert;
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
        effects_ = app_.add_subcommand("effects", "List, check, describe or watch effects");
        list_ = effects_->add_subcommand("list", "List the effects that can be used by name");
        addDevice(*list_, listOptions_.device);
        list_->add_flag("--json", listOptions_.json, "Print JSON");
        check_ = effects_->add_subcommand("check", "Compile effect files and print the compiler's messages");
        check_->add_option("FILE", checkOptions_.files, "Effect files")->option_text(" ");
        addDevice(*check_, checkOptions_.device);
        check_->add_flag("--json", checkOptions_.json, "Print JSON");
        check_->footer(checkFooter);
        watch_ = addWatch(*effects_, watchOptions_, watchSettings_);
        describe_ =
            effects_->add_subcommand("describe", "Show an effect's techniques, parameters and textures");
        describe_->add_option("FILE", describeOptions_.file, "An effect file, or a name of the catalogue")
            ->option_text(" ");
        describe_->add_flag("--json", describeOptions_.json, "Print JSON");
        describe_->footer(describeFooter);
        addCache();
        devices_ = app_.add_subcommand("devices", "List the devices that conversions can run on");
        devices_->add_flag("--json", devicesOptions_.json, "Print JSON");
        for (CLI::App* command : app_.get_subcommands({})) {
            command->group("Commands");
        }
        list_->group("Commands");
        check_->group("Commands");
        watch_->group("Commands");
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
            refuseExtras(*convert_, "convert");
            requireValue(convertOptions_.input, "INPUT", "convert");
            requireValue(convertOptions_.output, "OUTPUT", "convert");
            convertOptions_.effects = groupEffects(*convert_);
            return convertOptions_;
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

    CLI::App app_{
        "Converts clips and pictures from YCbCr 4:2:2 to RGB on the GPU, and runs effects on them."};
    bool version_ = false;
    ConvertOptions convertOptions_;
    EffectsListOptions listOptions_;
    EffectsCheckOptions checkOptions_;
    EffectsWatchOptions watchOptions_;
    std::vector<std::string> watchSettings_;
    EffectsDescribeOptions describeOptions_;
    EffectsCacheOptions cacheOptions_;
    DevicesOptions devicesOptions_;
    CLI::App* convert_ = nullptr;
    CLI::App* effects_ = nullptr;
    CLI::App* list_ = nullptr;
    CLI::App* check_ = nullptr;
    CLI::App* watch_ = nullptr;
    CLI::App* describe_ = nullptr;
    CLI::App* cache_ = nullptr;
    CLI::App* cacheInfo_ = nullptr;
    CLI::App* cacheClear_ = nullptr;
    CLI::App* devices_ = nullptr;
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
    std::vector<std::string> words = arguments;
    if (!words.empty() && words.front() == "help") {
        words.erase(words.begin());
        words.emplace_back("--help");
    }
    return Parser().parse(std::move(words));
}

} // namespace Qx::Program
