#include "host/gpu/sharing/SharedPictures.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace Qx::Host::Vulkan {

namespace {

constexpr VkImageLayout exchanged = VK_IMAGE_LAYOUT_GENERAL; ///< in which processes pass images on

void refuseSharing(const std::string& reason)
{
    report("GPU: " + reason);
}

Pooled<Texture> adopted(Context& context, std::unique_ptr<Texture> texture)
{
    context.textures().adopt(*texture);
    return {context.shared_from_this(), std::move(texture)};
}

/// A format of images that applications have.
struct SharedFormat
{
    VkFormat format;
    iGPUImage::eFormat texels;
    bool isReinterpreted; ///< views have the format of `texels`
};

const SharedFormat* sharedFormat(VkFormat format)
{
    static constexpr std::array<SharedFormat, 6> formats{{
        {VK_FORMAT_R8G8B8A8_UNORM, iGPUImage::eARGB8, false},
        {VK_FORMAT_R16G16B16A16_UNORM, iGPUImage::eARGB16, false},
        {VK_FORMAT_A2R10G10B10_UNORM_PACK32, iGPUImage::eARGB10, false},
        {VK_FORMAT_R8G8B8A8_SRGB, iGPUImage::eARGB8, true},
        {VK_FORMAT_B8G8R8A8_UNORM, iGPUImage::eARGB8, true},
        {VK_FORMAT_B8G8R8A8_SRGB, iGPUImage::eARGB8, true},
    }};
    const auto* const found = std::find_if(formats.begin(), formats.end(),
                                           [format](const auto& each) { return each.format == format; });
    return found != formats.end() ? &*found : nullptr;
}

std::string namesOfUses(VkImageUsageFlags uses)
{
    static constexpr std::array<std::pair<VkImageUsageFlags, const char*>, 4> names{{
        {VK_IMAGE_USAGE_SAMPLED_BIT, "VK_IMAGE_USAGE_SAMPLED_BIT"},
        {VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT, "VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT"},
        {VK_IMAGE_USAGE_TRANSFER_SRC_BIT, "VK_IMAGE_USAGE_TRANSFER_SRC_BIT"},
        {VK_IMAGE_USAGE_TRANSFER_DST_BIT, "VK_IMAGE_USAGE_TRANSFER_DST_BIT"},
    }};
    std::string list;
    for (const auto& [use, name] : names) {
        if ((uses & use) != 0) {
            list += (list.empty() ? "" : ", ") + std::string(name);
        }
    }
    return list;
}

/// Why the application's image cannot be used; empty if it can.
std::string obstacleTo(Context& context, const ApplicationImage& image)
{
    const SharedFormat* const format = sharedFormat(image.format);
    if (image.image == nullptr) {
        return "ApplicationImage::image is null";
    }
    if (format == nullptr) {
        return "its format is VkFormat " + std::to_string(image.format) +
               ", expected 37 (R8G8B8A8_UNORM), 91 (R16G16B16A16_UNORM), 58 (A2R10G10B10_UNORM_PACK32) or "
               "another of four components of 8 bits";
    }
    if (format->isReinterpreted && (image.flags & VK_IMAGE_CREATE_MUTABLE_FORMAT_BIT) == 0) {
        return "its format is VkFormat " + std::to_string(image.format) +
               ", for which it must be created with VK_IMAGE_CREATE_MUTABLE_FORMAT_BIT";
    }
    if (const VkImageUsageFlags missing = requiredImageUsage & ~image.usage; missing != 0) {
        return "it was created without " + namesOfUses(missing) + "; see requiredImageUsage";
    }
    if (!isSupported(context, image.size, format->texels)) {
        return "its size of " + std::to_string(image.size.x) + " x " + std::to_string(image.size.y) +
               " is not one of the device's";
    }
    return {};
}

TextureKey keyOf(XY<int> size, VkFormat format)
{
    return {format, static_cast<std::uint32_t>(size.x), static_cast<std::uint32_t>(size.y), 0};
}

bool isExchanged(Context& context, GPUImage& image)
{
    return context.recorder().locked([&] { return image.picture().texture()->origin == Origin::Exchanged; });
}

} // namespace

