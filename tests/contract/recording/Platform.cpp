#include "platform/BackgroundTasks.h"
#include "platform/Commands.h"
#include "platform/CubeLUT.h"
#include "platform/FileManager.h"
#include "platform/ImageConverter.h"
#include "platform/Log.h"
#include "platform/Settings.h"
#include "platform/Shutdown.h"
#include "platform/StartEnv.h"
#include "platform/SystemWatchdog.h"
#include "platform/Text.h"
#include "tests/contract/recording/RecordingHost.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>

using Qx::Test::host;
using Qx::Test::inQuotes;
using Qx::Test::text;

// Settings

LightweightString<wchar_t> getShadersDir()
{
    host().call("getShadersDir");
    return host().shadersDirectory.c_str();
}

LightweightString<wchar_t> getFXTemplatesDirectory(iSettings::eType scope)
{
    host().call("getFXTemplatesDirectory", std::to_string(static_cast<int>(scope)));
    return host().templatesDirectory.c_str();
}

LightweightString<wchar_t> getLUTDirectory(iSettings::eType scope)
{
    host().call("getLUTDirectory", std::to_string(static_cast<int>(scope)));
    return host().lutDirectories.at(static_cast<std::size_t>(scope)).c_str();
}

int config_int(const char* name, int defaultValue)
{
    host().call("config_int", inQuotes(name) + ", " + std::to_string(defaultValue));
    const auto found = host().settings.find(name);
    return found != host().settings.end() ? found->second : defaultValue;
}

// LUT files

void getDirectoryContents(const LightweightString<wchar_t>& directory,
                          const LightweightString<wchar_t>& pattern,
                          Qx::Vector<LightweightString<wchar_t>>& contents, unsigned flags)
{
    host().call("getDirectoryContents",
                inQuotes(text(directory)) + ", " + inQuotes(text(pattern)) + ", " + std::to_string(flags));
    for (const std::wstring& path : host().lutFiles[std::wstring(directory.view())]) {
        contents.emplace_back(path.c_str());
    }
}

Qx::Ptr<iHostImage3D> CubeLUT::load(const LightweightString<wchar_t>& path)
{
    if (!host().call("CubeLUT::load", inQuotes(text(path)))) {
        return {};
    }
    return Qx::makePtr<Qx::Test::FakeHostImage3D>(text(path));
}

void CubeLUT::getSupportedFileTypes(Qx::Vector<LightweightString<wchar_t>>& types)
{
    host().call("CubeLUT::getSupportedFileTypes");
    for (const std::wstring& type : host().lutTypes) {
        types.emplace_back(type.c_str());
    }
}

// Surfaces

bool ImageConverter::convert(const Qx::Image::Surface& from, Qx::Image::Surface& to)
{
    if (!host().call("ImageConverter::convert")) {
        return false;
    }
    return host().convertImage ? host().convertImage(from, to) : to.allocateHost();
}

// Text

LightweightString<wchar_t> resourceStrW(int resource)
{
    host().call("resourceStrW", std::to_string(resource));
    const auto found = host().resources.find(resource);
    return found != host().resources.end() ? LightweightString<wchar_t>(found->second.c_str())
                                           : LightweightString<wchar_t>();
}

namespace {

LightweightString<wchar_t> wide(const std::string& ascii)
{
    return std::wstring(ascii.begin(), ascii.end()).c_str();
}

} // namespace

LightweightString<wchar_t> bytesAsString(unsigned long bytes, bool shortUnits)
{
    host().call("bytesAsString", std::to_string(bytes) + ", " + (shortUnits ? "true" : "false"));
    return wide(std::to_string(bytes) + " bytes");
}

LightweightString<wchar_t> Qx::WStringFromFloat(double value, char decimals, bool keepTrailingZeros)
{
    host().call("WStringFromFloat", Test::number(value) + ", " + std::to_string(decimals) + ", " +
                                        (keepTrailingZeros ? "true" : "false"));
    return wide(Test::number(value));
}

