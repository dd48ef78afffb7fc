#pragma once

#include "host/gpu/GPUOptions.h"
#include "host/gpu/device/Withheld.h"

#include <vulkan/vulkan_core.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::Host::Vulkan {

/// The features that the service asks of a device, or what a device says of them: a chain of structures.
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
    Features(const Features&) = delete;
    Features& operator=(const Features&) = delete;
};

/// One Vulkan device of the machine and what its driver says of it, queried once, less what is withheld.
struct PhysicalDevice
{
    struct QueueFamily
    {
        std::uint32_t index = 0;
        std::uint32_t timerBits = 0; ///< of a timestamp that are valid; 0 if the family has no timestamps
        bool computes = false;
    };

    /// Queues that copy and do nothing else.
    struct CopyFamily
    {
        std::uint32_t index = 0;
        std::uint32_t queues = 0;
    };

    PhysicalDevice(VkPhysicalDevice device, const Withheld& without);

    VkPhysicalDevice handle = nullptr;
    Withheld withheld;
    VkPhysicalDeviceProperties properties{};
    VkPhysicalDeviceMemoryProperties memory{};
    std::string driverName;
    std::string driverInfo;                           ///< its version
    std::array<std::byte, VK_UUID_SIZE> uuid{};       ///< the same in every process, other than any other's
    std::array<std::byte, VK_UUID_SIZE> driverUuid{}; ///< of the driver's build: which memory it can import
    std::uint64_t largestAllocation = 0;              ///< bytes of one allocation of memory
    bool conformant = false;                          ///< its driver has passed Vulkan's conformance tests
    bool convertsSlowly = false;                      ///< floats to whole numbers; see convertsOneByOne()
    std::optional<QueueFamily> graphics{};            ///< see drawingFamily()
    std::optional<CopyFamily> copying{};              ///< see copyingFamily(); none beside a DrawingPath

    /// The same device, with the queue family of that index to draw with, and none that only copies. Without
    /// one if it does not draw.
    PhysicalDevice withFamily(std::uint32_t index) const;

    bool isSoftware() const { return properties.deviceType == VK_PHYSICAL_DEVICE_TYPE_CPU; }

    /// What images and buffers of that format can be used for.
    VkFormatProperties uses(VkFormat format) const;

    /// Whether images of that format can be drawn into, with blending, and sampled.
    bool canDrawInto(VkFormat format) const;

    /// Whether images of floats are drawn into and sampled as others are.
    bool drawsFloats() const;

    /// What the service needs and the device lacks; empty if the device can be used.
    std::string missingFeatures() const;
};

/// The queue family to draw with: the first that draws and has a timer, else the first that draws. Every
/// family that draws also copies (Vulkan 1.3, VkQueueFlagBits).
std::optional<PhysicalDevice::QueueFamily> drawingFamily(std::span<const VkQueueFamilyProperties> families);

/// The first queue family that copies and neither draws, computes, nor deals with video.
std::optional<PhysicalDevice::CopyFamily> copyingFamily(std::span<const VkQueueFamilyProperties> families);

/// Whether that driver converts the floats of a vector to whole numbers one after the other, so that shaders
/// that add instead (Effects::convertByAdding) are three to five times as fast: llvmpipe does so in
/// Mesa 25.0, and did not in 22.3. Versions between them are taken for slow, since adding costs next to
/// nothing.
bool convertsOneByOne(VkDriverId driver, std::string_view version);

DeviceDescription describe(const PhysicalDevice& device, std::uint32_t index);

/// Identifies the device and the version of its driver: data that a driver made for one device is useless to
/// another. Bytes, not text.
std::string driverIdentity(const PhysicalDevice& device);

} // namespace Qx::Host::Vulkan
