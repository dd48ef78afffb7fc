#include "QxFxResources/Manager.h"
#include "host/Host.h"
#include "host/effects/EffectCompilation.h"
#include "host/gpu/GPUService.h"
#include "platform/Settings.h"
#include "platform/Text.h"
#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/commands/convert/Conversion.h"
#include "tools/qxhost/commands/effects/DirectoryWatch.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Interruption.h"
#include "tools/qxhost/media/files/PartFiles.h"
#include "tools/qxhost/pipeline/device/HostSession.h"
#include "tools/qxhost/pipeline/device/HostText.h"
#include "tools/qxhost/pipeline/effects/EffectFile.h"
#include "tools/qxhost/pipeline/output/PictureOutput.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fmt/format.h>
#include <optional>
#include <string>

namespace Qx::Program {

namespace {

constexpr const char* watchFooter = R"(Examples:
  qxhost effects watch my/glow.fx --input photo.png --output preview.png
      Draws photo.png through glow.fx into preview.png, again each time glow.fx, a file that it
      includes, photo.png or the picture of a texture is saved. A viewer that reloads shows the result.
  qxhost effects watch my
      Compiles what is saved in the directory and prints the messages.

Meanwhile the file's directory replaces the user's templates. If a file does not compile, the last
good effect and the picture stay. Ctrl-C ends the command.)";

struct WatchOptions
{
    std::filesystem::path file;   ///< an effect, a directory of effects, or a name; empty: the catalogue
    std::filesystem::path input;  ///< the picture to show the effect on
    std::filesystem::path output; ///< the picture to write; empty: none
    std::string technique;
    std::vector<ParameterSetting> settings;
    std::vector<TextureFile> textures;
    std::optional<DateTime> date; ///< of the picture; empty: now
    bool force = false;
    std::string device;
};

using FxResources::Manager;
using FxResources::ShaderEffectInfo;
using std::filesystem::path;

bool isDirectory(const path& name)
{
    std::error_code ignored;
    return std::filesystem::is_directory(name, ignored);
}

bool isSameDirectory(const path& one, const path& other)
{
    std::error_code ignored;
    return std::filesystem::equivalent(one, other, ignored);
}

/// What is watched: the directory that replaces the user's templates, if any, and the effect that is shown,
/// if one was named.
struct Target
{
    path directory;
    std::string effect;
};

Target targetOf(const path& named)
{
    if (named.empty()) {
        return {};
    }
    std::error_code error;
    const path whole = std::filesystem::absolute(named, error);
    if (isDirectory(whole)) {
        return {whole, ""};
    }
    if (!std::filesystem::is_regular_file(whole, error)) {
        if (!named.has_parent_path()) {
            return {"", named.string()}; // a name of the catalogue
        }
        throw Failure(ExitCode::input, named.string() + ": there is no file and no directory of this name");
    }
    if (whole.extension() != ".fx" || whole.filename().string().starts_with('_')) {
        throw Failure(ExitCode::input,
                      named.string() +
                          ": is not an effect of the catalogue; their names end in .fx and do not begin "
                          "with an underscore. Name the effect that includes it, or the directory");
    }
    return {whole.parent_path(), whole.string()};
}

/// Makes the catalogue list the directory instead of the user's templates. Call it before the host reads its
/// settings.
void useAsTemplates(const path& directory)
{
    if (!directory.empty() && !isSameDirectory(directory, narrow(getShadersDir()))) {
        ::setenv("QX_TEMPLATES_DIR", directory.c_str(), 1);
    }
}

std::vector<path> watchedDirectories()
{
    std::vector<path> directories;
    for (const LightweightString<char>& directory : Host::effectDirectories()) {
        directories.emplace_back(directory.view());
    }
    return directories;
}

/// When each of the files was last written; the least time for those that are not there.
std::vector<std::filesystem::file_time_type> timesOf(const std::vector<path>& files)
{
    std::vector<std::filesystem::file_time_type> times;
    for (const path& file : files) {
        std::error_code ignored;
        times.push_back(std::filesystem::last_write_time(file, ignored));
    }
    return times;
}

/// The effect files that exist, each with its stamp.
using Snapshot = std::vector<std::pair<std::string, std::uint64_t>>;

Snapshot takeSnapshot()
{
    Qx::Vector<ShaderEffectInfo> files;
    Manager::getFXFiles(files);
    Snapshot snapshot;
    for (const ShaderEffectInfo& info : files) {
        snapshot.emplace_back(narrow(info.getFullPath()), info.timeStamp);
    }
    return snapshot;
}

class Watch
{
public:
    Watch(const WatchOptions& options, Target target, Console& console)
        : options_(options), target_(std::move(target)), console_(console)
    {
    }

