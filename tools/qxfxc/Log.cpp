/// The few platform services that shared code of the host asks for, as this process has them.

#include "host/core/CoreServices.h"
#include "platform/Log.h"
#include "platform/OS.h"
#include "platform/Settings.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace {

[[noreturn]] void notOffered()
{
    std::fputs("qxfxc: a service was asked for that the worker has not\n", stderr);
    std::abort();
}

class WorkerOS final : public iOS
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
    static WorkerOS& os = *new WorkerOS;
    return os;
}

void Log(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
}

// Every request says where its includes are.
LightweightString<wchar_t> getShadersDir()
{
    return {};
}

LightweightString<wchar_t> getFXTemplatesDirectory(iSettings::eType)
{
    return {};
}
