#include "Swapchain.h"

#include "ImageLayout.h"

#include <algorithm>

namespace {

VkSemaphore makeSemaphore(VkDevice device, VkSemaphoreType kind)
{
    VkSemaphoreTypeCreateInfo type{};
    type.sType = VK_STRUCTURE_TYPE_SEMAPHORE_TYPE_CREATE_INFO;
    type.semaphoreType = kind;
    VkSemaphoreCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_SEMAPHORE_CREATE_INFO;
    info.pNext = &type;
    VkSemaphore semaphore = nullptr;
    return vkCreateSemaphore(device, &info, nullptr, &semaphore) == VK_SUCCESS ? semaphore : nullptr;
}

VkSemaphoreSubmitInfo moment(VkSemaphore semaphore, std::uint64_t value)
{
    VkSemaphoreSubmitInfo info{};
    info.sType = VK_STRUCTURE_TYPE_SEMAPHORE_SUBMIT_INFO;
    info.semaphore = semaphore;
    info.value = value;
    info.stageMask = VK_PIPELINE_STAGE_2_ALL_COMMANDS_BIT;
    return info;
}

} // namespace

Swapchain::~Swapchain()
{
    finish();
    destroyImages();
    for (const Frame& frame : frames_) {
        vkDestroySemaphore(vulkan_.device, frame.acquired, nullptr);
        vkDestroyCommandPool(vulkan_.device, frame.pool, nullptr);
    }
    vkDestroySemaphore(vulkan_.device, timeline_, nullptr);
}

void Swapchain::finish()
{
    const std::lock_guard lock(vulkan_.queueMutex);
    vkQueueWaitIdle(vulkan_.queue);
}

bool Swapchain::open(VkExtent2D size, std::string& failure)
{
    failure = "the device has no memory for a window";
    timeline_ = makeSemaphore(vulkan_.device, VK_SEMAPHORE_TYPE_TIMELINE);
    if (timeline_ == nullptr) {
        return false;
    }
    for (Frame& frame : frames_) {
        VkCommandPoolCreateInfo pool{};
        pool.sType = VK_STRUCTURE_TYPE_COMMAND_POOL_CREATE_INFO;
        pool.queueFamilyIndex = vulkan_.family;
        frame.acquired = makeSemaphore(vulkan_.device, VK_SEMAPHORE_TYPE_BINARY);
        if (frame.acquired == nullptr ||
            vkCreateCommandPool(vulkan_.device, &pool, nullptr, &frame.pool) != VK_SUCCESS) {
            return false;
        }
        VkCommandBufferAllocateInfo buffer{};
        buffer.sType = VK_STRUCTURE_TYPE_COMMAND_BUFFER_ALLOCATE_INFO;
        buffer.commandPool = frame.pool;
        buffer.commandBufferCount = 1;
        if (vkAllocateCommandBuffers(vulkan_.device, &buffer, &frame.commands) != VK_SUCCESS) {
            return false;
        }
    }
    return make(size, failure);
}

void Swapchain::destroyImages()
{
    for (VkSemaphore semaphore : drawn_) {
        vkDestroySemaphore(vulkan_.device, semaphore, nullptr);
    }
    drawn_.clear();
    images_.clear();
    vkDestroySwapchainKHR(vulkan_.device, swapchain_, nullptr);
    swapchain_ = nullptr;
}

