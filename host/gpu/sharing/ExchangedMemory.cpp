#include "host/gpu/sharing/ExchangedMemory.h"

#include "host/gpu/sharing/SharedPictures.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <unistd.h>
#include <utility>

namespace Qx::Host::Vulkan {

namespace {

constexpr std::uint64_t rowsInOrder = 0; ///< DRM_FORMAT_MOD_LINEAR

/// What an image that others have too is used for, as a format's features name it.
constexpr VkFormatFeatureFlags neededFeatures =
    VK_FORMAT_FEATURE_COLOR_ATTACHMENT_BLEND_BIT | VK_FORMAT_FEATURE_SAMPLED_IMAGE_BIT |
    VK_FORMAT_FEATURE_SAMPLED_IMAGE_FILTER_LINEAR_BIT | VK_FORMAT_FEATURE_TRANSFER_SRC_BIT |
    VK_FORMAT_FEATURE_TRANSFER_DST_BIT;

struct HandleKind
{
    VkExternalMemoryHandleTypeFlagBits type;
    const char* extension;
    const char* described;
};

const HandleKind& kindOf(MemoryHandle handle)
{
    static constexpr HandleKind opaque{VK_EXTERNAL_MEMORY_HANDLE_TYPE_OPAQUE_FD_BIT,
                                       VK_KHR_EXTERNAL_MEMORY_FD_EXTENSION_NAME,
                                       "by opaque file descriptors"};
    static constexpr HandleKind dmaBuf{VK_EXTERNAL_MEMORY_HANDLE_TYPE_DMA_BUF_BIT_EXT,
                                       VK_EXT_EXTERNAL_MEMORY_DMA_BUF_EXTENSION_NAME, "as dma-buf"};
    return handle == MemoryHandle::DmaBuf ? dmaBuf : opaque;
}

bool isEnabled(const Device& device, MemoryHandle handle)
{
    return handle == MemoryHandle::DmaBuf ? device.exchange().dmaBuf : device.exchange().descriptors;
}

/// How the texels lie in the memory. Only those of a dma-buf must be known to others.
VkImageTiling tilingFor(const Device& device, MemoryHandle handle)
{
    if (handle != MemoryHandle::DmaBuf) {
        return VK_IMAGE_TILING_OPTIMAL;
    }
    return device.exchange().modifiers ? VK_IMAGE_TILING_DRM_FORMAT_MODIFIER_EXT : VK_IMAGE_TILING_LINEAR;
}

/// What DRM, V4L2 and EGL call the format.
std::uint32_t fourccOf(VkFormat format)
{
    const auto code = [](const char(&text)[5]) {
        std::uint32_t value = 0;
        for (std::uint32_t i = 0; i < 4; ++i) {
            value |= std::uint32_t{static_cast<unsigned char>(text[i])} << (8 * i);
        }
        return value;
    };
    switch (format) {
    case VK_FORMAT_R8G8B8A8_UNORM:
        return code("AB24"); // DRM_FORMAT_ABGR8888
    case VK_FORMAT_R16G16B16A16_UNORM:
        return code("AB48"); // DRM_FORMAT_ABGR16161616
    case VK_FORMAT_A2R10G10B10_UNORM_PACK32:
        return code("AR30"); // DRM_FORMAT_ARGB2101010
    default:
        return 0;
    }
}

/// What the driver does with images of that format, tiling and, if it is a modifier's, modifier.
VkExternalMemoryFeatureFlags featuresOf(const Device& device, MemoryHandle handle, VkFormat format,
                                        std::uint64_t modifier)
{
    VkPhysicalDeviceImageDrmFormatModifierInfoEXT order{};
    order.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_IMAGE_DRM_FORMAT_MODIFIER_INFO_EXT;
    order.drmFormatModifier = modifier;
    VkPhysicalDeviceExternalImageFormatInfo external{};
    external.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_EXTERNAL_IMAGE_FORMAT_INFO;
    external.handleType = kindOf(handle).type;
    VkPhysicalDeviceImageFormatInfo2 wanted{};
    wanted.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_IMAGE_FORMAT_INFO_2;
    wanted.pNext = &external;
    wanted.format = format;
    wanted.type = VK_IMAGE_TYPE_2D;
    wanted.tiling = tilingFor(device, handle);
    wanted.usage = requiredImageUsage;
    if (wanted.tiling == VK_IMAGE_TILING_DRM_FORMAT_MODIFIER_EXT) {
        external.pNext = &order;
    }
    VkExternalImageFormatProperties offered{};
    offered.sType = VK_STRUCTURE_TYPE_EXTERNAL_IMAGE_FORMAT_PROPERTIES;
    VkImageFormatProperties2 properties{};
    properties.sType = VK_STRUCTURE_TYPE_IMAGE_FORMAT_PROPERTIES_2;
    properties.pNext = &offered;
    return vkGetPhysicalDeviceImageFormatProperties2(device.physical().handle, &wanted, &properties) ==
                   VK_SUCCESS
               ? offered.externalMemoryProperties.externalMemoryFeatures
               : 0;
}

/// The orders of texels, one plane each, that the device can draw into and read.
std::vector<std::uint64_t> modifiersOf(const Device& device, VkFormat format)
{
    VkDrmFormatModifierPropertiesListEXT list{};
    list.sType = VK_STRUCTURE_TYPE_DRM_FORMAT_MODIFIER_PROPERTIES_LIST_EXT;
    VkFormatProperties2 properties{};
    properties.sType = VK_STRUCTURE_TYPE_FORMAT_PROPERTIES_2;
    properties.pNext = &list;
    vkGetPhysicalDeviceFormatProperties2(device.physical().handle, format, &properties);
    std::vector<VkDrmFormatModifierPropertiesEXT> offered(list.drmFormatModifierCount);
    list.pDrmFormatModifierProperties = offered.data();
    vkGetPhysicalDeviceFormatProperties2(device.physical().handle, format, &properties);
    std::vector<std::uint64_t> usable;
    for (const VkDrmFormatModifierPropertiesEXT& each : offered) {
        if (each.drmFormatModifierPlaneCount == 1 &&
            (each.drmFormatModifierTilingFeatures & neededFeatures) == neededFeatures) {
            usable.push_back(each.drmFormatModifier);
        }
    }
    return usable;
}

/// The modifiers with which the device does all of that. Without modifiers, rows in order are the only one.
std::vector<std::uint64_t> modifiersFor(const Device& device, MemoryHandle handle, VkFormat format,
                                        VkExternalMemoryFeatureFlags wanted)
{
    std::vector<std::uint64_t> modifiers{rowsInOrder};
    if (tilingFor(device, handle) == VK_IMAGE_TILING_DRM_FORMAT_MODIFIER_EXT) {
        modifiers = modifiersOf(device, format);
    } else if (handle == MemoryHandle::DmaBuf &&
               (device.physical().uses(format).linearTilingFeatures & neededFeatures) != neededFeatures) {
        modifiers.clear();
    }
    std::erase_if(modifiers, [&](std::uint64_t modifier) {
        return (featuresOf(device, handle, format, modifier) & wanted) != wanted;
    });
    return modifiers;
}

/// Why images of that size cannot be exported or imported; empty if they can.
std::string obstacleToExchange(Context& context, MemoryHandle handle, XY<int> size, iGPUImage::eFormat format,
                               VkExternalMemoryFeatureFlagBits wanted)
{
    const Device& device = context.device();
    const HandleKind& kind = kindOf(handle);
    if (!isEnabled(device, handle)) {
        return std::string("the device has no ") + kind.extension +
               ", or the application has not enabled it; see optionalDeviceExtensions()";
    }
    if (!isSupported(context, size, format)) {
        return "the size of " + std::to_string(size.x) + " x " + std::to_string(size.y) +
               " or the format is not one of the device's";
    }
    return !modifiersFor(device, handle, vulkanFormat(format), wanted).empty()
               ? std::string()
               : std::string("the driver does not ") +
                     (wanted == VK_EXTERNAL_MEMORY_FEATURE_EXPORTABLE_BIT ? "export" : "import") +
                     " images of this format " + kind.described;
}

template <class Function>
Function functionOf(const Device& device, const char* name)
{
    return reinterpret_cast<Function>(vkGetDeviceProcAddr(device.handle(), name));
}

/// Memory of an image that others have too, as it is made or imported.
struct SharedMemory
{
    MemoryHandle handle = MemoryHandle::Opaque;
    int descriptor = -1;     ///< of memory to import, whose owner becomes the driver; then -1
    std::uint64_t bytes = 0; ///< of opaque memory to import
    DmaBufLayout layout;     ///< of a dma-buf to import

