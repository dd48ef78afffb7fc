#include "tools/qxhost/farm/job/JobMaker.h"

#include "Qx/Version.h"
#include "host/effects/EffectCompilation.h"
#include "host/files/CopyFile.h"
#include "host/files/SystemError.h"
#include "host/files/WriteFile.h"
#include "host/fonts/TextPainter.h"
#include "host/gpu/GPUService.h"
#include "platform/Text.h"
#include "tools/qxhost/commands/convert/Conversion.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/farm/job/Contents.h"
#include "tools/qxhost/farm/job/Split.h"
#include "tools/qxhost/media/files/Names.h"
#include "tools/qxhost/media/files/NumberedNames.h"
#include "tools/qxhost/pipeline/device/HostSession.h"
#include "tools/qxhost/pipeline/effects/EffectFile.h"
#include "tools/qxhost/pipeline/effects/LutFile.h"
#include "tools/qxhost/pipeline/look/LookFile.h"
#include "tools/qxhost/pipeline/look/LookSteps.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fmt/format.h>
#include <random>
#include <string_view>
#include <unistd.h>

namespace Qx::Program::Farm {

namespace {

namespace fs = std::filesystem;

/// The folder while it is being made: beside its place, and removed unless it takes that.
class Draft
{
public:
    explicit Draft(fs::path place) : place_(std::move(place))
    {
        std::random_device random;
        draft_ =
            place_.parent_path() / fmt::format(".{}.making-{:08x}", place_.filename().string(), random());
        std::error_code error;
        fs::create_directory(draft_, error);
        if (error) {
            throw Failure(ExitCode::output, "cannot make " + Media::quoted(place_) + ": " + error.message());
        }
    }
    ~Draft()
    {
        std::error_code ignored;
        if (!draft_.empty()) {
            fs::remove_all(draft_, ignored);
        }
    }
    Draft(const Draft&) = delete;
    Draft& operator=(const Draft&) = delete;

    const fs::path& folder() const { return draft_; }

    void finish()
    {
        if (::rename(draft_.c_str(), place_.c_str()) != 0) {
            throw Failure(ExitCode::output,
                          "cannot make " + Media::quoted(place_) + ": " + Host::systemProblem(errno));
        }
        draft_.clear();
    }

private:
    fs::path place_;
    fs::path draft_;
};

void copyFile(const fs::path& from, const fs::path& to)
{
    fs::create_directories(to.parent_path());
    if (const std::string problem = Host::copyFileWhole(from.native(), to.native()); !problem.empty()) {
        throw Failure(ExitCode::output, problem);
    }
}

/// The path from a directory to a file in or below it; empty if it is elsewhere.
fs::path below(const fs::path& directory, const fs::path& file)
{
    const fs::path relative = fs::weakly_canonical(file).lexically_relative(fs::weakly_canonical(directory));
    return relative.empty() || *relative.begin() == ".." ? fs::path() : relative;
}

std::vector<fs::path> filesOfEffect(const fs::path& effect)
{
    std::vector<fs::path> files;
    for (const Host::EffectInput& input :
         Host::gpuService()
             .examineEffectFile(fromUTF8(LightweightString<char>(std::string_view(effect.native()))), {})
             .inputs) {
        if (input.content) {
            files.push_back(input.path);
        }
    }
    return files;
}

class Maker
{
public:
    Maker(const JobRequest& request, const std::atomic<bool>& stopped) : request_(request), stopped_(stopped)
    {
    }

    Job make(const fs::path& folder, Console& console)
    {
        const ConversionPlan plan = planConversion(request_.options, console);
        refuseLists(plan.container);
        job_.folder = folder;
        job_.program = QX_VERSION;
        job_.output = request_.options.output.filename();
        job_.frames = static_cast<std::int64_t>(plan.frames.size());
        job_.frameBytes = plan.frameBytes;
        job_.pieces = splitFrames(plan, request_.pieces.value_or(usualPieces(job_.frames)));
        takeInput();
        setDate();
        for (const std::string& argument : request_.arguments) {
            job_.arguments.push_back(take(argument));
        }
        takeUsualFont();
        takeTexturesBeside(plan);
        for (const char* each : {"pieces", "logs"}) {
            fs::create_directory(folder / each);
        }
        describeFiles();
        return job_;
    }

private:
    /// Without a date, the pieces would each have their own. It is the local one, as in a single run.
    void setDate()
    {
        const ConvertOptions& options = request_.options;
        if (!options.date && !(options.effects.empty() && options.burnIns.empty())) {
            job_.arguments.push_back("--date=" + localTime().dateAndTime());
        }
    }

    void refuseLists(const std::string& container) const
    {
        constexpr std::array<std::string_view, 3> lists{"concat", "hls", "dash"};
        if (std::any_of(lists.begin(), lists.end(),
                        [&](std::string_view list) { return container.find(list) != std::string::npos; })) {
            throw Failure(ExitCode::input,
                          request_.options.input.string() +
                              ": is a list of other files, which cannot be split; convert the "
                              "clips that it names, each by itself");
        }
    }

