#include "QxFxResources/Manager.h"
#include "host/Host.h"
#include "platform/Settings.h"
#include "platform/Text.h"
#include "tools/qxhost/commands/Commands.h"
#include "tools/qxhost/commands/effects/DirectoryWatch.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Interruption.h"
#include "tools/qxhost/pipeline/HostSession.h"
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

using FxResources::Manager;
using FxResources::ShaderEffectInfo;
using std::filesystem::path;

std::string narrow(const LightweightString<wchar_t>& text)
{
    return std::string(toUTF8(text).view());
}

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

/// What is watched: the directory that stands in for the user's templates, if any, and the effect that is
/// shown, if one was named.
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
        throw Failure(ExitCode::input,
                      named.string() + ": there is neither a file nor a directory of this name");
    }
    if (whole.extension() != ".fx" || whole.filename().string().starts_with('_')) {
        throw Failure(ExitCode::input,
                      named.string() +
                          ": is no effect of a catalogue; those end in .fx and do not begin with "
                          "an underscore. Name the effect that includes it, or the directory");
    }
    return {whole.parent_path(), whole.string()};
}

/// Makes the catalogue show the directory in place of the user's own templates. Before the host reads its
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

/// The effect files that there are, each with its stamp.
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
    Watch(const EffectsWatchOptions& options, Target target, Console& console)
        : options_(options), target_(std::move(target)), console_(console)
    {
    }

    void run()
    {
        DirectoryWatch watch(watchedDirectories());
        const Interruption interruption([&] { watch.stop(); });
        Snapshot known = takeSnapshot();
        compileFirst();
        showFirst();
        console_.note(
            fmt::format("watching {} effect{}; Ctrl-C ends it", known.size(), known.size() == 1 ? "" : "s"));
        while (watch.wait()) {
            Snapshot now = takeSnapshot();
            if (now != known) {
                tellWhatIsNotCompiled(known, now);
                known = std::move(now);
                Manager::instance().recompileAll();
                show();
            }
        }
    }

private:
    /// The changes after which there is nothing to compile, so that none goes without an answer.
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
                console_.note(file + " is gone; what was compiled of it stays");
            } else if (*stamp == info.timeStamp) {
                console_.note(file + " is again as it was last compiled");
            }
        }
    }

    /// Compiles what the author works on, so that old mistakes are told too; what is shipped waits for its
    /// use.
    void compileFirst()
    {
        const path shipped = narrow(getShadersDir());
        for (const ShaderEffectInfo& info : Manager::instance().effects()) {
            const std::string file = narrow(info.getFullPath());
            const bool isShown = file == target_.effect || narrow(info.name) == target_.effect;
            if ((isShown || !isSameDirectory(path(file).parent_path(), shipped)) && !info.getShader()) {
                tellMistakes(file);
            }
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

    /// A picture that cannot be read or written from the start is a mistake in the command, and no save of
    /// the effect mends it.
    void showFirst()
    {
        try {
            redraw();
        } catch (const Failure& failure) {
            if (failure.code() != ExitCode::effect) {
                throw;
            }
            console_.error(failure.what(), failure.details());
        }
    }

    void show()
    {
        try {
            redraw();
        } catch (const Failure& failure) {
            console_.error(failure.what(), failure.details());
        }
    }

    /// Draws the picture again when the effect is another one than last time. Throws Failure.
    void redraw()
    {
        if (options_.output.empty()) {
            return;
        }
        const Qx::Ptr<iShaderEffect> effect = catalogued(target_.effect);
        if (!effect || effect == shown_) {
            return; // what keeps it from compiling was told
        }
        draw();
        shown_ = effect;
    }

    void draw()
    {
        ConvertOptions picture;
        picture.input = options_.input;
        picture.output = options_.output;
        picture.effects = {{target_.effect, options_.technique, options_.settings, ""}};
        picture.frames = 1;
        picture.force = true; // after the first time it is our own
        const auto begin = std::chrono::steady_clock::now();
        convertQuietly(picture);
        const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
        console_.note(fmt::format("{}: drawn with {} in {:.0f} ms", options_.output.string(), target_.effect,
                                  took.count()));
    }

    const EffectsWatchOptions& options_;
    Target target_;
    Console& console_;
    Qx::Ptr<iShaderEffect> shown_;
};

/// An existing picture is not lost to a mistyped name.
void refuseExisting(const EffectsWatchOptions& options)
{
    std::error_code ignored;
    if (!options.force && !options.output.empty() && std::filesystem::exists(options.output, ignored)) {
        throw Failure(ExitCode::output,
                      options.output.string() + ": exists already; choose another name or add --force");
    }
}

} // namespace

ExitCode runEffectsWatch(const EffectsWatchOptions& options, Console& console)
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
        throw Failure(ExitCode::input, target.effect + ": is no effect of the catalogue; name a file, or see "
                                                       "'qxhost effects list'");
    }
    Watch(options, std::move(target), console).run();
    return ExitCode::ok;
}

} // namespace Qx::Program
