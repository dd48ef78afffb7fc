#include "host/gpu/device/Instance.h"

#include "host/gpu/device/Report.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace Qx::Host::Vulkan {

namespace {

constexpr const char* validationLayer = "VK_LAYER_KHRONOS_validation";

bool hasLayer(const char* name)
{
    std::uint32_t count = 0;
    if (vkEnumerateInstanceLayerProperties(&count, nullptr) != VK_SUCCESS) {
        return false;
    }
    std::vector<VkLayerProperties> layers(count);
    if (vkEnumerateInstanceLayerProperties(&count, layers.data()) < VK_SUCCESS) {
        return false;
    }
    return std::any_of(layers.begin(), layers.end(),
                       [name](const auto& layer) { return std::strcmp(layer.layerName, name) == 0; });
}

VkDebugUtilsMessengerCreateInfoEXT messengerInfo(PFN_vkDebugUtilsMessengerCallbackEXT callback, void* user)
{
    VkDebugUtilsMessengerCreateInfoEXT info{};
    info.sType = VK_STRUCTURE_TYPE_DEBUG_UTILS_MESSENGER_CREATE_INFO_EXT;
    info.messageSeverity =
        VK_DEBUG_UTILS_MESSAGE_SEVERITY_WARNING_BIT_EXT | VK_DEBUG_UTILS_MESSAGE_SEVERITY_ERROR_BIT_EXT;
    info.messageType = VK_DEBUG_UTILS_MESSAGE_TYPE_GENERAL_BIT_EXT |
                       VK_DEBUG_UTILS_MESSAGE_TYPE_VALIDATION_BIT_EXT |
                       VK_DEBUG_UTILS_MESSAGE_TYPE_PERFORMANCE_BIT_EXT;
    info.pfnUserCallback = callback;
    info.pUserData = user;
    return info;
}

VkApplicationInfo applicationInfo()
{
    VkApplicationInfo application{};
    application.sType = VK_STRUCTURE_TYPE_APPLICATION_INFO;
    application.pApplicationName = "QxHost";
    application.apiVersion = VK_API_VERSION_1_3;
    return application;
}

VkResult createPlain(VkInstance& instance)
{
    const VkApplicationInfo application = applicationInfo();
    VkInstanceCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO;
    info.pApplicationInfo = &application;
    return vkCreateInstance(&info, nullptr, &instance);
}

/// With the validation layer and its synchronisation checks. `messenger` watches the creation too.
VkResult createValidating(const VkDebugUtilsMessengerCreateInfoEXT& messenger, VkInstance& instance)
{
    const VkValidationFeatureEnableEXT synchronisation =
        VK_VALIDATION_FEATURE_ENABLE_SYNCHRONIZATION_VALIDATION_EXT;
    VkValidationFeaturesEXT features{};
    features.sType = VK_STRUCTURE_TYPE_VALIDATION_FEATURES_EXT;
    features.enabledValidationFeatureCount = 1;
    features.pEnabledValidationFeatures = &synchronisation;
    features.pNext = &messenger;
    const std::array<const char*, 1> layers{validationLayer};
    const std::array<const char*, 2> extensions{VK_EXT_DEBUG_UTILS_EXTENSION_NAME,
                                                VK_EXT_VALIDATION_FEATURES_EXTENSION_NAME};
    const VkApplicationInfo application = applicationInfo();
    VkInstanceCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO;
    info.pNext = &features;
    info.pApplicationInfo = &application;
    info.enabledLayerCount = static_cast<std::uint32_t>(layers.size());
    info.ppEnabledLayerNames = layers.data();
    info.enabledExtensionCount = static_cast<std::uint32_t>(extensions.size());
    info.ppEnabledExtensionNames = extensions.data();
    return vkCreateInstance(&info, nullptr, &instance);
}

} // namespace

VkBool32 Instance::onMessage(VkDebugUtilsMessageSeverityFlagBitsEXT, VkDebugUtilsMessageTypeFlagsEXT,
                             const VkDebugUtilsMessengerCallbackDataEXT* data, void* self)
{
    // The loader reports through the same channel, about manifests that have nothing to do with us.
    const std::string_view id = data->pMessageIdName != nullptr ? data->pMessageIdName : "";
    if (id != "Loader Message") {
        ++static_cast<Instance*>(self)->validationMessages_;
        report(std::string("Vulkan validation: ") + data->pMessage);
    }
    return VK_FALSE;
}

std::unique_ptr<Instance> Instance::create(bool validation, std::string& failure)
{
    std::unique_ptr<Instance> self(new Instance);
    if (validation && !hasLayer(validationLayer)) {
        failure = "Vulkan's validation layer is not installed: install the package "
                  "vulkan-validationlayers, or turn validation off.";
        return nullptr;
    }
    const VkDebugUtilsMessengerCreateInfoEXT messenger = messengerInfo(&Instance::onMessage, self.get());
    const VkResult result =
        validation ? createValidating(messenger, self->instance_) : createPlain(self->instance_);
    if (result != VK_SUCCESS) {
        self->instance_ = nullptr;
        failure = result == VK_ERROR_INCOMPATIBLE_DRIVER
                      ? "no Vulkan driver was found"
                      : "Vulkan could not be started (result " + std::to_string(result) + ")";
        failure += "; install the GPU's driver, or the package mesa-vulkan-drivers for a software device";
        return nullptr;
    }
    if (validation) {
        const auto create = reinterpret_cast<PFN_vkCreateDebugUtilsMessengerEXT>(
            vkGetInstanceProcAddr(self->instance_, "vkCreateDebugUtilsMessengerEXT"));
        if (create != nullptr) {
            create(self->instance_, &messenger, nullptr, &self->messenger_);
        }
    }
    return self;
}

std::unique_ptr<Instance> Instance::take(VkInstance instance)
{
    std::unique_ptr<Instance> self(new Instance);
    self->instance_ = instance;
    self->isOurs_ = false;
    return self;
}

void Instance::close()
{
    if (messenger_ != nullptr) {
        const auto destroy = reinterpret_cast<PFN_vkDestroyDebugUtilsMessengerEXT>(
            vkGetInstanceProcAddr(instance_, "vkDestroyDebugUtilsMessengerEXT"));
        destroy(instance_, messenger_, nullptr);
        messenger_ = nullptr;
    }
    if (instance_ != nullptr && isOurs_) {
        vkDestroyInstance(instance_, nullptr);
    }
    instance_ = nullptr;
}

std::vector<PhysicalDevice> Instance::physicalDevices(std::string& failure) const
{
    std::uint32_t count = 0;
    std::vector<VkPhysicalDevice> devices;
    VkResult result = VK_INCOMPLETE;
    while (result == VK_INCOMPLETE) { // one was plugged in between the two calls
        result = vkEnumeratePhysicalDevices(instance_, &count, nullptr);
        devices.resize(result == VK_SUCCESS ? count : 0);
        if (result == VK_SUCCESS) {
            result = vkEnumeratePhysicalDevices(instance_, &count, devices.data());
        }
    }
    if (result != VK_SUCCESS) {
        failure = "the Vulkan devices could not be listed (result " + std::to_string(result) + ")";
        count = 0;
    }
    devices.resize(count);
    const Withheld withheld = withheldByEnvironment(failure);
    std::vector<PhysicalDevice> described;
    described.reserve(devices.size());
    for (VkPhysicalDevice device : devices) {
        described.emplace_back(device, withheld);
    }
    return described;
}

} // namespace Qx::Host::Vulkan
