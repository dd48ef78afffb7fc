#include "host/Host.h"
#include "host/core/CoreServices.h"
#include "host/core/Immortal.h"
#include "host/files/FileManager.h"
#include "host/lifecycle/GPUConnection.h"
#include "host/lifecycle/Services.h"
#include "platform/OS.h"

#include <atomic>

namespace Qx::Host {

namespace {

/// A service of the program's own; null until there is one.
template <class Service>
class Replaceable
{
public:
    void replace(Service* own) { own_.store(own, std::memory_order_release); }

    /// The program's service, or the host's, which is not made if it is not needed.
    Service& orElse(Service& (*host)()) const
    {
        Service* const own = own_.load(std::memory_order_acquire);
        return own != nullptr ? *own : host();
    }

private:
    std::atomic<Service*> own_ = nullptr;
};

class HostOS final : public iOS
{
public:
    iAllocator& allocator() override { return allocator_; }
    iAtomics& atomics() override { return atomics_; }
    iClock& clock() override { return clock_.orElse(hostClock); }
    iFileManager& files() override { return files_.orElse(hostFiles); }
    iGPUService& gpu() override { return gpu_.orElse(connectedGPU); }
    iMessageService& messages() override { return messages_.orElse(hostMessages); }
    iSystemInformation& systemInformation() override { return system_.orElse(hostSystemInformation); }
    iThreadService& threads() override { return threads_.orElse(hostThreads); }
    iUserService& users() override { return users_.orElse(hostUsers); }

    void replace(const OwnServices& services)
    {
        clock_.replace(services.clock);
        files_.replace(services.files);
        gpu_.replace(services.gpu);
        messages_.replace(services.messages);
        system_.replace(services.systemInformation);
        threads_.replace(services.threads);
        users_.replace(services.users);
    }

private:
    iAllocator& allocator_ = coreAllocator(); // used for every object and every reference
    iAtomics& atomics_ = coreAtomics();
    Replaceable<iClock> clock_;
    Replaceable<iFileManager> files_;
    Replaceable<iGPUService> gpu_;
    Replaceable<iMessageService> messages_;
    Replaceable<iSystemInformation> system_;
    Replaceable<iThreadService> threads_;
    Replaceable<iUserService> users_;
};

} // namespace

void replaceServices(const OwnServices& services)
{
    immortal<HostOS>().replace(services);
}

} // namespace Qx::Host

iOS& OS()
{
    return Qx::Host::immortal<Qx::Host::HostOS>();
}
