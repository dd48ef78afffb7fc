#pragma once

#include "host/gpu/device/Instance.h"
#include "host/gpu/drawing/PrimitivePipelines.h"
#include "host/gpu/drawing/Recorder.h"
#include "host/gpu/effects/Samplers.h"
#include "host/gpu/images/Pool.h"
#include "host/gpu/scopes/ScopeCounter.h"

#include <memory>
#include <unordered_set>
#include <utility>

namespace Qx::Host::Vulkan {

/// Counts the calls in progress, and can be closed. Thread-safe.
class Gate
{
public:
    bool enter();
    void leave() { state_.fetch_sub(1, std::memory_order_release); }

    /// Rejects further calls and waits until those in progress have left. Returns false if the limit passes
    /// first.
    bool close(std::chrono::milliseconds limit);
    bool isClosed() const { return (state_.load(std::memory_order_acquire) & closedBit) != 0; }

private:
    static constexpr std::uint64_t closedBit = std::uint64_t{1} << 63;
    std::atomic<std::uint64_t> state_{0};
};

/// An object that owns Vulkan objects, which a shutdown has to destroy.
class DeviceObject
{
public:
    virtual void destroyDeviceObjects(Device& device) = 0;

protected:
    ~DeviceObject() = default;
};

/// Everything that images, effects and renderers share. They own it together with the service. After
/// shutdown() it is an empty shell, into which resources can still be released. Its destructor makes no
/// Vulkan call.
class Context : public std::enable_shared_from_this<Context>
{
public:
    /// Null, with the reason in `failure`, if the device cannot be set up.
    static std::shared_ptr<Context> create(std::unique_ptr<Instance> instance, std::unique_ptr<Device> device,
                                           const GPUOptions& options, std::string& failure);

    ~Context();
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    Device& device() { return *device_; }
    Instance& instance() { return *instance_; }
    DeviceMemory& memory() { return memory_; }
    Recorder& recorder() { return recorder_; }
    Pool<Texture>& textures() { return textures_; }
    Pool<HostBuffer>& hostBuffers() { return hostBuffers_; }
    Samplers& samplers() { return samplers_; }
    PrimitivePipelines& primitives() { return primitives_; }
    ScopeCounter& scopes() { return scopes_; }
    Gate& gate() { return gate_; }

    void add(DeviceObject& object);

    /// Unregisters an object and calls `destroy` once the device has finished what is recorded, unless a
    /// shutdown has already destroyed the objects. Makes no Vulkan call itself.
    void retire(DeviceObject& object, std::function<void()> destroy);

    /// Destroys everything, the device last. What is still in use when the limit passes is left as it is, and
    /// so are the device and the memory of host images whose addresses callers may hold: the system frees
    /// them when the process ends. Another call destroys what was held and is so no longer.
    void shutdown(std::chrono::milliseconds limit);

    /// Whether Vulkan objects are left on the device.
    bool holdsDevice();

    GPUStatistics statistics();
    std::atomic<std::uint64_t> draws{0};
    std::atomic<std::uint64_t> pathDraws{0};   ///< those of `draws` that the device's DrawingPath recorded
    std::atomic<std::uint64_t> nativeDraws{0}; ///< those of `pathDraws` that the host's processors computed
    std::atomic<std::uint64_t> sharedTransfers{0};

private:
    void destroyImages();

    Context(std::unique_ptr<Instance> instance, std::unique_ptr<Device> device, const GPUOptions& options);

    std::unique_ptr<Instance> instance_;
    std::unique_ptr<Device> device_;
    DeviceMemory memory_;
    Recorder recorder_;
    Pool<Texture> textures_;
    Pool<HostBuffer> hostBuffers_;
    Samplers samplers_;
    PrimitivePipelines primitives_;
    ScopeCounter scopes_;
    Gate gate_;
    std::mutex objectsMutex_;
    std::unordered_set<DeviceObject*> objects_;
    std::mutex shutdownMutex_;
    enum class State
    {
        Running,
        HostImagesHeld, ///< shut down, except for the device and the memory that callers may hold addresses
                        ///< in
        Closed,
    };
    State state_ = State::Running; // guarded by shutdownMutex_
};

/// The scope of one call on the service or one of its objects.
class Operation
{
public:
    explicit Operation(Context& context) : context_(context), entered_(context.gate().enter()) {}
    ~Operation()
    {
        if (entered_) {
            context_.gate().leave();
        }
    }
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

