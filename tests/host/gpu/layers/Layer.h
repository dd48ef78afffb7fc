#pragma once

#include <cstring>
#include <map>
#include <memory>
#include <string_view>
#include <vulkan/vk_layer.h>
#include <vulkan/vulkan.h>

/// What all Vulkan layers for tests are made of: Layer.cpp knows what comes next, and a layer says what it
/// does itself.
namespace Qx::GpuTests {

/// The functions of what comes next, by what the loader gives every handle of an instance or a device.
struct Next
{
    PFN_vkGetInstanceProcAddr instance = nullptr;
    PFN_vkGetDeviceProcAddr device = nullptr;
    VkInstance instanceHandle = nullptr;
    VkDevice deviceHandle = nullptr;
    VkPhysicalDevice physical = nullptr;
    /// What the functions of physical devices were when the instance was made: later, `instance` gives those
    /// of the layer that is first.
    std::shared_ptr<const std::map<std::string_view, PFN_vkVoidFunction>> ofPhysicalDevices{};

    template <class Function>
    Function get(const char* name) const
    {
        const auto found = ofPhysicalDevices->find(name);
        return reinterpret_cast<Function>(found != ofPhysicalDevices->end() ? found->second
                                                                            : device(deviceHandle, name));
    }
};

/// Of what the loader has given a handle of an instance or a device.
Next nextByKey(void* key);

template <class Handle>
Next nextOf(Handle handle)
{
    void* key = nullptr;
    std::memcpy(&key, reinterpret_cast<const void*>(handle), sizeof key);
    return nextByKey(key);
}

/// The structure of that type in a chain; null if there is none.
template <class Structure>
const Structure* find(const void* chain, VkStructureType type)
{
    for (const auto* each = static_cast<const VkBaseInStructure*>(chain); each != nullptr;
         each = each->pNext) {
        if (each->sType == type) {
            return reinterpret_cast<const Structure*>(each);
        }
    }
    return nullptr;
}

/// Creates the device by what comes next, and remembers it. A layer that has a function of its own for that
/// calls it.
VKAPI_ATTR VkResult VKAPI_CALL createDevice(VkPhysicalDevice physical, const VkDeviceCreateInfo* info,
                                            const VkAllocationCallbacks* allocator, VkDevice* device);

/// The layer's own function of that name; null if it leaves it to what comes next.
PFN_vkVoidFunction functionOfLayer(std::string_view name);

} // namespace Qx::GpuTests
