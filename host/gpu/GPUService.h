#pragma once

#include "host/gpu/GPUOptions.h"
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
struct CompiledEffect;
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

/// The GPU service on Vulkan 1.3.
///
/// It starts its device at the first use; when it finds none that it can use, every operation fails and
/// failure() says why. Which device it took goes to the host's log. Any thread may call it.
///
/// An effect's parameter whose semantic the host fills refuses values. A coordinate set that no source sets
/// spans its whole input. Effects are compiled and tried out in worker processes; one that a worker does not
/// survive is an error message. Without shutdown() nothing of Vulkan runs at the end of the process; after it
/// operations fail, and what is still held is safe to release.
class QX_API GPUService final : public iGPUService
{
public:
    GPUService() = default;
    explicit GPUService(GPUOptions options) : options_(std::move(options)) {}
    ~GPUService();
    GPUService(const GPUService&) = delete;
    GPUService& operator=(const GPUService&) = delete;

    /// Sets the options; false when the service has started already.
    bool configure(const GPUOptions& options);

    /// Starts the service unless it has been; whether there is a device to work with.
    bool start();

    /// Why there is no device, for people; empty when there is one.
    std::string failure();

    /// The machine's devices, with the chosen one marked.
    std::vector<DeviceDescription> listDevices();

    /// Lets callers and the device finish, within GPUOptions::shutdownLimit, and closes the device.
    void shutdown();

    GPUStatistics statistics();

    /// Begins to measure the time that the device takes for what is recorded from now on, by whichever
    /// thread. False when that cannot be: there is no device, it has no timer, or a measurement is under way.
    bool startTimer();

    /// Ends the measurement: waits for the device to finish what was recorded and says how long that took it.
    /// Empty when it was not measured: startTimer() answered false, or the device failed meanwhile.
    std::optional<GPUTime> stopTimer();

    /// Destroys released images that are kept for reuse.
    void trim();

    /// Whether Vulkan's validation layer watches.
    bool isValidating();

    /// The device was lost; every operation fails from then on.
    bool isLost();

    /// For tests: makes the next allocations of device memory fail, after `before` that succeed.
    void failAllocations(std::uint64_t before, std::uint64_t failures);
    /// For tests: the device is lost from now on.
    void loseDevice();
    /// For tests: the device has no timer from now on.
    void loseTimer();

    Qx::Ptr<iShaderEffect> loadEffectFile(const LightweightString<wchar_t>& path,
                                          const Definitions& definitions) override;
    EffectCompileResult compileEffectFile(const LightweightString<wchar_t>& path,
                                          const Definitions& definitions) override;

    /// What compiling the file in a worker process comes to, as data; the file's effect is not handed out. It
    /// needs no device, and without one the effect is not tried out.
    EffectCompilation examineEffectFile(const LightweightString<wchar_t>& path,
                                        const Definitions& definitions);

    Qx::Ptr<iGPUComputeContext> createComputeContext(int kind) override;
    Qx::Ptr<iGPUImage> createGPUImage(XY<int> size, iGPUImage::eFormat format) override;
    Qx::Ptr<iHostImage> createHostImage(XY<int> size, iGPUImage::eFormat format) override;
    Qx::Ptr<iGPUImage> uploadImage(Qx::Ptr<iHostImage> image, int options) override;
    Qx::Ptr<iHostImage> downloadImage(Qx::Ptr<iGPUImage> image) override;
    /// Copies texels as they are from one image into another of the same size and format: the least that a
    /// pass over an image costs this device. It records and returns; false when it cannot.
    bool copyImage(const Qx::Ptr<iGPUImage>& source, const Qx::Ptr<iGPUImage>& target);
    Qx::Ptr<iHostImage3D> createHostImage3D(int size) override;
    Qx::Ptr<iGPUImage3D> upload3DImage(Qx::Ptr<iHostImage3D> image) override;
    Qx::Ptr<iFont> createFont(const LightweightString<wchar_t>& typeface, int size, int style) override;

private:
    std::shared_ptr<Vulkan::Context> context();
    std::shared_ptr<Worker::EffectWorkers> workers();
    void startLocked();
    void startWorkersLocked();
    EffectCompilation examine(const Worker::CompileRequest& request);
    EffectCompileResult compile(const Worker::CompileRequest& request);
    std::shared_ptr<Vulkan::EffectProgram> makeProgram(const std::shared_ptr<Vulkan::Context>& context,
                                                       const std::shared_ptr<const CompiledEffect>& effect,
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
    std::shared_ptr<Cache::FileStore> cache_;          ///< null when nothing is kept between runs
    std::shared_ptr<const EffectCache> effects_;       ///< null without cache_
    std::shared_ptr<Vulkan::PipelineCache> pipelines_; ///< null without cache_ and without a device
    std::shared_ptr<Vulkan::Context> context_;
    std::shared_ptr<Text::TextRenderer> textRenderer_; ///< null until the first font
    std::shared_ptr<Worker::EffectWorkers> workers_;
    std::set<std::string> compiledAhead_; ///< directories, each with the definitions
};

/// Names of an effect's parameters that take values from a caller, in the file's order. Empty for an effect
/// that is not this service's.
QX_API std::vector<std::string> settableParameters(const iShaderEffect& effect);

/// Names of the textures that a technique's passes read, each once. Empty for an effect that is not this
/// service's, and for a technique that it does not have.
QX_API std::vector<std::string> texturesRead(const iShaderEffect& effect, std::string_view technique);

/// The process's service. Constructed at the first use and never destroyed.
QX_API GPUService& gpuService();

} // namespace Qx::Host