/// Makes the images for the window's size, anew after it has changed.
bool Swapchain::make(VkExtent2D wanted, std::string& failure)
{
    finish();
    destroyImages();
    VkSurfaceCapabilitiesKHR can;
    if (vkGetPhysicalDeviceSurfaceCapabilitiesKHR(vulkan_.physical, vulkan_.surface, &can) != VK_SUCCESS ||
        (can.supportedUsageFlags & VK_IMAGE_USAGE_TRANSFER_DST_BIT) == 0) {
        failure = "images cannot be copied to the window";
        return false;
    }
    std::uint32_t count = 0;
    vkGetPhysicalDeviceSurfaceFormatsKHR(vulkan_.physical, vulkan_.surface, &count, nullptr);
    std::vector<VkSurfaceFormatKHR> formats(count);
    vkGetPhysicalDeviceSurfaceFormatsKHR(vulkan_.physical, vulkan_.surface, &count, formats.data());
    // Codes are shown as they are; a format with _SRGB in its name would encode them once more.
    const auto format = std::find_if(formats.begin(), formats.end(), [](const VkSurfaceFormatKHR& each) {
        return each.format == VK_FORMAT_B8G8R8A8_UNORM || each.format == VK_FORMAT_R8G8B8A8_UNORM;
    });
    if (format == formats.end()) {
        failure = "the window has no format with 8 bits a component";
        return false;
    }
    constexpr std::uint32_t none = 0xffffffff;
    extent_ = can.currentExtent.width != none ? can.currentExtent : wanted;
    if (extent_.width == 0 || extent_.height == 0) {
        return true; // minimised: nothing is shown until it has a size again
    }
    VkSwapchainCreateInfoKHR info{};
    info.sType = VK_STRUCTURE_TYPE_SWAPCHAIN_CREATE_INFO_KHR;
    info.surface = vulkan_.surface;
    info.minImageCount =
        can.maxImageCount == 0 ? can.minImageCount + 1 : std::min(can.minImageCount + 1, can.maxImageCount);
    info.imageFormat = format->format;
    info.imageColorSpace = format->colorSpace;
    info.imageExtent = extent_;
    info.imageArrayLayers = 1;
    info.imageUsage = VK_IMAGE_USAGE_TRANSFER_DST_BIT;
    info.preTransform = can.currentTransform;
    info.compositeAlpha = (can.supportedCompositeAlpha & VK_COMPOSITE_ALPHA_OPAQUE_BIT_KHR) != 0
                              ? VK_COMPOSITE_ALPHA_OPAQUE_BIT_KHR
                              : VK_COMPOSITE_ALPHA_INHERIT_BIT_KHR;
    info.presentMode = VK_PRESENT_MODE_FIFO_KHR;
    info.clipped = VK_TRUE;
    if (vkCreateSwapchainKHR(vulkan_.device, &info, nullptr, &swapchain_) != VK_SUCCESS) {
        swapchain_ = nullptr;
        failure = "the device has no images for the window";
        return false;
    }
    vkGetSwapchainImagesKHR(vulkan_.device, swapchain_, &count, nullptr);
    images_.resize(count);
    vkGetSwapchainImagesKHR(vulkan_.device, swapchain_, &count, images_.data());
    for (std::uint32_t i = 0; i < count; ++i) {
        drawn_.push_back(makeSemaphore(vulkan_.device, VK_SEMAPHORE_TYPE_BINARY));
    }
    failure = "the device has no memory for a window";
    return std::find(drawn_.begin(), drawn_.end(), nullptr) == drawn_.end();
}

bool Swapchain::waitFor(std::uint64_t value)
{
    VkSemaphoreWaitInfo info{};
    info.sType = VK_STRUCTURE_TYPE_SEMAPHORE_WAIT_INFO;
    info.semaphoreCount = 1;
    info.pSemaphores = &timeline_;
    info.pValues = &value;
    return vkWaitSemaphores(vulkan_.device, &info, 10'000'000'000U) == VK_SUCCESS;
}

/// Asks for the next image of the window. False while it has no size, or if the device failed.
bool Swapchain::acquire(const Frame& frame, VkExtent2D size, std::uint32_t& image)
{
    std::string ignored;
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (swapchain_ == nullptr && (!make(size, ignored) || swapchain_ == nullptr)) {
            return false;
        }
        const VkResult result = vkAcquireNextImageKHR(vulkan_.device, swapchain_, 1'000'000'000U,
                                                      frame.acquired, nullptr, &image);
        if (result == VK_SUCCESS || result == VK_SUBOPTIMAL_KHR) {
            return true;
        }
        if (result != VK_ERROR_OUT_OF_DATE_KHR || !make(size, ignored)) {
            return false;
        }
    }
    return false;
}

