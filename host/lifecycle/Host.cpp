#include "host/Host.h"
#include "host/files/SystemError.h"

#include "host/cache/FileStore.h"
#include "host/core/EffectIncludes.h"
#include "host/lifecycle/AbsentDrivers.h"
#include "host/lifecycle/CachePlace.h"
#include "host/lifecycle/Commands.h"
#include "host/lifecycle/DriverCache.h"
#include "host/lifecycle/GPUConnection.h"
#include "host/lifecycle/Reclaim.h"
#include "host/lifecycle/Services.h"
#include "host/lifecycle/ShutdownSequence.h"
#include "host/lifecycle/StartArguments.h"
#include "host/lifecycle/Watchdog.h"
#include "host/log/HostLog.h"
#include "host/settings/Settings.h"
#include "host/tasks/TaskQueue.h"
#include "platform/Log.h"

#include <atomic>
#include <string>
#include <string_view>
#include <system_error>

namespace Qx::Host {

namespace {

template <class CharT>
LightweightString<CharT> shared(const std::basic_string<CharT>& text)
{
    return LightweightString<CharT>(std::basic_string_view<CharT>(text));
}

TaskInfo::eState stateOf(TaskState state)
{
    switch (state) {
    case TaskState::Queued:
        return TaskInfo::Queued;
    case TaskState::Running:
        return TaskInfo::Running;
    case TaskState::Succeeded:
        return TaskInfo::Succeeded;
    case TaskState::Failed:
        break;
    }
    return TaskInfo::Failed;
}

std::atomic<int> startsWithoutStop = 0;
std::atomic<bool> isStopped = false;

} // namespace

void start(const StartOptions& options)
{
    if (isStopped) {
        HostLog::instance().complain("the host has been stopped and cannot be started again in this process; "
                                     "stop it when nothing needs it any more");
        return;
    }
    if (startsWithoutStop.fetch_add(1) > 0) {
        HostLog::instance().write("another part of this program has started the host, which keeps its "
                                  "arguments, services and device\n");
        return;
    }
    HostLog::instance().setDebugOutput(!options.quiet);
    HostLog::instance().setReceiver(options.services.log);
    replaceServices(options.services);
    setStartArguments(options.argc, options.argv);
    if (!taskQueue().report().empty()) {
        HostLog::instance().complain("the host was started after background tasks; those run without the "
                                     "arguments and the device that the program chose");
    }
    if (options.sharedDevice == nullptr) { // or the driver has read its variables, and has threads that may
        placeDriverCache(configuredCachePlace());
        leaveOutAbsentDrivers();
    }
    ErrorLogLogger::loggingEnabled_ = Settings::instance().flag("timing_lines").value_or(false);
    configureGPU(options);
}

void stop(Shutdown::eExitType exitType)
{
    if (startsWithoutStop.fetch_sub(1) > 1 || isStopped.exchange(true)) {
        return;
    }
    wakeSleepers();
    stopMemoryWatch();
    // Waits for the running task last, since a callback may make it stop early.
    shutdownSequence().run(exitType, refuseTasks);
    taskQueue().close();
    shutDownGPU();
    stopMonitor();
    HostLog::instance().flush();
}

Vector<CommandInfo> listCommands()
{
    Vector<CommandInfo> commands;
    for (const RegisteredCommand& command : registeredCommands()) {
        commands.push_back({shared(command.name), shared(command.displayText), shared(command.description)});
    }
    return commands;
}

bool runCommand(const char* name)
{
    return name != nullptr && giveCommand(name);
}

Vector<TaskInfo> listTasks()
{
    Vector<TaskInfo> tasks;
    for (const TaskReport& task : taskQueue().report()) {
        tasks.push_back({shared(task.id), shared(task.description), stateOf(task.state),
                         shared(task.progress.step), task.progress.fraction});
    }
    return tasks;
}

void holdBackTasks(bool hold)
{
    taskQueue().holdBack(hold);
}

LightweightString<char> textSetting(const char* key)
{
    const auto value = key != nullptr ? Settings::instance().text(key) : std::nullopt;
    return value ? shared(*value) : LightweightString<char>();
}

Vector<LightweightString<char>> takeComplaints()
{
    Settings::instance().reportMistakes();
    Vector<LightweightString<char>> complaints;
    for (const std::string& complaint : HostLog::instance().takeComplaints()) {
        complaints.push_back(shared(complaint));
    }
    return complaints;
}

Vector<LightweightString<char>> effectDirectories()
{
    Vector<LightweightString<char>> directories;
    for (const std::filesystem::path& directory : effectIncludeDirectories()) {
        directories.push_back(shared(directory.string()));
    }
    return directories;
}

CacheInfo cacheInfo()
{
    const CachePlace place = configuredCachePlace();
    const Cache::FileStore store(place.directory, place.mostBytes, {});
    const Cache::FileStore::Usage effects = store.usage(Cache::Kind::Effect);
    const Cache::FileStore::Usage pipelines = store.usage(Cache::Kind::Pipelines);
    CacheInfo info;
    info.directory = shared(place.directory.string());
    info.enabled = place.enabled;
    info.problem = shared(store.problem());
    info.limitBytes = place.mostBytes;
    info.effects = effects.entries;
    info.effectBytes = effects.bytes;
    info.pipelines = pipelines.entries;
    info.pipelineBytes = pipelines.bytes;
    return info;
}

LightweightString<char> clearCache()
{
    const CachePlace place = configuredCachePlace();
    std::error_code error;
    std::filesystem::remove_all(driverCacheDirectory(place), error);
    if (error == std::errc::directory_not_empty) {
        error.clear(); // another process's driver keeps something new
    }
    const std::string problem = Cache::FileStore(place.directory, place.mostBytes, {}).clear();
    return shared(problem.empty() && error ? "driver: " + systemProblem(error.value()) : problem);
}

} // namespace Qx::Host