    void run()
    {
        DirectoryWatch watch(watchedDirectories());
        const Interruption interruption(
            [&] { watch.stop(); }, Media::PartFiles::removeAll,
            [&] {
                console_.error(
                    "interrupted while a file was read or the effect was drawn, which did not end");
            });
        Snapshot known = takeSnapshot();
        compileFirst();
        tellWarnings();
        showFirst();
        const std::size_t count = countOf(known);
        console_.note(fmt::format("watching {} effect{}; Ctrl-C ends it", count, count == 1 ? "" : "s"));
        while (watch.wait()) {
            Snapshot now = takeSnapshot();
            if (now != known) {
                tellWhatIsNotCompiled(known, now);
                known = std::move(now);
                Manager::instance().recompileAll();
                tellWarnings();
                show();
            } else if (!failure_.empty() || timesOf(pictures_) != pictureTimes_ || isGone()) {
                shown_ = nullptr;
                show();
            }
        }
    }

private:
    /// Of what was named: one effect, those of a directory, or all.
    std::size_t countOf(const Snapshot& snapshot) const
    {
        if (!target_.effect.empty()) {
            return 1;
        }
        return static_cast<std::size_t>(
            std::count_if(snapshot.begin(), snapshot.end(), [&](const auto& each) {
                return target_.directory.empty() ||
                       isSameDirectory(path(each.first).parent_path(), target_.directory);
            }));
    }

    /// Whether somebody removed the picture that was drawn.
    bool isGone() const
    {
        std::error_code error;
        return shown_ && !std::filesystem::exists(options_.output, error) && !error;
    }

    /// Reports the changes that need no compilation, so that every save is answered.
    void tellWhatIsNotCompiled(const Snapshot& before, const Snapshot& now)
    {
        const auto stampIn = [](const Snapshot& snapshot, const std::string& file) {
            const auto found = std::find_if(snapshot.begin(), snapshot.end(),
                                            [&](const auto& entry) { return entry.first == file; });
            return found == snapshot.end() ? std::nullopt : std::optional(found->second);
        };
        for (const ShaderEffectInfo& info : Manager::instance().effects()) {
            const std::string file = narrow(info.getFullPath());
            const auto stamp = stampIn(now, file);
            if (stamp == stampIn(before, file)) {
                continue;
            }
            if (!stamp) {
                console_.note(file + " is gone; its compiled effect stays in use");
            } else if (*stamp == info.timeStamp) {
                console_.note(file + " is again as it was when last compiled");
            }
        }
    }

    /// Compiles the effect that was named, or else the author's effects, so that existing mistakes are
    /// reported too. Shipped effects are compiled when used.
    void compileFirst()
    {
        const path shipped = narrow(getShadersDir());
        for (const ShaderEffectInfo& info : Manager::instance().effects()) {
            const std::string file = narrow(info.getFullPath());
            const bool isMeant = target_.effect.empty()
                                     ? !isSameDirectory(path(file).parent_path(), shipped)
                                     : file == target_.effect || narrow(info.name) == target_.effect;
            if (isMeant && !info.getShader()) {
                tellMistakes(file);
            }
        }
    }

    /// Those of the effect that was named, each time that it is compiled: the library reports errors only.
    void tellWarnings()
    {
        const Qx::Ptr<iShaderEffect> effect =
            target_.effect.empty() ? Qx::Ptr<iShaderEffect>() : catalogued(target_.effect);
        if (!effect || effect == told_) {
            return;
        }
        told_ = effect;
        const std::string file = effectPath(target_.effect).string();
        const LightweightString<char> name{std::string_view(file)};
        const Host::EffectCompilation compilation = Host::gpuService().examineEffectFile(fromUTF8(name), {});
        if (compilation.effect != nullptr && !compilation.messages.empty()) {
            console_.note(file + ": compiles, with warnings", compilation.messages);
        }
    }

    void tellMistakes(const std::string& file)
    {
        try {
            static_cast<void>(compileEffectFile(file));
        } catch (const Failure& failure) {
            console_.error(failure.what(), failure.details());
        }
    }

    /// A picture that cannot be read or written at the start, or a technique, parameter or texture that the
    /// effect has not, is a mistake in the command, which saving the effect cannot fix.
    void showFirst()
    {
        try {
            redraw();
        } catch (const WrongOption&) {
            throw;
        } catch (const Failure& failure) {
            if (failure.code() != ExitCode::effect) {
                throw;
            }
            tell(failure);
        }
    }

    void show()
    {
        try {
            redraw();
            failure_.clear();
        } catch (const Failure& failure) {
            tell(failure);
        }
    }

    /// Once, though it is tried again until it succeeds: what is missing may be put there.
    void tell(const Failure& failure)
    {
        if (failure.what() != failure_) {
            failure_ = failure.what();
            console_.error(failure_, failure.details());
        }
    }

    /// Draws the picture again if the effect is not the one drawn last. Throws Failure.
    void redraw()
    {
        if (options_.output.empty()) {
            return;
        }
        const Qx::Ptr<iShaderEffect> effect = catalogued(target_.effect);
        if (!effect || effect == shown_) {
            return; // why it does not compile was reported
        }
        draw();
        shown_ = effect;
    }

