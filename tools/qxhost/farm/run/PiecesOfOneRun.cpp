#include "tools/qxhost/farm/run/PiecesOfOneRun.h"

#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Interruption.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/farm/job/JobMaker.h"
#include "tools/qxhost/farm/job/OutputKind.h"
#include "tools/qxhost/farm/pieces/Joining.h"
#include "tools/qxhost/farm/run/Workers.h"
#include "tools/qxhost/media/files/HeldFile.h"
#include "tools/qxhost/media/files/Names.h"
#include "tools/qxhost/media/files/NumberedNames.h"
#include "tools/qxhost/media/files/PartFiles.h"

#include <algorithm>
#include <atomic>
#include <fcntl.h>
#include <fmt/format.h>
#include <system_error>

namespace Qx::Program::Farm {

namespace {

namespace fs = std::filesystem;

/// The folder that the pieces lie in, while this object lives.
class Folder
{
public:
    explicit Folder(const fs::path& output)
    {
        directory_ = output.parent_path().empty() ? "." : output.parent_path();
        std::error_code error;
        if (!fs::is_directory(directory_, error)) {
            throw Failure(ExitCode::output, "cannot write " + Media::quoted(output) + ": " +
                                                directory_.string() + " is no directory; make it first");
        }
        Media::clearAbandoned(directory_);
        // A sequence is not found below a folder whose name looks like a pattern.
        std::string name = output.filename().string();
        std::replace(name.begin(), name.end(), '%', '_');
        path_ = Media::unfinishedName(directory_ / name);
        fs::create_directory(path_);
        constexpr int mode = 0600;
        const fs::path lock = path_ / Media::folderLock;
        lock_ = Media::HeldFile(::open(lock.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode));
        static_cast<void>(lock_.descriptor() >= 0 && lock_.hold(lock));
    }
    ~Folder()
    {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    fs::path job() const { return path_ / "job"; }

private:
    fs::path directory_;
    fs::path path_;
    Media::HeldFile lock_;
};

/// What exists is better refused before the work than after it.
void refuseExisting(const ConvertOptions& options)
{
    std::error_code error;
    const bool isPicture = kindOf(options) == OutputKind::pictures;
    const Media::NumberedNames names(options.output);
    const fs::path first = isPicture && !fs::exists(options.output, error) ? names.name(1) : options.output;
    if (!options.force && fs::exists(first, error)) {
        throw Failure(ExitCode::output, first.string() + ": exists; --force replaces it");
    }
    if (fs::equivalent(options.input, options.output, error)) {
        throw Failure(ExitCode::output,
                      options.output.string() + ": is the input itself; choose another name");
    }
}

} // namespace

ExitCode convertInPieces(const OneRun& run, Console& console)
{
    const ConvertOptions& options = run.options;
    console.setQuiet(options.quiet);
    refuseExisting(options);
    std::atomic<bool> stopped{false};
    const Interruption interruption([&] { stopped = true; }, Media::PartFiles::removeAll);
    try {
        const Folder folder(options.output);
        const Job job = makeJob({.options = options,
                                 .arguments = run.arguments,
                                 .folder = folder.job(),
                                 .pieces = run.pieces,
                                 .copiesInput = false,
                                 .keepsDigests = false},
                                stopped, console);
        const WorkerOptions workers{.jobs = run.jobs > 0 ? std::optional(run.jobs) : std::nullopt,
                                    .device = options.device,
                                    .quiet = options.quiet};
        const ExitCode made = makePieces(job, workers, stopped, console);
        if (made != ExitCode::ok) {
            throw Failure(made, options.output.string() + ": is not written, since pieces of it failed");
        }
        const ExitCode code =
            joinJob(job, {.output = options.output, .force = options.force, .quiet = options.quiet}, stopped,
                    console);
        if (options.json) {
            console.data(jsonText({{"input", options.input.string()},
                                   {"output", options.output.string()},
                                   {"frames", job.frames},
                                   {"pieces", job.pieces.size()},
                                   {"complete", code == ExitCode::ok}}));
        }
        return code;
    } catch (const Failure& failure) {
        if (failure.code() == ExitCode::interrupted) {
            throw Failure(failure.code(), "interrupted; " + options.output.string() + " was not completed");
        }
        throw;
    } catch (const fs::filesystem_error& problem) {
        throw Failure(ExitCode::output, problem.what());
    }
}

} // namespace Qx::Program::Farm
