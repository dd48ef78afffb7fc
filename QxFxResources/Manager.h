#pragma once

#include "Qx/HostAllocator.h"
#include "Qx/LightweightString.h"
#include "Qx/Ptr.h"
#include "QxFxResources/ShaderEffectInfo.h"
#include "platform/Api.h"
#include "platform/BackgroundTasks.h"
#include "platform/CriticalSection.h"
#include "platform/GPUImage.h"
#include "platform/ShaderEffect.h"
#include "platform/Shutdown.h"

#include <atomic>
#include <cstdint>
#include <memory>

namespace Qx::Image {
struct ApplicationKit;
}

namespace Qx::FxResources {

/// The process-wide owner of the effect catalogue, and the library's single point of teardown.
///
/// It is created by whoever needs it first, scans the effect directories on that thread, and leaves the
/// compiling to one background task. Any thread may call it, apart from what is said to be for the host's
/// quiet moments.
class QX_API Manager
{
public:
    /// The manager, created with `startup(false)` when there is none. Threads that come while another creates
    /// it wait; the creating thread itself may call it again.
    static Manager& instance() noexcept;

    /// Creates the manager. When there is one already, nothing happens and the flag is ignored.
    static void startup(bool flag) noexcept;

    /// Tears the library down: the manager and the fonts, if there is a manager, then colour conversion and
    /// the list of LUTs. Registered with the host's shutdown callbacks. A later instance() makes a new
    /// manager.
    static void shutdown(Shutdown::eExitType exitType) noexcept;

    /// Appends a record for every effect file: those of the shaders directory, then those of the templates
    /// directory, each as the host lists them. Names that begin with '_' are left out.
    static void getFXFiles(Qx::Vector<ShaderEffectInfo>& out) noexcept;

    /// The first record of that file name ("ColourConvert.fx"), whatever its letter case; a shared empty
    /// record, whose getShader() is empty, when there is none. The reference stays valid until fini() or
    /// recompileAll().
    const ShaderEffectInfo& findEffect(const LightweightString<wchar_t>& name) const noexcept;

    /// Loads a record now; the background compilation waits meanwhile.
    void load(const ShaderEffectInfo& info) const noexcept;

    /// Compiles a file, in the catalogue or not, with the manager's definitions. The catalogue stays as it
    /// is.
    EffectCompileResult compileFXFile(const LightweightString<wchar_t>& path) const noexcept;

    /// Waits for the background compilation if it is running; it does not wait for it to begin.
    void waitForEffectsToLoad() const noexcept;

    /// The compute context that all share, created on first use; empty when the host could not create one.
    Qx::Ptr<iGPUComputeContext> getGPUComputeContext() noexcept;

    /// Compiles what of the catalogue is not compiled yet, in its order, pausing while a foreground load is
    /// going on or the host asks for it. The background task's work.
    void compileAll(Qx::Ptr<iTaskLog> log) noexcept;

    /// Compiles the files that changed since they were scanned, and adds new ones. One line a file is
    /// printed. No other thread may use the catalogue meanwhile: appending moves records.
    void recompileAll() noexcept;

    /// Stops the background compilation after the effect it is at, and empties the catalogue.
    void fini() noexcept;

    /// Held during every technique application and every colour conversion. Re-entrant.
    const CriticalSection& gpuLock() const noexcept { return gpuLock_; }

    /// What technique applications share.
    QX_LOCAL Image::ApplicationKit& applicationKit() const noexcept { return *applicationKit_; }

    /// The catalogue in scan order. Valid until fini() or recompileAll().
    const Qx::Vector<ShaderEffectInfo>& effects() const noexcept { return effects_; }

    /// What the catalogue's effects are compiled with.
    const Qx::Vector<iShaderEffect::CompilerDefinition>& definitions() const noexcept { return definitions_; }

    ~Manager();
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

private:
    class QX_LOCAL ShaderCompilationTask;

    Manager();

    QX_LOCAL void init(bool flag) noexcept;
    QX_LOCAL bool shouldPause() const noexcept;
    QX_LOCAL void recompile(ShaderEffectInfo& known, const ShaderEffectInfo& fresh) noexcept;
    QX_LOCAL void addCompiled(const ShaderEffectInfo& fresh) noexcept;

    Qx::Vector<ShaderEffectInfo> effects_;
    CriticalSection loadingLock_; ///< held by the background compilation for its whole run
    CriticalSection gpuLock_;
    std::unique_ptr<Image::ApplicationKit> applicationKit_;
    Qx::Ptr<iGPUComputeContext> computeContext_;
    Qx::Vector<iShaderEffect::CompilerDefinition> definitions_;
    mutable std::uint32_t foregroundLoads_ = 0; ///< changed by the host's atomic operations alone
    std::atomic<bool> running_{true};
};

} // namespace Qx::FxResources