    void draw()
    {
        ConvertOptions picture;
        picture.input = options_.input;
        picture.output = options_.output;
        picture.effects = {{target_.effect, options_.technique, options_.settings, "", options_.textures}};
        picture.date = options_.date;
        picture.picked.frames = 1;
        picture.force = true; // after the first time the file is our own
        const auto begin = std::chrono::steady_clock::now();
        // Of before the reading: what is saved meanwhile is drawn once more.
        watchPictures();
        const QuietConversion drawn = convertQuietly(picture);
        if (drawn.textureFiles != textureFiles_) {
            textureFiles_ = drawn.textureFiles;
            watchPictures();
        }
        for (const std::string& warning : drawn.warnings) {
            console_.note(warning);
        }
        const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
        console_.note(fmt::format("{}: drawn with {} in {:.0f} ms", options_.output.string(), target_.effect,
                                  took.count()));
    }

    void watchPictures()
    {
        pictures_ = textureFiles_;
        pictures_.push_back(options_.input);
        for (const TextureFile& texture : options_.textures) {
            pictures_.push_back(texture.file);
        }
        pictureTimes_ = timesOf(pictures_);
    }

    const WatchOptions& options_;
    Target target_;
    Console& console_;
    Qx::Ptr<iShaderEffect> shown_;
    Qx::Ptr<iShaderEffect> told_;    ///< whose warnings were told
    std::string failure_;            ///< of the last drawing; empty if it succeeded
    std::vector<path> textureFiles_; ///< of the last drawing
    std::vector<path> pictures_;     ///< that are drawn again when they are saved
    std::vector<std::filesystem::file_time_type> pictureTimes_;
};

/// Protects an existing picture from a mistyped name.
void refuseExisting(const WatchOptions& options)
{
    std::error_code ignored;
    if (!options.force && !options.output.empty() && std::filesystem::exists(options.output, ignored)) {
        throw Failure(ExitCode::output,
                      options.output.string() + ": exists already; choose another name or add --force");
    }
}

ExitCode watch(const WatchOptions& options, Console& console)
{
    Target target = targetOf(options.file);
    if (!options.output.empty() && target.effect.empty()) {
        throw Failure(ExitCode::usage, "--output shows one effect: name its file, not a directory");
    }
    if (!options.output.empty()) {
        requireOnePicture(options.output, "what is shown");
    }
    refuseExisting(options);
    useAsTemplates(target.directory);
    const HostSession host(options.device, &console, HostSession::Output::debug);
    if (!target.effect.empty() && !isCatalogued(target.effect)) {
        throw Failure(ExitCode::input, target.effect +
                                           ": is not an effect of the catalogue; name a file, or see "
                                           "'qxhost effects list'");
    }
    Watch(options, std::move(target), console).run();
    return ExitCode::ok;
}

class WatchCommand : public CommandWithOptions<WatchOptions>
{
public:
    void addOptions(CLI::App& app) override
    {
        app.add_option("FILE", options_.file,
                       "An effect file, a directory of them, or an effect's name.\nDefault: the whole "
                       "catalogue")
            ->option_text(" ");
        app.add_option("--input", options_.input, "The picture, or clip, to show the effect on")
            ->option_text("FILE");
        app.add_option("--output", options_.output, "The picture to write each time")->option_text("FILE");
        app.add_option("--technique", options_.technique, "The technique shown. Default: the effect's first")
            ->option_text("NAME");
        app.add_option("--set", settings_, "A parameter of the effect; several values for a vector")
            ->option_text("NAME=V[,V...]")
            ->allow_extra_args(false)
            ->take_all();
        app.add_option("--texture", textures_, "A picture or clip for another texture of the effect")
            ->option_text("NAME=FILE")
            ->allow_extra_args(false)
            ->take_all();
        addDate(app, options_.date);
        app.add_flag("--force", options_.force, "Replace an output file that exists at the start");
        addDevice(app, options_.device);
        app.footer(watchFooter);
    }

    void check(const CLI::App& app) override
    {
        if (options_.input.empty() != options_.output.empty()) {
            complain(app, "--input and --output need each other: the picture, and where to show it");
        }
        const bool shows = !options_.output.empty();
        if (!shows && (!options_.technique.empty() || !settings_.empty() || !textures_.empty())) {
            complain(app, "--technique, --set and --texture apply to a picture; add --input and --output");
        }
        if (!shows && options_.date) {
            complain(app, "--date applies to a picture; add --input and --output");
        }
        for (const std::string& setting : settings_) {
            options_.settings.push_back(parseSetting(app, setting));
        }
        for (const std::string& texture : textures_) {
            options_.textures.push_back(parseTexture(app, texture));
        }
    }

    ExitCode run(Console& console) override { return watch(options_, console); }

private:
    std::vector<std::string> settings_;
    std::vector<std::string> textures_;
};

const Registered<WatchCommand>
    registeredWatch({.name = "effects watch",
                     .order = 30,
                     .about = "Compile effects each time they are saved, and show one on a picture"});

} // namespace

} // namespace Qx::Program
