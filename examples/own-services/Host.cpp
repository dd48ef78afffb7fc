// The services that this application has itself: memory, files, settings. Its GPU service, effect compiler
// and surfaces are the reference host's, from libQxHostGPU.so and libQxHostSurfaces.so; these ask for
// everything else through platform/, and so use what is here.

#include "Host.h"

#include <host/gpu/GPUService.h>
#include <platform/Allocator.h>
#include <platform/Atomics.h>
#include <platform/Clock.h>
#include <platform/CubeLUT.h>
#include <platform/FileManager.h>
#include <platform/ImageConverter.h>
#include <platform/Log.h>
#include <platform/Messages.h>
#include <platform/OS.h>
#include <platform/Settings.h>
#include <platform/SystemInformation.h>
#include <platform/Text.h>
#include <platform/Threads.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>
#include <thread>

using Text = LightweightString<wchar_t>;

namespace {

/// Counts what it hands out.
class Allocator final : public iAllocator
{
public:
    void* allocate(std::size_t bytes, std::size_t alignment) override
    {
        ++blocks;
        return std::aligned_alloc(alignment, (bytes + alignment - 1) / alignment * alignment);
    }
    void deallocate(void* block) override { std::free(block); }

    std::atomic<unsigned long> blocks = 0;
};

class Atomics final : public iAtomics
{
public:
    std::uint32_t atomicIncrement(std::uint32_t& counter) override { return ++std::atomic_ref(counter); }
    std::uint32_t atomicDecrement(std::uint32_t& counter) override { return --std::atomic_ref(counter); }
};

class Clock final : public iClock
{
public:
    double millisecondsPrecise() override
    {
        return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now().time_since_epoch())
            .count();
    }
};

/// Lists the effects of a directory. The library asks for "DIRECTORY/*.fx" alone.
class Files final : public iFileManager
{
public:
    void listDirectory(const Text& pattern, Qx::Vector<DirectoryItem>& items, eKind, int) override
    {
        items.clear();
        const std::filesystem::path directory = std::filesystem::path(toUTF8(pattern).c_str()).parent_path();
        std::error_code error;
        if (directory.empty()) {
            return;
        }
        for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
            if (entry.path().extension() == ".fx") {
                DirectoryItem item;
                item.name = fromUTF8(entry.path().filename().c_str());
                item.size = entry.file_size(error);
                item.stamp =
                    static_cast<std::uint64_t>(entry.last_write_time(error).time_since_epoch().count());
                items.push_back(item);
            }
        }
        std::sort(items.begin(), items.end(),
                  [](const DirectoryItem& a, const DirectoryItem& b) { return a.name < b.name; });
    }
    bool copyFile(const Text&, const Text&, int) override { return false; }
};

class Messages final : public iMessageService
{
public:
    void showMessage(const Text&, const Text& text, eButtons, eSeverity) override
    {
        Log("message: %s\n", toUTF8(text).c_str());
    }
    Text effectsCaption() override { return L"Effects"; }
};

class System final : public iSystemInformation
{
public:
    MemoryStatus memoryStatus() override { return {0, std::uint64_t{1} << 30U, std::uint64_t{1} << 30U}; }
    int cpuCount() override { return static_cast<int>(std::max(1U, std::thread::hardware_concurrency())); }
};

class Threads final : public iThreadService
{
public:
    void sleepMilliseconds(unsigned milliseconds) override
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    }
};

class Users final : public iUserService
{
public:
    bool isAdministrator() override { return false; }
};

class Services final : public iOS
{
public:
    Allocator& allocator() override { return allocator_; }
    iAtomics& atomics() override { return atomics_; }
    iClock& clock() override { return clock_; }
    iFileManager& files() override { return files_; }
    iGPUService& gpu() override { return Qx::Host::gpuService(); }
    iMessageService& messages() override { return messages_; }
    iSystemInformation& systemInformation() override { return system_; }
    iThreadService& threads() override { return threads_; }
    iUserService& users() override { return users_; }

private:
    Allocator allocator_;
    Atomics atomics_;
    Clock clock_;
    Files files_;
    Messages messages_;
    System system_;
    Threads threads_;
    Users users_;
};

Services& services()
{
    static Services& only = *new Services; // lives for ever
    return only;
}

} // namespace

iOS& OS()
{
    return services();
}

void endServices()
{
    Qx::Host::gpuService().shutdown();
    Log("%lu blocks came from the application's allocator\n", services().allocator().blocks.load());
}

// Settings. The directory of effects is also where the compiler looks for what they include.

LightweightString<wchar_t> getShadersDir()
{
    return fromUTF8(EFFECTS);
}
LightweightString<wchar_t> getFXTemplatesDirectory(iSettings::eType)
{
    return {};
}
LightweightString<wchar_t> getLUTDirectory(iSettings::eType)
{
    return {};
}
int config_int(const char*, int defaultValue)
{
    return defaultValue;
}

// What this application has no use for: LUTs, and conversions on the processor.

void getDirectoryContents(const Text&, const Text&, Qx::Vector<Text>&, unsigned) {}
bool ImageConverter::convert(const Qx::Image::Surface&, Qx::Image::Surface&)
{
    return false;
}
Qx::Ptr<iHostImage3D> CubeLUT::load(const Text&)
{
    return {};
}
void CubeLUT::getSupportedFileTypes(Qx::Vector<Text>&) {}
