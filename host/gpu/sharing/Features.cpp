#include "host/gpu/sharing/Features.h"

#include "host/gpu/device/Device.h"
#include "host/gpu/device/DrawingPath.h"
#include "host/gpu/device/PhysicalDevice.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

namespace Qx::Host::Vulkan {

namespace {

constexpr VkStructureType core = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_FEATURES_2;
constexpr VkStructureType version12 = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_VULKAN_1_2_FEATURES;
constexpr VkStructureType version13 = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_VULKAN_1_3_FEATURES;

constexpr std::array<Feature, 6> featureTable{{
    {"timelineSemaphore", version12, offsetof(VkPhysicalDeviceVulkan12Features, timelineSemaphore),
     VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_TIMELINE_SEMAPHORE_FEATURES,
     offsetof(VkPhysicalDeviceTimelineSemaphoreFeatures, timelineSemaphore), false},
    {"dynamicRendering", version13, offsetof(VkPhysicalDeviceVulkan13Features, dynamicRendering),
     VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_DYNAMIC_RENDERING_FEATURES,
     offsetof(VkPhysicalDeviceDynamicRenderingFeatures, dynamicRendering), false},
    {"synchronization2", version13, offsetof(VkPhysicalDeviceVulkan13Features, synchronization2),
     VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_SYNCHRONIZATION_2_FEATURES,
     offsetof(VkPhysicalDeviceSynchronization2Features, synchronization2), false},
    // One vertex shader for fragment shaders that take less.
    {"maintenance4", version13, offsetof(VkPhysicalDeviceVulkan13Features, maintenance4),
     VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_MAINTENANCE_4_FEATURES,
     offsetof(VkPhysicalDeviceMaintenance4Features, maintenance4), false},
    // Effects may read texels outside an image.
    {"robustImageAccess", version13, offsetof(VkPhysicalDeviceVulkan13Features, robustImageAccess),
     VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_IMAGE_ROBUSTNESS_FEATURES,
     offsetof(VkPhysicalDeviceImageRobustnessFeatures, robustImageAccess), false},
    // Shaders of a DrawingPath may read texels outside a buffer.
    {"robustBufferAccess", core,
     offsetof(VkPhysicalDeviceFeatures2, features) + offsetof(VkPhysicalDeviceFeatures, robustBufferAccess),
     VK_STRUCTURE_TYPE_MAX_ENUM, 0, true},
}};

} // namespace

std::span<const Feature> usedFeatures()
{
    return featureTable;
}

bool isNeeded(const Feature& feature, const PhysicalDevice& device)
{
    return !feature.forDrawingPath || createDrawingPath(device) != nullptr;
}

VkBool32* placeOf(const Feature& feature, void* chain)
{
    VkBaseOutStructure head{};
    for (void* each = chain; each != nullptr; each = head.pNext) {
        std::memcpy(&head, each, sizeof head); // it has another type, which every structure begins like
        if (head.sType == feature.version || head.sType == feature.alone) {
            const std::size_t offset = head.sType == feature.version ? feature.offset : feature.offsetAlone;
            return reinterpret_cast<VkBool32*>(static_cast<std::byte*>(each) + offset);
        }
    }
    return nullptr;
}

std::vector<std::string> enableFeatures(const PhysicalDevice& device, VkPhysicalDeviceFeatures2& chain)
{
    std::vector<std::string> without;
    for (const Feature& feature : featureTable) {
        if (!isNeeded(feature, device)) {
            continue;
        }
        if (VkBool32* const place = placeOf(feature, &chain)) {
            *place = VK_TRUE;
        } else {
            without.emplace_back(feature.name);
        }
    }
    return without;
}

std::vector<const char*> usableExtensions(VkPhysicalDevice device)
{
    std::uint32_t count = 0;
    vkEnumerateDeviceExtensionProperties(device, nullptr, &count, nullptr);
    std::vector<VkExtensionProperties> offered(count);
    if (vkEnumerateDeviceExtensionProperties(device, nullptr, &count, offered.data()) != VK_SUCCESS) {
        return {};
    }
    std::vector<const char*> usable;
    for (const char* used :
         {VK_KHR_EXTERNAL_MEMORY_FD_EXTENSION_NAME, VK_EXT_EXTERNAL_MEMORY_DMA_BUF_EXTENSION_NAME,
          VK_EXT_IMAGE_DRM_FORMAT_MODIFIER_EXTENSION_NAME, VK_EXT_QUEUE_FAMILY_FOREIGN_EXTENSION_NAME}) {
        if (std::any_of(offered.begin(), offered.end(), [used](const VkExtensionProperties& each) {
                return std::strcmp(each.extensionName, used) == 0;
            })) {
            usable.push_back(used);
        }
    }
    return usable;
}

ExchangeExtensions exchangeBy(const std::vector<std::string>& enabled)
{
    const auto has = [&](const char* name) {
        return std::find(enabled.begin(), enabled.end(), name) != enabled.end();
    };
    ExchangeExtensions extensions;
    extensions.descriptors = has(VK_KHR_EXTERNAL_MEMORY_FD_EXTENSION_NAME);
    extensions.dmaBuf = extensions.descriptors && has(VK_EXT_EXTERNAL_MEMORY_DMA_BUF_EXTENSION_NAME);
    extensions.modifiers = has(VK_EXT_IMAGE_DRM_FORMAT_MODIFIER_EXTENSION_NAME);
    extensions.foreignQueues = has(VK_EXT_QUEUE_FAMILY_FOREIGN_EXTENSION_NAME);
    return extensions;
}

namespace {

/// The device as the service would see it.
PhysicalDevice described(VkPhysicalDevice device)
{
    std::string ignored;
    return {device, withheldByEnvironment(ignored)};
}

bool isEnabled(const Feature& feature, const VkDeviceCreateInfo& info)
{
    // What Vulkan only reads has the same structures.
    if (const VkBool32* const place = placeOf(feature, const_cast<void*>(info.pNext))) {
        return *place == VK_TRUE;
    }
    VkPhysicalDeviceFeatures2 plain{core, nullptr, {}};
    if (info.pEnabledFeatures != nullptr) {
        plain.features = *info.pEnabledFeatures;
    }
    const VkBool32* const place = placeOf(feature, &plain);
    return place != nullptr && *place == VK_TRUE;
}

} // namespace

} // namespace Qx::Host::Vulkan

