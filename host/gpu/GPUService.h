#pragma once

#include "host/gpu/GPUOptions.h"
#include "host/gpu/scopes/Scopes.h"
#include "platform/Api.h"
#include "platform/GPUService.h"

#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::Host {

class EffectCache;
class ImageSharing;
class NativeQueue;
struct CompiledEffect;
struct ParameterRange;
struct EffectCompilation;

namespace Cache {
class FileStore;
}

namespace Vulkan {
class Context;
class EffectProgram;
struct PassRefusal;
class PipelineCache;
struct FaultInjection;
} // namespace Vulkan

namespace Text {
class TextRenderer;
}

namespace Worker {
class EffectWorkers;
struct CompileRequest;
} // namespace Worker

/// The GPU service on Vulkan 1.3. Thread-safe.
///
/// The device is opened on first use and named in the log. Without a usable device every operation fails, and
/// failure() gives the reason.
///
/// A parameter that the host fills by its semantic rejects values. A coordinate set that no source provides
/// spans its whole input. Effects are compiled and tested in worker processes; an effect that crashes its
/// worker is an error message. After shutdown() all operations fail, and objects still held can be released
/// safely.
///
/// Only shutdown() closes the device. No destructor of the service, an image, an effect or a font makes a
/// Vulkan call, so that static objects may hold any of them: drivers and layers end before static objects do.
/// A device that is never shut down is left to the system.
class QX_API GPUService final : public iGPUService
{
public:
    GPUService() = default;
    /// A service of the caller's own. Starts nothing.
    explicit GPUService(GPUOptions options) : options_(std::move(options)) {}
    ~GPUService(); ///< ends the worker processes; see above
    GPUService(const GPUService&) = delete;
    GPUService& operator=(const GPUService&) = delete;

    /// Sets the options. Returns false if the service has started already.
    bool configure(const GPUOptions& options);

    GPUOptions options(); ///< Returns the options that apply.

    /// Starts the service unless it has started. Returns false if there is no usable device.
    bool start();

    /// The reason why there is no device, for people; empty if there is one.
    std::string failure();

    /// The machine's devices; the one in use is marked.
    std::vector<DeviceDescription> listDevices();

    /// Waits for callers and the device, at most for GPUOptions::shutdownLimit, and closes the device.
    void shutdown();

    GPUStatistics statistics(); ///< Returns the counters. Starts nothing.

    /// Starts measuring the device time of everything that any thread records from now on. Returns false if
    /// there is no device, the device has no timer or a measurement is under way.
    bool startTimer();

    /// Ends the measurement: waits for the device to finish the work and returns its time. Empty if
    /// startTimer() returned false or the device failed.
    std::optional<GPUTime> stopTimer();

    /// The same, for the passes of effects too, each of which is submitted by itself meanwhile. For a program
    /// in which one thread draws: what others record counts to the passes.
    bool startPassTimer();

    /// Ends that measurement as stopTimer() does its own.
    std::optional<GPUPassTimes> stopPassTimer();

    /// Destroys the released images that are kept for reuse.
    void trim();

    /// Whether Vulkan's validation layer is enabled.
    bool isValidating();

    /// Whether the device was lost. Every operation fails from then on.
    bool isLost();

    /// Whether objects of the service are left on its device. An application that shares its device destroys
    /// it when shutdown() has returned and this is false. If it is true then, host images that were mapped
    /// are still held, or the device did not finish in time: release them, signal what it waits for, and call
    /// shutdown() again.
    bool holdsDevice();

    /// For tests: the next `before` allocations of device memory succeed, then `failures` of them fail.
    void failAllocations(std::uint64_t before, std::uint64_t failures);
    /// For tests: loses the device.
    void loseDevice();
    /// For tests: removes the device's timer.
    void loseTimer();

    Qx::Ptr<iShaderEffect> loadEffectFile(const LightweightString<wchar_t>& path,
                                          const Definitions& definitions) override;
    EffectCompileResult compileEffectFile(const LightweightString<wchar_t>& path,
                                          const Definitions& definitions) override;

    /// Compiles the file in a worker process and returns the result as data, without an effect object. Works
    /// without a device; the effect is not tested on it then.
    EffectCompilation examineEffectFile(const LightweightString<wchar_t>& path,
                                        const Definitions& definitions);

