#pragma once

#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/commands/OptionHelpers.h"
#include "tools/qxhost/farm/job/Job.h"

#include <CLI/CLI.hpp>
#include <cstdint>
#include <filesystem>
#include <string>

namespace Qx::Program {

/// The options of the commands on a job, of which each has some.
struct JobOptions
{
    std::filesystem::path job;
    std::int64_t piece = -1;
    std::int64_t jobs = 0;
    std::filesystem::path output;
    std::string device;
    bool force = false;
    bool quiet = false;
    bool json = false;
};

/// A command on a job that exists.
class JobCommand : public CommandWithOptions<JobOptions>
{
public:
    void addOptions(CLI::App& app) override
    {
        app.add_option("JOB", options_.job, "The manifest job.json, or its folder")->option_text(" ");
        addMore(app);
    }

    void check(const CLI::App& app) override { requireValue(app, options_.job, "JOB"); }

protected:
    virtual void addMore(CLI::App& app) = 0;

    void addQuiet(CLI::App& app) { app.add_flag("--quiet", options_.quiet, "Print nothing but errors"); }
    void addWorkers(CLI::App& app)
    {
        addCount(app, "--jobs", options_.jobs, 1,
                 "Pieces at a time. Default: 2, or one for each GPU.\nMemory may allow fewer");
        addDevice(app, options_.device);
    }
};

} // namespace Qx::Program