Qx::Ptr<GPUImage> wrap(Context& context, const ApplicationImage& image, VkImageLayout layout,
                       const DevicePoint& ready)
{
    if (const std::string obstacle = obstacleTo(context, image); !obstacle.empty()) {
        refuseSharing("the application's image cannot be used: " + obstacle);
        return {};
    }
    const iGPUImage::eFormat texels = sharedFormat(image.format)->texels;
    auto texture = std::make_unique<Texture>();
    texture->key = keyOf(image.size, vulkanFormat(texels));
    texture->origin = Origin::Application;
    texture->image = image.image;
    if (!context.device().succeeded(texture->createViews(context.device()),
                                    "creating views of the application's image")) {
        texture->destroy(context.device(), context.memory());
        return {};
    }
    const Pooled<Texture> held = adopted(context, std::move(texture));
    const std::uint64_t value =
        context.recorder().recordAfter(ready, [&](Batch& batch) { batch.takeBack(*held, layout, false); });
    return value != 0 ? Qx::makePtr<GPUImage>(held, image.size, texels) : Qx::Ptr<GPUImage>();
}

namespace {

/// Records that the application has the image from now on. Returns what it may use and when.
std::optional<GivenImage> recordGift(Context& context, GPUImage& image, VkImageLayout layout)
{
    GivenImage given;
    const auto record = [&](Batch& batch) {
        // Not the texture of a host image too, which the application would change with it.
        Texture* const texture = image.picture().forWriting(batch, false);
        if (texture == nullptr) {
            return false;
        }
        batch.giveAway(*texture, layout, texture->origin == Origin::Exchanged);
        given.image = texture->image;
        given.format = texture->key.format;
        given.layout = texture->use.layout;
        texture->given = true;
        image.given = true;
        return true;
    };
    const std::uint64_t value =
        context.recorder().record(image.picture().key.bytes(), Recorder::Submit::Now, record);
    given.ready = context.recorder().pointOf(value);
    return value != 0 ? std::optional(given) : std::nullopt;
}

} // namespace

std::optional<GivenImage> give(Context& context, GPUImage& image, VkImageLayout layout)
{
    if (layout == VK_IMAGE_LAYOUT_UNDEFINED || layout == VK_IMAGE_LAYOUT_PREINITIALIZED) {
        refuseSharing(
            "an image cannot be given in the layout UNDEFINED or PREINITIALIZED: its texels would be lost");
        return {};
    }
    return recordGift(context, image, isExchanged(context, image) ? exchanged : layout);
}

bool takeBack(Context& context, GPUImage& image, VkImageLayout layout, const DevicePoint& ready)
{
    if (!image.given) {
        refuseSharing("an image cannot be taken back: the application has not got it");
        return false;
    }
    const Picture& picture = image.picture();
    const bool isExternal = isExchanged(context, image);
    if ((picture.hasCompanion || isExternal) && layout != VK_IMAGE_LAYOUT_GENERAL) {
        refuseSharing("an image cannot be taken back in VkImageLayout " + std::to_string(layout) +
                      ": it was given in the layout GENERAL, and must be returned in it");
        return false;
    }
    return context.recorder().recordAfter(ready, [&](Batch& batch) {
        Texture& texture = *picture.texture();
        batch.takeBack(texture, layout, isExternal);
        texture.given = false;
        image.given = false;
    }) != 0;
}

