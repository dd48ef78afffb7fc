#include "tests/host/gpu/PlatformForGpu.h"

#include "host/core/CoreServices.h"
#include "platform/Log.h"
#include "platform/OS.h"
#include "platform/Settings.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace {

std::mutex& logMutex()
{
    static std::mutex& mutex = *new std::mutex;
    return mutex;
}

std::string& logText()
{
    static std::string& text = *new std::string;
    return text;
}

[[noreturn]] void notOffered()
{
    std::fputs("the GPU service asked for a service that it should not need\n", stderr);
    std::abort();
}

class TestOS final : public iOS
{
public:
    iAllocator& allocator() override { return Qx::Host::coreAllocator(); }
    iAtomics& atomics() override { return Qx::Host::coreAtomics(); }
    iClock& clock() override { notOffered(); }
    iFileManager& files() override { notOffered(); }
    iGPUService& gpu() override { notOffered(); }
    iMessageService& messages() override { notOffered(); }
    iSystemInformation& systemInformation() override { notOffered(); }
    iThreadService& threads() override { notOffered(); }
    iUserService& users() override { notOffered(); }
};

} // namespace

iOS& OS()
{
    static TestOS& os = *new TestOS;
    return os;
}

void Log(const char* format, ...)
{
    char line[4096];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    const std::lock_guard lock(logMutex());
    logText() += line;
}

LightweightString<wchar_t> getShadersDir()
{
    return {};
}

LightweightString<wchar_t> getFXTemplatesDirectory(iSettings::eType)
{
    return {};
}

std::string Qx::GpuTests::takeLog()
{
    const std::lock_guard lock(logMutex());
    return std::exchange(logText(), {});
}
