#include "tests/host/gpu/layers/Layer.h"

#include <map>
#include <mutex>
#include <utility>

namespace Qx::GpuTests {

namespace {

std::mutex nextsMutex;
std::map<void*, Next> nexts;

template <class Handle>
void* keyOf(Handle handle)
{
    void* key = nullptr;
    std::memcpy(&key, reinterpret_cast<const void*>(handle), sizeof key);
    return key;
}

/// What comes next, in the list that the loader has left in the information for a new instance or device.
template <class Info>
Info* linkOf(const void* chain, VkStructureType type)
{
    for (const void* each = chain; each != nullptr;) {
        const auto* const found = find<Info>(each, type);
        if (found == nullptr || found->function == VK_LAYER_LINK_INFO) {
            return const_cast<Info*>(found); // it is the loader's, for layers to advance
        }
        each = found->pNext;
    }
    return nullptr;
}

VKAPI_ATTR VkResult VKAPI_CALL createInstance(const VkInstanceCreateInfo* info,
                                              const VkAllocationCallbacks* allocator, VkInstance* instance)
{
    auto* const link =
        linkOf<VkLayerInstanceCreateInfo>(info->pNext, VK_STRUCTURE_TYPE_LOADER_INSTANCE_CREATE_INFO);
    Next next;
    next.instance = link->u.pLayerInfo->pfnNextGetInstanceProcAddr;
    link->u.pLayerInfo = link->u.pLayerInfo->pNext;
    const auto create = reinterpret_cast<PFN_vkCreateInstance>(next.instance(nullptr, "vkCreateInstance"));
    const VkResult result = create(info, allocator, instance);
    if (result == VK_SUCCESS) {
        next.instanceHandle = *instance;
        std::map<std::string_view, PFN_vkVoidFunction> functions;
        for (const char* name :
             {"vkCreateDevice", "vkEnumerateDeviceExtensionProperties",
              "vkGetPhysicalDeviceFormatProperties2", "vkGetPhysicalDeviceImageFormatProperties2",
              "vkGetPhysicalDeviceMemoryProperties", "vkGetPhysicalDeviceQueueFamilyProperties"}) {
            functions[name] = next.instance(*instance, name);
        }
        next.ofPhysicalDevices = std::make_shared<decltype(functions)>(std::move(functions));
        const std::lock_guard lock(nextsMutex);
        nexts[keyOf(*instance)] = next;
    }
    return result;
}

} // namespace

Next nextByKey(void* key)
{
    const std::lock_guard lock(nextsMutex);
    return nexts.at(key);
}

VKAPI_ATTR VkResult VKAPI_CALL createDevice(VkPhysicalDevice physical, const VkDeviceCreateInfo* info,
                                            const VkAllocationCallbacks* allocator, VkDevice* device)
{
    auto* const link =
        linkOf<VkLayerDeviceCreateInfo>(info->pNext, VK_STRUCTURE_TYPE_LOADER_DEVICE_CREATE_INFO);
    Next next = nextOf(physical);
    const auto create = next.get<PFN_vkCreateDevice>("vkCreateDevice");
    next.device = link->u.pLayerInfo->pfnNextGetDeviceProcAddr;
    link->u.pLayerInfo = link->u.pLayerInfo->pNext;
    const VkResult result = create(physical, info, allocator, device);
    if (result == VK_SUCCESS) {
        next.deviceHandle = *device;
        next.physical = physical;
        const std::lock_guard lock(nextsMutex);
        nexts[keyOf(*device)] = next;
    }
    return result;
}

namespace {

PFN_vkVoidFunction ours(std::string_view name)
{
    const PFN_vkVoidFunction found = functionOfLayer(name);
    if (found != nullptr) {
        return found;
    }
    if (name == "vkCreateInstance") {
        return reinterpret_cast<PFN_vkVoidFunction>(createInstance);
    }
    return name == "vkCreateDevice" ? reinterpret_cast<PFN_vkVoidFunction>(createDevice) : nullptr;
}

VKAPI_ATTR PFN_vkVoidFunction VKAPI_CALL deviceFunction(VkDevice device, const char* name)
{
    if (std::string_view(name) == "vkGetDeviceProcAddr") {
        return reinterpret_cast<PFN_vkVoidFunction>(deviceFunction);
    }
    const PFN_vkVoidFunction found = ours(name);
    return found != nullptr ? found : nextOf(device).device(device, name);
}

VKAPI_ATTR PFN_vkVoidFunction VKAPI_CALL instanceFunction(VkInstance instance, const char* name)
{
    if (std::string_view(name) == "vkGetInstanceProcAddr") {
        return reinterpret_cast<PFN_vkVoidFunction>(instanceFunction);
    }
    if (std::string_view(name) == "vkGetDeviceProcAddr") {
        return reinterpret_cast<PFN_vkVoidFunction>(deviceFunction);
    }
    const PFN_vkVoidFunction found = ours(name);
    if (found != nullptr || instance == nullptr) {
        return found;
    }
    return nextOf(instance).instance(instance, name);
}

} // namespace

} // namespace Qx::GpuTests

extern "C" __attribute__((visibility("default"))) VKAPI_ATTR VkResult VKAPI_CALL
vkNegotiateLoaderLayerInterfaceVersion(VkNegotiateLayerInterface* negotiated)
{
    negotiated->loaderLayerInterfaceVersion = 2;
    negotiated->pfnGetInstanceProcAddr = Qx::GpuTests::instanceFunction;
    negotiated->pfnGetDeviceProcAddr = Qx::GpuTests::deviceFunction;
    negotiated->pfnGetPhysicalDeviceProcAddr = nullptr;
    return VK_SUCCESS;
}
