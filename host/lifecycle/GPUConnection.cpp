#include "host/lifecycle/GPUConnection.h"

#include "host/gpu/GPUService.h"
#include "host/lifecycle/CachePlace.h"
#include "host/settings/Settings.h"
#include "platform/Log.h"

namespace Qx::Host {

iGPUService& connectedGPU()
{
    return gpuService();
}

void configureGPU(const char* device)
{
    const Settings& settings = Settings::instance();
    GPUOptions options;
    options.device = device != nullptr ? device : settings.text("device").value_or("");
    options.deviceSource = device != nullptr ? "the command line" : "QX_DEVICE or the setting device";
    options.validation = settings.flag("vulkan_validation").value_or(false);
    if (const CachePlace cache = configuredCachePlace(); cache.enabled) {
        options.cacheDirectory = cache.directory;
        options.cacheBytes = cache.mostBytes;
    }
    if (!gpuService().configure(options)) {
        Log("The GPU service has started already and keeps its options\n");
    }
}

void shutDownGPU()
{
    gpuService().shutdown();
}

} // namespace Qx::Host
