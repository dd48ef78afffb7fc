#include "host/gpu/GPUService.h"

#include "host/fonts/Font.h"
#include "host/fonts/Typeface.h"
#include "host/gpu/device/PipelineCache.h"
#include "host/gpu/effects/EffectFiles.h"
#include "host/gpu/effects/NativeRequests.h"
#include "host/gpu/effects/Prewarm.h"
#include "host/gpu/effects/ShaderEffect.h"
#include "host/gpu/images/Images.h"
#include "host/gpu/sharing/OpenDevice.h"

namespace Qx::Host {

namespace {

/// The library passes an empty path for an effect that it does not know. That is no reason to open the
/// device, to start a worker or to look into the working directory.
EffectCompilation refusedEmptyPath()
{
    EffectCompilation compilation;
    refuse(compilation, {"\"\""}, "an empty path names no effect file");
    return compilation;
}

std::string announcement(const DeviceDescription& device, bool isShared)
{
    const std::string name = std::string("GPU: using ") + (isShared ? "the application's device " : "") +
                             "\"" + device.name + "\" (" + device.type + ", " + device.driver + ")";
    return device.software ? name + ". This is a SOFTWARE device: everything runs on the processor, slowly"
                           : name;
}

} // namespace

GPUService::~GPUService() = default;

bool GPUService::configure(const GPUOptions& options)
{
    const std::lock_guard lock(mutex_);
    if (!started_) {
        options_ = options;
    }
    return !started_;
}

GPUOptions GPUService::options()
{
    const std::lock_guard lock(mutex_);
    return options_;
}

void GPUService::openCacheLocked()
{
    constexpr std::uint64_t defaultBytes = 256U << 20U;
    if (!options_.cacheDirectory.empty()) {
        cache_ = std::make_shared<Cache::FileStore>(
            options_.cacheDirectory, options_.cacheBytes != 0 ? options_.cacheBytes : defaultBytes,
            Vulkan::report);
        effects_ = std::make_shared<const EffectCache>(cache_, std::string());
    }
}

void GPUService::startLocked()
{
    started_ = true;
    openCacheLocked();
    Vulkan::OpenedDevice opened = Vulkan::openDevice(options_, failure_);
    devices_ = std::move(opened.devices);
    if (opened.device == nullptr) {
        return;
    }
    if (cache_ != nullptr) {
        effects_ =
            std::make_shared<const EffectCache>(cache_, Vulkan::driverIdentity(opened.device->physical()));
        pipelines_ = std::make_shared<Vulkan::PipelineCache>(*opened.device, cache_);
        pipelines_->load();
    }
    context_ =
        Vulkan::Context::create(std::move(opened.instance), std::move(opened.device), options_, failure_);
    if (context_ != nullptr) {
        devices_[opened.chosen].chosen = true;
        Vulkan::report(announcement(devices_[opened.chosen], options_.sharedDevice != nullptr));
    } else {
        pipelines_ = nullptr;
    }
}

std::shared_ptr<Vulkan::Context> GPUService::context()
{
    const std::lock_guard lock(mutex_);
    if (shutDown_ && !started_) {
        failure_ = "The GPU service is shut down.";
    }
    if (!started_ && !shutDown_) {
        try {
            startLocked();
        } catch (const std::exception& e) {
            failure_ = std::string("The GPU service could not start: ") + e.what();
        }
        if (context_ == nullptr) {
            Vulkan::report("GPU: " + failure_);
        }
        startWorkersLocked();
    }
    return context_;
}

void GPUService::startWorkersLocked()
{
    Worker::EffectWorkersOptions options;
    options.program = options_.worker;
    options.cores = options_.workers;
    options.log = Vulkan::report;
    options.cache = effects_;
    if (options_.workerStepLimit.count() > 0) {
        options.limits.step = options_.workerStepLimit;
    }
    if (options_.workerMemory > 0) {
        options.limits.memoryBytes = options_.workerMemory;
    }
    if (context_ != nullptr) {
        options.hello.device = context_->device().physical().uuid;
        options.hello.validation = context_->instance().isValidating();
    }
    workers_ = std::make_shared<Worker::EffectWorkers>(std::move(options));
    const bool isOwn = options_.sharedDevice == nullptr;
    if (options_.nativeCode && isOwn && context_ != nullptr && context_->device().sharesMemory()) {
        native_ = std::make_shared<NativeQueue>(workers_);
    }
}

std::shared_ptr<Worker::EffectWorkers> GPUService::workers()
{
    context();
    const std::lock_guard lock(mutex_);
    return workers_;
}

bool GPUService::start()
{
    return context() != nullptr;
}

std::string GPUService::failure()
{
    context();
    const std::lock_guard lock(mutex_);
    return failure_;
}

std::vector<DeviceDescription> GPUService::listDevices()
{
    context();
    std::shared_ptr<NativeQueue> native;
    std::vector<DeviceDescription> devices;
    {
        const std::lock_guard lock(mutex_);
        native = native_;
        devices = devices_;
    }
    for (DeviceDescription& device : devices) {
        if (device.chosen && native != nullptr) {
            device.nativeCode = NativeQueue::description();
        }
    }
    return devices;
}

void GPUService::savePipelines(const std::shared_ptr<Vulkan::Context>& context)
{
    std::shared_ptr<Vulkan::PipelineCache> pipelines;
    {
        const std::lock_guard lock(mutex_);
        pipelines = pipelines_;
    }
    Vulkan::operate<bool>(context, [&](Vulkan::Context&) {
        if (pipelines != nullptr) {
            pipelines->save();
        }
        return true;
    });
}

void GPUService::shutdown()
{
    std::shared_ptr<Vulkan::Context> context;
    std::shared_ptr<Worker::EffectWorkers> workers;
    std::shared_ptr<NativeQueue> native;
    std::chrono::milliseconds limit{};
    {
        const std::lock_guard lock(mutex_);
        shutDown_ = true;
        context = context_;
        workers = workers_;
        native = native_;
        limit = options_.shutdownLimit;
    }
    if (native != nullptr) {
        native->close();
    }
    if (workers != nullptr) {
        Vulkan::guarded(false, [&] {
            workers->close();
            return true;
        });
    }
    if (native != nullptr) {
        native->stop();
    }
    if (context != nullptr) {
        savePipelines(context);
        Vulkan::guarded(false, [&] {
            context->shutdown(limit);
            return true;
        });
    }
}

GPUStatistics GPUService::statistics()
{
    const std::lock_guard lock(mutex_);
    GPUStatistics statistics = context_ != nullptr ? context_->statistics() : GPUStatistics();
    if (textRenderer_ != nullptr) {
        const Text::TextRenderer::Statistics text = textRenderer_->statistics();
        statistics.glyphPageBytes = text.pageBytes;
        statistics.glyphsUploaded = text.uploads;
    }
    return statistics;
}

bool GPUService::startTimer()
{
    return Vulkan::operate<bool>(
        context(), [](Vulkan::Context& context) { return context.recorder().startTimer(false); });
}

std::optional<GPUTime> GPUService::stopTimer()
{
    const std::optional<GPUPassTimes> times = stopPassTimer();
    return times ? std::optional(times->whole) : std::nullopt;
}

bool GPUService::startPassTimer()
{
    return Vulkan::operate<bool>(
        context(), [](Vulkan::Context& context) { return context.recorder().startTimer(true); });
}

std::optional<GPUPassTimes> GPUService::stopPassTimer()
{
    return Vulkan::operate<std::optional<GPUPassTimes>>(
        context(), [](Vulkan::Context& context) { return context.recorder().stopTimer(); });
}

void GPUService::trim()
{
    Vulkan::operate<bool>(context(), [](Vulkan::Context& context) {
        const std::uint64_t completed = context.recorder().completed();
        context.textures().trim(0, completed);
        context.hostBuffers().trim(0, completed);
        return true;
    });
}

bool GPUService::isValidating()
{
    const std::lock_guard lock(mutex_);
    return context_ != nullptr && context_->instance().isValidating();
}

bool GPUService::isLost()
{
    const std::lock_guard lock(mutex_);
    return context_ != nullptr && context_->device().isLost();
}

void GPUService::failAllocations(std::uint64_t before, std::uint64_t failures)
{
    if (const auto context = this->context()) {
        context->device().faults().allocationsBeforeFailure = before;
        context->device().faults().failures = failures;
    }
}

void GPUService::loseDevice()
{
    if (const auto context = this->context()) {
        context->device().markLost("by a test");
    }
}

void GPUService::loseTimer()
{
    if (const auto context = this->context()) {
        context->device().faults().withoutTimer = true;
    }
}

Qx::Ptr<iShaderEffect> GPUService::loadEffectFile(const LightweightString<wchar_t>& path,
                                                  const Definitions& definitions)
{
    return Vulkan::guarded(Qx::Ptr<iShaderEffect>(), [&] {
        if (path.empty()) {
            return Qx::Ptr<iShaderEffect>();
        }
        const Worker::CompileRequest request = requestFor(path, definitions);
        compileBeside(request);
        return compile(request).effect;
    });
}

Worker::CompileRequest GPUService::requestFor(const LightweightString<wchar_t>& path,
                                              const Definitions& definitions)
{
    Worker::CompileRequest request = compileRequest(path, definitions);
    const std::shared_ptr<Vulkan::Context> context = this->context();
    const std::lock_guard lock(mutex_);
    request.options.packed =
        options_.packedTexels && context != nullptr && context->device().drawingPath() != nullptr;
    return request;
}

EffectCompileResult GPUService::compileEffectFile(const LightweightString<wchar_t>& path,
                                                  const Definitions& definitions)
{
    return Vulkan::guarded(EffectCompileResult(), [&] {
        return path.empty() ? EffectCompileResult{{}, refusedEmptyPath().messages.c_str()}
                            : compile(requestFor(path, definitions));
    });
}

/// The library loads the effects of its catalogue one after another; other cores can compile ahead.
void GPUService::compileBeside(const Worker::CompileRequest& request)
{
    const std::shared_ptr<Worker::EffectWorkers> workers = this->workers();
    {
        const std::lock_guard lock(mutex_);
        std::string place = request.file.parent_path().string();
        for (const auto& [name, value] : request.options.definitions) {
            place.append(1, '\n').append(name).append(1, '=').append(value);
        }
        if (workers == nullptr || !options_.compileAhead || !compiledAhead_.insert(place).second) {
            return;
        }
    }
    workers->compileAhead(requestsBeside(request));
}

std::shared_ptr<Vulkan::EffectProgram>
GPUService::makeProgram(const std::shared_ptr<Vulkan::Context>& context,
                        const std::shared_ptr<const CompiledEffect>& effect,
                        const Worker::CompileRequest& request, Vulkan::PassRefusal& refusal)
{
    std::shared_ptr<Vulkan::PipelineCache> pipelines;
    bool prewarm = true;
    std::shared_ptr<Vulkan::NativeMaker> native;
    {
        const std::lock_guard lock(mutex_);
        pipelines = pipelines_;
        native = native_ != nullptr ? native_->makerFor(request, effect) : nullptr;
        prewarm = options_.readyWhenLoaded;
    }
    auto program =
        Vulkan::operate<std::shared_ptr<Vulkan::EffectProgram>>(context, [&](Vulkan::Context& device) {
            auto made = Vulkan::EffectProgram::create(device.shared_from_this(), effect, refusal);
            if (made != nullptr && native != nullptr) {
                made->useNative(native);
            }
            if (made != nullptr && prewarm && !made->createPipelines(refusal)) {
                made.reset();
            }
            if (pipelines != nullptr) {
                pipelines->countEffect();
            }
            return made;
        });
    if (program != nullptr && prewarm) {
        Vulkan::Prewarm(program).drawAll();
    }
    return program;
}

EffectCompilation GPUService::examine(const Worker::CompileRequest& request)
{
    EffectCompilation compilation;
    if (const std::shared_ptr<Worker::EffectWorkers> workers = this->workers()) {
        compilation = workers->compile(request);
    } else {
        refuse(compilation, {request.file.native()}, "the GPU service is shut down");
    }
    return compilation;
}

EffectCompilation GPUService::examineEffectFile(const LightweightString<wchar_t>& path,
                                                const Definitions& definitions)
{
    return Vulkan::guarded(EffectCompilation(), [&] {
        return path.empty() ? refusedEmptyPath() : examine(requestFor(path, definitions));
    });
}

EffectCompileResult GPUService::compile(const Worker::CompileRequest& request)
{
    EffectCompileResult result;
    const std::shared_ptr<Vulkan::Context> context = this->context();
    EffectCompilation compilation = examine(request);
    if (compilation.effect != nullptr) {
        Vulkan::PassRefusal refusal;
        const auto program = makeProgram(context, compilation.effect, request, refusal);
        if (program != nullptr) {
            result.effect = Qx::makePtr<Vulkan::ShaderEffect>(program);
        } else if (refusal.technique.empty()) {
            refuse(compilation, {request.file.native()}, "there is no GPU device to run the effect on");
        } else {
            refuse(compilation, {request.file.native()}, refusal.text, refusal.technique, refusal.pass);
        }
    }
    result.errors = compilation.messages.c_str();
    return result;
}

Qx::Ptr<iGPUComputeContext> GPUService::createComputeContext(int kind)
{
    return Vulkan::operate<Qx::Ptr<iGPUComputeContext>>(
        context(), [&](Vulkan::Context& context) -> Qx::Ptr<iGPUComputeContext> {
            if (kind != 0) {
                return {};
            }
            return Qx::makePtr<Vulkan::ComputeContext>(context.shared_from_this());
        });
}

Qx::Ptr<iGPUImage> GPUService::createGPUImage(XY<int> size, iGPUImage::eFormat format)
{
    return Vulkan::operate<Qx::Ptr<iGPUImage>>(context(),
                                               [&](Vulkan::Context& context) -> Qx::Ptr<iGPUImage> {
                                                   return Vulkan::makeGPUImage(context, size, format);
                                               });
}

Qx::Ptr<iHostImage> GPUService::createHostImage(XY<int> size, iGPUImage::eFormat format)
{
    return Vulkan::operate<Qx::Ptr<iHostImage>>(context(),
                                                [&](Vulkan::Context& context) -> Qx::Ptr<iHostImage> {
                                                    return Vulkan::makeHostImage(context, size, format);
                                                });
}

Qx::Ptr<iGPUImage> GPUService::uploadImage(Qx::Ptr<iHostImage> image, int)
{
    return Vulkan::operate<Qx::Ptr<iGPUImage>>(
        context(), [&](Vulkan::Context& context) -> Qx::Ptr<iGPUImage> {
            auto* source = dynamic_cast<Vulkan::HostImage*>(image.get());
            if (source == nullptr || &source->context() != &context) {
                return {};
            }
            return source->upload();
        });
}

Qx::Ptr<iHostImage> GPUService::downloadImage(Qx::Ptr<iGPUImage> image)
{
    return Vulkan::operate<Qx::Ptr<iHostImage>>(
        context(), [&](Vulkan::Context& context) -> Qx::Ptr<iHostImage> {
            Vulkan::GPUImage* const source = Vulkan::usableImage(context, image.get());
            return source != nullptr ? Vulkan::download(context, *source) : Qx::Ptr<iHostImage>();
        });
}

std::optional<ScopeCounts> GPUService::countScopes(const Qx::Ptr<iGPUImage>& picture,
                                                   const ScopeRequest& request)
{
    return Vulkan::operate<std::optional<ScopeCounts>>(
        context(), [&](Vulkan::Context& context) -> std::optional<ScopeCounts> {
            Vulkan::GPUImage* const image = Vulkan::usableImage(context, picture.get());
            return image != nullptr ? context.scopes().count(context, *image, request) : std::nullopt;
        });
}

bool GPUService::copyImage(const Qx::Ptr<iGPUImage>& source, const Qx::Ptr<iGPUImage>& target)
{
    return Vulkan::operate<bool>(context(), [&](Vulkan::Context& context) {
        Vulkan::GPUImage* const from = Vulkan::usableImage(context, source.get());
        Vulkan::GPUImage* const to = Vulkan::usableImage(context, target.get());
        const bool fits = from != nullptr && to != nullptr && from != to &&
                          from->getSize() == to->getSize() && from->getFormat() == to->getFormat();
        return fits && Vulkan::copy(context, *from, *to);
    });
}

Qx::Ptr<iHostImage3D> GPUService::createHostImage3D(int size)
{
    return Vulkan::operate<Qx::Ptr<iHostImage3D>>(context(),
                                                  [&](Vulkan::Context& context) -> Qx::Ptr<iHostImage3D> {
                                                      if (!Vulkan::isSupported3D(context, size)) {
                                                          return {};
                                                      }
                                                      return Vulkan::HostImage3D::create(size);
                                                  });
}

Qx::Ptr<iGPUImage3D> GPUService::upload3DImage(Qx::Ptr<iHostImage3D> image)
{
    return Vulkan::operate<Qx::Ptr<iGPUImage3D>>(
        context(), [&](Vulkan::Context& context) -> Qx::Ptr<iGPUImage3D> {
            if (!image || !Vulkan::isSupported3D(context, image->getSize())) {
                return {};
            }
            return Vulkan::upload(context, *image);
        });
}

std::shared_ptr<Text::TextRenderer> GPUService::textRenderer(Vulkan::Context& context)
{
    const std::lock_guard lock(mutex_);
    if (textRenderer_ == nullptr) {
        textRenderer_ = Text::TextRenderer::create(context.shared_from_this());
    }
    return textRenderer_;
}

Qx::Ptr<iFont> GPUService::createFont(const LightweightString<wchar_t>& typeface, int size, int style)
{
    return Vulkan::operate<Qx::Ptr<iFont>>(context(), [&](Vulkan::Context& context) -> Qx::Ptr<iFont> {
        auto shaper = Text::openTypeface(typeface, size, style);
        auto renderer = shaper != nullptr ? textRenderer(context) : nullptr;
        if (renderer == nullptr) {
            return {};
        }
        return Qx::makePtr<Text::Font>(std::move(renderer), std::move(shaper));
    });
}

GPUService& gpuService()
{
    static GPUService& service = *new GPUService;
    return service;
}

} // namespace Qx::Host
