#include "host/gpu/device/Device.h"

#include "host/gpu/device/DrawingPath.h"
#include "host/gpu/sharing/Features.h"

#include <algorithm>
#include <span>

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
    const std::array priorities{1.0F, 1.0F};
    const auto queuesOf = [&](std::uint32_t family, std::uint32_t count) {
        VkDeviceQueueCreateInfo queues{};
        queues.sType = VK_STRUCTURE_TYPE_DEVICE_QUEUE_CREATE_INFO;
        queues.queueFamilyIndex = family;
        queues.queueCount = count;
        queues.pQueuePriorities = priorities.data();
        return queues;
    };
    const std::uint32_t copyQueues =
        physical.copying ? std::min<std::uint32_t>(physical.copying->queues, priorities.size()) : 0;
    std::vector queues{queuesOf(self->queueFamily_.index, 1)};
    if (copyQueues > 0) {
        queues.push_back(queuesOf(physical.copying->index, copyQueues));
    }

    Features features;
    enableFeatures(physical, features.core);
    const std::vector<const char*> extensions = usableExtensions(physical.handle);
    VkDeviceCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_DEVICE_CREATE_INFO;
    info.pNext = &features.core;
    info.queueCreateInfoCount = static_cast<std::uint32_t>(queues.size());
    info.pQueueCreateInfos = queues.data();
    info.enabledExtensionCount = static_cast<std::uint32_t>(extensions.size());
    info.ppEnabledExtensionNames = extensions.data();
    VkDevice device = nullptr;
    const VkResult result = vkCreateDevice(physical.handle, &info, nullptr, &device);
    if (result != VK_SUCCESS) {
        failure = "the Vulkan device could not be opened (result " + std::to_string(result) + ")";
        return nullptr;
    }
    self->open(device, 0);
    for (std::uint32_t i = 0; i < copyQueues; ++i) {
        vkGetDeviceQueue(device, physical.copying->index, i, &self->queues_.at(i + 1));
    }
    self->exchange_ = exchangeBy({extensions.begin(), extensions.end()});
    return self;
}

std::unique_ptr<Device> Device::take(const PhysicalDevice& physical, const ApplicationDevice& application)
{
    std::unique_ptr<Device> self(new Device(physical));
    self->application_ = std::make_shared<const ApplicationDevice>(application);
    self->open(application.device, application.queueIndex);
    self->exchange_ = exchangeBy(application.abilities.extensions);
    return self;
}

void Device::open(VkDevice device, std::uint32_t queueIndex)
{
    device_ = device;
    vkGetDeviceQueue(device_, queueFamily_.index, queueIndex, queues_.data());
    VkPipelineCacheCreateInfo cache{};
    cache.sType = VK_STRUCTURE_TYPE_PIPELINE_CACHE_CREATE_INFO;
    if (vkCreatePipelineCache(device_, &cache, nullptr, &pipelineCache_) != VK_SUCCESS) {
        pipelineCache_ = nullptr;
    }
}

void Device::close()
{
    if (device_ != nullptr) {
        vkDestroyPipelineCache(device_, pipelineCache_, nullptr);
        if (application_ == nullptr) {
            vkDestroyDevice(device_, nullptr);
        }
        device_ = nullptr;
    }
}

VkResult Device::submit(Lane lane, const VkSubmitInfo2& info)
{
    VkQueue queue = queues_.at(static_cast<std::size_t>(lane));
    if (application_ == nullptr || !application_->lockQueue) {
        return vkQueueSubmit2(queue, 1, &info, nullptr);
    }
    application_->lockQueue();
    const VkResult result = vkQueueSubmit2(queue, 1, &info, nullptr);
    application_->unlockQueue();
    return result;
}

bool Device::sharesMemory() const
{
    constexpr VkMemoryPropertyFlags shared =
        VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT | VK_MEMORY_PROPERTY_HOST_COHERENT_BIT;
    const std::span types(memory().memoryTypes, memory().memoryTypeCount);
    return physical_.isSoftware() && std::all_of(types.begin(), types.end(), [](const VkMemoryType& type) {
               return (type.propertyFlags & shared) == shared;
           });
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
