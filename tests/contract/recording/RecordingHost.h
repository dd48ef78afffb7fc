#pragma once

#include "platform/Atomics.h"
#include "platform/BackgroundTasks.h"
#include "platform/Commands.h"
#include "platform/CriticalSection.h"
#include "platform/FileManager.h"
#include "platform/GPUService.h"
#include "platform/ShaderEffect.h"
#include "platform/Shutdown.h"
#include "platform/Surface.h"
#include "platform/SystemInformation.h"
#include "tests/contract/recording/FakeGPU.h"
#include "tests/contract/recording/Journal.h"
#include "tests/contract/recording/Script.h"
#include "tests/contract/recording/TaggingAllocator.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace Qx::Test {

/// A host without files, GPU, threads or user. It answers as a test tells it to and writes every call to its
/// journal, except allocations, atomic counting, locks and clock readings. The script makes an operation fail
/// or block, by its name in the journal.
///
/// The process has one, created on first use and never destroyed.
class RecordingHost
{
public:
    static RecordingHost& instance();

    Journal journal;
    Script script;
    TaggingAllocator allocator;

    // The host's answers. A test sets them before it calls the library.
    std::wstring shadersDirectory = L"/shaders/";
    std::wstring templatesDirectory = L"/templates/";
    std::map<std::wstring, std::vector<iFileManager::DirectoryItem>> directories;
    std::array<std::wstring, 2> lutDirectories{L"/luts/user", L"/luts/machine"}; ///< by scope
    std::map<std::wstring, std::vector<std::wstring>> lutFiles;                  ///< paths, by directory
    std::vector<std::wstring> lutTypes{L"cube", L"3dl"};
    std::map<std::string, int> settings;
    std::map<int, std::wstring> resources;
    std::set<std::wstring> programArguments;
    std::map<std::wstring, std::string> compileErrors; ///< paths that do not compile, with the reason
    std::function<Qx::Ptr<iShaderEffect>(const std::wstring& path)> makeEffect;
    std::function<BackgroundTaskQueueBase::eTaskStatus()> taskStatus;
    std::function<bool(const Image::Surface& from, Image::Surface& to)> convertImage; ///< the image converter
    bool recordClock = false;            ///< record readings of the clock in the journal
    double clockStep = 1.5;              ///< milliseconds that pass between two readings of the clock
    std::map<std::string, double> costs; ///< milliseconds that pass in every call of an operation
    MemoryStatus memory;
    int processors = 8;

    /// Records the destruction of GPU objects and host images as the operation "released"; GPU images are
    /// then numbered in order of creation.
    bool recordReleases = false;

    // What the library has registered with the host.
    struct Command
    {
        std::string name;
        CommandRegistrar::Handler handler = nullptr;
    };
    struct ShutdownCallback
    {
        Shutdown::Callback callback = nullptr;
        int order = 0;
    };
    std::vector<Command> commands;
    std::vector<ShutdownCallback> shutdownCallbacks;

    /// Adds a file to the host's listing of a directory.
    void addFile(const wchar_t* directory, const wchar_t* name, std::uint64_t stamp = 1);
    void removeFiles() { directories.clear(); }

    /// Returns the queued tasks, oldest first, and empties the queue.
    std::vector<Qx::Ptr<iBackgroundTask>> takeTasks();
    void keepTask(Qx::Ptr<iBackgroundTask> task);

    /// Returns the next reading of the clock in milliseconds.
    double tick();
    void pass(double milliseconds);

    /// Returns the name of a new image.
    std::string numbered(const std::string& name);
    void released(const std::string& name);

    /// Writes "operation(arguments)" to the journal and runs the script. Returns false if the operation is to
    /// fail.
    bool call(const std::string& operation, const std::string& arguments = {});

    /// Records changes of counters inside this object by the atomic service in the journal.
    void watchCountersIn(const void* object, std::size_t bytes);
    void counterChanged(const char* operation, const std::uint32_t& counter, std::uint32_t value);

    /// Resets everything except the registered commands.
    void reset();

private:
    RecordingHost() = default;

    std::mutex lock_;
    std::vector<Qx::Ptr<iBackgroundTask>> tasks_;
    double now_ = 1000.0;
    int images_ = 0;
    std::atomic<const std::byte*> watchedBegin_ = nullptr;
    std::atomic<const std::byte*> watchedEnd_ = nullptr;
};

inline RecordingHost& host()
{
    return RecordingHost::instance();
}

/// Returns how often the calling thread is inside a critical section. Either the calling thread is inside, or
/// no other thread may be.
int depthOf(const CriticalSection& section);

/// Returns how often the calling thread is already inside the critical section that a call enters last.
int depthOfLockEnteredBy(const std::function<void()>& call);

/// Returns how often the calling thread enters critical sections during a call.
std::size_t locksEnteredDuring(const std::function<void()>& call);

/// Ends the process by exit(), for a death test, and writes to standard error which objects of the host that
/// releases: the lines "released(...)".
[[noreturn]] void exitShowingReleases();

/// Blocks until `count` threads are waiting to enter critical sections. Returns false after a minute.
bool waitForBlockedThreads(int count);

/// Returns whether a thread is waiting to enter a critical section.
bool isAnyThreadBlocked();

/// Runs `action` on the calling thread when it is about to enter a critical section for the `count`-th time
/// from now; 1 is the next.
void beforeEntering(int count, std::function<void()> action);

/// Converts a text to UTF-8.
std::string text(const LightweightString<wchar_t>& s);
std::string text(const LightweightString<char>& s);

/// Formats a number as in the journal: the shortest form that reads back as the same number.
std::string number(double value);
std::string number(float value);

} // namespace Qx::Test
