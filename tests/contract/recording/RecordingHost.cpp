#include "tests/contract/recording/RecordingHost.h"

#include "platform/Log.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace Qx::Test {

namespace {

template <class T>
std::string shortest(T value)
{
    std::array<char, 64> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    return {digits.data(), end};
}

} // namespace

RecordingHost& RecordingHost::instance()
{
    static RecordingHost& only = *new RecordingHost;
    return only;
}

void RecordingHost::addFile(const wchar_t* directory, const wchar_t* name, std::uint64_t stamp)
{
    iFileManager::DirectoryItem item;
    item.name = name;
    item.stamp = stamp;
    for (auto& known : directories[directory]) {
        if (known.name == item.name) {
            known = item;
            return;
        }
    }
    directories[directory].push_back(item);
}

std::vector<Qx::Ptr<iBackgroundTask>> RecordingHost::takeTasks()
{
    const std::lock_guard guard(lock_);
    return std::exchange(tasks_, {});
}

void RecordingHost::keepTask(Qx::Ptr<iBackgroundTask> task)
{
    const std::lock_guard guard(lock_);
    tasks_.push_back(std::move(task));
}

double RecordingHost::tick()
{
    if (recordClock) {
        call("millisecondsPrecise");
    }
    const std::lock_guard guard(lock_);
    now_ += clockStep;
    return now_;
}

void RecordingHost::pass(double milliseconds)
{
    const std::lock_guard guard(lock_);
    now_ += milliseconds;
}

std::string RecordingHost::numbered(const std::string& name)
{
    if (!recordReleases) {
        return name;
    }
    const std::lock_guard guard(lock_);
    return name + " " + std::to_string(++images_);
}

void RecordingHost::released(const std::string& name)
{
    if (recordReleases) {
        call("released", name);
    }
}

bool RecordingHost::call(const std::string& operation, const std::string& arguments)
{
    journal.record(operation + "(" + arguments + ")");
    if (const auto cost = costs.find(operation); cost != costs.end()) {
        pass(cost->second);
    }
    return script.play(operation);
}

void RecordingHost::watchCountersIn(const void* object, std::size_t bytes)
{
    watchedBegin_ = static_cast<const std::byte*>(object);
    watchedEnd_ = watchedBegin_ + bytes;
}

void RecordingHost::counterChanged(const char* operation, const std::uint32_t& counter, std::uint32_t value)
{
    const auto* address = reinterpret_cast<const std::byte*>(&counter);
    if (address >= watchedBegin_ && address < watchedEnd_) {
        journal.record(std::string(operation) + "() = " + std::to_string(value));
    }
}

void RecordingHost::reset()
{
    script.reset();
    takeTasks();
    shadersDirectory = L"/shaders/";
    templatesDirectory = L"/templates/";
    directories.clear();
    lutDirectories = {L"/luts/user", L"/luts/machine"};
    lutFiles.clear();
    lutTypes = {L"cube", L"3dl"};
    settings.clear();
    resources.clear();
    programArguments.clear();
    compileErrors.clear();
    makeEffect = nullptr;
    taskStatus = nullptr;
    convertImage = nullptr;
    clockStep = 1.5;
    costs.clear();
    memory = {};
    processors = 8;
    recordReleases = false;
    images_ = 0;
    now_ = 1000.0;
    shutdownCallbacks.clear();
    recordClock = false;
    watchCountersIn(nullptr, 0);
    ErrorLogLogger::loggingEnabled_ = false;
    journal.clear();
}

void exitShowingReleases()
{
    host().recordReleases = true;
    host().script.during("released",
                         [] { std::fprintf(stderr, "%s\n", host().journal.lines().back().c_str()); });
    std::exit(0);
}

std::string text(const LightweightString<wchar_t>& s)
{
    std::string result;
    for (const wchar_t wide : s.view()) {
        const auto c = static_cast<std::uint32_t>(wide);
        if (c < 0x80) {
            result += static_cast<char>(c);
        } else if (c < 0x800) {
            result += static_cast<char>(0xC0 | c >> 6);
            result += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            result += c < 0x10000 ? "" : std::string(1, static_cast<char>(0xF0 | c >> 18));
            result += static_cast<char>(c < 0x10000 ? 0xE0 | c >> 12 : 0x80 | (c >> 12 & 0x3F));
            result += static_cast<char>(0x80 | (c >> 6 & 0x3F));
            result += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return result;
}

std::string text(const LightweightString<char>& s)
{
    return std::string(s.view());
}

std::string number(double value)
{
    return shortest(value);
}
std::string number(float value)
{
    return shortest(value);
}

} // namespace Qx::Test
