#include "host/lifecycle/GPUConnection.h"

#include "host/Host.h"
#include "host/gpu/DeviceSharing.h"
#include "host/gpu/GPUService.h"
#include "host/lifecycle/CachePlace.h"
#include "host/settings/Settings.h"
#include "platform/Log.h"
#include "platform/StartEnv.h"

#include <chrono>
#include <cstdint>

namespace Qx::Host {

namespace {

/// A setting that is a positive number; 0, for the default, if it is not set.
std::uint64_t positive(const char* key)
{
    return static_cast<std::uint64_t>(Settings::instance().integer(key).value_or(0));
}

} // namespace

iGPUService& connectedGPU()
{
    return gpuService();
}

void configureGPU(const StartOptions& start)
{
    const char* const device = start.device;
    const Settings& settings = Settings::instance();
    GPUOptions options;
    options.device = device != nullptr ? device : settings.text("device").value_or("");
    options.deviceSource = device != nullptr ? "the command line" : "QX_DEVICE or the setting device";
    options.validation = settings.flag("vulkan_validation").value_or(false);
    if (const CachePlace cache = configuredCachePlace(); cache.enabled) {
        options.cacheDirectory = cache.directory;
        options.cacheBytes = cache.mostBytes;
    }
    options.worker = settings.text("effects.worker").value_or("");
    options.workerStepLimit = std::chrono::seconds(positive("effects.seconds"));
    options.workerMemory = positive("effects.memory") << 20U;
    options.workers = static_cast<unsigned>(positive("effects.workers"));
    // With this start argument the library compiles effects on demand only.
    const bool onDemandOnly = StartEnv::programEnv().arg(L"-transcode") != 0;
    options.compileAhead = settings.flag("effects.ahead").value_or(true) && !onDemandOnly;
    options.nativeCode = settings.flag("effects.native").value_or(true);
    options.readyWhenLoaded = start.effectsReadyWhenLoaded;
    if (start.sharedDevice != nullptr) {
        options.sharedDevice = std::make_shared<const ApplicationDevice>(*start.sharedDevice);
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
