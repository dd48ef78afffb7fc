// The platform of processes that have the core's services alone: the effect compiler's worker and some tests.
// They supply Log() themselves.

#include "host/core/CoreServices.h"
#include "host/core/Immortal.h"
#include "platform/OS.h"
#include "platform/Settings.h"

#include <cstdio>
#include <cstdlib>

namespace {

[[noreturn]] void notOffered(const char* service)
{
    std::fprintf(stderr, "qxhost: this process has no %s service\n", service);
    std::abort();
}

class CoreOS final : public iOS
{
public:
    iAllocator& allocator() override { return Qx::Host::coreAllocator(); }
    iAtomics& atomics() override { return Qx::Host::coreAtomics(); }
    iClock& clock() override { notOffered("clock"); }
    iFileManager& files() override { notOffered("file"); }
    iGPUService& gpu() override { notOffered("GPU"); }
    iMessageService& messages() override { notOffered("message"); }
    iSystemInformation& systemInformation() override { notOffered("system information"); }
    iThreadService& threads() override { notOffered("thread"); }
    iUserService& users() override { notOffered("user"); }
};

} // namespace

iOS& OS()
{
    return Qx::Host::immortal<CoreOS>();
}

// Effects are compiled with the include directories that the caller names.
LightweightString<wchar_t> getShadersDir()
{
    return {};
}

LightweightString<wchar_t> getFXTemplatesDirectory(iSettings::eType)
{
    return {};
}
