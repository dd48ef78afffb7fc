#pragma once

#include <host/gpu/DeviceSharing.h>

#include <mutex>
#include <string>

struct SDL_Window;

/// The application's own Vulkan: an instance, a device with one queue, and a surface of a window to present
/// to.
class VulkanDevice
{
public:
    VulkanDevice() = default;
    ~VulkanDevice();
    VulkanDevice(const VulkanDevice&) = delete;
    VulkanDevice& operator=(const VulkanDevice&) = delete;

    /// False, with the reason in `failure`.
    bool open(SDL_Window* window, std::string& failure);

    /// What the host is told: the handles, and the lock of the queue.
    Qx::Host::ApplicationDevice shared();

    /// Leaves everything to the system: the host still has objects on the device.
    void abandon();

    VkInstance instance = nullptr;
    VkPhysicalDevice physical = nullptr;
    VkDevice device = nullptr;
    VkSurfaceKHR surface = nullptr;
    VkQueue queue = nullptr;
    std::uint32_t family = 0;
    std::mutex queueMutex; ///< held by whoever submits or presents

private:
    bool makeInstance(SDL_Window* window, std::string& failure);
    bool choosePhysicalDevice(std::string& failure);
    bool makeDevice(std::string& failure);

    Qx::Host::DeviceAbilities abilities_;
};
