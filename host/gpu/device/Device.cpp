#include "host/gpu/device/Device.h"

#include "host/gpu/device/DrawingPath.h"
#include "platform/Log.h"

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
    vkEnumerateInstanceLayerProperties(&count, nullptr);
    std::vector<VkLayerProperties> layers(count);
    vkEnumerateInstanceLayerProperties(&count, layers.data());
    return std::any_of(layers.begin(), layers.end(),
                       [name](const auto& layer) { return std::strcmp(layer.layerName, name) == 0; });
}

std::string typeName(VkPhysicalDeviceType type)
{
    switch (type) {
    case VK_PHYSICAL_DEVICE_TYPE_DISCRETE_GPU:
        return "discrete GPU";
    case VK_PHYSICAL_DEVICE_TYPE_INTEGRATED_GPU:
        return "integrated GPU";
    case VK_PHYSICAL_DEVICE_TYPE_VIRTUAL_GPU:
        return "virtual GPU";
    case VK_PHYSICAL_DEVICE_TYPE_CPU:
        return "software";
    default:
        return "other";
    }
}

struct Features
{
    VkPhysicalDeviceFeatures2 core{VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_FEATURES_2, nullptr, {}};
    VkPhysicalDeviceVulkan12Features v12{};
    VkPhysicalDeviceVulkan13Features v13{};

    Features()
    {
        v12.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_VULKAN_1_2_FEATURES;
        v13.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_VULKAN_1_3_FEATURES;
        core.pNext = &v12;
        v12.pNext = &v13;
    }
};

struct QueueFamily
{
    std::uint32_t index;
    std::uint32_t timerBits;
};

std::optional<QueueFamily> graphicsQueueFamily(VkPhysicalDevice physical)
{
    std::uint32_t count = 0;
    vkGetPhysicalDeviceQueueFamilyProperties(physical, &count, nullptr);
    std::vector<VkQueueFamilyProperties> families(count);
    vkGetPhysicalDeviceQueueFamilyProperties(physical, &count, families.data());
    for (std::uint32_t i = 0; i < count; ++i) {
        if ((families[i].queueFlags & VK_QUEUE_GRAPHICS_BIT) != 0) {
            return QueueFamily{i, families[i].timestampValidBits};
        }
    }
    return std::nullopt;
}

bool supportsDrawing(VkPhysicalDevice physical, VkFormat format)
{
    VkFormatProperties properties;
    vkGetPhysicalDeviceFormatProperties(physical, format, &properties);
    constexpr VkFormatFeatureFlags wanted =
        VK_FORMAT_FEATURE_COLOR_ATTACHMENT_BLEND_BIT | VK_FORMAT_FEATURE_SAMPLED_IMAGE_BIT;
    return (properties.optimalTilingFeatures & wanted) == wanted;
}

std::string missingFeatures(VkPhysicalDevice physical, std::uint32_t apiVersion)
{
    if (apiVersion < VK_API_VERSION_1_3) {
        return "Vulkan 1.3";
    }
    Features features;
    vkGetPhysicalDeviceFeatures2(physical, &features.core);
    if (features.v12.timelineSemaphore == VK_FALSE) {
        return "timeline semaphores";
    }
    if (features.v13.dynamicRendering == VK_FALSE || features.v13.synchronization2 == VK_FALSE) {
        return "dynamic rendering or the second synchronisation interface";
    }
    if (features.core.features.dualSrcBlend == VK_FALSE) {
        return "blending with two sources";
    }
    if (!supportsDrawing(physical, VK_FORMAT_R8G8B8A8_UNORM) ||
        !supportsDrawing(physical, VK_FORMAT_R16G16B16A16_UNORM)) {
        return "drawing into images of 8 and 16 bits";
    }
    return graphicsQueueFamily(physical) ? std::string() : std::string("a graphics queue");
}

} // namespace

void report(const std::string& line)
{
    ::Log("%s\n", line.c_str());
}

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

VkBool32 Instance::onMessage(VkDebugUtilsMessageSeverityFlagBitsEXT, VkDebugUtilsMessageTypeFlagsEXT,
                             const VkDebugUtilsMessengerCallbackDataEXT* data, void* self)
{
    // The loader speaks through the same channel, of manifests that have nothing to do with us.
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
        failure = "Vulkan's validation layer is asked for but not installed: install the package "
                  "vulkan-validationlayers, or turn validation off.";
        return nullptr;
    }
    VkApplicationInfo application{};
    application.sType = VK_STRUCTURE_TYPE_APPLICATION_INFO;
    application.pApplicationName = "QxHost";
    application.apiVersion = VK_API_VERSION_1_3;

    VkDebugUtilsMessengerCreateInfoEXT messenger{};
    messenger.sType = VK_STRUCTURE_TYPE_DEBUG_UTILS_MESSENGER_CREATE_INFO_EXT;
    messenger.messageSeverity =
        VK_DEBUG_UTILS_MESSAGE_SEVERITY_WARNING_BIT_EXT | VK_DEBUG_UTILS_MESSAGE_SEVERITY_ERROR_BIT_EXT;
    messenger.messageType = VK_DEBUG_UTILS_MESSAGE_TYPE_GENERAL_BIT_EXT |
                            VK_DEBUG_UTILS_MESSAGE_TYPE_VALIDATION_BIT_EXT |
                            VK_DEBUG_UTILS_MESSAGE_TYPE_PERFORMANCE_BIT_EXT;
    messenger.pfnUserCallback = &Instance::onMessage;
    messenger.pUserData = self.get();

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
    VkInstanceCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO;
    info.pApplicationInfo = &application;
    if (validation) {
        info.pNext = &features;
        info.enabledLayerCount = static_cast<std::uint32_t>(layers.size());
        info.ppEnabledLayerNames = layers.data();
        info.enabledExtensionCount = static_cast<std::uint32_t>(extensions.size());
        info.ppEnabledExtensionNames = extensions.data();
    }
    const VkResult result = vkCreateInstance(&info, nullptr, &self->instance_);
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

