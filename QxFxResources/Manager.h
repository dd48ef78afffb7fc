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

namespace Qx::Image {
struct ApplicationKit;
}

namespace Qx::FxResources {

/// The process-wide owner of the effect catalogue, and the library's single point of teardown.
///
/// The first use creates it and scans the effect directories on the calling thread; one background task
/// compiles the effects. Thread-safe, except where a function says otherwise. No function throws.
class QX_API Manager
{
public:
    /// Returns the manager, creating it with `startup(false)` if necessary. Concurrent first callers block
    /// until it is initialised; the creating thread may call instance() re-entrantly.
    static Manager& instance() noexcept;

    /// Creates the manager. If it exists, returns at once and ignores `flag`. `flag` is recorded and has no
    /// effect.
    static void startup(bool flag) noexcept;

    /// Tears the library down: the manager and the cached fonts if a manager exists, then colour conversion
    /// and the list of LUTs. Blocks until a running background compilation has finished its current effect.
    /// Registered with the host's shutdown callbacks, order 450. A later instance() creates a new manager. No
    /// other thread may be using the manager or the references that it returned. A technique application that
    /// has taken its effect on another thread finishes without the manager.
    static void shutdown(Shutdown::eExitType exitType) noexcept;

    /// Appends a record for every effect file: those of the shaders directory, then those of the templates
    /// directory, in the host's order. Skips names that begin with '_'.
    static void getFXFiles(Qx::Vector<ShaderEffectInfo>& out) noexcept;

    /// Returns the first record with that file name ("ColourConvert.fx"), ignoring case. If there is none,
    /// returns a shared empty record, whose getShader() is empty. The reference is valid until fini() or
    /// recompileAll().
    const ShaderEffectInfo& findEffect(const LightweightString<wchar_t>& name) const noexcept;

    /// Loads a record on the calling thread; the background compilation pauses before its next effect
    /// meanwhile. Prints the time taken on standard output if Qx::ErrorLogLogger::loggingEnabled_ is set.
    void load(const ShaderEffectInfo& info) const noexcept;

    /// Compiles any effect file with the manager's definitions. Does not change the catalogue. On failure the
    /// result's effect is empty and its errors hold the compiler's messages.
    EffectCompileResult compileFXFile(const LightweightString<wchar_t>& path) const noexcept;

    /// Blocks while the background compilation is running. Returns at once if it has not started.
    void waitForEffectsToLoad() const noexcept;

    /// Returns the shared compute context, creating it on first use, or an empty pointer if the host cannot
    /// create one; the next call then tries again.
    Qx::Ptr<iGPUComputeContext> getGPUComputeContext() noexcept;

    /// Compiles all records that are not compiled yet, in catalogue order. Pauses while a foreground load is
    /// in progress or the host asks the running task to hold back, and stops after the current effect once
    /// fini() is called. Compiles nothing if the program was started with "-transcode". `log` may be empty.
    /// Called by the background task.
    void compileAll(Qx::Ptr<iTaskLog> log) noexcept;

    /// Recompiles the files that have changed since they were scanned, without the manager's definitions, and
    /// appends new files. Prints one line per file to the debug output, with the compiler's messages after a
    /// failure. A changed file that fails keeps its old effect and is tried again by the next call. Records
    /// of removed files are kept. Blocks while the background compilation is running. Not thread-safe: no
    /// other thread may use the catalogue, because appending moves records.
    void recompileAll() noexcept;

    /// Stops the background compilation after its current effect, blocks until it has stopped, empties the
    /// catalogue and releases the compute context.
    void fini() noexcept;

    /// Returns the lock that is held during every technique application and every colour conversion.
    /// Re-entrant.
    const CriticalSection& gpuLock() const noexcept { return gpuLock_; }

    /// Returns what technique applications share. Its holders may outlive the manager.
    QX_LOCAL const Qx::Ptr<Image::ApplicationKit>& applicationKit() const noexcept { return applicationKit_; }

    /// Returns the catalogue in scan order. The reference is valid until fini() or recompileAll().
    const Qx::Vector<ShaderEffectInfo>& effects() const noexcept { return effects_; }

    /// Returns the compiler definitions of the catalogue's effects.
    const Qx::Vector<iShaderEffect::CompilerDefinition>& definitions() const noexcept { return definitions_; }

    ~Manager();
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

private:
    class QX_LOCAL ShaderCompilationTask;

    /// Counted beside the manager: whoever holds one keeps the manager from being deleted.
    using Handle = Qx::Ptr<Manager, Qx::ExternalCounting>;
    struct QX_LOCAL Life;

    Manager();

    QX_LOCAL static Life& life() noexcept;

    /// Returns the manager, or an empty handle if there is none. Never creates it. Blocks while it is being
    /// initialised or shut down.
    QX_LOCAL static Handle existing() noexcept;

    QX_LOCAL void init(bool flag) noexcept;
    QX_LOCAL bool shouldPause() const noexcept;
    QX_LOCAL void recompile(ShaderEffectInfo& known, const ShaderEffectInfo& fresh) noexcept;
    QX_LOCAL void addCompiled(const ShaderEffectInfo& fresh) noexcept;

    Qx::Vector<ShaderEffectInfo> effects_;
    CriticalSection loadingLock_; ///< held by the background compilation for its whole run
    CriticalSection gpuLock_;
    Qx::Ptr<iGPUComputeContext> computeContext_;
    Qx::Vector<iShaderEffect::CompilerDefinition> definitions_;
    mutable std::uint32_t foregroundLoads_ = 0; ///< changed through the host's atomic operations only
    std::atomic<bool> running_{true};
    Qx::Ptr<Image::ApplicationKit> applicationKit_;
};

} // namespace Qx::FxResources