    bool isImported() const { return descriptor >= 0; }
};

/// Where the image's texels lie.
VkSubresourceLayout layoutOf(const Device& device, VkImage image)
{
    const bool hasModifier = tilingFor(device, MemoryHandle::DmaBuf) != VK_IMAGE_TILING_LINEAR;
    const VkImageAspectFlags plane =
        hasModifier ? VK_IMAGE_ASPECT_MEMORY_PLANE_0_BIT_EXT : VK_IMAGE_ASPECT_COLOR_BIT;
    const VkImageSubresource whole{plane, 0, 0};
    VkSubresourceLayout layout{};
    vkGetImageSubresourceLayout(device.handle(), image, &whole, &layout);
    return layout;
}

VkResult createExchangedImage(const Device& device, const SharedMemory& shared, Texture& texture)
{
    const VkImageTiling tiling = tilingFor(device, shared.handle);
    VkImageCreateInfo info = imageInfo(texture.key, tiling, usageOf(texture.key));
    info.initialLayout = VK_IMAGE_LAYOUT_UNDEFINED;
    VkExternalMemoryImageCreateInfo external{};
    external.sType = VK_STRUCTURE_TYPE_EXTERNAL_MEMORY_IMAGE_CREATE_INFO;
    external.handleTypes = kindOf(shared.handle).type;
    info.pNext = &external;
    // One of the two for images with a modifier: those that the driver may choose from, or the one that it
    // is.
    VkSubresourceLayout plane{};
    plane.offset = shared.layout.offset;
    plane.rowPitch = shared.layout.pitch;
    VkImageDrmFormatModifierExplicitCreateInfoEXT given{};
    given.sType = VK_STRUCTURE_TYPE_IMAGE_DRM_FORMAT_MODIFIER_EXPLICIT_CREATE_INFO_EXT;
    given.drmFormatModifier = shared.layout.modifier;
    given.drmFormatModifierPlaneCount = 1;
    given.pPlaneLayouts = &plane;
    const std::vector<std::uint64_t> modifiers =
        modifiersFor(device, shared.handle, texture.key.format, VK_EXTERNAL_MEMORY_FEATURE_EXPORTABLE_BIT);
    VkImageDrmFormatModifierListCreateInfoEXT choice{};
    choice.sType = VK_STRUCTURE_TYPE_IMAGE_DRM_FORMAT_MODIFIER_LIST_CREATE_INFO_EXT;
    choice.drmFormatModifierCount = static_cast<std::uint32_t>(modifiers.size());
    choice.pDrmFormatModifiers = modifiers.data();
    if (tiling == VK_IMAGE_TILING_DRM_FORMAT_MODIFIER_EXT) {
        external.pNext = shared.isImported() ? static_cast<const void*>(&given) : &choice;
    }
    return vkCreateImage(device.handle(), &info, nullptr, &texture.image);
}

/// The type for memory of the image alone; the number of types if there is none.
std::uint32_t memoryTypeFor(const Device& device, std::uint32_t types)
{
    const VkPhysicalDeviceMemoryProperties& memory = device.memory();
    std::uint32_t any = memory.memoryTypeCount;
    for (std::uint32_t i = memory.memoryTypeCount; i-- > 0;) {
        if ((types & (1U << i)) == 0) {
            continue;
        }
        if ((memory.memoryTypes[i].propertyFlags & VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT) != 0) {
            return i;
        }
        any = i;
    }
    return any;
}

/// The types of memory that can be what the descriptor is; none if it is no dma-buf.
std::uint32_t typesOf(const Device& device, const SharedMemory& shared)
{
    const auto ask = functionOf<PFN_vkGetMemoryFdPropertiesKHR>(device, "vkGetMemoryFdPropertiesKHR");
    VkMemoryFdPropertiesKHR properties{};
    properties.sType = VK_STRUCTURE_TYPE_MEMORY_FD_PROPERTIES_KHR;
    return ask != nullptr && ask(device.handle(), kindOf(shared.handle).type, shared.descriptor,
                                 &properties) == VK_SUCCESS
               ? properties.memoryTypeBits
               : 0;
}

/// Why memory that is imported cannot be the image's; empty if it can.
std::string misfit(const Device& device, const SharedMemory& shared, VkImage image,
                   const VkMemoryRequirements& requirements)
{
    const auto tooSmall = [&](std::uint64_t bytes) {
        return bytes >= requirements.size
                   ? std::string()
                   : "the memory has " + std::to_string(bytes) + " bytes, and the image needs " +
                         std::to_string(requirements.size);
    };
    if (shared.handle != MemoryHandle::DmaBuf) {
        return tooSmall(shared.bytes);
    }
    const VkSubresourceLayout layout = layoutOf(device, image);
    if (layout.offset != shared.layout.offset || layout.rowPitch != shared.layout.pitch) {
        return "its rows begin at byte " + std::to_string(shared.layout.offset) + " and are " +
               std::to_string(shared.layout.pitch) + " bytes apart; the device needs byte " +
               std::to_string(layout.offset) + " and " + std::to_string(layout.rowPitch) + " bytes";
    }
    const ::off_t bytes = ::lseek(shared.descriptor, 0, SEEK_END);
    return bytes >= 0 ? tooSmall(static_cast<std::uint64_t>(bytes)) : "the descriptor is no dma-buf";
}

VkResult allocateShared(Device& device, SharedMemory& shared, const VkMemoryRequirements& requirements,
                        std::uint32_t type, Texture& texture)
{
    VkExportMemoryAllocateInfo exported{};
    exported.sType = VK_STRUCTURE_TYPE_EXPORT_MEMORY_ALLOCATE_INFO;
    exported.handleTypes = kindOf(shared.handle).type;
    VkImportMemoryFdInfoKHR imported{};
    imported.sType = VK_STRUCTURE_TYPE_IMPORT_MEMORY_FD_INFO_KHR;
    imported.handleType = kindOf(shared.handle).type;
    imported.fd = shared.descriptor;
    VkMemoryDedicatedAllocateInfo dedicated{};
    dedicated.sType = VK_STRUCTURE_TYPE_MEMORY_DEDICATED_ALLOCATE_INFO;
    dedicated.pNext = shared.isImported() ? static_cast<const void*>(&imported) : &exported;
    dedicated.image = texture.image;
    VkMemoryAllocateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_MEMORY_ALLOCATE_INFO;
    info.pNext = &dedicated;
    info.allocationSize = std::max(shared.bytes, requirements.size);
    info.memoryTypeIndex = type;
    const VkResult result = device.faults().takeAllocation()
                                ? VK_ERROR_OUT_OF_DEVICE_MEMORY
                                : vkAllocateMemory(device.handle(), &info, nullptr, &texture.memory.memory);
    if (result != VK_SUCCESS) {
        texture.memory.memory = nullptr;
        return result;
    }
    shared.descriptor = -1;
    texture.memory.type = type;
    return VK_SUCCESS;
}

/// Gives the image memory of its own.
VkResult bindOwnMemory(Device& device, SharedMemory& shared, Texture& texture)
{
    VkMemoryRequirements requirements;
    vkGetImageMemoryRequirements(device.handle(), texture.image, &requirements);
    std::uint32_t types = requirements.memoryTypeBits;
    if (shared.isImported()) {
        std::string obstacle = misfit(device, shared, texture.image, requirements);
        if (obstacle.empty() && shared.handle == MemoryHandle::DmaBuf) {
            types &= typesOf(device, shared);
            obstacle = types == 0 ? "the driver takes no such memory for images" : "";
        }
        if (!obstacle.empty()) {
            refuseSharing("an image cannot be imported: " + obstacle);
            return VK_ERROR_INVALID_EXTERNAL_HANDLE;
        }
    }
    const std::uint32_t type = memoryTypeFor(device, types);
    if (type == device.memory().memoryTypeCount) {
        return VK_ERROR_INVALID_EXTERNAL_HANDLE;
    }
    const VkResult result = allocateShared(device, shared, requirements, type, texture);
    return result == VK_SUCCESS ? vkBindImageMemory(device.handle(), texture.image, texture.memory.memory, 0)
                                : result;
}

/// An image in such memory. Empty on failure.
Qx::Ptr<GPUImage> makeExchanged(Context& context, XY<int> size, iGPUImage::eFormat format,
                                SharedMemory& shared)
{
    Device& device = context.device();
    auto texture = std::make_unique<Texture>();
    texture->key = keyOf(size, vulkanFormat(format));
    texture->origin = Origin::Exchanged;
    texture->handle = shared.handle;
    texture->partner = shared.handle == MemoryHandle::DmaBuf && device.exchange().foreignQueues
                           ? VK_QUEUE_FAMILY_FOREIGN_EXT
                           : VK_QUEUE_FAMILY_EXTERNAL;
    VkResult result = createExchangedImage(device, shared, *texture);
    if (result == VK_SUCCESS) {
        result = bindOwnMemory(device, shared, *texture);
    }
    if (result == VK_SUCCESS) {
        result = texture->createViews(device);
    }
    if (!device.succeeded(result, "creating an image in shared memory")) {
        texture->destroy(device, context.memory());
        return {};
    }
    return Qx::makePtr<GPUImage>(adopted(context, std::move(texture)), size, format);
}

DmaBufLayout dmaBufLayoutOf(const Device& device, const Texture& texture)
{
    DmaBufLayout layout;
    layout.fourcc = fourccOf(texture.key.format);
    const VkSubresourceLayout plane = layoutOf(device, texture.image);
    layout.offset = plane.offset;
    layout.pitch = plane.rowPitch;
    VkImageDrmFormatModifierPropertiesEXT order{};
    order.sType = VK_STRUCTURE_TYPE_IMAGE_DRM_FORMAT_MODIFIER_PROPERTIES_EXT;
    const auto ask = functionOf<PFN_vkGetImageDrmFormatModifierPropertiesEXT>(
        device, "vkGetImageDrmFormatModifierPropertiesEXT");
    if (device.exchange().modifiers && ask != nullptr &&
        ask(device.handle(), texture.image, &order) == VK_SUCCESS) {
        layout.modifier = order.drmFormatModifier;
    }
    return layout;
}

ExportedImage descriptionOf(const Device& device, GPUImage& image, const Texture& texture)
{
    VkMemoryRequirements requirements;
    vkGetImageMemoryRequirements(device.handle(), texture.image, &requirements);
    ExportedImage exported;
    exported.handle = texture.handle;
    exported.bytes = requirements.size;
    exported.size = image.getSize();
    exported.format = image.getFormat();
    exported.vulkanFormat = texture.key.format;
    std::memcpy(exported.device.data(), device.physical().uuid.data(), VK_UUID_SIZE);
    std::memcpy(exported.driver.data(), device.physical().driverUuid.data(), VK_UUID_SIZE);
    if (texture.handle == MemoryHandle::DmaBuf) {
        exported.layout = dmaBufLayoutOf(device, texture);
    }
    return exported;
}

/// Why what was exported cannot be imported, as far as its description tells; empty if it can.
std::string obstacleToImport(Context& context, const ExportedImage& exported)
{
    const PhysicalDevice& physical = context.device().physical();
    if (exported.handle != MemoryHandle::Opaque && exported.handle != MemoryHandle::DmaBuf) {
        return "its kind of descriptor is " + std::to_string(static_cast<unsigned>(exported.handle)) +
               ", expected MemoryHandle::Opaque or DmaBuf";
    }
    if (std::string obstacle = obstacleToExchange(context, exported.handle, exported.size, exported.format,
                                                  VK_EXTERNAL_MEMORY_FEATURE_IMPORTABLE_BIT);
        !obstacle.empty()) {
        return obstacle;
    }
    if (::fcntl(exported.descriptor, F_GETFD) < 0) {
        return "descriptor " + std::to_string(exported.descriptor) + " is not open";
    }
    if (exported.handle == MemoryHandle::Opaque) {
        return std::memcmp(exported.device.data(), physical.uuid.data(), VK_UUID_SIZE) == 0 &&
                       std::memcmp(exported.driver.data(), physical.driverUuid.data(), VK_UUID_SIZE) == 0
                   ? ""
                   : "it comes from another device or driver; opaque memory can be imported by the same only";
    }
    const std::vector<std::uint64_t> modifiers =
        modifiersFor(context.device(), exported.handle, vulkanFormat(exported.format),
                     VK_EXTERNAL_MEMORY_FEATURE_IMPORTABLE_BIT);
    return std::find(modifiers.begin(), modifiers.end(), exported.layout.modifier) != modifiers.end()
               ? ""
               : "its DRM format modifier " + std::to_string(exported.layout.modifier) +
                     " is not one that the device draws into";
}

} // namespace

bool canExchange(Context& context, MemoryHandle handle, iGPUImage::eFormat format,
                 VkExternalMemoryFeatureFlagBits wanted)
{
    return obstacleToExchange(context, handle, {1, 1}, format, wanted).empty();
}

Qx::Ptr<GPUImage> makeExportable(Context& context, XY<int> size, iGPUImage::eFormat format,
                                 MemoryHandle handle)
{
    if (const std::string obstacle =
            obstacleToExchange(context, handle, size, format, VK_EXTERNAL_MEMORY_FEATURE_EXPORTABLE_BIT);
        !obstacle.empty()) {
        refuseSharing("an image that can be exported cannot be created: " + obstacle);
        return {};
    }
    SharedMemory shared;
    shared.handle = handle;
    return makeExchanged(context, size, format, shared);
}

std::optional<ExportedImage> exportMemory(Context& context, GPUImage& image)
{
    Device& device = context.device();
    if (!isExchanged(context, image)) {
        refuseSharing("an image cannot be exported: it was not created by createExportableImage()");
        return {};
    }
    const auto getDescriptor = functionOf<PFN_vkGetMemoryFdKHR>(device, "vkGetMemoryFdKHR");
    const std::optional<GivenImage> given = give(context, image, VK_IMAGE_LAYOUT_GENERAL);
    if (getDescriptor == nullptr || !given || !context.recorder().wait(given->ready.value)) {
        return {};
    }
    const Texture& texture =
        *context.recorder().locked([&]() -> const Texture* { return &*image.picture().texture(); });
    ExportedImage exported = descriptionOf(device, image, texture);
    VkMemoryGetFdInfoKHR info{};
    info.sType = VK_STRUCTURE_TYPE_MEMORY_GET_FD_INFO_KHR;
    info.memory = texture.memory.memory;
    info.handleType = kindOf(texture.handle).type;
    if (!device.succeeded(getDescriptor(device.handle(), &info, &exported.descriptor), "exporting memory")) {
        return {};
    }
    return exported;
}

Qx::Ptr<GPUImage> importMemory(Context& context, const ExportedImage& exported)
{
    if (const std::string obstacle = obstacleToImport(context, exported); !obstacle.empty()) {
        refuseSharing("an image cannot be imported: " + obstacle);
        return {};
    }
    SharedMemory shared;
    shared.handle = exported.handle;
    shared.layout = exported.layout;
    shared.bytes = exported.handle == MemoryHandle::Opaque ? exported.bytes : 0;
    shared.descriptor = ::fcntl(exported.descriptor, F_DUPFD_CLOEXEC, 0);
    if (shared.descriptor < 0) {
        refuseSharing("an image cannot be imported: this process has no descriptor left");
        return {};
    }
    const Qx::Ptr<GPUImage> image = makeExchanged(context, exported.size, exported.format, shared);
    if (shared.descriptor >= 0) {
        ::close(shared.descriptor);
    }
    if (!image) {
        return {};
    }
    image->given = true;
    return takeBack(context, *image, VK_IMAGE_LAYOUT_GENERAL, {}) ? image : Qx::Ptr<GPUImage>();
}

} // namespace Qx::Host::Vulkan
