#pragma once

#include "host/gpu/device/Instance.h"
#include "host/gpu/drawing/PrimitivePipelines.h"
#include "host/gpu/drawing/Recorder.h"
#include "host/gpu/effects/Samplers.h"
#include "host/gpu/images/Pool.h"

#include <memory>
#include <unordered_set>
#include <utility>

namespace Qx::Host::Vulkan {

/// Counts the calls that are under way, and closes.
class Gate
{
public:
    bool enter();
    void leave() { state_.fetch_sub(1, std::memory_order_release); }

    /// Lets nobody in any more and waits until all have left; false when the limit passes before.
    bool close(std::chrono::milliseconds limit);
    bool isClosed() const { return (state_.load(std::memory_order_acquire) & closedBit) != 0; }

private:
    static constexpr std::uint64_t closedBit = std::uint64_t{1} << 63;
    std::atomic<std::uint64_t> state_{0};
};

/// Something with Vulkan objects of its own that a shutdown has to destroy.
class DeviceObject
{
public:
    virtual void destroyDeviceObjects(Device& device) = 0;

protected:
    ~DeviceObject() = default;
};

/// All that images, effects and renderers share. They hold it together with the service; after shutdown()
/// it is an empty shell that they can still be released into.
class Context : public std::enable_shared_from_this<Context>
{
public:
    /// Null, and says why, when the device cannot be set up.
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
    Gate& gate() { return gate_; }

    void add(DeviceObject& object);

    /// Takes an object off the list and has `destroy` run once the device is done with what is recorded; not
    /// when a shutdown has destroyed what the object had. Calls no Vulkan itself.
    void retire(DeviceObject& object, std::function<void()> destroy);

    /// Destroys everything, the device last, and stays as a shell. What could not be destroyed within the
    /// limit stays as it is.
    void shutdown(std::chrono::milliseconds limit);

    GPUStatistics statistics();
    std::atomic<std::uint64_t> draws{0};
    std::atomic<std::uint64_t> pathDraws{0}; ///< those of `draws` that the device's DrawingPath recorded
    std::atomic<std::uint64_t> sharedTransfers{0};

private:
    void close();
    Context(std::unique_ptr<Instance> instance, std::unique_ptr<Device> device, const GPUOptions& options);

    std::unique_ptr<Instance> instance_;
    std::unique_ptr<Device> device_;
    DeviceMemory memory_;
    Recorder recorder_;
    Pool<Texture> textures_;
    Pool<HostBuffer> hostBuffers_;
    Samplers samplers_;
    PrimitivePipelines primitives_;
    Gate gate_;
    std::mutex objectsMutex_;
    std::unordered_set<DeviceObject*> objects_;
    std::mutex shutdownMutex_;
    enum class State
    {
        Running,
        HostImagesHeld, ///< shut down, but for host images whose addresses were given out
        Closed,
    };
    State state_ = State::Running; // guarded by shutdownMutex_
};

/// The scope of one call on the service or an object of it.
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

    /// Whether the call can do something: the service runs and its device is not lost.
    explicit operator bool() const { return entered_ && !context_.device().isLost(); }

private:
    Context& context_;
    bool entered_;
};

/// A resource in use. It goes back to its pool with the last handle.
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

    /// Whether there are other handles. When there are none, what their holders did is done.
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

/// A resource from the pool or a new one. When memory is exhausted the pools are emptied and it is tried once
/// more; an empty handle when that fails too. Inside an Operation.
Pooled<Texture> acquireTexture(Context& context, const TextureKey& key);

/// The same without waiting for the device, for who holds the recorder's lock.
Pooled<Texture> acquireTextureAtOnce(Context& context, const TextureKey& key);

/// A texture that the device is done with, for the host to write to.
Pooled<Texture> acquireIdleTexture(Context& context, const TextureKey& key);

Pooled<HostBuffer> acquireHostBuffer(Context& context, std::uint64_t bytes);

/// Whether an image of that size can be made at all.
bool isSupported(Context& context, XY<int> size, iGPUImage::eFormat format);

/// Runs a call of the public interface: whatever it throws becomes its failure result.
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

} // namespace Qx::Host::Vulkan
