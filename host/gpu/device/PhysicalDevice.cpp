#include "host/gpu/device/PhysicalDevice.h"

#include "host/cache/Bytes.h"

#include <cstring>
#include <span>
#include <vector>

namespace Qx::Host::Vulkan {

namespace {

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

std::optional<PhysicalDevice::QueueFamily> graphicsQueueFamily(VkPhysicalDevice physical)
{
    std::uint32_t count = 0;
    vkGetPhysicalDeviceQueueFamilyProperties(physical, &count, nullptr);
    std::vector<VkQueueFamilyProperties> families(count);
    vkGetPhysicalDeviceQueueFamilyProperties(physical, &count, families.data());
    for (std::uint32_t i = 0; i < count; ++i) {
        if ((families[i].queueFlags & VK_QUEUE_GRAPHICS_BIT) != 0) {
            return PhysicalDevice::QueueFamily{i, families[i].timestampValidBits};
        }
    }
    return std::nullopt;
}

} // namespace

PhysicalDevice::PhysicalDevice(VkPhysicalDevice device)
    : handle(device), graphics(graphicsQueueFamily(device))
{
    VkPhysicalDeviceIDProperties identity{};
    identity.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_ID_PROPERTIES;
    VkPhysicalDeviceDriverProperties driver{};
    driver.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_DRIVER_PROPERTIES;
    driver.pNext = &identity;
    VkPhysicalDeviceProperties2 all{};
    all.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_PROPERTIES_2;
    all.pNext = &driver;
    vkGetPhysicalDeviceProperties2(device, &all);
    properties = all.properties;
    driverName = driver.driverName;
    driverInfo = driver.driverInfo;
    std::memcpy(uuid.data(), identity.deviceUUID, uuid.size());
    vkGetPhysicalDeviceMemoryProperties(device, &memory);
}

bool PhysicalDevice::canDrawInto(VkFormat format) const
{
    VkFormatProperties offered;
    vkGetPhysicalDeviceFormatProperties(handle, format, &offered);
    constexpr VkFormatFeatureFlags wanted =
        VK_FORMAT_FEATURE_COLOR_ATTACHMENT_BLEND_BIT | VK_FORMAT_FEATURE_SAMPLED_IMAGE_BIT;
    return (offered.optimalTilingFeatures & wanted) == wanted;
}

std::string PhysicalDevice::missingFeatures() const
{
    if (properties.apiVersion < VK_API_VERSION_1_3) {
        return "Vulkan 1.3";
    }
    Features features;
    vkGetPhysicalDeviceFeatures2(handle, &features.core);
    if (features.v12.timelineSemaphore == VK_FALSE) {
        return "timeline semaphores";
    }
    if (features.v13.dynamicRendering == VK_FALSE || features.v13.synchronization2 == VK_FALSE) {
        return "dynamic rendering or the second synchronisation interface";
    }
    if (features.core.features.dualSrcBlend == VK_FALSE) {
        return "blending with two sources";
    }
    if (!canDrawInto(VK_FORMAT_R8G8B8A8_UNORM) || !canDrawInto(VK_FORMAT_R16G16B16A16_UNORM)) {
        return "drawing into images of 8 and 16 bits";
    }
    return graphics ? std::string() : std::string("a graphics queue");
}

DeviceDescription describe(const PhysicalDevice& device, std::uint32_t index)
{
    DeviceDescription description;
    description.name = device.properties.deviceName;
    description.type = typeName(device.properties.deviceType);
    description.driver = device.driverName + " " + device.driverInfo;
    description.index = index;
    description.largestImage = device.properties.limits.maxImageDimension2D;
    description.software = device.isSoftware();
    description.unsupported = device.missingFeatures();
    description.hasTimer = device.graphics && device.graphics->timerBits > 0;
    return description;
}

std::string driverIdentity(const PhysicalDevice& device)
{
    Cache::ByteWriter to;
    to.number(device.properties.vendorID);
    to.number(device.properties.deviceID);
    to.number(device.properties.driverVersion);
    to.number(device.properties.apiVersion);
    to.raw(std::as_bytes(std::span(device.properties.pipelineCacheUUID)));
    to.text(device.properties.deviceName);
    to.text(device.driverName);
    to.text(device.driverInfo);
    const std::vector<std::byte>& bytes = to.bytes();
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

} // namespace Qx::Host::Vulkan
