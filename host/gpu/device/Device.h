#pragma once

#include "host/gpu/GPUOptions.h"

#include <vulkan/vulkan_core.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Qx::Host::Vulkan {

/// Writes a line to the host's log.
void report(const std::string& line);

/// Makes the device misbehave, for tests.
struct FaultInjection
{
    /// So many allocations of device memory still succeed before `failures` of them fail.
    std::atomic<std::uint64_t> allocationsBeforeFailure{0};
    std::atomic<std::uint64_t> failures{0};

    std::atomic<bool> withoutTimer{false};

    /// True when this allocation is to fail.
    bool takeAllocation();
};

class DrawingPath;

/// The Vulkan instance, with the validation layer when it is wanted.
class Instance
{
public:
    /// Null, and says why in `failure`, when there is no usable Vulkan on this machine.
    static std::unique_ptr<Instance> create(bool validation, std::string& failure);
    ~Instance() { close(); }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    /// Destroys the Vulkan instance; the object stays to be asked for its counts.
    void close();

    VkInstance handle() const { return instance_; }
    std::vector<VkPhysicalDevice> physicalDevices() const;
    bool isValidating() const { return messenger_ != nullptr; }
    std::uint64_t validationMessages() const { return validationMessages_; }

private:
    Instance() = default;
    static VkBool32 VKAPI_CALL onMessage(VkDebugUtilsMessageSeverityFlagBitsEXT severity,
                                         VkDebugUtilsMessageTypeFlagsEXT types,
                                         const VkDebugUtilsMessengerCallbackDataEXT* data, void* self);

    VkInstance instance_ = nullptr;
    VkDebugUtilsMessengerEXT messenger_ = nullptr;
    std::atomic<std::uint64_t> validationMessages_{0};
};

/// What tells a physical device from the machine's others, in every process.
std::array<std::byte, VK_UUID_SIZE> uuidOf(VkPhysicalDevice physical);

DeviceDescription describe(VkPhysicalDevice physical, std::uint32_t index);

/// The logical device and what everything needs to know of it.
///
/// All members may be used from any thread; only the recorder touches the queue.
class Device
{
public:
    static std::unique_ptr<Device> create(VkPhysicalDevice physical, std::string& failure);
    ~Device();
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    /// Destroys the Vulkan device; the object stays to be asked for what it was.
    void close();

    VkDevice handle() const { return device_; }
    VkPhysicalDevice physical() const { return physical_; }
    VkQueue queue() const { return queue_; }
    std::uint32_t queueFamily() const { return queueFamily_; }
    VkPipelineCache pipelineCache() const { return pipelineCache_; }
    /// The bits of a time stamp that count; 0 when the device has none.
    std::uint32_t timerBits() const { return faults_.withoutTimer ? 0 : timerBits_; }
    const VkPhysicalDeviceLimits& limits() const { return limits_; }
    const VkPhysicalDeviceMemoryProperties& memory() const { return memory_; }
    std::uint64_t largestHeap() const;

    /// Whether images of that format can be drawn into, with blending.
    bool canDrawInto(VkFormat format) const;

    /// The faster way of drawing that this kind of device has; null if it has none.
    const DrawingPath* drawingPath() const { return path_.get(); }

    /// True for VK_SUCCESS. Anything else is written to the log as the failure of `what`, and a lost device
    /// is lost from then on.
    bool succeeded(VkResult result, const char* what);

    bool isLost() const { return lost_.load(std::memory_order_acquire); }
    void markLost(const std::string& reason);

    FaultInjection& faults() { return faults_; }

private:
    Device();

    VkPhysicalDevice physical_ = nullptr;
    VkDevice device_ = nullptr;
    VkQueue queue_ = nullptr;
    std::uint32_t queueFamily_ = 0;
    std::uint32_t timerBits_ = 0;
    VkPipelineCache pipelineCache_ = nullptr;
    std::unique_ptr<const DrawingPath> path_;
    VkPhysicalDeviceLimits limits_{};
    VkPhysicalDeviceMemoryProperties memory_{};
    std::atomic<bool> lost_{false};
    FaultInjection faults_;
};

} // namespace Qx::Host::Vulkan
