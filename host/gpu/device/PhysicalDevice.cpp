#include "host/gpu/device/PhysicalDevice.h"

#include "host/cache/Bytes.h"
#include "host/gpu/device/DrawingPath.h"

#include <algorithm>
#include <charconv>
#include <cstring>

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

std::vector<VkQueueFamilyProperties> queueFamilies(VkPhysicalDevice physical)
{
    std::uint32_t count = 0;
    vkGetPhysicalDeviceQueueFamilyProperties(physical, &count, nullptr);
    std::vector<VkQueueFamilyProperties> families(count);
    vkGetPhysicalDeviceQueueFamilyProperties(physical, &count, families.data());
    families.resize(count);
    return families;
}

// The least that Vulkan 1.3 promises ("Required Limits"), or what small devices have.
constexpr std::uint32_t smallSide = 4096;
constexpr std::uint32_t smallTableSide = 256;
constexpr std::uint32_t smallTexelBuffer = 65536;
constexpr std::uint64_t smallAllocation = std::uint64_t{128} << 20U;

void applySmallLimits(PhysicalDevice& device)
{
    VkPhysicalDeviceLimits& limits = device.properties.limits;
    for (std::uint32_t* side :
         {&limits.maxImageDimension2D, &limits.maxFramebufferWidth, &limits.maxFramebufferHeight}) {
        *side = std::min(*side, smallSide);
    }
    limits.maxImageDimension3D = std::min(limits.maxImageDimension3D, smallTableSide);
    limits.maxTexelBufferElements = std::min(limits.maxTexelBufferElements, smallTexelBuffer);
    device.largestAllocation = std::min(device.largestAllocation, smallAllocation);
}

} // namespace

std::optional<PhysicalDevice::QueueFamily> drawingFamily(std::span<const VkQueueFamilyProperties> families)
{
    std::optional<PhysicalDevice::QueueFamily> found;
    for (std::uint32_t i = 0; i < families.size(); ++i) {
        const bool draws = (families[i].queueFlags & VK_QUEUE_GRAPHICS_BIT) != 0;
        if (draws && (!found || (found->timerBits == 0 && families[i].timestampValidBits != 0))) {
            found = PhysicalDevice::QueueFamily{i, families[i].timestampValidBits,
                                                (families[i].queueFlags & VK_QUEUE_COMPUTE_BIT) != 0};
        }
    }
    return found;
}

std::optional<PhysicalDevice::CopyFamily> copyingFamily(std::span<const VkQueueFamilyProperties> families)
{
    constexpr VkQueueFlags harmless = VK_QUEUE_SPARSE_BINDING_BIT | VK_QUEUE_PROTECTED_BIT;
    for (std::uint32_t i = 0; i < families.size(); ++i) {
        if ((families[i].queueFlags & ~harmless) == VK_QUEUE_TRANSFER_BIT) {
            return PhysicalDevice::CopyFamily{i, families[i].queueCount};
        }
    }
    return std::nullopt;
}

bool convertsOneByOne(VkDriverId driver, std::string_view version)
{
    constexpr std::string_view mesa = "Mesa ";
    constexpr int lastFast = 22;
    int major = 0;
    if (driver != VK_DRIVER_ID_MESA_LLVMPIPE || !version.starts_with(mesa)) {
        return false;
    }
    std::from_chars(version.data() + mesa.size(), version.data() + version.size(), major);
    return major > lastFast;
}

PhysicalDevice::PhysicalDevice(VkPhysicalDevice device, const Withheld& without)
    : handle(device), withheld(without), graphics(drawingFamily(queueFamilies(device)))
{
    VkPhysicalDeviceMaintenance3Properties sizes{};
    sizes.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_MAINTENANCE_3_PROPERTIES;
    VkPhysicalDeviceIDProperties identity{};
    identity.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_ID_PROPERTIES;
    identity.pNext = &sizes;
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
    std::memcpy(driverUuid.data(), identity.driverUUID, driverUuid.size());
    vkGetPhysicalDeviceMemoryProperties(device, &memory);
    largestAllocation = sizes.maxMemoryAllocationSize;
    convertsSlowly = withheld.conversions || convertsOneByOne(driver.driverID, driverInfo);
    conformant = driver.conformanceVersion.major != 0 && !withheld.conformance;
    if (withheld.largeLimits) {
        applySmallLimits(*this);
    }
    if (withheld.timer && graphics) {
        graphics->timerBits = 0;
    }
    // The images of a DrawingPath have one layout, and the host's processors may use their memory.
    if (!withheld.transferQueue && createDrawingPath(*this) == nullptr) {
        copying = copyingFamily(queueFamilies(device));
    }
}