LightweightString<wchar_t> Qx::WStringFromInteger(long value)
{
    host().call("WStringFromInteger", std::to_string(value));
    return wide(std::to_string(value));
}

LightweightString<char> toUTF8(const LightweightString<wchar_t>& wide)
{
    return text(wide).c_str();
}

// Texts that come to this host are ASCII.
LightweightString<wchar_t> fromUTF8(const LightweightString<char>& ascii)
{
    return wide(std::string(ascii.view()));
}

// Log

namespace {

void recordFormatted(const char* operation, const char* format, std::va_list arguments)
{
    std::array<char, 4096> line{};
    std::vsnprintf(line.data(), line.size(), format, arguments);
    host().call(operation, inQuotes(line.data()));
}

} // namespace

void vexo_printf(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    recordFormatted("vexo_printf", format, arguments);
    va_end(arguments);
}

void Log(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    recordFormatted("Log", format, arguments);
    va_end(arguments);
}

void LogBoth(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    recordFormatted("LogBoth", format, arguments);
    va_end(arguments);
}

namespace Qx {

bool ErrorLogLogger::loggingEnabled_ = false;

} // namespace Qx

// Process and lifecycle

StartEnv& StartEnv::programEnv()
{
    static StartEnv only;
    return only;
}

int StartEnv::arg(const wchar_t* name) const
{
    host().call("StartEnv::arg", inQuotes(text(name)));
    return host().programArguments.contains(name) ? 1 : 0;
}

void Shutdown::addCallback(Callback callback, int order)
{
    host().call("Shutdown::addCallback", std::to_string(order));
    host().shutdownCallbacks.push_back({callback, order});
}

void SystemWatchdog::beginLifeSupport()
{
    host().call("SystemWatchdog::beginLifeSupport");
}
void SystemWatchdog::endLifeSupport()
{
    host().call("SystemWatchdog::endLifeSupport");
}

CommandRegistrar::CommandRegistrar(const char* name, Handler handler, const UIString& displayText,
                                   const UIString& description, eCmdScope scope, const MapItem& binding)
    : name_(name)
{
    host().call("CommandRegistrar",
                inQuotes(name) + ", " + inQuotes(text(displayText.text)) + "/" +
                    std::to_string(displayText.resource) + ", " + inQuotes(text(description.text)) + "/" +
                    std::to_string(description.resource) + ", " + std::to_string(static_cast<int>(scope)) +
                    ", " + std::to_string(binding.key) + "/" + std::to_string(binding.modifiers));
    host().commands.push_back({name, handler});
}

CommandRegistrar::~CommandRegistrar()
{
    host().call("~CommandRegistrar", inQuotes(name_));
    std::erase_if(host().commands, [&](const auto& command) { return command.name == name_; });
}

// Background tasks

BackgroundTaskBase::BackgroundTaskBase() : log_(Qx::makePtr<Qx::Test::RecordingTaskLog>()) {}

BackgroundTaskBase::~BackgroundTaskBase() = default;

BackgroundTaskQueueBase::eTaskStatus BackgroundTaskQueueBase::getCurrentTaskStatus()
{
    host().call("getCurrentTaskStatus");
    return host().taskStatus ? host().taskStatus() : Running;
}

namespace {

/// Stores its tasks until a test takes them.
class KeepingQueue final : public UIBackgroundTasksQueue
{
public:
    void queue(Qx::Ptr<iBackgroundTask> task, bool urgent) override
    {
        if (host().call("queue", text(task->getID()) + ", " + (urgent ? "true" : "false"))) {
            host().keepTask(task);
        }
    }
};

} // namespace

UIBackgroundTasksQueue& UIBackgroundTasksQueue::instance()
{
    static UIBackgroundTasksQueue& only = *new KeepingQueue;
    return only;
}
