#pragma once

#include "platform/Atomics.h"
#include "platform/BackgroundTasks.h"
#include "platform/Commands.h"
#include "platform/CriticalSection.h"
#include "platform/FileManager.h"
#include "platform/GPUService.h"
#include "platform/ShaderEffect.h"
#include "platform/Shutdown.h"
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

/// A host without files, GPU, threads or user: it answers what a test tells it to and writes every call into
/// its journal, allocations, atomic counting, locks and clock readings apart. A failing or held-up operation
/// is told to the script by the operation's name in the journal.
///
/// The process has one, made on first use and never destroyed.
class RecordingHost
{
public:
    static RecordingHost& instance();

    Journal journal;
    Script script;
    TaggingAllocator allocator;

    // What the host answers. Set by a test before it calls the library.
    std::wstring shadersDirectory = L"/shaders/";
    std::wstring templatesDirectory = L"/templates/";
    std::map<std::wstring, std::vector<iFileManager::DirectoryItem>> directories;
    std::array<std::wstring, 2> lutDirectories{L"/luts/user", L"/luts/machine"}; ///< by scope
    std::map<std::wstring, std::vector<std::wstring>> lutFiles;                  ///< paths, by directory
    std::vector<std::wstring> lutTypes{L"cube", L"3dl"};
    std::map<std::string, int> settings;
    std::map<int, std::wstring> resources;
    std::set<std::wstring> programArguments;
    std::map<std::wstring, std::string> compileErrors; ///< a path in it does not compile, for that reason
    std::function<Qx::Ptr<iShaderEffect>(const std::wstring& path)> makeEffect;
    std::function<BackgroundTaskQueueBase::eTaskStatus()> taskStatus;
    bool recordClock = false;            ///< readings of the clock are written into the journal, too
    double clockStep = 1.5;              ///< milliseconds that pass between two readings of the clock
    std::map<std::string, double> costs; ///< milliseconds that pass in every call of an operation
    MemoryStatus memory;
    int processors = 8;

    /// Whether the journal says when GPU objects and host images go; GPU images are numbered then, as they
    /// are made.
    bool recordReleases = false;

    // What the library left with the host.
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

    /// Puts a file into the host's listing of a directory.
    void addFile(const wchar_t* directory, const wchar_t* name, std::uint64_t stamp = 1);
    void removeFiles() { directories.clear(); }

    /// The tasks that were queued, oldest first; the queue is empty then.
    std::vector<Qx::Ptr<iBackgroundTask>> takeTasks();
    void keepTask(Qx::Ptr<iBackgroundTask> task);

    /// The next tick of the clock in milliseconds.
    double tick();
    void pass(double milliseconds);

    /// The name of a new image.
    std::string numbered(const std::string& name);
    void released(const std::string& name);

    /// Writes "operation(arguments)" into the journal and plays the script; false when the operation shall
    /// fail.
    bool call(const std::string& operation, const std::string& arguments = {});

    /// Changes by the atomic service of counters inside this object are written into the journal.
    void watchCountersIn(const void* object, std::size_t bytes);
    void counterChanged(const char* operation, const std::uint32_t& counter, std::uint32_t value);

    /// Back to the start, the registered commands apart.
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

/// How often the calling thread is inside a critical section. The calling thread must be inside, or no other
/// thread may be.
int depthOf(const CriticalSection& section);

/// Waits until that many threads are waiting to enter critical sections; false when that does not happen
/// within a minute.
bool waitForBlockedThreads(int count);

/// A text as UTF-8.
std::string text(const LightweightString<wchar_t>& s);
std::string text(const LightweightString<char>& s);

/// A number as the journal writes it, the shortest that reads back as the same one.
std::string number(double value);
std::string number(float value);

} // namespace Qx::Test
