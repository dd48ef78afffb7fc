#pragma once

#include "host/gpu/DeviceSharing.h"

#include <span>
#include <string>

namespace Qx::Host::Vulkan {

struct ExchangeExtensions;
struct PhysicalDevice;

/// A feature that the service enables on every device or on some.
struct Feature
{
    const char* name;        ///< of the member in Vulkan's structures
    VkStructureType version; ///< the structure of a version of Vulkan that has it
    std::size_t offset;      ///< of its VkBool32 there
    VkStructureType alone;   ///< the structure that has only a few; VK_STRUCTURE_TYPE_MAX_ENUM: none
    std::size_t offsetAlone; ///< of its VkBool32 there
    bool forDrawingPath;     ///< only devices with a DrawingPath need it
};

/// Everything that the service enables.
std::span<const Feature> usedFeatures();

/// Whether the device is to have the feature.
bool isNeeded(const Feature& feature, const PhysicalDevice& device);

/// Where a chain of structures has the feature; null if none of them does. `chain` is the first structure.
VkBool32* placeOf(const Feature& feature, void* chain);

/// Enables what the device is to have in the chain. Returns the names of what the chain has no place for.
std::vector<std::string> enableFeatures(const PhysicalDevice& device, VkPhysicalDeviceFeatures2& features);

/// The extensions that the service uses, of those that the device has.
std::vector<const char*> usableExtensions(VkPhysicalDevice device);

/// What the extensions of those names let the service exchange.
ExchangeExtensions exchangeBy(const std::vector<std::string>& enabled);

} // namespace Qx::Host::Vulkan
