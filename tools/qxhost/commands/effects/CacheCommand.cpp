#include "host/Host.h"
#include "host/core/Printable.h"
#include "tools/qxhost/commands/Command.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/console/Json.h"
#include "tools/qxhost/pipeline/device/HostSession.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fmt/format.h>

namespace Qx::Program {

namespace {

Json describe(const Host::CacheInfo& info)
{
    return {{"directory", std::string(info.directory.view())},
            {"enabled", info.enabled},
            {"problem", std::string(info.problem.view())},
            {"limitBytes", info.limitBytes},
            {"effects", {{"count", info.effects}, {"bytes", info.effectBytes}}},
            {"pipelines", {{"count", info.pipelines}, {"bytes", info.pipelineBytes}}}};
}

std::string kib(std::uint64_t bytes)
{
    return fmt::format("{} KiB", (bytes + 1023) / 1024);
}

std::string stateOf(const Host::CacheInfo& info)
{
    if (!info.enabled) {
        return "off, by the settings cache and cache_mib";
    }
    return info.problem.empty() ? "in use" : fmt::format("not used: {}", info.problem.view());
}

std::string cacheTable(const Host::CacheInfo& info)
{
    return fmt::format("directory  {}\n"
                       "state      {}\n"
                       "effects    {}, {}\n"
                       "pipelines  {}, {}\n"
                       "limit      {}\n",
                       Host::printable(info.directory.view()), stateOf(info), info.effects,
                       kib(info.effectBytes), info.pipelines, kib(info.pipelineBytes), kib(info.limitBytes));
}

ExitCode showInfo(bool json, Console& console)
{
    const Host::CacheInfo info = Host::cacheInfo();
    tellComplaints(console);
    console.data(json ? jsonText(describe(info)) : cacheTable(info));
    return ExitCode::ok;
}

ExitCode clear(bool json, Console& console)
{
    const Host::CacheInfo info = Host::cacheInfo();
    tellComplaints(console);
    const std::string directory(info.directory.view());
    if (const LightweightString<char> problem = Host::clearCache(); !problem.empty()) {
        throw Failure(ExitCode::output, directory + ": cannot be cleared: " + std::string(problem.view()) +
                                            "; remove the directory by hand");
    }
    const Host::CacheInfo after = Host::cacheInfo();
    const std::uint64_t removed =
        info.effectBytes + info.pipelineBytes -
        std::min(info.effectBytes + info.pipelineBytes, after.effectBytes + after.pipelineBytes);
    console.data(json ? jsonText({{"directory", directory}, {"removedBytes", removed}})
                      : fmt::format("{}: {} removed\n", Host::printable(directory), kib(removed)));
    return ExitCode::ok;
}

struct CacheOptions
{
    bool json = false;
};

/// A command on the cache; `work` is what it does.
template <ExitCode (*work)(bool json, Console& console)>
class CacheCommand : public CommandWithOptions<CacheOptions>
{
public:
    void addOptions(CLI::App& app) override { app.add_flag("--json", options_.json, "Print JSON"); }
    ExitCode run(Console& console) override { return work(options_.json, console); }
};

const RegisteredGroup group({.name = "effects cache",
                             .order = 50,
                             .about = "Compiled effects and pipelines that are kept on disk"});

const Registered<CacheCommand<showInfo>> registeredCacheInfo(
    {.name = "effects cache info", .order = 10, .about = "Show the cache's directory, state and size"});

const Registered<CacheCommand<clear>> registeredClear(
    {.name = "effects cache clear", .order = 20, .about = "Empty the cache; it is refilled when needed"});

} // namespace

} // namespace Qx::Program
