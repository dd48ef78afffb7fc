#include "tools/qxhost/commands/farm/JobCommand.h"
#include "tools/qxhost/console/Interruption.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/farm/job/Contents.h"
#include "tools/qxhost/farm/pieces/Joining.h"
#include "tools/qxhost/farm/pieces/Pieces.h"
#include "tools/qxhost/farm/run/Slurm.h"
#include "tools/qxhost/farm/run/Status.h"
#include "tools/qxhost/farm/run/Workers.h"
#include "tools/qxhost/media/files/PartFiles.h"

#include <atomic>
#include <fmt/format.h>

namespace Qx::Program {

namespace {

/// Makes what is missing on this machine, and joins.
ExitCode completeJob(const Farm::Job& job, const JobOptions& options, Console& console)
{
    const Farm::WorkerOptions workers{.jobs = options.jobs > 0 ? std::optional(options.jobs) : std::nullopt,
                                      .device = options.device,
                                      .quiet = options.quiet};
    console.setQuiet(options.quiet);
    std::atomic<bool> stopped{false};
    const Interruption interruption([&] { stopped = true; }, Media::PartFiles::removeAll);
    const ExitCode made = Farm::makePieces(job, workers, stopped, console);
    return made == ExitCode::ok
               ? Farm::joinJob(job, {.output = {}, .force = false, .quiet = options.quiet}, stopped, console)
               : made;
}

class RunJobCommand : public JobCommand
{
public:
    void addMore(CLI::App& app) override
    {
        addWorkers(app);
        addQuiet(app);
    }

    ExitCode run(Console& console) override
    {
        return completeJob(Farm::readJob(options_.job), options_, console);
    }
};

/// Where the pieces were made before: in Slurm, or here.
class ResumeCommand : public RunJobCommand
{
public:
    void addMore(CLI::App& app) override
    {
        RunJobCommand::addMore(app);
        app.add_flag("--here", here_, "On this machine, though it was submitted to a scheduler");
    }

    ExitCode run(Console& console) override
    {
        const Farm::Job job = Farm::readJob(options_.job);
        if (here_ || !Farm::submitted(job) || Farm::isJoined(job)) {
            return completeJob(job, options_, console);
        }
        console.setQuiet(options_.quiet);
        const Farm::SlurmNumbers numbers = Farm::resubmitToSlurm(job);
        console.note(fmt::format("pieces are job {}, the join is job {}", numbers.pieces, numbers.join));
        return ExitCode::ok;
    }

private:
    bool here_ = false;
};

class StatusCommand : public JobCommand
{
public:
    void addMore(CLI::App& app) override { app.add_flag("--json", options_.json, "Print JSON"); }

    ExitCode run(Console& console) override
    {
        const Farm::Job job = Farm::readJob(options_.job);
        console.data(options_.json ? jsonText(Farm::describeStatus(job)) : Farm::statusText(job));
        return ExitCode::ok;
    }
};

class VerifyCommand : public JobCommand
{
public:
    void addMore(CLI::App& app) override { addQuiet(app); }

    ExitCode run(Console& console) override
    {
        console.setQuiet(options_.quiet);
        const Farm::Job job = Farm::readJob(options_.job);
        Farm::checkContents(job, Farm::Reading::everything);
        bool isWhole = true;
        for (std::size_t i = 0; i < job.pieces.size(); ++i) {
            if (const std::string problem = Farm::problemWithPiece(job, i); !problem.empty()) {
                console.error(fmt::format("piece {}: {}", i, problem));
                isWhole = false;
            }
        }
        if (!isWhole) {
            console.error(job.manifest().string() + ": 'qxhost farm resume' makes these pieces");
        }
        if (const std::string problem = Farm::problemWithJoined(job); !problem.empty()) {
            console.error(problem);
            console.error(job.manifest().string() + ": 'qxhost farm join --force' joins the pieces again");
            isWhole = false;
        }
        if (!isWhole) {
            return ExitCode::failed;
        }
        console.note(fmt::format("{}: {} files, {} pieces{} are as they were written",
                                 job.manifest().string(), job.files.size(), job.pieces.size(),
                                 Farm::isJoined(job) ? " and the joined output" : ""));
        return ExitCode::ok;
    }
};

const Registered<RunJobCommand> registeredRunJob(
    {.name = "farm run", .order = 20, .about = "Make the missing pieces on this machine, and join them"});

const Registered<ResumeCommand> registeredResume(
    {.name = "farm resume", .order = 60, .about = "Go on with a job after anything, where it was run"});

const Registered<StatusCommand>
    registeredStatus({.name = "farm status", .order = 50, .about = "What is done, what failed and why"});

const Registered<VerifyCommand> registeredVerify(
    {.name = "farm verify", .order = 70, .about = "Read all files and pieces, and compare their digests"});

} // namespace

} // namespace Qx::Program
