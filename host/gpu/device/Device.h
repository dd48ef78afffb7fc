#pragma once

#include "host/gpu/device/PhysicalDevice.h"
#include "host/gpu/device/Report.h"

#include <vulkan/vulkan_core.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace Qx::Host {
struct ApplicationDevice;
}

namespace Qx::Host::Vulkan {

/// Faults that tests inject. Thread-safe.
struct FaultInjection
{
    /// The number of allocations of device memory that succeed before `failures` of them fail.
    std::atomic<std::uint64_t> allocationsBeforeFailure{0};
    std::atomic<std::uint64_t> failures{0};

    std::atomic<bool> withoutTimer{false};

    /// Counts an allocation; returns true if it is to fail.
    bool takeAllocation();
};

class DrawingPath;

/// The queues of a device. Only the first is always there.
enum class Lane
{
    Drawing,
    Uploads,
    Downloads,
};

/// The enabled extensions by which memory is exchanged.
struct ExchangeExtensions
{
    bool descriptors = false;   ///< VK_KHR_external_memory_fd
    bool dmaBuf = false;        ///< VK_EXT_external_memory_dma_buf
    bool modifiers = false;     ///< VK_EXT_image_drm_format_modifier
    bool foreignQueues = false; ///< VK_EXT_queue_family_foreign
};

/// The logical device: one of our own, or the application's. Thread-safe, but only the recorder may submit.
class Device
{
public:
    /// Null, with the reason in `failure`, if the driver refuses. The device must lack nothing: see
    /// PhysicalDevice::missingFeatures().
    static std::unique_ptr<Device> create(const PhysicalDevice& physical, std::string& failure);
    /// The application's device, which stays its own. It must lack nothing: see
    /// sharing/OpenDevice.h.
    static std::unique_ptr<Device> take(const PhysicalDevice& physical, const ApplicationDevice& application);

    ~Device();
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    /// Destroys the Vulkan device unless it is the application's. The object can still be asked for its
    /// properties.
    void close();

    VkDevice handle() const { return device_; }
    const PhysicalDevice& physical() const { return physical_; }

    /// Submits to a queue, under the application's lock if it uses the queue too.
    VkResult submit(Lane lane, const VkSubmitInfo2& info);

    /// Whether there is a queue of its own for that: see PhysicalDevice::copying. Of one queue, uploads have
    /// it.
    bool has(Lane lane) const { return queues_.at(static_cast<std::size_t>(lane)) != nullptr; }

    const ExchangeExtensions& exchange() const { return exchange_; }

    std::uint32_t queueFamily(Lane lane = Lane::Drawing) const
    {
        return lane == Lane::Drawing ? queueFamily_.index : physical_.copying->index;
    }
    VkPipelineCache pipelineCache() const { return pipelineCache_; }
    /// The bits of a timestamp that are valid; 0 if the device has no timestamps.
    std::uint32_t timerBits() const { return faults_.withoutTimer ? 0 : queueFamily_.timerBits; }
    const VkPhysicalDeviceLimits& limits() const { return physical_.properties.limits; }
    const VkPhysicalDeviceMemoryProperties& memory() const { return physical_.memory; }
    std::uint64_t largestHeap() const;

    /// Whether the host sees all memory of the device as the device does, and so may draw in its place.
    bool sharesMemory() const;

    /// The faster way of drawing that this kind of device has; null if it has none.
    const DrawingPath* drawingPath() const { return path_.get(); }

    /// Returns true for VK_SUCCESS. Any other result is logged as the failure of `what`; after
    /// VK_ERROR_DEVICE_LOST the device stays lost.
    bool succeeded(VkResult result, const char* what);

    bool isLost() const { return lost_.load(std::memory_order_acquire); }
    void markLost(const std::string& reason);

    FaultInjection& faults() { return faults_; }

private:
    explicit Device(const PhysicalDevice& physical);
    void open(VkDevice device, std::uint32_t queueIndex);

    const PhysicalDevice physical_;
    const PhysicalDevice::QueueFamily queueFamily_;
    VkDevice device_ = nullptr;
    std::array<VkQueue, 3> queues_{}; // by lane
    VkPipelineCache pipelineCache_ = nullptr;
    std::shared_ptr<const ApplicationDevice> application_; // null if the device is our own
    ExchangeExtensions exchange_;
    std::unique_ptr<const DrawingPath> path_;
    std::atomic<bool> lost_{false};
    FaultInjection faults_;
};

} // namespace Qx::Host::Vulkan
