#pragma once

#include "host/gpu/device/PhysicalDevice.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Qx::Host::Vulkan {

/// The Vulkan instance: one of our own, with or without the validation layer, or the application's.
class Instance
{
public:
    /// Null, with the reason in `failure`, if this machine has no usable Vulkan.
    static std::unique_ptr<Instance> create(bool validation, std::string& failure);
    /// The application's instance, which stays its own.
    static std::unique_ptr<Instance> take(VkInstance instance);

    ~Instance() { close(); }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    /// Destroys the Vulkan instance unless it is the application's. The count of messages can still be read.
    void close();

    VkInstance handle() const { return instance_; }

    /// Empty, with the reason, if they cannot be listed; without one if there is none.
    std::vector<PhysicalDevice> physicalDevices(std::string& failure) const;

    bool isValidating() const { return messenger_ != nullptr; }
    std::uint64_t validationMessages() const { return validationMessages_; }

private:
    Instance() = default;
    static VkBool32 VKAPI_CALL onMessage(VkDebugUtilsMessageSeverityFlagBitsEXT severity,
                                         VkDebugUtilsMessageTypeFlagsEXT types,
                                         const VkDebugUtilsMessengerCallbackDataEXT* data, void* self);

    VkInstance instance_ = nullptr;
    bool isOurs_ = true;
    VkDebugUtilsMessengerEXT messenger_ = nullptr;
    std::atomic<std::uint64_t> validationMessages_{0};
};

} // namespace Qx::Host::Vulkan