void Instance::close()
{
    if (messenger_ != nullptr) {
        const auto destroy = reinterpret_cast<PFN_vkDestroyDebugUtilsMessengerEXT>(
            vkGetInstanceProcAddr(instance_, "vkDestroyDebugUtilsMessengerEXT"));
        destroy(instance_, messenger_, nullptr);
        messenger_ = nullptr;
    }
    if (instance_ != nullptr) {
        vkDestroyInstance(instance_, nullptr);
        instance_ = nullptr;
    }
}

std::vector<VkPhysicalDevice> Instance::physicalDevices() const
{
    std::uint32_t count = 0;
    vkEnumeratePhysicalDevices(instance_, &count, nullptr);
    std::vector<VkPhysicalDevice> devices(count);
    vkEnumeratePhysicalDevices(instance_, &count, devices.data());
    devices.resize(count);
    return devices;
}

std::array<std::byte, VK_UUID_SIZE> uuidOf(VkPhysicalDevice physical)
{
    VkPhysicalDeviceIDProperties identity{};
    identity.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_ID_PROPERTIES;
    VkPhysicalDeviceProperties2 properties{};
    properties.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_PROPERTIES_2;
    properties.pNext = &identity;
    vkGetPhysicalDeviceProperties2(physical, &properties);
    std::array<std::byte, VK_UUID_SIZE> uuid{};
    std::memcpy(uuid.data(), identity.deviceUUID, uuid.size());
    return uuid;
}

DeviceDescription describe(VkPhysicalDevice physical, std::uint32_t index)
{
    VkPhysicalDeviceDriverProperties driver{};
    driver.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_DRIVER_PROPERTIES;
    VkPhysicalDeviceProperties2 properties{};
    properties.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_PROPERTIES_2;
    properties.pNext = &driver;
    vkGetPhysicalDeviceProperties2(physical, &properties);

    DeviceDescription description;
    description.name = properties.properties.deviceName;
    description.type = typeName(properties.properties.deviceType);
    description.driver = std::string(driver.driverName) + " " + driver.driverInfo;
    description.index = index;
    description.largestImage = properties.properties.limits.maxImageDimension2D;
    description.software = properties.properties.deviceType == VK_PHYSICAL_DEVICE_TYPE_CPU;
    description.unsupported = missingFeatures(physical, properties.properties.apiVersion);
    const std::optional<QueueFamily> family = graphicsQueueFamily(physical);
    description.hasTimer = family && family->timerBits > 0;
    return description;
}

Device::Device() = default;

Device::~Device()
{
    close();
}

std::unique_ptr<Device> Device::create(VkPhysicalDevice physical, std::string& failure)
{
    std::unique_ptr<Device> self(new Device);
    self->physical_ = physical;
    const QueueFamily family = graphicsQueueFamily(physical).value_or(QueueFamily{0, 0});
    self->queueFamily_ = family.index;
    self->timerBits_ = family.timerBits;

    VkPhysicalDeviceProperties properties;
    vkGetPhysicalDeviceProperties(physical, &properties);
    self->limits_ = properties.limits;
    vkGetPhysicalDeviceMemoryProperties(physical, &self->memory_);
    self->path_ = createDrawingPath(physical, properties.deviceType);

    const float priority = 1.0F;
    VkDeviceQueueCreateInfo queue{};
    queue.sType = VK_STRUCTURE_TYPE_DEVICE_QUEUE_CREATE_INFO;
    queue.queueFamilyIndex = self->queueFamily_;
    queue.queueCount = 1;
    queue.pQueuePriorities = &priority;

    Features features;
    features.core.features.dualSrcBlend = VK_TRUE;
    if (self->path_ != nullptr) {
        self->path_->enableFeatures(features.core.features);
    }
    features.v12.timelineSemaphore = VK_TRUE;
    features.v13.dynamicRendering = VK_TRUE;
    features.v13.synchronization2 = VK_TRUE;
    features.v13.maintenance4 = VK_TRUE;      // one vertex shader for fragment shaders that take less
    features.v13.robustImageAccess = VK_TRUE; // effects may ask for texels beside an image
    VkDeviceCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_DEVICE_CREATE_INFO;
    info.pNext = &features.core;
    info.queueCreateInfoCount = 1;
    info.pQueueCreateInfos = &queue;
    const VkResult result = vkCreateDevice(physical, &info, nullptr, &self->device_);
    if (result != VK_SUCCESS) {
        self->device_ = nullptr;
        failure = "the Vulkan device could not be opened (result " + std::to_string(result) + ")";
        return nullptr;
    }
    vkGetDeviceQueue(self->device_, self->queueFamily_, 0, &self->queue_);

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
    for (std::uint32_t i = 0; i < memory_.memoryHeapCount; ++i) {
        largest = std::max<std::uint64_t>(largest, memory_.memoryHeaps[i].size);
    }
    return largest;
}

bool Device::canDrawInto(VkFormat format) const
{
    return supportsDrawing(physical_, format);
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
