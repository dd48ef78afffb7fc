#pragma once

#include "Qx/HostAllocator.h"
#include "Qx/LightweightString.h"
#include "platform/Shutdown.h"

#include <cstdint>

class iReclaimable;

/// Marks what the reference host offers to the program that embeds it, beside the platform's interfaces.
#define QX_HOST_API __attribute__((visibility("default")))

/// The reference host. A program calls start() once at the beginning of main and stop() before it returns;
/// the services themselves work before and after that.
namespace Qx::Host {

struct StartOptions
{
    int argc = 0; ///< as main got them: what StartEnv answers from
    const char* const* argv = nullptr;

    /// The GPU to use: its index or a part of its name. Null: the setting `device`, and without that a GPU
    /// before a software device.
    const char* device = nullptr;

    /// Debug output on standard error is left out. The log has everything that belongs into it all the same.
    bool quiet = false;

    /// An effect that is loaded is made ready for its first frame. Off, for a program that draws few
    /// techniques, each is made ready when it is first drawn.
    bool effectsReadyWhenLoaded = true;
};

QX_HOST_API void start(const StartOptions& options);

/// Ends the host: drops the background tasks that wait, calls the shutdown callbacks, lets a running task
/// finish, and ends the GPU service. Only the first call does anything. Call it on the main thread.
QX_HOST_API void stop(Shutdown::eExitType exitType = Shutdown::NormalExit);

/// A command that can be given by name.
struct CommandInfo
{
    LightweightString<char> name;
    LightweightString<wchar_t> displayText;
    LightweightString<wchar_t> description;
};

/// The commands in the order of their registration.
QX_HOST_API Vector<CommandInfo> listCommands();

/// Gives a command on the calling thread; false when there is none of that name.
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
    LightweightString<wchar_t> step; ///< what the task is at
    double fraction = 0;             ///< done, 0 to 1
};

/// The tasks: those that are done and stay listed, the running one, those that wait.
QX_HOST_API Vector<TaskInfo> listTasks();

/// While it is on, background tasks are asked to wait before their next steps. Off at the start and from
/// stop() on.
QX_HOST_API void holdBackTasks(bool hold);

/// A setting as the environment or the settings file has it; empty when it is not set. Keys are those of the
/// file, tables and names joined by '.'.
QX_HOST_API LightweightString<char> textSetting(const char* key);

/// What is wrong with the settings and the log, a line each without its end, for a quiet host's user; keys
/// that nobody knows are among it. Each is answered once. Not quiet, the host shows them itself.
QX_HOST_API Vector<LightweightString<char>> takeComplaints();

/// Where effects and what they include lie: the shaders directory, its Include, and the user's and the
/// machine's templates, in UTF-8. Effects look for includes in this order, after their own directory.
QX_HOST_API Vector<LightweightString<char>> effectDirectories();

/// What is kept on disk between runs, to start faster. Any process of the user's may share it.
struct CacheInfo
{
    LightweightString<char> directory; ///< where it is kept, or would be
    bool enabled = false;              ///< the setting `cache`, with a bound of more than nothing
    LightweightString<char> problem;   ///< why the directory cannot be used as it is now; empty when it can
    std::uint64_t limitBytes = 0;      ///< the bound of all files together, from the setting `cache_mib`
    std::uint64_t effects = 0;         ///< compiled effects
    std::uint64_t effectBytes = 0;
    std::uint64_t pipelines = 0; ///< devices and drivers whose pipelines are kept
    std::uint64_t pipelineBytes = 0;
};

QX_HOST_API CacheInfo cacheInfo();

/// Removes everything that is kept, also while other processes use it: they make it anew. Empty, or why not
/// all of it could be removed.
QX_HOST_API LightweightString<char> clearCache();

/// Has the host ask this object for memory when the machine is short of it: limitUsage() when work begins to
/// wait for memory, purge() when it is scarce. It is asked on a thread of the host's until it is
/// unregistered, which waits for a call that is under way, or stop().
QX_HOST_API void registerReclaimable(iReclaimable* reclaimable);
QX_HOST_API void unregisterReclaimable(iReclaimable* reclaimable);

/// Has everything that is registered write what it holds to the log.
QX_HOST_API void reportMemory();

/// Has the watchdog watch the thread that makes it, for as long as it lives: a line in the log says so when
/// the thread does not report for that long.
class QX_HOST_API WatchedThread
{
public:
    WatchedThread(const char* name, unsigned seconds);
    ~WatchedThread();
    WatchedThread(const WatchedThread&) = delete;
    WatchedThread& operator=(const WatchedThread&) = delete;

    /// The thread is well. Any thread may say so.
    void report();

private:
    std::uint64_t ticket_;
};

} // namespace Qx::Host
