#pragma once

#include "VulkanDevice.h"

#include <array>
#include <optional>
#include <string>
#include <vector>

/// Shows images in a window.
class Swapchain
{
public:
    explicit Swapchain(VulkanDevice& vulkan) : vulkan_(vulkan) {}
    ~Swapchain();
    Swapchain(const Swapchain&) = delete;
    Swapchain& operator=(const Swapchain&) = delete;

    /// False, with the reason in `failure`. The size is used if the window has none of its own.
    bool open(VkExtent2D size, std::string& failure);

    /// Copies an image to the window, scaled to its size, once it is ready; the host's side of the hand-over.
    /// Returns the moment from which the image is not read any more, empty if the device failed.
    std::optional<Qx::Host::DevicePoint> show(const Qx::Host::GivenImage& picture, VkExtent2D size);

    /// Waits for the device.
    void finish();

private:
    /// What one frame needs until the device has shown it.
    struct Frame
    {
        VkCommandPool pool = nullptr;
        VkCommandBuffer commands = nullptr;
        VkSemaphore acquired = nullptr;
        std::uint64_t done = 0; ///< value of the timeline
    };

    bool make(VkExtent2D wanted, std::string& failure);
    void destroyImages();
    bool acquire(const Frame& frame, VkExtent2D size, std::uint32_t& image);
    void record(const Frame& frame, const Qx::Host::GivenImage& picture, VkExtent2D size, VkImage target);
    bool submit(Frame& frame, const Qx::Host::DevicePoint& ready, std::uint32_t image);
    bool waitFor(std::uint64_t value);

    VulkanDevice& vulkan_;
    VkSwapchainKHR swapchain_ = nullptr;
    VkExtent2D extent_{};
    std::vector<VkImage> images_;
    std::vector<VkSemaphore> drawn_; ///< one an image
    VkSemaphore timeline_ = nullptr;
    std::uint64_t value_ = 0;
    std::array<Frame, 2> frames_;
    std::size_t next_ = 0;
};
