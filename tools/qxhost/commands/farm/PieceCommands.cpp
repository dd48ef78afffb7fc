#include "tools/qxhost/commands/farm/JobCommand.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Interruption.h"
#include "tools/qxhost/farm/pieces/Joining.h"
#include "tools/qxhost/farm/pieces/Pieces.h"
#include "tools/qxhost/media/files/PartFiles.h"

#include <atomic>
#include <fmt/format.h>

namespace Qx::Program {

namespace {

class RunPieceCommand : public JobCommand
{
public:
    void addMore(CLI::App& app) override
    {
        const auto set = [this](const std::string& word) { options_.piece = parseCount("PIECE", word, 0); };
        app.add_option_function<std::string>("PIECE", set, "The number of the piece, from 0")
            ->option_text(" ");
        addDevice(app, options_.device);
        addQuiet(app);
    }

    void check(const CLI::App& app) override
    {
        JobCommand::check(app);
        if (options_.piece < 0) {
            complain(app, "PIECE is missing");
        }
    }

    ExitCode run(Console& console) override
    {
        const Farm::Job job = Farm::readJob(options_.job);
        const auto count = static_cast<std::int64_t>(job.pieces.size());
        if (options_.piece >= count) {
            throw Failure(ExitCode::usage, fmt::format("{}: there is no piece {}; the pieces are 0 to {}",
                                                       job.manifest().string(), options_.piece, count - 1));
        }
        Farm::runPiece(job, static_cast<std::size_t>(options_.piece), options_.device, options_.quiet,
                       console);
        return ExitCode::ok;
    }
};

class JoinCommand : public JobCommand
{
public:
    void addMore(CLI::App& app) override
    {
        app.add_option("--output", options_.output, "Where to write. Default: in the job's folder")
            ->option_text("FILE");
        app.add_flag("--force", options_.force, "Replace existing output files");
        addQuiet(app);
    }

    ExitCode run(Console& console) override
    {
        std::atomic<bool> stopped{false};
        const Interruption interruption([&] { stopped = true; }, Media::PartFiles::removeAll);
        return Farm::joinJob(Farm::readJob(options_.job),
                             {.output = options_.output, .force = options_.force, .quiet = options_.quiet},
                             stopped, console);
    }
};

const Registered<RunPieceCommand> registeredRunPiece(
    {.name = "farm run-piece", .order = 30, .about = "Make one piece of a job; nothing if it is done"});

const Registered<JoinCommand> registeredJoin({.name = "farm join",
                                              .order = 40,
                                              .about = "Join the pieces of a job, without encoding again"});

} // namespace

} // namespace Qx::Program