    void add(const std::string& kind, const fs::path& path, const fs::path& from)
    {
        const bool isKnown = std::any_of(job_.files.begin(), job_.files.end(),
                                         [&](const HeldFile& each) { return each.path == path; });
        if (!isKnown) {
            job_.files.push_back({kind, path, 0, "", fs::absolute(from).lexically_normal().native()});
        }
    }

    /// Copies a file into a folder of its own, and returns its word in the arguments.
    std::string takeFile(const std::string& kind, const fs::path& file)
    {
        std::error_code error;
        if (!fs::is_regular_file(file, error)) {
            throw Failure(ExitCode::input,
                          file.string() + ": is no file; a job takes each " + kind + " as one file");
        }
        const fs::path path = fs::path("assets") / fmt::format("{}-{}", kind, ++taken_) / file.filename();
        copyFile(file, job_.folder / path);
        add(kind, path, file);
        return std::string(folderWord) + "/" + path.native();
    }

    /// With its includes: those beside it keep their places, those of the catalogue come to lie beside it.
    std::string takeEffect(const std::string& name)
    {
        const fs::path effect = fs::absolute(effectPath(name));
        const fs::path shipped = fs::path(effectPath("ColourConvert.fx")).parent_path();
        const fs::path place = fs::path("assets") / fmt::format("effect-{}", ++taken_);
        for (const fs::path& file : filesOfEffect(effect)) {
            fs::path relative = below(effect.parent_path(), file);
            relative = relative.empty() ? below(shipped, file) : relative;
            relative = relative.empty() ? file.filename() : relative;
            copyFile(file, job_.folder / place / relative);
            add("effect", place / relative, file);
        }
        const fs::path copy = place / effect.filename();
        for (const fs::path& file : filesOfEffect(job_.folder / copy)) {
            if (below(job_.folder / place, file).empty()) {
                throw Failure(ExitCode::effect,
                              effect.string() + ": includes " + file.string() +
                                  ", which cannot be taken into a job; put it beside the effect");
            }
        }
        effects_.emplace_back(effect.parent_path(), place);
        return std::string(folderWord) + "/" + copy.native();
    }

    /// With its effects, LUTs and textures, whose folders lie beside it. Steps that are off are left out.
    std::string takeLook(const fs::path& file)
    {
        const auto held = [this](const std::string& word) {
            return (job_.folder / word.substr(std::string_view(folderWord).size() + 1)).lexically_normal();
        };
        const fs::path path =
            fs::path("assets") / fmt::format("look-{}-{}", ++taken_, file.filename().string());
        Look look = readLook(file);
        std::erase_if(look.links, [](const LookLink& link) { return !link.on; });
        settleNames(look, file);
        for (LookLink& link : look.links) {
            const bool isLut = link.kind == LookLink::Kind::lut;
            link.file = held(isLut ? takeFile("LUT", link.file) : takeEffect(link.file));
            for (LookTexture& texture : link.textures) {
                textures_.push_back(texture.file.native());
                texture.file = held(takeFile("texture", texture.file));
            }
        }
        fs::create_directories(job_.folder / path.parent_path());
        writeLook(look, job_.folder / path, false);
        add("look", path, file);
        return std::string(folderWord) + "/" + path.native();
    }

    std::string takeFont(const std::string& font)
    {
        const std::string file =
            font.find('/') != std::string::npos ? font : Host::Text::fileOfTypeface(font);
        return file.empty() ? font : takeFile("font", file);
    }

    /// An option, with its file taken into the job.
    std::string take(const std::string& argument)
    {
        const auto valueOf = [&](std::string_view option) {
            return argument.starts_with(option) ? std::optional(argument.substr(option.size()))
                                                : std::nullopt;
        };
        if (const auto config = valueOf("--ocio=")) {
            if (!request_.keepsDigests) { // the pieces are made here and now, from where it lies
                return "--ocio=" + fs::absolute(*config).lexically_normal().native();
            }
            throw Failure(ExitCode::effect,
                          "--ocio " + *config +
                              ": opens files of its own, which a job cannot hold; make a LUT of "
                              "the change, as with ociobakelut, and give that as --lut");
        }
        if (const auto effect = valueOf("--effect=")) {
            return "--effect=" + takeEffect(*effect);
        }
        if (const auto lut = valueOf("--lut=")) {
            return "--lut=" + takeFile("LUT", lutPath(*lut));
        }
        if (const auto look = valueOf("--look=")) {
            return "--look=" + takeLook(*look);
        }
        if (const auto font = valueOf("--font=")) {
            return "--font=" + takeFont(*font);
        }
        if (const auto texture = valueOf("--texture=")) {
            const std::size_t file = texture->find('=') + 1;
            textures_.push_back(texture->substr(file));
            return "--texture=" + texture->substr(0, file) + takeFile("texture", texture->substr(file));
        }
        return argument;
    }

