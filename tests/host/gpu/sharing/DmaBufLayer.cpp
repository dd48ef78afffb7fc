// A Vulkan layer for tests: over a driver that exports opaque memory, it offers dma-buf. A dma-buf is then
// the driver's own descriptor, and its image has rows in order. What the driver is asked for is translated;
// the validation layer, which comes first, sees what the service asked for.
//
// QX_TEST_DMABUF says what is offered:
//     modifiers   VK_EXT_image_drm_format_modifier too, with several modifiers of which one can be used
//     rows        images with rows in order alone
//     import      the same, and nothing is exported

#include "tests/host/gpu/layers/Layer.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <string_view>
#include <sys/stat.h>
#include <vector>

namespace Qx::GpuTests {

namespace {

constexpr VkExternalMemoryHandleTypeFlagBits dmaBuf = VK_EXTERNAL_MEMORY_HANDLE_TYPE_DMA_BUF_BIT_EXT;
constexpr VkExternalMemoryHandleTypeFlagBits opaque = VK_EXTERNAL_MEMORY_HANDLE_TYPE_OPAQUE_FD_BIT;

std::string_view mode()
{
    const char* const value = std::getenv("QX_TEST_DMABUF"); // NOLINT(concurrency-mt-unsafe)
    return value != nullptr ? value : "";
}

std::vector<VkExtensionProperties> offered()
{
    std::vector<const char*> names{VK_EXT_EXTERNAL_MEMORY_DMA_BUF_EXTENSION_NAME,
                                   VK_EXT_QUEUE_FAMILY_FOREIGN_EXTENSION_NAME};
    if (mode() == "modifiers") {
        names.push_back(VK_EXT_IMAGE_DRM_FORMAT_MODIFIER_EXTENSION_NAME);
    }
    std::vector<VkExtensionProperties> extensions(names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        std::string_view(names[i]).copy(extensions[i].extensionName, VK_MAX_EXTENSION_NAME_SIZE - 1);
        extensions[i].specVersion = 1;
    }
    return extensions;
}

VKAPI_ATTR VkResult VKAPI_CALL listExtensions(VkPhysicalDevice physical, const char* layer,
                                              std::uint32_t* count, VkExtensionProperties* properties)
{
    const auto list = nextOf(physical).get<PFN_vkEnumerateDeviceExtensionProperties>(
        "vkEnumerateDeviceExtensionProperties");
    if (layer != nullptr) {
        return list(physical, layer, count, properties);
    }
    std::uint32_t theirs = 0;
    list(physical, nullptr, &theirs, nullptr);
    std::vector<VkExtensionProperties> all(theirs);
    list(physical, nullptr, &theirs, all.data());
    for (const VkExtensionProperties& each : offered()) {
        if (std::none_of(all.begin(), all.end(), [&](const VkExtensionProperties& other) {
                return std::strcmp(other.extensionName, each.extensionName) == 0;
            })) {
            all.push_back(each);
        }
    }
    if (properties == nullptr) {
        *count = static_cast<std::uint32_t>(all.size());
        return VK_SUCCESS;
    }
    const std::size_t copied = std::min<std::size_t>(*count, all.size());
    std::copy_n(all.begin(), copied, properties);
    *count = static_cast<std::uint32_t>(copied);
    return copied == all.size() ? VK_SUCCESS : VK_INCOMPLETE;
}

/// Makes a list of modifiers what the layer offers. `room` is what its caller said, which drivers change.
template <class Modifier, class List>
void offerModifiers(List* list, std::uint32_t room, VkFormatFeatureFlags features)
{
    const std::array<Modifier, 3> all{{
        {0x0100000000000004, 2, features},                            // a second plane
        {0x0100000000000001, 1, VK_FORMAT_FEATURE_SAMPLED_IMAGE_BIT}, // is not drawn into
        {0, 1, features},
    }};
    if (list != nullptr) {
        if (list->pDrmFormatModifierProperties != nullptr) {
            std::copy_n(all.begin(), std::min<std::size_t>(room, all.size()),
                        list->pDrmFormatModifierProperties);
        }
        list->drmFormatModifierCount = static_cast<std::uint32_t>(all.size());
    }
}

VKAPI_ATTR void VKAPI_CALL describeFormat(VkPhysicalDevice physical, VkFormat format,
                                          VkFormatProperties2* properties)
{
    using List = VkDrmFormatModifierPropertiesListEXT;
    using List2 = VkDrmFormatModifierPropertiesList2EXT; // newer validation layers read this one
    auto* const list = const_cast<List*>(
        find<List>(properties->pNext, VK_STRUCTURE_TYPE_DRM_FORMAT_MODIFIER_PROPERTIES_LIST_EXT));
    auto* const list2 = const_cast<List2*>(
        find<List2>(properties->pNext, VK_STRUCTURE_TYPE_DRM_FORMAT_MODIFIER_PROPERTIES_LIST_2_EXT));
    const std::uint32_t room = list != nullptr ? list->drmFormatModifierCount : 0;
    const std::uint32_t room2 = list2 != nullptr ? list2->drmFormatModifierCount : 0;
    nextOf(physical).get<PFN_vkGetPhysicalDeviceFormatProperties2>("vkGetPhysicalDeviceFormatProperties2")(
        physical, format, properties);
    const VkFormatFeatureFlags features = properties->formatProperties.linearTilingFeatures;
    offerModifiers<VkDrmFormatModifierPropertiesEXT>(list, room, features);
    offerModifiers<VkDrmFormatModifierProperties2EXT>(list2, room2, features);
}

VKAPI_ATTR VkResult VKAPI_CALL describeImage(VkPhysicalDevice physical,
                                             const VkPhysicalDeviceImageFormatInfo2* info,
                                             VkImageFormatProperties2* properties)
{
    const auto ask = nextOf(physical).get<PFN_vkGetPhysicalDeviceImageFormatProperties2>(
        "vkGetPhysicalDeviceImageFormatProperties2");
    const auto* const wanted = find<VkPhysicalDeviceExternalImageFormatInfo>(
        info->pNext, VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_EXTERNAL_IMAGE_FORMAT_INFO);
    const auto* const order = find<VkPhysicalDeviceImageDrmFormatModifierInfoEXT>(
        info->pNext, VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_IMAGE_DRM_FORMAT_MODIFIER_INFO_EXT);
    if (wanted == nullptr || wanted->handleType != dmaBuf) {
        return ask(physical, info, properties);
    }
    if (info->tiling == VK_IMAGE_TILING_OPTIMAL || (order != nullptr && order->drmFormatModifier != 0)) {
        return VK_ERROR_FORMAT_NOT_SUPPORTED;
    }
    VkPhysicalDeviceExternalImageFormatInfo external{};
    external.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_EXTERNAL_IMAGE_FORMAT_INFO;
    external.handleType = opaque;
    VkPhysicalDeviceImageFormatInfo2 translated = *info;
    translated.pNext = &external;
    translated.tiling = VK_IMAGE_TILING_LINEAR;
    const VkResult result = ask(physical, &translated, properties);
    auto* const answer = const_cast<VkExternalImageFormatProperties*>(find<VkExternalImageFormatProperties>(
        properties->pNext, VK_STRUCTURE_TYPE_EXTERNAL_IMAGE_FORMAT_PROPERTIES));
    if (answer != nullptr) {
        VkExternalMemoryProperties& memory = answer->externalMemoryProperties;
        memory.compatibleHandleTypes = dmaBuf;
        memory.exportFromImportedHandleTypes = 0;
        memory.externalMemoryFeatures &=
            ~(mode() == "import" ? VkFlags{VK_EXTERNAL_MEMORY_FEATURE_EXPORTABLE_BIT} : 0U);
    }
    return result;
}

VKAPI_ATTR VkResult VKAPI_CALL createImage(VkDevice device, const VkImageCreateInfo* info,
                                           const VkAllocationCallbacks* allocator, VkImage* image)
{
    const auto create = nextOf(device).get<PFN_vkCreateImage>("vkCreateImage");
    const auto* const wanted = find<VkExternalMemoryImageCreateInfo>(
        info->pNext, VK_STRUCTURE_TYPE_EXTERNAL_MEMORY_IMAGE_CREATE_INFO);
    if (wanted == nullptr || wanted->handleTypes != dmaBuf) {
        return create(device, info, allocator, image);
    }
    const auto* const list = find<VkImageDrmFormatModifierListCreateInfoEXT>(
        info->pNext, VK_STRUCTURE_TYPE_IMAGE_DRM_FORMAT_MODIFIER_LIST_CREATE_INFO_EXT);
    if (list != nullptr && (list->drmFormatModifierCount != 1 || list->pDrmFormatModifiers[0] != 0)) {
        return VK_ERROR_INVALID_DRM_FORMAT_MODIFIER_PLANE_LAYOUT_EXT;
    }
    VkExternalMemoryImageCreateInfo external{};
    external.sType = VK_STRUCTURE_TYPE_EXTERNAL_MEMORY_IMAGE_CREATE_INFO;
    external.handleTypes = opaque;
    VkImageCreateInfo translated = *info;
    translated.pNext = &external;
    translated.tiling = VK_IMAGE_TILING_LINEAR;
    return create(device, &translated, allocator, image);
}

VKAPI_ATTR VkResult VKAPI_CALL describeModifier(VkDevice, VkImage,
                                                VkImageDrmFormatModifierPropertiesEXT* properties)
{
    properties->drmFormatModifier = 0;
    return VK_SUCCESS;
}

VKAPI_ATTR void VKAPI_CALL describeLayout(VkDevice device, VkImage image, const VkImageSubresource* part,
                                          VkSubresourceLayout* layout)
{
    VkImageSubresource translated = *part;
    if (part->aspectMask == VK_IMAGE_ASPECT_MEMORY_PLANE_0_BIT_EXT) {
        translated.aspectMask = VK_IMAGE_ASPECT_COLOR_BIT;
    }
    nextOf(device).get<PFN_vkGetImageSubresourceLayout>("vkGetImageSubresourceLayout")(device, image,
                                                                                       &translated, layout);
}

VKAPI_ATTR VkResult VKAPI_CALL allocateMemory(VkDevice device, const VkMemoryAllocateInfo* info,
                                              const VkAllocationCallbacks* allocator, VkDeviceMemory* memory)
{
    const auto* const dedicated =
        find<VkMemoryDedicatedAllocateInfo>(info->pNext, VK_STRUCTURE_TYPE_MEMORY_DEDICATED_ALLOCATE_INFO);
    const auto* const exported =
        find<VkExportMemoryAllocateInfo>(info->pNext, VK_STRUCTURE_TYPE_EXPORT_MEMORY_ALLOCATE_INFO);
    const auto* const imported =
        find<VkImportMemoryFdInfoKHR>(info->pNext, VK_STRUCTURE_TYPE_IMPORT_MEMORY_FD_INFO_KHR);
    VkMemoryAllocateInfo translated = *info;
    VkMemoryDedicatedAllocateInfo ofImage{};
    VkExportMemoryAllocateInfo out{};
    VkImportMemoryFdInfoKHR in{};
    if (dedicated != nullptr) {
        ofImage = *dedicated;
        ofImage.pNext = nullptr;
        if (exported != nullptr && exported->handleTypes == dmaBuf) {
            out = *exported;
            out.pNext = nullptr;
            out.handleTypes = opaque;
            ofImage.pNext = &out;
            translated.pNext = &ofImage;
        } else if (imported != nullptr && imported->handleType == dmaBuf) {
            in = *imported;
            in.pNext = nullptr;
            in.handleType = opaque;
            ofImage.pNext = &in;
            translated.pNext = &ofImage;
        }
    }
    return nextOf(device).get<PFN_vkAllocateMemory>("vkAllocateMemory")(device, &translated, allocator,
                                                                        memory);
}

VKAPI_ATTR VkResult VKAPI_CALL getDescriptor(VkDevice device, const VkMemoryGetFdInfoKHR* info,
                                             int* descriptor)
{
    VkMemoryGetFdInfoKHR translated = *info;
    translated.handleType = opaque;
    return nextOf(device).get<PFN_vkGetMemoryFdKHR>("vkGetMemoryFdKHR")(device, &translated, descriptor);
}

VKAPI_ATTR VkResult VKAPI_CALL describeDescriptor(VkDevice device, VkExternalMemoryHandleTypeFlagBits type,
                                                  int descriptor, VkMemoryFdPropertiesKHR* properties)
{
    struct stat status
    {
    };
    if (type != dmaBuf || ::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        return VK_ERROR_INVALID_EXTERNAL_HANDLE;
    }
    const Next next = nextOf(device);
    VkPhysicalDeviceMemoryProperties memory{};
    next.get<PFN_vkGetPhysicalDeviceMemoryProperties>("vkGetPhysicalDeviceMemoryProperties")(next.physical,
                                                                                             &memory);
    properties->memoryTypeBits = (1U << memory.memoryTypeCount) - 1U;
    return VK_SUCCESS;
}

} // namespace

PFN_vkVoidFunction functionOfLayer(std::string_view name)
{
    static const std::map<std::string_view, PFN_vkVoidFunction> table{
        {"vkEnumerateDeviceExtensionProperties", reinterpret_cast<PFN_vkVoidFunction>(listExtensions)},
        {"vkGetPhysicalDeviceFormatProperties2", reinterpret_cast<PFN_vkVoidFunction>(describeFormat)},
        {"vkGetPhysicalDeviceImageFormatProperties2", reinterpret_cast<PFN_vkVoidFunction>(describeImage)},
        {"vkCreateImage", reinterpret_cast<PFN_vkVoidFunction>(createImage)},
        {"vkGetImageDrmFormatModifierPropertiesEXT", reinterpret_cast<PFN_vkVoidFunction>(describeModifier)},
        {"vkGetImageSubresourceLayout", reinterpret_cast<PFN_vkVoidFunction>(describeLayout)},
        {"vkAllocateMemory", reinterpret_cast<PFN_vkVoidFunction>(allocateMemory)},
        {"vkGetMemoryFdKHR", reinterpret_cast<PFN_vkVoidFunction>(getDescriptor)},
        {"vkGetMemoryFdPropertiesKHR", reinterpret_cast<PFN_vkVoidFunction>(describeDescriptor)},
    };
    const auto found = table.find(name);
    return found != table.end() ? found->second : nullptr;
}

} // namespace Qx::GpuTests