PhysicalDevice PhysicalDevice::withFamily(std::uint32_t index) const
{
    const std::vector<VkQueueFamilyProperties> families = queueFamilies(handle);
    PhysicalDevice device = *this;
    device.graphics.reset();
    device.copying.reset();
    if (index < families.size()) {
        device.graphics = drawingFamily(std::span(families).subspan(index, 1));
    }
    if (device.graphics) {
        device.graphics->index = index;
        device.graphics->timerBits = withheld.timer ? 0 : device.graphics->timerBits;
    }
    return device;
}

VkFormatProperties PhysicalDevice::uses(VkFormat format) const
{
    VkFormatProperties offered;
    vkGetPhysicalDeviceFormatProperties(handle, format, &offered);
    if (withheld.rows) {
        offered.linearTilingFeatures = 0;
    }
    return offered;
}

bool PhysicalDevice::canDrawInto(VkFormat format) const
{
    constexpr VkFormatFeatureFlags wanted =
        VK_FORMAT_FEATURE_COLOR_ATTACHMENT_BLEND_BIT | VK_FORMAT_FEATURE_SAMPLED_IMAGE_BIT;
    return (uses(format).optimalTilingFeatures & wanted) == wanted;
}

bool PhysicalDevice::drawsFloats() const
{
    constexpr VkFormat format = VK_FORMAT_R32G32B32A32_SFLOAT;
    constexpr VkFormatFeatureFlags filtered = VK_FORMAT_FEATURE_SAMPLED_IMAGE_FILTER_LINEAR_BIT;
    return canDrawInto(format) && (uses(format).optimalTilingFeatures & filtered) != 0;
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
    if (!canDrawInto(VK_FORMAT_R8G8B8A8_UNORM) || !canDrawInto(VK_FORMAT_R16G16B16A16_UNORM)) {
        return "drawing into images of 8 and 16 bits";
    }
    return graphics ? std::string() : std::string("a graphics queue");
}

namespace {

/// What the device lacks of what the service would use, and what it does instead.
std::vector<std::string> nextWays(const PhysicalDevice& device)
{
    constexpr std::uint32_t texelsOf4K = 3840 * 2160;
    constexpr std::uint64_t largePicture = std::uint64_t{1} << 30U;
    std::vector<std::string> ways;
    if (!device.conformant) {
        ways.emplace_back(
            "its driver has not passed Vulkan's conformance tests: compare its pictures with another's");
    }
    if (device.graphics && device.graphics->timerBits == 0) {
        ways.emplace_back("it has no timer: its own time is not measured");
    }
    if (device.largestAllocation < largePicture) {
        ways.push_back("an image takes at most " + std::to_string(device.largestAllocation >> 20U) + " MiB");
    }
    if (device.convertsSlowly) {
        ways.emplace_back("it converts floats to whole numbers slowly: shaders add instead");
    }
    if (!device.drawsFloats()) {
        ways.emplace_back(
            "it cannot draw into images of floats: numbers beyond 0 and 1 are clipped when they "
            "are read");
    }
    const bool copiesPictures = createDrawingPath(device) == nullptr;
    if (copiesPictures && !device.copying) {
        ways.emplace_back(
            "it has no queue that only copies: uploads and downloads take turns with the drawing");
    }
    if (!device.isSoftware()) {
        return ways;
    }
    const std::uint32_t texels = device.properties.limits.maxTexelBufferElements;
    if (copiesPictures) {
        ways.emplace_back(
            "it cannot draw into images stored row by row: texels are drawn one by one, and pictures "
            "copied in and out");
    } else {
        if (texels < texelsOf4K) {
            ways.push_back(
                "it reads at most " + std::to_string(texels) +
                " texels as a buffer: those of larger pictures are drawn one by one, and pictures copied "
                "in and out");
        }
        if (device.withheld.sharedMemory) {
            ways.emplace_back("it shares no memory with the host: pictures are copied in and out");
        }
    }
    return ways;
}

} // namespace

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
    description.conformant = device.conformant;
    description.nextWays = nextWays(device);
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
