#include "QxFxResources/Manager.h"

#include "QxFxResources/GPUColourConverter.h"
#include "QxFxResources/ShaderCompilationTask.h"
#include "fonts/GPUFontCache.h"
#include "image/ApplicationKit.h"
#include "lut/LUTManager.h"
#include "platform/Atomics.h"
#include "platform/Clock.h"
#include "platform/GPUService.h"
#include "platform/Log.h"
#include "platform/Messages.h"
#include "platform/OS.h"
#include "platform/Settings.h"

#include <array>
#include <cstdio>

namespace Qx::FxResources {

namespace {

constexpr int shutdownOrder = 450;

/// The host's start-up option. Recorded only.
[[maybe_unused]] bool startupFlag = false;

/// The macros that every catalogued effect may use. A host that renders through an effect supplies the real
/// values.
constexpr std::array definitionNames{
    "_OUTPUTWIDTH", "_OUTPUTHEIGHT", "_OUTPUTASPECTRATIO", "_PROGRESS",
    "_OUTPUTFPS",   "_LENGTH",       "_LENGTHFRAMES",
};
constexpr const char* definitionValue = "1";

/// The manager once it is initialised, until it is finished; read without a lock.
std::atomic<Manager*> ready{nullptr};

void showEmptyCatalogueMessage()
{
    LightweightString<wchar_t> text(L"No .fx files found in ");
    text += getShadersDir();
    text += L"Shaders";
    iMessageService& messages = OS().messages();
    messages.showMessage(messages.effectsCaption(), text, iMessageService::OkButton,
                         iMessageService::Warning);
}

} // namespace

struct Manager::Life
{
    CriticalSection lock; ///< held while the manager is initialised and while it is shut down
    Handle manager;       ///< set while it exists, including during its initialisation; guarded by lock
};

Manager::Life& Manager::life() noexcept
{
    // Never destroyed: a thread may still be leaving the lock at process exit.
    static Life& only = *new Life;
    return only;
}

Manager::Handle Manager::existing() noexcept
{
    const CriticalSectionScope inside(life().lock);
    return life().manager;
}

Manager& Manager::instance() noexcept
{
    if (Manager* manager = ready.load(std::memory_order_acquire)) {
        return *manager;
    }
    const CriticalSectionScope inside(life().lock);
    startup(false);
    return *life().manager;
}

void Manager::startup(bool flag) noexcept
{
    if (ready.load(std::memory_order_acquire) != nullptr) {
        return;
    }
    const CriticalSectionScope inside(life().lock);
    Handle& manager = life().manager;
    if (manager) {
        return;
    }
    manager = Handle(new Manager);
    manager->init(flag);
    Shutdown::addCallback(&Manager::shutdown, shutdownOrder);
    ready.store(manager.get(), std::memory_order_release);
}

void Manager::init(bool flag) noexcept
{
    startupFlag = flag;
    for (const char* name : definitionNames) {
        definitions_.push_back({name, definitionValue});
    }
    getFXFiles(effects_);
    if (effects_.empty()) {
        showEmptyCatalogueMessage();
        return;
    }
    const Qx::Ptr<iBackgroundTask> task = Qx::makePtr<ShaderCompilationTask>();
    UIBackgroundTasksQueue::instance().queue(task, false);
}

const ShaderEffectInfo& Manager::findEffect(const LightweightString<wchar_t>& name) const noexcept
{
    for (const ShaderEffectInfo& info : effects_) {
        if (info.name.equalsIgnoringCase(name)) {
            return info;
        }
    }
    static const ShaderEffectInfo none;
    return none;
}

void Manager::load(const ShaderEffectInfo& info) const noexcept
{
    const double start = service_get_msecs_precise();
    iAtomics& atomics = OS().atomics();
    atomics.atomicIncrement(foregroundLoads_);
    info.load(definitions_);
    atomics.atomicDecrement(foregroundLoads_);
    const double elapsed = service_get_msecs_precise() - start;
    if (ErrorLogLogger::loggingEnabled_) {
        std::printf("%s : %.2lfms\n", "Manager::load()", elapsed);
    }
}

EffectCompileResult Manager::compileFXFile(const LightweightString<wchar_t>& path) const noexcept
{
    return OS().gpu().compileEffectFile(path, definitions_);
}

void Manager::waitForEffectsToLoad() const noexcept
{
    const CriticalSectionScope passThrough(loadingLock_);
}

Qx::Ptr<iGPUComputeContext> Manager::getGPUComputeContext() noexcept
{
    if (Qx::Ptr<iGPUComputeContext> context = computeContext_.acquire()) {
        return context;
    }
    const CriticalSectionScope inside(gpuLock_);
    if (!computeContext_) {
        computeContext_.publish(OS().gpu().createComputeContext(0));
    }
    return computeContext_;
}

void Manager::fini() noexcept
{
    running_.store(false, std::memory_order_relaxed);
    waitForEffectsToLoad();
    // What is released may call the library, which finds neither any more. The effects go before the context.
    const Qx::Ptr<iGPUComputeContext> context = std::move(computeContext_);
    const Qx::Vector<ShaderEffectInfo> effects = std::move(effects_);
    effects_.clear();
}

Manager::Manager() : applicationKit_(Qx::makePtr<Image::ApplicationKit>(gpuLock_)) {}

Manager::~Manager()
{
    fini();
}

void Manager::shutdown(Shutdown::eExitType) noexcept
{
    bool existed = false;
    {
        const CriticalSectionScope inside(life().lock);
        Handle& manager = life().manager;
        existed = static_cast<bool>(manager);
        if (existed) {
            manager->fini(); // before instance() stops working: a running pass may call it
            ready.store(nullptr, std::memory_order_release);
            manager.reset();
        }
    }
    if (existed) {
        GPUFontCache::instance().clear();
    }
    Image::ColourConversion::deInit();
    LUTManager::shutdown();
}

} // namespace Qx::FxResources