    Qx::Ptr<iGPUComputeContext> createComputeContext(int kind) override;
    Qx::Ptr<iGPUImage> createGPUImage(XY<int> size, iGPUImage::eFormat format) override;
    Qx::Ptr<iHostImage> createHostImage(XY<int> size, iGPUImage::eFormat format) override;
    Qx::Ptr<iGPUImage> uploadImage(Qx::Ptr<iHostImage> image, int options) override;
    Qx::Ptr<iHostImage> downloadImage(Qx::Ptr<iGPUImage> image) override;
    /// Copies the texels of one image to another of the same size and format, the least that a pass over an
    /// image costs on this device. Records and returns; false on failure.
    bool copyImage(const Qx::Ptr<iGPUImage>& source, const Qx::Ptr<iGPUImage>& target);
    /// Counts the codes of a picture for waveform monitors, vectorscopes and chromaticity diagrams, and waits
    /// for the device. Empty on failure, for a request out of its limits, and on devices that only draw.
    std::optional<ScopeCounts> countScopes(const Qx::Ptr<iGPUImage>& picture, const ScopeRequest& request);
    Qx::Ptr<iHostImage3D> createHostImage3D(int size) override;
    Qx::Ptr<iGPUImage3D> upload3DImage(Qx::Ptr<iHostImage3D> image) override;
    Qx::Ptr<iFont> createFont(const LightweightString<wchar_t>& typeface, int size, int style) override;

private:
    friend class ImageSharing;

    std::shared_ptr<Vulkan::Context> context();
    std::shared_ptr<Worker::EffectWorkers> workers();
    void startLocked();
    void startWorkersLocked();
    EffectCompilation examine(const Worker::CompileRequest& request);
    EffectCompileResult compile(const Worker::CompileRequest& request);
    std::shared_ptr<Vulkan::EffectProgram> makeProgram(const std::shared_ptr<Vulkan::Context>& context,
                                                       const std::shared_ptr<const CompiledEffect>& effect,
                                                       const Worker::CompileRequest& request,
                                                       Vulkan::PassRefusal& refusal);
    Worker::CompileRequest requestFor(const LightweightString<wchar_t>& path, const Definitions& definitions);
    void compileBeside(const Worker::CompileRequest& request);
    std::shared_ptr<Text::TextRenderer> textRenderer(Vulkan::Context& context);
    void openCacheLocked();
    void savePipelines(const std::shared_ptr<Vulkan::Context>& context);

    std::mutex mutex_; // guards all below
    GPUOptions options_;
    bool started_ = false;
    bool shutDown_ = false;
    std::string failure_;
    std::vector<DeviceDescription> devices_;
    std::shared_ptr<Cache::FileStore> cache_;          ///< null if nothing is kept between runs
    std::shared_ptr<const EffectCache> effects_;       ///< null without cache_
    std::shared_ptr<Vulkan::PipelineCache> pipelines_; ///< null without cache_ and without a device
    std::shared_ptr<Vulkan::Context> context_;
    std::shared_ptr<Text::TextRenderer> textRenderer_; ///< null until the first font
    std::shared_ptr<Worker::EffectWorkers> workers_;
    std::shared_ptr<NativeQueue> native_; ///< null unless the host's processors may draw
    std::set<std::string> compiledAhead_; ///< directories, each with the definitions
};

/// What an effect was compiled to; lives as long as the effect. Null if the effect belongs to another
/// service.
QX_API const CompiledEffect* compiledEffect(const iShaderEffect& effect);

/// What there is to say of draws with the effect that succeeded and may not show what was meant, each once: a
/// texture that is smaller than it should be, a vertex shader that leaves nothing to draw. Empty if the
/// effect belongs to another service.
QX_API std::vector<std::string> drawingNotes(const iShaderEffect& effect);

/// The names of an effect's parameters that accept values from callers, in the file's order. Empty if the
/// effect belongs to another service.
QX_API std::vector<std::string> settableParameters(const iShaderEffect& effect);

/// The range that a parameter's annotations give. Without limits if the effect belongs to another service or
/// has no such parameter.
QX_API ParameterRange rangeOf(const iShaderEffect& effect, std::string_view parameter);

/// The names of the textures that a technique's passes read, each once. Empty if the effect belongs to
/// another service or has no such technique.
QX_API std::vector<std::string> texturesRead(const iShaderEffect& effect, std::string_view technique);

/// The process's service. Constructed on first use and never destroyed.
QX_API GPUService& gpuService();

} // namespace Qx::Host
