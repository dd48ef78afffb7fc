#pragma once

#include "Qx/HostAllocator.h"
#include "Qx/LightweightString.h"
#include "platform/Shutdown.h"

#include <cstdint>
#include <functional>
#include <string_view>

class iClock;
class iFileManager;
class iGPUService;
class iMessageService;
class iReclaimable;
class iSystemInformation;
class iThreadService;
class iUserService;

/// Marks what the reference host exports to the program that embeds it, beside the platform's interfaces.
#define QX_HOST_API __attribute__((visibility("default")))

/// The reference host. A program calls start() once at the beginning of main and stop() before main returns.
/// The services themselves also work before and after that. All functions are thread-safe unless stated
/// otherwise.
namespace Qx::Host {

/// Services of the program's own, each in the place of the host's: OS() returns them from start() on. Null:
/// the host's own. A service must keep what its header in platform/ promises and live as long as the process.
/// The allocator and the counters are the host's, since they work before start().
struct OwnServices
{
    iGPUService* gpu = nullptr;                      ///< the host then opens no device
    iFileManager* files = nullptr;                   ///< directories and files
    iClock* clock = nullptr;                         ///< the time
    iMessageService* messages = nullptr;             ///< messages to the user
    iSystemInformation* systemInformation = nullptr; ///< memory and processors
    iThreadService* threads = nullptr;               ///< sleeps
    iUserService* users = nullptr;                   ///< the user's rights

    /// Receives what Log() and LogBoth() write, and what the host logs, instead of the log file: the same
    /// pieces of text in UTF-8, with their line ends. Called on any thread, one at a time. Must not log and
    /// must not throw.
    std::function<void(std::string_view text)> log{};
};

struct ApplicationDevice;

/// What a program tells the host at its start.
struct StartOptions
{
    int argc = 0;                      ///< as passed to main; StartEnv answers from them
    const char* const* argv = nullptr; ///< as passed to main; may be null if argc is 0

    /// The GPU to use: its index or a part of its name. Null: the setting `device`; if that is not set, a GPU
    /// is preferred to a software device.
    const char* device = nullptr;

    /// Suppresses debug output on standard error. The log is not affected.
    bool quiet = false;

    /// Create all pipelines when an effect is loaded. If false, create each on its first draw.
    bool effectsReadyWhenLoaded = true;

    /// The program's own services in place of the host's.
    OwnServices services{};

    /// The program's own Vulkan device for the host to use, see host/gpu/DeviceSharing.h. It is copied. Null:
    /// the host makes one of its own. What the device lacks is said on first use, in the log and by
    /// GPUService::failure(). The driver then keeps its cache where it did: it has started already. Call
    /// stop() before destroying the device.
    const ApplicationDevice* sharedDevice = nullptr;
};

/// Configures the host: program arguments, debug output, device, and by variables of this process where the
/// GPU's driver keeps its cache. Copies the strings of `options`. Does not open the device. Call it once,
/// before other threads start and before the library is used: its first use queues a background task, which
/// may open the device. A call that comes later is a complaint (takeComplaints()).
///
/// Parts of a program that know nothing of each other, such as two plugins, each call it, and stop() at their
/// end: the first call decides, and later ones change nothing. After stop() the host stays stopped, and a
/// call is a complaint; so it is in a plugin that was unloaded and loaded again, since the libraries stay
/// loaded.
QX_HOST_API void start(const StartOptions& options);

/// Shuts the host down: drops waiting background tasks, calls the shutdown callbacks, waits for a running
/// task to finish, and shuts the GPU service down. After several calls of start() the last of as many calls
/// does so, and no later one. Call it on the main thread.
QX_HOST_API void stop(Shutdown::eExitType exitType = Shutdown::NormalExit);

/// A command that can be invoked by name.
struct CommandInfo
{
    LightweightString<char> name;           ///< what runCommand() takes
    LightweightString<wchar_t> displayText; ///< for menus
    LightweightString<wchar_t> description; ///< for the user
};

/// Returns all commands in registration order.
QX_HOST_API Vector<CommandInfo> listCommands();

/// Invokes a command on the calling thread. Returns false if there is no command of that name.
QX_HOST_API bool runCommand(const char* name);

/// The state of a background task.
struct TaskInfo
{
    /// What became of a task so far.
    enum eState
    {
        Queued,
        Running,
        Succeeded,
        Failed
    };