    /// Which typeface a machine takes for text by itself is its own affair. A font belongs to the text before
    /// it.
    void takeUsualFont()
    {
        std::string font;
        std::vector<std::string> arguments;
        std::size_t text = 0;
        for (std::string& argument : job_.arguments) {
            const bool isText = argument.starts_with("--burn-in=");
            arguments.push_back(std::move(argument));
            if (isText && request_.options.burnIns.at(text++).font.empty()) {
                font = font.empty() ? takeFont("monospace") : font;
                arguments.push_back("--font=" + font);
            }
        }
        job_.arguments = std::move(arguments);
    }

    /// Pictures that effects name themselves, and that lie beside them.
    void takeTexturesBeside(const ConversionPlan& plan)
    {
        for (const fs::path& file : plan.textureFiles) {
            const bool isGiven =
                std::find(textures_.begin(), textures_.end(), file.native()) != textures_.end();
            for (const auto& [directory, place] : effects_) {
                const fs::path relative = isGiven ? fs::path() : below(directory, file);
                if (!relative.empty()) {
                    copyFile(file, job_.folder / place / relative);
                    add("texture", place / relative, file);
                }
            }
        }
    }

    void takeInput()
    {
        const fs::path input = fs::absolute(request_.options.input).lexically_normal();
        job_.input = fs::path("inputs") / input.filename();
        fs::create_directory(job_.folder / "inputs");
        std::error_code error;
        if (fs::exists(input, error)) {
            takeInputFile(input);
            return;
        }
        if (job_.folder.native().find('%') != std::string::npos) {
            throw Failure(ExitCode::output,
                          job_.folder.parent_path().string() +
                              ": a sequence is not found below a folder with % in its name; "
                              "choose another folder");
        }
        const Media::NumberedNames names(input);
        const SequenceOptions& sequence = request_.options.sequence;
        const bool isFilled = sequence.missing == Media::MissingPictures::hold ||
                              sequence.missing == Media::MissingPictures::black;
        std::vector<long> numbers = names.existing();
        std::erase_if(numbers, [&](long number) { return number < sequence.startNumber.value_or(0); });
        for (std::size_t i = 0;
             i < numbers.size() && (i == 0 || isFilled || numbers[i] == numbers[i - 1] + 1); ++i) {
            takeInputFile(names.name(numbers[i]));
        }
    }

    void takeInputFile(const fs::path& file)
    {
        const fs::path path = fs::path("inputs") / file.filename();
        if (request_.copiesInput) {
            copyFile(file, job_.folder / path);
        } else {
            fs::create_symlink(fs::canonical(file), job_.folder / path);
        }
        add("input", path, file);
    }

    void describeFiles()
    {
        for (HeldFile& file : job_.files) {
            file.bytes = fs::file_size(job_.folder / file.path);
            if (request_.keepsDigests) {
                file.digest = digestOf(job_.folder / file.path, &stopped_);
            }
        }
    }

    const JobRequest& request_;
    const std::atomic<bool>& stopped_;
    Job job_;
    int taken_ = 0;
    std::vector<std::string> textures_;                  ///< that options name
    std::vector<std::pair<fs::path, fs::path>> effects_; ///< where they lie, and lay
};

} // namespace

Job makeJob(const JobRequest& request, const std::atomic<bool>& stopped, Console& console)
{
    console.setQuiet(request.options.quiet);
    const fs::path place = fs::absolute(request.folder).lexically_normal();
    const fs::path folder = place.filename().empty() ? place.parent_path() : place;
    std::error_code error;
    if (fs::exists(fs::symlink_status(folder, error))) {
        throw Failure(ExitCode::output, request.folder.string() +
                                            ": exists; a job gets a folder of its own, choose another name");
    }
    if (!fs::is_directory(folder.parent_path(), error)) {
        throw Failure(ExitCode::output, folder.parent_path().string() + ": is no directory; make it first");
    }
    const HostSession host(request.options.device, &console);
    Draft draft(folder);
    // The draft's name says nothing to the user.
    const auto asSeen = [&, name = draft.folder().native()](std::string text) {
        for (std::size_t at = 0; (at = text.find(name, at)) != std::string::npos;
             at += folder.native().size()) {
            text.replace(at, name.size(), folder.native());
        }
        return text;
    };
    try {
        Job job = Maker(request, stopped).make(draft.folder(), console);
        writeJob(job);
        draft.finish();
        static_cast<void>(Host::syncDirectoryOf(folder));
        job.folder = folder;
        if (request.keepsDigests) {
            noteContents(job);
        }
        return job;
    } catch (const Failure& failure) {
        throw Failure(failure.code(), asSeen(failure.what()), asSeen(failure.details()));
    } catch (const fs::filesystem_error& problem) {
        throw Failure(ExitCode::output,
                      fmt::format("cannot write {}: {}", Media::quoted(asSeen(problem.path1().native())),
                                  problem.code().message()));
    }
}

} // namespace Qx::Program::Farm