void Swapchain::record(const Frame& frame, const Qx::Host::GivenImage& picture, VkExtent2D size,
                       VkImage target)
{
    vkResetCommandPool(vulkan_.device, frame.pool, 0);
    VkCommandBufferBeginInfo begin{};
    begin.sType = VK_STRUCTURE_TYPE_COMMAND_BUFFER_BEGIN_INFO;
    begin.flags = VK_COMMAND_BUFFER_USAGE_ONE_TIME_SUBMIT_BIT;
    vkBeginCommandBuffer(frame.commands, &begin);
    changeLayout(frame.commands, target, VK_IMAGE_LAYOUT_UNDEFINED, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL);
    const auto corner = [](VkExtent2D extent) {
        return VkOffset3D{static_cast<std::int32_t>(extent.width), static_cast<std::int32_t>(extent.height),
                          1};
    };
    VkImageBlit region{};
    region.srcSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
    region.srcOffsets[1] = corner(size);
    region.dstSubresource = region.srcSubresource;
    region.dstOffsets[1] = corner(extent_);
    const bool isSameSize = size.width == extent_.width && size.height == extent_.height;
    vkCmdBlitImage(frame.commands, picture.image, picture.layout, target,
                   VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, 1, &region,
                   isSameSize ? VK_FILTER_NEAREST : VK_FILTER_LINEAR);
    changeLayout(frame.commands, target, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL,
                 VK_IMAGE_LAYOUT_PRESENT_SRC_KHR);
    vkEndCommandBuffer(frame.commands);
}

bool Swapchain::submit(Frame& frame, const Qx::Host::DevicePoint& ready, std::uint32_t image)
{
    frame.done = ++value_;
    const std::array waits{moment(frame.acquired, 0), moment(ready.semaphore, ready.value)};
    const std::array signals{moment(drawn_[image], 0), moment(timeline_, frame.done)};
    VkCommandBufferSubmitInfo commands{};
    commands.sType = VK_STRUCTURE_TYPE_COMMAND_BUFFER_SUBMIT_INFO;
    commands.commandBuffer = frame.commands;
    VkSubmitInfo2 info{};
    info.sType = VK_STRUCTURE_TYPE_SUBMIT_INFO_2;
    info.waitSemaphoreInfoCount = static_cast<std::uint32_t>(waits.size());
    info.pWaitSemaphoreInfos = waits.data();
    info.commandBufferInfoCount = 1;
    info.pCommandBufferInfos = &commands;
    info.signalSemaphoreInfoCount = static_cast<std::uint32_t>(signals.size());
    info.pSignalSemaphoreInfos = signals.data();
    VkPresentInfoKHR present{};
    present.sType = VK_STRUCTURE_TYPE_PRESENT_INFO_KHR;
    present.waitSemaphoreCount = 1;
    present.pWaitSemaphores = &drawn_[image];
    present.swapchainCount = 1;
    present.pSwapchains = &swapchain_;
    present.pImageIndices = &image;
    const std::lock_guard lock(vulkan_.queueMutex); // the host submits to the same queue
    if (vkQueueSubmit2(vulkan_.queue, 1, &info, nullptr) != VK_SUCCESS) {
        return false;
    }
    const VkResult shown = vkQueuePresentKHR(vulkan_.queue, &present);
    return shown == VK_SUCCESS || shown == VK_SUBOPTIMAL_KHR || shown == VK_ERROR_OUT_OF_DATE_KHR;
}

std::optional<Qx::Host::DevicePoint> Swapchain::show(const Qx::Host::GivenImage& picture, VkExtent2D size)
{
    Frame& frame = frames_[next_++ % frames_.size()];
    if (!waitFor(frame.done)) {
        return {};
    }
    std::uint32_t image = 0;
    if (!acquire(frame, size, image)) {
        return picture.ready; // the window shows nothing now
    }
    record(frame, picture, size, images_[image]);
    if (!submit(frame, picture.ready, image)) {
        return {};
    }
    return Qx::Host::DevicePoint{timeline_, frame.done};
}
