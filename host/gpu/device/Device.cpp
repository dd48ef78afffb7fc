#include "host/gpu/device/Device.h"

#include "host/gpu/device/DrawingPath.h"

#include <algorithm>

namespace Qx::Host::Vulkan {

bool FaultInjection::takeAllocation()
{
    if (failures.load() == 0) {
        return false;
    }
    std::uint64_t before = allocationsBeforeFailure.load();
    while (before > 0) {
        if (allocationsBeforeFailure.compare_exchange_weak(before, before - 1)) {
            return false;
        }
    }
    std::uint64_t left = failures.load();
    while (left > 0) {
        if (failures.compare_exchange_weak(left, left - 1)) {
            return true;
        }
    }
    return false;
}

Device::Device(const PhysicalDevice& physical)
    : physical_(physical),
      queueFamily_(physical.graphics.value_or(PhysicalDevice::QueueFamily{})),
      path_(createDrawingPath(physical))
{
}

Device::~Device()
{
    close();
}

std::unique_ptr<Device> Device::create(const PhysicalDevice& physical, std::string& failure)
{
    std::unique_ptr<Device> self(new Device(physical));
    const float priority = 1.0F;
    VkDeviceQueueCreateInfo queue{};
    queue.sType = VK_STRUCTURE_TYPE_DEVICE_QUEUE_CREATE_INFO;
    queue.queueFamilyIndex = self->queueFamily_.index;
    queue.queueCount = 1;
    queue.pQueuePriorities = &priority;

    Features features;
    if (self->path_ != nullptr) {
        self->path_->enableFeatures(features.core.features);
    }
    features.v12.timelineSemaphore = VK_TRUE;
    features.v13.dynamicRendering = VK_TRUE;
    features.v13.synchronization2 = VK_TRUE;
    features.v13.maintenance4 = VK_TRUE;      // one vertex shader for fragment shaders that take less
    features.v13.robustImageAccess = VK_TRUE; // effects may read texels outside an image
    VkDeviceCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_DEVICE_CREATE_INFO;
    info.pNext = &features.core;
    info.queueCreateInfoCount = 1;
    info.pQueueCreateInfos = &queue;
    const VkResult result = vkCreateDevice(physical.handle, &info, nullptr, &self->device_);
    if (result != VK_SUCCESS) {
        self->device_ = nullptr;
        failure = "the Vulkan device could not be opened (result " + std::to_string(result) + ")";
        return nullptr;
    }
    vkGetDeviceQueue(self->device_, self->queueFamily_.index, 0, &self->queue_);

    VkPipelineCacheCreateInfo cache{};
    cache.sType = VK_STRUCTURE_TYPE_PIPELINE_CACHE_CREATE_INFO;
    if (vkCreatePipelineCache(self->device_, &cache, nullptr, &self->pipelineCache_) != VK_SUCCESS) {
        self->pipelineCache_ = nullptr;
    }
    return self;
}

void Device::close()
{
    if (device_ != nullptr) {
        vkDestroyPipelineCache(device_, pipelineCache_, nullptr);
        vkDestroyDevice(device_, nullptr);
        device_ = nullptr;
    }
}

std::uint64_t Device::largestHeap() const
{
    std::uint64_t largest = 0;
    for (std::uint32_t i = 0; i < memory().memoryHeapCount; ++i) {
        largest = std::max<std::uint64_t>(largest, memory().memoryHeaps[i].size);
    }
    return largest;
}

bool Device::succeeded(VkResult result, const char* what)
{
    if (result == VK_SUCCESS) {
        return true;
    }
    if (result == VK_ERROR_DEVICE_LOST) {
        markLost(std::string(what) + " failed");
    } else {
        report(std::string("GPU: ") + what + " failed (Vulkan result " + std::to_string(result) + ")");
    }
    return false;
}

void Device::markLost(const std::string& reason)
{
    if (!lost_.exchange(true, std::memory_order_acq_rel)) {
        report("GPU: the device is lost (" + reason + "); image operations fail from now on");
    }
}

} // namespace Qx::Host::Vulkan