    /// Whether the call can proceed: the service runs and its device is not lost.
    explicit operator bool() const { return entered_ && !context_.device().isLost(); }

private:
    Context& context_;
    bool entered_;
};

/// A handle to a resource in use. The last handle returns it to its pool.
template <class Resource>
class Pooled
{
public:
    Pooled() = default;
    Pooled(std::shared_ptr<Context> context, std::unique_ptr<Resource> resource)
        : context_(std::move(context)), resource_(resource.release())
    {
        resource_->holders = 1;
    }
    Pooled(const Pooled& other) : context_(other.context_), resource_(other.resource_)
    {
        if (resource_ != nullptr) {
            resource_->holders.fetch_add(1, std::memory_order_relaxed);
        }
    }
    Pooled(Pooled&& other) noexcept
        : context_(std::move(other.context_)), resource_(std::exchange(other.resource_, nullptr))
    {
    }
    Pooled& operator=(Pooled other) noexcept
    {
        std::swap(context_, other.context_);
        std::swap(resource_, other.resource_);
        return *this;
    }
    ~Pooled()
    {
        if (resource_ != nullptr && resource_->holders.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            pool(*context_).give(std::unique_ptr<Resource>(resource_));
        }
    }

    explicit operator bool() const { return resource_ != nullptr; }
    Resource& operator*() const { return *resource_; }
    Resource* operator->() const { return resource_; }
    Context& context() const { return *context_; }

    /// Whether there are other handles. If not, everything that their owners did is visible.
    bool isShared() const { return resource_->holders.load(std::memory_order_acquire) > 1; }

    static Pool<Resource>& pool(Context& context)
    {
        if constexpr (std::is_same_v<Resource, Texture>) {
            return context.textures();
        } else {
            return context.hostBuffers();
        }
    }

private:
    std::shared_ptr<Context> context_;
    Resource* resource_ = nullptr;
};

/// A resource from the pool, or a new one. If memory is exhausted, the pools are emptied and the allocation
/// is retried once. An empty handle if that fails too. Inside an Operation.
Pooled<Texture> acquireTexture(Context& context, const TextureKey& key);

/// The same without waiting for the device, for holders of the recorder's lock.
Pooled<Texture> acquireTextureAtOnce(Context& context, const TextureKey& key);

/// The same for an upload. Where uploads have a queue of their own, one that the device no longer uses: they
/// would wait for its drawing.
Pooled<Texture> acquireTextureForUpload(Context& context, const TextureKey& key);

/// A texture that the device no longer uses, for the host to write to.
Pooled<Texture> acquireIdleTexture(Context& context, const TextureKey& key);

Pooled<HostBuffer> acquireHostBuffer(Context& context, std::uint64_t bytes);

/// Whether an image of that size and format is supported.
bool isSupported(Context& context, XY<int> size, iGPUImage::eFormat format);

/// Runs a call of the public interface. An exception becomes the failure result and a line in the log.
template <class Result, class Function>
Result guarded(Result failure, Function&& function) noexcept
{
    try {
        return function();
    } catch (const std::exception& e) {
        try {
            report(std::string("GPU: ") + e.what());
        } catch (...) {
            return failure;
        }
    } catch (...) {
        return failure;
    }
    return failure;
}

/// Runs `function` with a context whose device works, as one operation; `Result()` if there is none.
template <class Result, class Function>
Result operate(const std::shared_ptr<Context>& context, Function&& function)
{
    return guarded(Result(), [&]() -> Result {
        if (context == nullptr) {
            return {};
        }
        const Operation operation(*context);
        return operation ? function(*context) : Result();
    });
}

} // namespace Qx::Host::Vulkan