    LightweightString<char> id;             ///< as iBackgroundTask::getID()
    LightweightString<wchar_t> description; ///< as iBackgroundTask::getDescription()
    eState state = Queued;                  ///< at the time of the call
    LightweightString<wchar_t> step;        ///< current step
    double fraction = 0;                    ///< completed fraction, 0 to 1
};

/// Returns the tasks of the process-wide queue: those that are done and still listed, the running one, and
/// those that wait.
QX_HOST_API Vector<TaskInfo> listTasks();

/// Asks background tasks to wait before their next steps while `hold` is set. Initially off; stop() turns it
/// off for good.
QX_HOST_API void holdBackTasks(bool hold);

/// Returns a setting from the environment or the settings file, or an empty string if it is not set. Keys are
/// those of the file: table and name joined by '.'.
QX_HOST_API LightweightString<char> textSetting(const char* key);

/// Returns the problems found in the settings and with the log, including unknown keys: one line each,
/// without a line end. For programs that start the host with `quiet`; otherwise the host prints them itself.
/// Each problem is returned once.
QX_HOST_API Vector<LightweightString<char>> takeComplaints();

/// Returns the directories of effects and of their includes in UTF-8: the shaders directory, its Include, and
/// the user's and the machine's templates. Includes are searched in this order, after the directory of the
/// including file.
QX_HOST_API Vector<LightweightString<char>> effectDirectories();

/// The state of the disk cache, which speeds up later runs. All processes of the user may share it.
struct CacheInfo
{
    LightweightString<char> directory; ///< the cache's directory, which may not exist
    bool enabled = false;              ///< the setting `cache` is on and the size limit is not 0
    LightweightString<char> problem;   ///< why the directory cannot be used; empty if it can
    std::uint64_t limitBytes = 0;      ///< limit on the size of all files, from the setting `cache_mib`
    std::uint64_t effects = 0;         ///< number of compiled effects
    std::uint64_t effectBytes = 0;     ///< size of their files
    std::uint64_t pipelines = 0;       ///< number of devices and drivers with stored pipelines
    std::uint64_t pipelineBytes = 0;   ///< size of their files
};

/// Reads the state of the disk cache.
QX_HOST_API CacheInfo cacheInfo();

/// Removes all entries of the disk cache, and the driver's cache in it. Safe while other processes use it:
/// they recreate their entries. Returns an empty string, or the reason why some entries could not be removed.
QX_HOST_API LightweightString<char> clearCache();

/// Registers an object to be asked to free memory when the machine runs short of it: limitUsage() when work
/// begins to wait for memory, purge() when little is left. The object is called on a thread of the host until
/// it is unregistered or the host is stopped. The caller keeps ownership.
QX_HOST_API void registerReclaimable(iReclaimable* reclaimable);
/// Unregisters an object. Blocks until a call in progress has returned.
QX_HOST_API void unregisterReclaimable(iReclaimable* reclaimable);

/// Makes all registered objects write their memory use to the log.
QX_HOST_API void reportMemory();

/// Registers the constructing thread with the watchdog for the lifetime of this object. If the thread does
/// not report for `seconds`, the host writes a line to the log. `name` identifies the thread in it.
class QX_HOST_API WatchedThread
{
public:
    /// Begins to watch. `name` is copied; `seconds` is the longest time between two reports.
    WatchedThread(const char* name, unsigned seconds);
    ~WatchedThread();
    WatchedThread(const WatchedThread&) = delete;
    WatchedThread& operator=(const WatchedThread&) = delete;

    /// Reports that the thread is alive. May be called from any thread.
    void report();

private:
    std::uint64_t ticket_;
};

} // namespace Qx::Host
