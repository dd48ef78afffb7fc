#include "QxFxResources/Manager.h"
#include "platform/Log.h"
#include "platform/OS.h"
#include "platform/StartEnv.h"
#include "platform/Threads.h"

namespace Qx::FxResources {

namespace {
constexpr unsigned pauseMilliseconds = 2000;
}

void Manager::compileAll(Qx::Ptr<iTaskLog> log) noexcept
{
    const CriticalSectionScope inside(loadingLock_);
    const bool onDemandOnly = StartEnv::programEnv().arg(L"-transcode") != 0;
    // Once running_ is cleared, the catalogue belongs to fini().
    for (std::size_t i = 0; !onDemandOnly && running_.load(std::memory_order_relaxed) && i < effects_.size();
         ++i) {
        while (shouldPause()) {
            OS().threads().sleepMilliseconds(pauseMilliseconds);
        }
        const ShaderEffectInfo& info = effects_[i];
        if (log) {
            log->setStep(info.name, 0);
        }
        info.load(definitions_);
        if (log) {
            log->setProgress(nullptr, static_cast<float>(i + 1) / static_cast<float>(effects_.size()));
        }
    }
    if (running_.load(std::memory_order_relaxed)) {
        vexo_printf("QxFxResources::Manager : %d pixel shaders loaded\n", static_cast<int>(effects_.size()));
    }
}

bool Manager::shouldPause() const noexcept
{
    const bool foregroundLoading =
        std::atomic_ref<std::uint32_t>(foregroundLoads_).load(std::memory_order_relaxed) != 0;
    return foregroundLoading ||
           BackgroundTaskQueueBase::getCurrentTaskStatus() == BackgroundTaskQueueBase::HoldBack;
}

} // namespace Qx::FxResources