namespace Qx::Host {

DeviceAbilities abilitiesOf(const VkDeviceCreateInfo& info)
{
    DeviceAbilities abilities;
    for (const Vulkan::Feature& feature : Vulkan::usedFeatures()) {
        if (Vulkan::isEnabled(feature, info)) {
            abilities.features.emplace_back(feature.name);
        }
    }
    for (std::uint32_t i = 0; i < info.enabledExtensionCount; ++i) {
        abilities.extensions.emplace_back(info.ppEnabledExtensionNames[i]);
    }
    for (std::uint32_t i = 0; i < info.queueCreateInfoCount; ++i) {
        const VkDeviceQueueCreateInfo& queues = info.pQueueCreateInfos[i];
        if (queues.flags == 0) {
            abilities.queues.push_back({queues.queueFamilyIndex, queues.queueCount});
        }
    }
    return abilities;
}

std::vector<std::string> requiredFeatures(VkPhysicalDevice device)
{
    const Vulkan::PhysicalDevice described = Vulkan::described(device);
    std::vector<std::string> names;
    for (const Vulkan::Feature& feature : Vulkan::usedFeatures()) {
        if (Vulkan::isNeeded(feature, described)) {
            names.emplace_back(feature.name);
        }
    }
    return names;
}

std::vector<std::string> enableRequiredFeatures(VkPhysicalDevice device, VkPhysicalDeviceFeatures2& features)
{
    return Vulkan::enableFeatures(Vulkan::described(device), features);
}

std::vector<const char*> requiredDeviceExtensions(VkPhysicalDevice)
{
    return {};
}

std::vector<const char*> optionalDeviceExtensions(VkPhysicalDevice device)
{
    return Vulkan::usableExtensions(device);
}

} // namespace Qx::Host
