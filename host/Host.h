#pragma once

#include "Qx/HostAllocator.h"
#include "Qx/LightweightString.h"
#include "platform/Shutdown.h"

#include <cstdint>

class iReclaimable;

/// Marks what the reference host offers to the program that embeds it, beyond the interfaces of the platform.
#define QX_HOST_API __attribute__((visibility("default")))

/// The reference host. A program calls start() once at the beginning of main and stop() before it returns;
/// the services themselves work before and after that.
namespace Qx::Host {

struct StartOptions
{
    int argc = 0; ///< of main, for StartEnv
    const char* const* argv = nullptr;

    /// The GPU to use: its index or a part of its name. Null: the setting `device`, and without it a GPU
    /// rather than a software device.
    const char* device = nullptr;

    /// Leave out debug output on standard error. The log is not affected.
    bool quiet = false;

    /// Create all pipelines when an effect is loaded. If false, create each on its first draw.
    bool effectsReadyWhenLoaded = true;
};

QX_HOST_API void start(const StartOptions& options);

/// Ends the host: drops the waiting background tasks, calls the shutdown callbacks, waits for a running task
/// and ends the GPU service. Only the first call has an effect. Call it on the main thread.
QX_HOST_API void stop(Shutdown::eExitType exitType = Shutdown::NormalExit);

/// A command that can be run by name.
struct CommandInfo
{
    LightweightString<char> name;
    LightweightString<wchar_t> displayText;
    LightweightString<wchar_t> description;
};

/// The commands, in the order of their registration.
QX_HOST_API Vector<CommandInfo> listCommands();

/// Runs a command on the calling thread. Returns false if there is none of that name.
QX_HOST_API bool runCommand(const char* name);

/// A background task of the process's queue.
struct TaskInfo
{
    enum eState
    {
        Queued,
        Running,
        Succeeded,
        Failed
    };

    LightweightString<char> id;
    LightweightString<wchar_t> description;
    eState state = Queued;
    LightweightString<wchar_t> step; ///< the current step
    double fraction = 0;             ///< done, 0 to 1
};

/// The tasks: finished ones that are still listed, the running one, and waiting ones.
QX_HOST_API Vector<TaskInfo> listTasks();

/// While this is on, background tasks are asked to wait before their next steps. Off at the start and after
/// stop().
QX_HOST_API void holdBackTasks(bool hold);

/// The value of a setting in the environment or the settings file; empty if it is not set. Keys are those of
/// the file, tables and names joined by '.'.
QX_HOST_API LightweightString<char> textSetting(const char* key);

/// Problems of the settings and the log, unknown keys included, for the user of a quiet host: one line each,
/// without its end. Each is returned once. A host that is not quiet prints them itself.
QX_HOST_API Vector<LightweightString<char>> takeComplaints();

/// The directories of effects and includes, in UTF-8: the shaders directory, its Include, and the templates
/// of the user and of the machine. Effects search for includes in this order, after their own directory.
QX_HOST_API Vector<LightweightString<char>> effectDirectories();

/// Data on disk between runs, for a faster start. All processes of the user share it.
struct CacheInfo
{
    LightweightString<char> directory; ///< may not exist yet
    bool enabled = false;              ///< by the setting `cache` and a limit above zero
    LightweightString<char> problem;   ///< why the directory cannot be used; empty if it can
    std::uint64_t limitBytes = 0;      ///< of all files together, by the setting `cache_mib`
    std::uint64_t effects = 0;         ///< compiled effects
    std::uint64_t effectBytes = 0;
    std::uint64_t pipelines = 0; ///< devices and drivers with saved pipelines
    std::uint64_t pipelineBytes = 0;
};

QX_HOST_API CacheInfo cacheInfo();

/// Removes all of it, even while other processes use it: they recreate it. Empty, or the reason why something
/// remains.
QX_HOST_API LightweightString<char> clearCache();

/// Makes the host call this object when the machine is short of memory: limitUsage() when work begins to wait
/// for memory, purge() when memory is scarce. The calls come from a thread of the host until stop() or until
/// the object is unregistered, which blocks until a call in progress returns.
QX_HOST_API void registerReclaimable(iReclaimable* reclaimable);
QX_HOST_API void unregisterReclaimable(iReclaimable* reclaimable);

/// Makes every registered object write its memory usage to the log.
QX_HOST_API void reportMemory();

/// Makes the watchdog watch the thread that creates the object, for the lifetime of the object. A line is
/// logged if the thread does not report for that long.
class QX_HOST_API WatchedThread
{
public:
    WatchedThread(const char* name, unsigned seconds);
    ~WatchedThread();
    WatchedThread(const WatchedThread&) = delete;
    WatchedThread& operator=(const WatchedThread&) = delete;

    /// Reports that the thread is alive. Thread-safe.
    void report();

private:
    std::uint64_t ticket_;
};

} // namespace Qx::Host
