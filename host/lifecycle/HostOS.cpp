#include "host/core/CoreServices.h"
#include "host/core/Immortal.h"
#include "host/files/FileManager.h"
#include "host/lifecycle/GPUConnection.h"
#include "host/lifecycle/Services.h"
#include "platform/OS.h"

namespace Qx::Host {

namespace {

class HostOS final : public iOS
{
public:
    iAllocator& allocator() override { return allocator_; }
    iAtomics& atomics() override { return atomics_; }
    iClock& clock() override { return hostClock(); }
    iFileManager& files() override { return hostFiles(); }
    iGPUService& gpu() override { return connectedGPU(); }
    iMessageService& messages() override { return hostMessages(); }
    iSystemInformation& systemInformation() override { return hostSystemInformation(); }
    iThreadService& threads() override { return hostThreads(); }
    iUserService& users() override { return hostUsers(); }

private:
    iAllocator& allocator_ = coreAllocator(); // used for every object and every reference
    iAtomics& atomics_ = coreAtomics();
};

} // namespace

} // namespace Qx::Host

iOS& OS()
{
    return Qx::Host::immortal<Qx::Host::HostOS>();
}
