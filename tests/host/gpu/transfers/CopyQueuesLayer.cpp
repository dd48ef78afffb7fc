// A Vulkan layer for tests: over a driver with one queue, it offers a second family whose queues only copy,
// and only whole images. The validation layer, which comes first, sees two families.
//
// Work of every queue goes to the driver's when what it waits for has been reached, so that the queues
// overtake each other as those of a GPU do. A copy or a barrier in a family that does not own the image or
// the buffer, which validation lets pass, ends the process. What the queues do:
//
//     QX_TEST_COPY_QUEUES   the number of queues that copy
//     QX_TEST_QUEUE_DELAYS  milliseconds by which each work of a queue comes late: "drawing first second"
//     QX_TEST_QUEUE_HOLD    "queue other count": nothing of a queue begins before another has done `count`
//                           works; 0 is the queue that draws

#include "tests/host/gpu/layers/Layer.h"

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace Qx::GpuTests {

namespace {

constexpr std::uint32_t realFamily = 0;
constexpr std::uint32_t copyFamily = 1;
constexpr std::size_t mostQueues = 3;

std::istringstream setting(const char* name)
{
    const char* const value = std::getenv(name); // NOLINT(concurrency-mt-unsafe)
    return std::istringstream(value != nullptr ? value : "");
}

std::uint32_t copyQueues()
{
    std::uint32_t count = mostQueues - 1;
    setting("QX_TEST_COPY_QUEUES") >> count;
    return count;
}

/// One vkQueueSubmit2.
struct Work
{
    std::vector<VkSemaphoreSubmitInfo> waits;
    std::vector<VkCommandBufferSubmitInfo> commands;
    std::vector<VkSemaphoreSubmitInfo> signals;
};

class Queues;

/// A queue that the layer offers: its handle is its address, which begins as the loader wants it.
struct Offered
{
    void* loaders = nullptr;
    Queues* queues = nullptr;
    std::size_t index = 0;
};

/// The queues of a device.
class Queues
{
public:
    Queues(VkDevice device, const Next& next)
        : device_(device),
          wait_(next.get<PFN_vkWaitSemaphores>("vkWaitSemaphores")),
          submit_(next.get<PFN_vkQueueSubmit2>("vkQueueSubmit2"))
    {
        next.get<PFN_vkGetDeviceQueue>("vkGetDeviceQueue")(device, realFamily, 0, &real_);
        std::istringstream delays = setting("QX_TEST_QUEUE_DELAYS");
        for (int& delay : delays_) {
            delays >> delay;
        }
        std::istringstream hold = setting("QX_TEST_QUEUE_HOLD");
        hold >> held_ >> other_ >> count_;
        for (std::size_t i = 0; i < mostQueues; ++i) {
            offered_.at(i) = {*reinterpret_cast<void**>(device), this, i};
            threads_.at(i) = std::thread([this, i] { run(i); });
        }
    }

    ~Queues()
    {
        {
            const std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        changed_.notify_all();
        for (std::thread& thread : threads_) {
            thread.join();
        }
    }

    Queues(const Queues&) = delete;
    Queues& operator=(const Queues&) = delete;

    VkQueue get(std::uint32_t family, std::uint32_t index)
    {
        return reinterpret_cast<VkQueue>(&offered_.at(family == copyFamily ? index + 1 : 0));
    }

    void push(std::size_t queue, Work work)
    {
        const std::lock_guard lock(mutex_);
        works_.at(queue).push_back(std::move(work));
        changed_.notify_all();
    }

private:
    void run(std::size_t queue)
    {
        std::unique_lock lock(mutex_);
        for (;;) {
            changed_.wait(lock, [&] { return stopping_ || !works_.at(queue).empty(); });
            changed_.wait(lock, [&] { return stopping_ || queue != held_ || done_.at(other_) >= count_; });
            if (stopping_) {
                return;
            }
            const Work work = std::move(works_.at(queue).front());
            works_.at(queue).pop_front();
            lock.unlock();
            execute(queue, work);
            lock.lock();
            ++done_.at(queue);
            changed_.notify_all();
        }
    }

    void execute(std::size_t queue, const Work& work)
    {
        if (!isReached(work.waits)) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(delays_.at(queue)));
        VkSubmitInfo2 info{};
        info.sType = VK_STRUCTURE_TYPE_SUBMIT_INFO_2;
        info.commandBufferInfoCount = static_cast<std::uint32_t>(work.commands.size());
        info.pCommandBufferInfos = work.commands.data();
        info.signalSemaphoreInfoCount = static_cast<std::uint32_t>(work.signals.size());
        info.pSignalSemaphoreInfos = work.signals.data();
        {
            const std::lock_guard lock(realMutex_);
            submit_(real_, 1, &info, nullptr);
        }
        isReached(work.signals); // so that the next of this queue, whatever it waits for, comes after it
    }

    /// Waits for it. Returns false if the device ends before.
    bool isReached(const std::vector<VkSemaphoreSubmitInfo>& points)
    {
        for (const VkSemaphoreSubmitInfo& point : points) {
            VkSemaphoreWaitInfo info{};
            info.sType = VK_STRUCTURE_TYPE_SEMAPHORE_WAIT_INFO;
            info.semaphoreCount = 1;
            info.pSemaphores = &point.semaphore;
            info.pValues = &point.value;
            constexpr std::uint64_t limit = 10'000'000; // nanoseconds
            while (wait_(device_, &info, limit) != VK_SUCCESS) {
                if (stopping_) {
                    return false;
                }
            }
        }
        return true;
    }

    VkDevice device_;
    PFN_vkWaitSemaphores wait_;
    PFN_vkQueueSubmit2 submit_;
    VkQueue real_ = nullptr;
    std::array<int, mostQueues> delays_{};
    std::size_t held_ = mostQueues; // none
    std::size_t other_ = 0;
    std::uint64_t count_ = 0;
    std::array<Offered, mostQueues> offered_;

    std::atomic<bool> stopping_{false};
    std::mutex mutex_; // guards the works
    std::condition_variable changed_;
    std::array<std::deque<Work>, mostQueues> works_;
    std::array<std::uint64_t, mostQueues> done_{};
    std::mutex realMutex_;
    std::array<std::thread, mostQueues> threads_;
};

std::mutex devicesMutex;
std::map<VkDevice, std::unique_ptr<Queues>> queuesOf;

VKAPI_ATTR void VKAPI_CALL listFamilies(VkPhysicalDevice physical, std::uint32_t* count,
                                        VkQueueFamilyProperties* properties)
{
    if (properties == nullptr) {
        *count = 2;
        return;
    }
    std::uint32_t first = 1;
    nextOf(physical).get<PFN_vkGetPhysicalDeviceQueueFamilyProperties>(
        "vkGetPhysicalDeviceQueueFamilyProperties")(physical, &first, properties);
    if (*count > copyFamily) {
        properties[copyFamily] = {VK_QUEUE_TRANSFER_BIT, copyQueues(), 0, {}};
        *count = 2;
    }
}

VKAPI_ATTR void VKAPI_CALL listFamilies2(VkPhysicalDevice physical, std::uint32_t* count,
                                         VkQueueFamilyProperties2* properties)
{
    std::array<VkQueueFamilyProperties, 2> both{};
    listFamilies(physical, count, properties != nullptr ? both.data() : nullptr);
    for (std::uint32_t i = 0; properties != nullptr && i < *count; ++i) {
        properties[i].queueFamilyProperties = both.at(i);
    }
}

VKAPI_ATTR VkResult VKAPI_CALL createDeviceWithQueues(VkPhysicalDevice physical,
                                                      const VkDeviceCreateInfo* info,
                                                      const VkAllocationCallbacks* allocator,
                                                      VkDevice* device)
{
    std::vector<VkDeviceQueueCreateInfo> real;
    for (std::uint32_t i = 0; i < info->queueCreateInfoCount; ++i) {
        if (info->pQueueCreateInfos[i].queueFamilyIndex == realFamily) {
            real.push_back(info->pQueueCreateInfos[i]);
        }
    }
    VkDeviceCreateInfo translated = *info;
    translated.queueCreateInfoCount = static_cast<std::uint32_t>(real.size());
    translated.pQueueCreateInfos = real.data();
    const VkResult result = createDevice(physical, &translated, allocator, device);
    if (result == VK_SUCCESS) {
        const std::lock_guard lock(devicesMutex);
        queuesOf[*device] = std::make_unique<Queues>(*device, nextOf(*device));
    }
    return result;
}

VKAPI_ATTR void VKAPI_CALL destroyDevice(VkDevice device, const VkAllocationCallbacks* allocator)
{
    if (device == nullptr) {
        return;
    }
    const auto destroy = nextOf(device).get<PFN_vkDestroyDevice>("vkDestroyDevice");
    {
        const std::lock_guard lock(devicesMutex);
        queuesOf.erase(device);
    }
    destroy(device, allocator);
}

VKAPI_ATTR void VKAPI_CALL getQueue(VkDevice device, std::uint32_t family, std::uint32_t index,
                                    VkQueue* queue)
{
    const std::lock_guard lock(devicesMutex);
    *queue = queuesOf.at(device)->get(family, index);
}

VKAPI_ATTR VkResult VKAPI_CALL submit(VkQueue queue, std::uint32_t count, const VkSubmitInfo2* infos, VkFence)
{
    const auto* const offered = reinterpret_cast<const Offered*>(queue);
    for (std::uint32_t i = 0; i < count; ++i) {
        const VkSubmitInfo2& info = infos[i];
        Work work;
        work.waits.assign(info.pWaitSemaphoreInfos, info.pWaitSemaphoreInfos + info.waitSemaphoreInfoCount);
        work.commands.assign(info.pCommandBufferInfos,
                             info.pCommandBufferInfos + info.commandBufferInfoCount);
        work.signals.assign(info.pSignalSemaphoreInfos,
                            info.pSignalSemaphoreInfos + info.signalSemaphoreInfoCount);
        offered->queues->push(offered->index, std::move(work));
    }
    return VK_SUCCESS;
}

/// The families of command buffers, and those that own images and buffers. What is recorded later is executed
/// later, or at the same time.
class Owners
{
public:
    void add(VkCommandPool pool, std::uint32_t family)
    {
        const std::lock_guard lock(mutex_);
        pools_[pool] = family;
    }

    void add(VkCommandPool pool, const VkCommandBuffer* commands, std::uint32_t count)
    {
        const std::lock_guard lock(mutex_);
        for (std::uint32_t i = 0; i < count; ++i) {
            commands_[commands[i]] = pools_.at(pool);
        }
    }

    /// New ones. Whoever uses one first owns it.
    void add(VkImage image)
    {
        const std::lock_guard lock(mutex_);
        images_.erase(image);
    }
    void add(VkBuffer buffer, VkSharingMode mode)
    {
        const std::lock_guard lock(mutex_);
        buffers_.erase(buffer);
        if (mode == VK_SHARING_MODE_CONCURRENT) {
            buffers_[buffer] = everyone;
        }
    }

    void use(VkCommandBuffer commands, VkImage image, VkBuffer buffer)
    {
        const std::lock_guard lock(mutex_);
        check(commands, images_, image, "an image");
        check(commands, buffers_, buffer, "a buffer");
    }

    void use(VkCommandBuffer commands, const VkImageMemoryBarrier2& barrier)
    {
        const std::lock_guard lock(mutex_);
        const std::uint32_t family = commands_.at(commands);
        const bool isPassed = barrier.srcQueueFamilyIndex != barrier.dstQueueFamilyIndex;
        if (barrier.oldLayout == VK_IMAGE_LAYOUT_UNDEFINED ||
            (isPassed && barrier.dstQueueFamilyIndex == family)) {
            images_[barrier.image] = family;
        } else {
            check(commands, images_, barrier.image, "an image");
        }
    }

private:
    static constexpr std::uint32_t everyone = ~0U;

    template <class Handle>
    void check(VkCommandBuffer commands, std::map<Handle, std::uint32_t>& owners, Handle handle,
               const char* what)
    {
        const std::uint32_t family = commands_.at(commands);
        const std::uint32_t owner = owners.try_emplace(handle, family).first->second;
        if (owner != family && owner != everyone) {
            std::fprintf(stderr, "queue family %u uses %s of queue family %u\n", family, what, owner);
            std::abort();
        }
    }

    std::mutex mutex_;
    std::map<VkCommandPool, std::uint32_t> pools_;
    std::map<VkCommandBuffer, std::uint32_t> commands_;
    std::map<VkImage, std::uint32_t> images_;
    std::map<VkBuffer, std::uint32_t> buffers_;
};

Owners owners;

VKAPI_ATTR VkResult VKAPI_CALL createPool(VkDevice device, const VkCommandPoolCreateInfo* info,
                                          const VkAllocationCallbacks* allocator, VkCommandPool* pool)
{
    VkCommandPoolCreateInfo translated = *info;
    translated.queueFamilyIndex = realFamily;
    const VkResult result = nextOf(device).get<PFN_vkCreateCommandPool>("vkCreateCommandPool")(
        device, &translated, allocator, pool);
    if (result == VK_SUCCESS) {
        owners.add(*pool, info->queueFamilyIndex);
    }
    return result;
}

VKAPI_ATTR VkResult VKAPI_CALL allocateCommands(VkDevice device, const VkCommandBufferAllocateInfo* info,
                                                VkCommandBuffer* commands)
{
    const VkResult result =
        nextOf(device).get<PFN_vkAllocateCommandBuffers>("vkAllocateCommandBuffers")(device, info, commands);
    if (result == VK_SUCCESS) {
        owners.add(info->commandPool, commands, info->commandBufferCount);
    }
    return result;
}

VKAPI_ATTR VkResult VKAPI_CALL createImage(VkDevice device, const VkImageCreateInfo* info,
                                           const VkAllocationCallbacks* allocator, VkImage* image)
{
    const VkResult result =
        nextOf(device).get<PFN_vkCreateImage>("vkCreateImage")(device, info, allocator, image);
    if (result == VK_SUCCESS) {
        owners.add(*image);
    }
    return result;
}

VKAPI_ATTR void VKAPI_CALL copyToImage(VkCommandBuffer commands, VkBuffer source, VkImage target,
                                       VkImageLayout layout, std::uint32_t count,
                                       const VkBufferImageCopy* regions)
{
    owners.use(commands, target, source);
    nextOf(commands).get<PFN_vkCmdCopyBufferToImage>("vkCmdCopyBufferToImage")(commands, source, target,
                                                                               layout, count, regions);
}

VKAPI_ATTR void VKAPI_CALL copyFromImage(VkCommandBuffer commands, VkImage source, VkImageLayout layout,
                                         VkBuffer target, std::uint32_t count,
                                         const VkBufferImageCopy* regions)
{
    owners.use(commands, source, target);
    nextOf(commands).get<PFN_vkCmdCopyImageToBuffer>("vkCmdCopyImageToBuffer")(commands, source, layout,
                                                                               target, count, regions);
}

VKAPI_ATTR VkResult VKAPI_CALL createBuffer(VkDevice device, const VkBufferCreateInfo* info,
                                            const VkAllocationCallbacks* allocator, VkBuffer* buffer)
{
    VkBufferCreateInfo translated = *info;
    translated.sharingMode = VK_SHARING_MODE_EXCLUSIVE;
    const VkResult result =
        nextOf(device).get<PFN_vkCreateBuffer>("vkCreateBuffer")(device, &translated, allocator, buffer);
    if (result == VK_SUCCESS) {
        owners.add(*buffer, info->sharingMode);
    }
    return result;
}

VKAPI_ATTR void VKAPI_CALL recordBarriers(VkCommandBuffer commands, const VkDependencyInfo* info)
{
    std::vector<VkImageMemoryBarrier2> images(info->pImageMemoryBarriers,
                                              info->pImageMemoryBarriers + info->imageMemoryBarrierCount);
    for (VkImageMemoryBarrier2& image : images) {
        owners.use(commands, image);
        if (image.srcQueueFamilyIndex <= copyFamily && image.dstQueueFamilyIndex <= copyFamily) {
            image.srcQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED;
            image.dstQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED;
        }
    }
    VkDependencyInfo translated = *info;
    translated.pImageMemoryBarriers = images.data();
    nextOf(commands).get<PFN_vkCmdPipelineBarrier2>("vkCmdPipelineBarrier2")(commands, &translated);
}

} // namespace

PFN_vkVoidFunction functionOfLayer(std::string_view name)
{
    static const std::map<std::string_view, PFN_vkVoidFunction> table{
        {"vkGetPhysicalDeviceQueueFamilyProperties", reinterpret_cast<PFN_vkVoidFunction>(listFamilies)},
        {"vkGetPhysicalDeviceQueueFamilyProperties2", reinterpret_cast<PFN_vkVoidFunction>(listFamilies2)},
        {"vkCreateDevice", reinterpret_cast<PFN_vkVoidFunction>(createDeviceWithQueues)},
        {"vkDestroyDevice", reinterpret_cast<PFN_vkVoidFunction>(destroyDevice)},
        {"vkGetDeviceQueue", reinterpret_cast<PFN_vkVoidFunction>(getQueue)},
        {"vkQueueSubmit2", reinterpret_cast<PFN_vkVoidFunction>(submit)},
        {"vkCreateCommandPool", reinterpret_cast<PFN_vkVoidFunction>(createPool)},
        {"vkAllocateCommandBuffers", reinterpret_cast<PFN_vkVoidFunction>(allocateCommands)},
        {"vkCreateImage", reinterpret_cast<PFN_vkVoidFunction>(createImage)},
        {"vkCmdCopyBufferToImage", reinterpret_cast<PFN_vkVoidFunction>(copyToImage)},
        {"vkCmdCopyImageToBuffer", reinterpret_cast<PFN_vkVoidFunction>(copyFromImage)},
        {"vkCreateBuffer", reinterpret_cast<PFN_vkVoidFunction>(createBuffer)},
        {"vkCmdPipelineBarrier2", reinterpret_cast<PFN_vkVoidFunction>(recordBarriers)},
    };
    const auto found = table.find(name);
    return found != table.end() ? found->second : nullptr;
}

} // namespace Qx::GpuTests