namespace {

VkExternalMemoryImageCreateInfo externalImage()
{
    VkExternalMemoryImageCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_EXTERNAL_MEMORY_IMAGE_CREATE_INFO;
    info.handleTypes = VK_EXTERNAL_MEMORY_HANDLE_TYPE_OPAQUE_FD_BIT;
    return info;
}

/// Whether images of that key can be exported and imported.
bool canExchange(Context& context, const TextureKey& key)
{
    VkPhysicalDeviceExternalImageFormatInfo external{};
    external.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_EXTERNAL_IMAGE_FORMAT_INFO;
    external.handleType = VK_EXTERNAL_MEMORY_HANDLE_TYPE_OPAQUE_FD_BIT;
    VkPhysicalDeviceImageFormatInfo2 wanted{};
    wanted.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_IMAGE_FORMAT_INFO_2;
    wanted.pNext = &external;
    wanted.format = key.format;
    wanted.type = VK_IMAGE_TYPE_2D;
    wanted.tiling = VK_IMAGE_TILING_OPTIMAL;
    wanted.usage = usageOf(key);
    VkExternalImageFormatProperties offered{};
    offered.sType = VK_STRUCTURE_TYPE_EXTERNAL_IMAGE_FORMAT_PROPERTIES;
    VkImageFormatProperties2 properties{};
    properties.sType = VK_STRUCTURE_TYPE_IMAGE_FORMAT_PROPERTIES_2;
    properties.pNext = &offered;
    constexpr VkExternalMemoryFeatureFlags both =
        VK_EXTERNAL_MEMORY_FEATURE_EXPORTABLE_BIT | VK_EXTERNAL_MEMORY_FEATURE_IMPORTABLE_BIT;
    return vkGetPhysicalDeviceImageFormatProperties2(context.device().physical().handle, &wanted,
                                                     &properties) == VK_SUCCESS &&
           (offered.externalMemoryProperties.externalMemoryFeatures & both) == both;
}

/// Why images of that size cannot be shared with other processes; empty if they can.
std::string obstacleToExchange(Context& context, XY<int> size, iGPUImage::eFormat format)
{
    if (!context.device().sharesMemoryByDescriptor()) {
        return "the device has no VK_KHR_external_memory_fd, or the application has not enabled it";
    }
    if (!isSupported(context, size, format)) {
        return "the size of " + std::to_string(size.x) + " x " + std::to_string(size.y) +
               " or the format is not one of the device's";
    }
    return canExchange(context, keyOf(size, vulkanFormat(format)))
               ? std::string()
               : "the driver does not export images of this format by opaque file descriptors";
}

/// The type for memory of the image alone; the number of types if there is none.
std::uint32_t memoryTypeFor(const Device& device, const VkMemoryRequirements& requirements)
{
    const VkPhysicalDeviceMemoryProperties& memory = device.memory();
    std::uint32_t any = memory.memoryTypeCount;
    for (std::uint32_t i = memory.memoryTypeCount; i-- > 0;) {
        if ((requirements.memoryTypeBits & (1U << i)) == 0) {
            continue;
        }
        if ((memory.memoryTypes[i].propertyFlags & VK_MEMORY_PROPERTY_DEVICE_LOCAL_BIT) != 0) {
            return i;
        }
        any = i;
    }
    return any;
}

/// How memory that others have too is allocated.
struct SharedMemory
{
    const void* chain;       ///< of the allocation
    std::uint64_t bytes = 0; ///< 0: as many as the image needs
    int descriptor = -1;     ///< whose owner becomes the driver; then -1
};

/// Gives the image memory of its own.
VkResult bindOwnMemory(Device& device, SharedMemory& shared, Texture& texture)
{
    VkMemoryRequirements requirements;
    vkGetImageMemoryRequirements(device.handle(), texture.image, &requirements);
    const std::uint32_t type = memoryTypeFor(device, requirements);
    if (type == device.memory().memoryTypeCount || (shared.bytes != 0 && shared.bytes < requirements.size)) {
        return VK_ERROR_INVALID_EXTERNAL_HANDLE;
    }
    VkMemoryDedicatedAllocateInfo dedicated{};
    dedicated.sType = VK_STRUCTURE_TYPE_MEMORY_DEDICATED_ALLOCATE_INFO;
    dedicated.pNext = shared.chain;
    dedicated.image = texture.image;
    VkMemoryAllocateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_MEMORY_ALLOCATE_INFO;
    info.pNext = &dedicated;
    info.allocationSize = shared.bytes != 0 ? shared.bytes : requirements.size;
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
    return vkBindImageMemory(device.handle(), texture.image, texture.memory.memory, 0);
}

/// An image in such memory. Empty on failure.
Qx::Ptr<GPUImage> makeExchanged(Context& context, XY<int> size, iGPUImage::eFormat format,
                                SharedMemory& shared)
{
    Device& device = context.device();
    auto texture = std::make_unique<Texture>();
    texture->key = keyOf(size, vulkanFormat(format));
    texture->origin = Origin::Exchanged;
    const VkExternalMemoryImageCreateInfo external = externalImage();
    VkImageCreateInfo info = imageInfo(texture->key, VK_IMAGE_TILING_OPTIMAL, usageOf(texture->key));
    info.pNext = &external;
    VkResult result = vkCreateImage(device.handle(), &info, nullptr, &texture->image);
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

} // namespace

Qx::Ptr<GPUImage> makeExportable(Context& context, XY<int> size, iGPUImage::eFormat format)
{
    if (const std::string obstacle = obstacleToExchange(context, size, format); !obstacle.empty()) {
        refuseSharing("an image that can be exported cannot be created: " + obstacle);
        return {};
    }
    VkExportMemoryAllocateInfo exported{};
    exported.sType = VK_STRUCTURE_TYPE_EXPORT_MEMORY_ALLOCATE_INFO;
    exported.handleTypes = VK_EXTERNAL_MEMORY_HANDLE_TYPE_OPAQUE_FD_BIT;
    SharedMemory shared{&exported};
    return makeExchanged(context, size, format, shared);
}

std::optional<ExportedImage> exportMemory(Context& context, GPUImage& image)
{
    Device& device = context.device();
    if (!isExchanged(context, image)) {
        refuseSharing("an image cannot be exported: it was not created by createExportableImage()");
        return {};
    }
    const auto getDescriptor =
        reinterpret_cast<PFN_vkGetMemoryFdKHR>(vkGetDeviceProcAddr(device.handle(), "vkGetMemoryFdKHR"));
    const std::optional<GivenImage> given = recordGift(context, image, exchanged);
    if (getDescriptor == nullptr || !given || !context.recorder().wait(given->ready.value)) {
        return {};
    }
    const Texture& texture =
        *context.recorder().locked([&]() -> const Texture* { return &*image.picture().texture(); });
    VkMemoryRequirements requirements;
    vkGetImageMemoryRequirements(device.handle(), texture.image, &requirements);
    ExportedImage exported;
    exported.bytes = requirements.size;
    exported.size = image.getSize();
    exported.format = image.getFormat();
    exported.vulkanFormat = texture.key.format;
    std::memcpy(exported.device.data(), device.physical().uuid.data(), VK_UUID_SIZE);
    std::memcpy(exported.driver.data(), device.physical().driverUuid.data(), VK_UUID_SIZE);
    VkMemoryGetFdInfoKHR info{};
    info.sType = VK_STRUCTURE_TYPE_MEMORY_GET_FD_INFO_KHR;
    info.memory = texture.memory.memory;
    info.handleType = VK_EXTERNAL_MEMORY_HANDLE_TYPE_OPAQUE_FD_BIT;
    if (!device.succeeded(getDescriptor(device.handle(), &info, &exported.descriptor), "exporting memory")) {
        return {};
    }
    return exported;
}

Qx::Ptr<GPUImage> importMemory(Context& context, const ExportedImage& exported)
{
    const PhysicalDevice& physical = context.device().physical();
    std::string obstacle = obstacleToExchange(context, exported.size, exported.format);
    if (obstacle.empty() && ::fcntl(exported.descriptor, F_GETFD) < 0) {
        obstacle = "descriptor " + std::to_string(exported.descriptor) + " is not open";
    }
    if (obstacle.empty() &&
        (std::memcmp(exported.device.data(), physical.uuid.data(), VK_UUID_SIZE) != 0 ||
         std::memcmp(exported.driver.data(), physical.driverUuid.data(), VK_UUID_SIZE) != 0)) {
        obstacle = "it comes from another device or driver; opaque memory can be imported by the same only";
    }
    if (!obstacle.empty()) {
        refuseSharing("an image cannot be imported: " + obstacle);
        return {};
    }
    VkImportMemoryFdInfoKHR imported{};
    imported.sType = VK_STRUCTURE_TYPE_IMPORT_MEMORY_FD_INFO_KHR;
    imported.handleType = VK_EXTERNAL_MEMORY_HANDLE_TYPE_OPAQUE_FD_BIT;
    imported.fd = ::fcntl(exported.descriptor, F_DUPFD_CLOEXEC, 0);
    SharedMemory shared{&imported, exported.bytes, imported.fd};
    const Qx::Ptr<GPUImage> image = makeExchanged(context, exported.size, exported.format, shared);
    if (shared.descriptor >= 0) {
        ::close(shared.descriptor);
    }
    if (!image) {
        return {};
    }
    image->given = true;
    return takeBack(context, *image, exchanged, {}) ? image : Qx::Ptr<GPUImage>();
}

} // namespace Qx::Host::Vulkan
