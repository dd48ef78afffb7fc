#include "tools/qxhost/commands/farm/JobCommand.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/farm/pieces/Joining.h"
#include "tools/qxhost/farm/run/Slurm.h"

#include <fmt/format.h>

namespace Qx::Program {

namespace {

class SubmitCommand : public JobCommand
{
public:
    void addMore(CLI::App& app) override
    {
        app.add_flag("--slurm", slurm_, "To Slurm, as an array job and a job that joins");
        const auto add = [&](const char* option, const char* value, std::string& target, const char* about) {
            return app.add_option(option, target, about)
                ->option_text(value)
                ->group("For each piece, as sbatch takes it");
        };
        add("--partition", "NAME", request_.partition, "Slurm's partition, of the join too");
        add("--account", "NAME", request_.account, "Slurm's account, of the join too");
        add("--gres", "LIST", request_.gres, "Resources, such as gpu:1");
        add("--cpus", "N", request_.cpus, "Processors");
        add("--mem", "SIZE", request_.memory, "Memory, such as 8G");
        add("--time", "TIME", request_.time, "Time at most, such as 02:00:00");
        add("--join-partition", "NAME", request_.joinPartition, "Another partition for the join")
            ->group("For the join");
        add("--join-time", "TIME", request_.joinTime, "Time at most. Default: the partition's")
            ->group("For the join");
        app.add_flag("--json", options_.json, "Print the jobs' numbers as JSON");
        addQuiet(app);
    }

    void check(const CLI::App& app) override
    {
        JobCommand::check(app);
        if (!slurm_) {
            complain(app, "say to whom: --slurm. Other schedulers run 'qxhost farm run-piece JOB K' for each "
                          "piece and then 'qxhost farm join JOB'");
        }
    }

    ExitCode run(Console& console) override
    {
        console.setQuiet(options_.quiet);
        const Farm::Job job = Farm::readJob(options_.job);
        if (Farm::isJoined(job)) {
            console.note(job.manifest().string() + ": is joined already; nothing is submitted");
            if (options_.json) {
                console.data(jsonText({{"joined", true}}));
            }
            return ExitCode::ok;
        }
        const Farm::SlurmNumbers numbers = Farm::submitToSlurm(job, request_);
        console.note(fmt::format("pieces are job {}, the join is job {}", numbers.pieces, numbers.join));
        if (options_.json) {
            console.data(jsonText({{"pieces", numbers.pieces}, {"join", numbers.join}}));
        }
        return ExitCode::ok;
    }

private:
    bool slurm_ = false;
    Farm::SlurmRequest request_;
};

class CancelCommand : public JobCommand
{
public:
    void addMore(CLI::App& app) override { addQuiet(app); }

    ExitCode run(Console& console) override
    {
        console.setQuiet(options_.quiet);
        Farm::cancelInSlurm(Farm::readJob(options_.job));
        console.note("ended; 'qxhost farm resume' submits what is missing");
        return ExitCode::ok;
    }
};

const Registered<SubmitCommand> registeredSubmit(
    {.name = "farm submit", .order = 25, .about = "Hand the missing pieces and the join to a scheduler"});

const Registered<CancelCommand> registeredCancel(
    {.name = "farm cancel", .order = 80, .about = "End what the scheduler has queued or runs of a job"});

} // namespace

} // namespace Qx::Program
