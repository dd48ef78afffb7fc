#include "host/gpu/device/Context.h"

#include <algorithm>
#include <thread>

namespace Qx::Host::Vulkan {

namespace {

std::uint64_t defaultBound(const Device& device)
{
    return std::min<std::uint64_t>(512U << 20, device.largestHeap() / 4);
}

std::uint64_t orDefault(std::uint64_t wanted, const Device& device)
{
    return wanted != 0 ? wanted : defaultBound(device);
}

bool isExhausted(VkResult result)
{
    return result == VK_ERROR_OUT_OF_DEVICE_MEMORY || result == VK_ERROR_OUT_OF_HOST_MEMORY ||
           result == VK_ERROR_TOO_MANY_OBJECTS;
}

/// How a resource is acquired.
struct Acquisition
{
    const char* what;          ///< for the message that it failed
    bool mayBePending = false; ///< the device may still use it
    bool waits = true;         ///< for the device, if memory is exhausted
};

template <class Resource>
Pooled<Resource> acquire(Context& context, const typename Resource::Key& key, const Acquisition& how)
{
    Pool<Resource>& pool = Pooled<Resource>::pool(context);
    if (auto resource = pool.take(key, context.recorder().completed(), how.mayBePending)) {
        return {context.shared_from_this(), std::move(resource)};
    }
    std::unique_ptr<Resource> resource;
    VkResult result = pool.create(key, resource);
    if (isExhausted(result) && (!how.waits || context.recorder().waitForAll())) {
        const std::uint64_t completed = context.recorder().completed();
        context.textures().trim(0, completed);
        context.hostBuffers().trim(0, completed);
        result = pool.create(key, resource);
    }
    if (!context.device().succeeded(result, how.what)) {
        return {};
    }
    return {context.shared_from_this(), std::move(resource)};
}

} // namespace

bool Gate::enter()
{
    if ((state_.fetch_add(1, std::memory_order_acquire) & closedBit) != 0) {
        leave();
        return false;
    }
    return true;
}

bool Gate::close(std::chrono::milliseconds limit)
{
    state_.fetch_or(closedBit, std::memory_order_acq_rel);
    const auto end = std::chrono::steady_clock::now() + limit;
    while (state_.load(std::memory_order_acquire) != closedBit) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

Context::Context(std::unique_ptr<Instance> instance, std::unique_ptr<Device> device,
                 const GPUOptions& options)
    : instance_(std::move(instance)),
      device_(std::move(device)),
      memory_(*device_),
      recorder_(*device_, memory_, orDefault(options.inFlightBytes, *device_), options.stallLimit),
      textures_(*device_, memory_, orDefault(options.poolBytes, *device_)),
      hostBuffers_(*device_, memory_, orDefault(options.poolBytes, *device_)),
      samplers_(*device_),
      primitives_(*device_),
      scopes_(*device_, memory_)
{
}

std::shared_ptr<Context> Context::create(std::unique_ptr<Instance> instance, std::unique_ptr<Device> device,
                                         const GPUOptions& options, std::string& failure)
{
    std::shared_ptr<Context> self(new Context(std::move(instance), std::move(device), options));
    if (!self->recorder_.create() || !self->primitives_.create()) {
        failure = "The GPU service could not set up its device.";
        self->shutdown(options.shutdownLimit);
        return nullptr;
    }
    return self;
}

void Context::add(DeviceObject& object)
{
    const std::lock_guard lock(objectsMutex_);
    objects_.insert(&object);
}

void Context::retire(DeviceObject& object, std::function<void()> destroy)
{
    const std::lock_guard lock(objectsMutex_);
    if (objects_.erase(&object) != 0) {
        recorder_.later(std::move(destroy));
    }
}

void Context::shutdown(std::chrono::milliseconds limit)
{
    const std::lock_guard shutdownLock(shutdownMutex_);
    if (state_ == State::HostImagesHeld) {
        destroyImages();
    }
    if (state_ != State::Running) {
        return;
    }
    if (!gate_.close(limit) || !recorder_.drain(limit)) {
        report("GPU: the device did not finish within " + std::to_string(limit.count()) +
               " ms; it is left to the end of the process");
        return;
    }
    {
        const std::lock_guard lock(objectsMutex_);
        for (DeviceObject* object : objects_) {
            object->destroyDeviceObjects(*device_);
        }
        objects_.clear();
    }
    recorder_.destroy();
    scopes_.destroy();
    primitives_.destroy();
    samplers_.destroy();
    destroyImages();
}

void Context::destroyImages()
{
    // Addresses that callers hold must stay valid as long as their images, which may outlive the service.
    const auto isHeld = [](const auto& resource) { return resource.givenOut.load(); };
    const std::size_t kept = textures_.destroyAll(isHeld) + hostBuffers_.destroyAll(isHeld);
    if (kept > 0) {
        state_ = State::HostImagesHeld;
        report("GPU: " + std::to_string(kept) + " host images are still in use; their memory is kept");
        return;
    }
    memory_.destroy();
    device_->close();
    instance_->close();
    state_ = State::Closed;
}

bool Context::holdsDevice()
{
    const std::lock_guard lock(shutdownMutex_);
    return state_ != State::Closed;
}

Context::~Context()
{
    // This may be a static destructor, when driver and layers have ended.
    if (state_ != State::Closed) {
        static_cast<void>(device_.release());
        static_cast<void>(instance_.release());
    }
}

GPUStatistics Context::statistics()
{
    GPUStatistics statistics;
    statistics.inFlightBytes = recorder_.inFlightBytes();
    statistics.inFlightLimit = recorder_.inFlightLimit();
    statistics.idleImageBytes = textures_.idleBytes();
    statistics.idleHostBytes = hostBuffers_.idleBytes();
    statistics.liveImageBytes = textures_.liveBytes();
    statistics.liveHostBytes = hostBuffers_.liveBytes();
    statistics.imagesCreated = textures_.created();
    statistics.hostImagesCreated = hostBuffers_.created();
    statistics.memoryAllocations = memory_.allocationCount();
    statistics.batchesSubmitted = recorder_.batchesSubmitted();
    statistics.transferBatches = recorder_.transferBatches();
    statistics.draws = draws;
    statistics.packedDraws = pathDraws;
    statistics.nativeDraws = nativeDraws;
    statistics.sharedTransfers = sharedTransfers;
    statistics.barriers = recorder_.barriers();
    statistics.validationMessages = instance_->validationMessages();
    return statistics;
}

Pooled<Texture> acquireTexture(Context& context, const TextureKey& key)
{
    return acquire<Texture>(context, key, {.what = "creating a GPU image", .mayBePending = true});
}

Pooled<Texture> acquireTextureForUpload(Context& context, const TextureKey& key)
{
    const bool mayBePending = !context.device().has(Lane::Uploads);
    return acquire<Texture>(context, key, {.what = "creating a GPU image", .mayBePending = mayBePending});
}

Pooled<Texture> acquireTextureAtOnce(Context& context, const TextureKey& key)
{
    return acquire<Texture>(context, key,
                            {.what = "creating a GPU image", .mayBePending = true, .waits = false});
}

Pooled<Texture> acquireIdleTexture(Context& context, const TextureKey& key)
{
    return acquire<Texture>(context, key, {.what = "creating a host image"});
}

Pooled<HostBuffer> acquireHostBuffer(Context& context, std::uint64_t bytes)
{
    // Whole pages, so that images of nearly the same size share buffers. A buffer that the device still uses
    // would make its next owner wait.
    constexpr std::uint64_t page = 4096;
    return acquire<HostBuffer>(context, (bytes + page - 1) / page * page, {.what = "creating a host image"});
}

bool isSupported(Context& context, XY<int> size, iGPUImage::eFormat format)
{
    const VkPhysicalDeviceLimits& limits = context.device().limits();
    const std::uint32_t largestWidth = std::min(limits.maxImageDimension2D, limits.maxFramebufferWidth);
    const std::uint32_t largestHeight = std::min(limits.maxImageDimension2D, limits.maxFramebufferHeight);
    const VkFormat texels = vulkanFormat(format);
    const bool isDrawn = texels != floatFormat || context.device().physical().drawsFloats();
    return texels != VK_FORMAT_UNDEFINED && isDrawn && size.x > 0 && size.y > 0 &&
           static_cast<std::uint32_t>(size.x) <= largestWidth &&
           static_cast<std::uint32_t>(size.y) <= largestHeight;
}

} // namespace Qx::Host::Vulkan
