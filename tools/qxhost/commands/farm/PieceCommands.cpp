#include "tools/qxhost/commands/farm/JobCommand.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Interruption.h"
#include "tools/qxhost/farm/pieces/Joining.h"
#include "tools/qxhost/farm/pieces/Pieces.h"
#include "tools/qxhost/media/files/PartFiles.h"

#include <atomic>
#include <fmt/format.h>
#include <iostream>
#include <string>

namespace Qx::Program {

namespace {

class RunPieceCommand : public JobCommand
{
public:
    void addMore(CLI::App& app) override
    {
        const auto set = [this](const std::string& word) {
            readsNumbers_ = word == "-";
            options_.piece = readsNumbers_ ? 0 : parseCount("PIECE", word, 0);
        };
        app.add_option_function<std::string>("PIECE", set,
                                             "The number of the piece, from 0; or -: numbers from\n"
                                             "standard input, a line each. Each is answered by a line\n"
                                             "with the number and its exit code")
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
        Farm::PieceMaker maker(job, options_.device, options_.quiet, console);
        if (!readsNumbers_) {
            maker.make(existing(job, options_.piece));
            return ExitCode::ok;
        }
        ExitCode first = ExitCode::ok;
        for (std::string word; std::getline(std::cin, word);) {
            const ExitCode code = makeAndAnswer(maker, job, word, console);
            first = first == ExitCode::ok ? code : first;
        }
        return first;
    }

private:
    static std::size_t existing(const Farm::Job& job, std::int64_t piece)
    {
        const auto count = static_cast<std::int64_t>(job.pieces.size());
        if (piece >= count) {
            throw Failure(ExitCode::usage, fmt::format("{}: there is no piece {}; the pieces are 0 to {}",
                                                       job.manifest().string(), piece, count - 1));
        }
        return static_cast<std::size_t>(piece);
    }

    /// Throws Failure (interrupted).
    static ExitCode makeAndAnswer(Farm::PieceMaker& maker, const Farm::Job& job, const std::string& word,
                                  Console& console)
    {
        ExitCode code = ExitCode::ok;
        try {
            maker.make(existing(job, parseCount("PIECE", word, 0)));
        } catch (const Failure& failure) {
            if (failure.code() == ExitCode::interrupted) {
                throw;
            }
            console.error(failure.what(), failure.details());
            code = failure.code();
        } catch (const CLI::ParseError& error) {
            throw Failure(ExitCode::usage, std::string("standard input: ") + error.what());
        }
        console.data(fmt::format("{} {}\n", word, static_cast<int>(code)));
        return code;
    }

    bool readsNumbers_ = false;
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
