#include "host/gpu/images/Resources.h"

#include "host/gpu/FloatImages.h"
#include "host/gpu/device/DrawingPath.h"

#include <algorithm>
#include <utility>

namespace Qx::Host::Vulkan {

namespace {

/// The host may have written to an image in rows before the device first uses it.
VkImageLayout layoutOfNew(VkImageTiling tiling)
{
    return tiling == VK_IMAGE_TILING_LINEAR ? VK_IMAGE_LAYOUT_PREINITIALIZED : VK_IMAGE_LAYOUT_UNDEFINED;
}

VkImageTiling tilingOf(const Device& device, const TextureKey& key)
{
    const DrawingPath* path = device.drawingPath();
    return path != nullptr ? path->tilingOf(key) : VK_IMAGE_TILING_OPTIMAL;
}

VkResult createImage(Device& device, const TextureKey& key, VkImage& image)
{
    const VkImageCreateInfo info = imageInfo(key, tilingOf(device, key), usageOf(key));
    VkImageFormatProperties properties;
    const VkResult supported = vkGetPhysicalDeviceImageFormatProperties(
        device.physical().handle, info.format, info.imageType, info.tiling, info.usage, 0, &properties);
    if (supported != VK_SUCCESS) {
        return supported;
    }
    if (key.width > properties.maxExtent.width || key.height > properties.maxExtent.height ||
        key.depth > properties.maxExtent.depth || key.levels > properties.maxMipLevels ||
        key.bytes() > properties.maxResourceSize) {
        return VK_ERROR_FORMAT_NOT_SUPPORTED;
    }
    return vkCreateImage(device.handle(), &info, nullptr, &image);
}

} // namespace

VkImageUsageFlags usageOf(const TextureKey& key)
{
    VkImageUsageFlags usage = VK_IMAGE_USAGE_SAMPLED_BIT | VK_IMAGE_USAGE_TRANSFER_DST_BIT;
    if (key.depth == 0) {
        usage |= VK_IMAGE_USAGE_TRANSFER_SRC_BIT | VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT;
    }
    return usage;
}

VkImageCreateInfo imageInfo(const TextureKey& key, VkImageTiling tiling, VkImageUsageFlags usage)
{
    VkImageCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_IMAGE_CREATE_INFO;
    info.imageType = key.depth > 0 ? VK_IMAGE_TYPE_3D : VK_IMAGE_TYPE_2D;
    info.format = key.format;
    info.extent = {key.width, key.height, std::max(key.depth, 1U)};
    info.mipLevels = key.levels;
    info.arrayLayers = 1;
    info.samples = VK_SAMPLE_COUNT_1_BIT;
    info.tiling = tiling;
    info.usage = usage;
    info.initialLayout = layoutOfNew(tiling);
    return info;
}

VkResult createView(Device& device, const TextureKey& key, VkImage image, Swizzle swizzle, VkImageView& view,
                    Levels levels)
{
    VkImageViewCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_IMAGE_VIEW_CREATE_INFO;
    info.image = image;
    info.viewType = key.depth > 0 ? VK_IMAGE_VIEW_TYPE_3D : VK_IMAGE_VIEW_TYPE_2D;
    info.format = key.format;
    info.subresourceRange = {VK_IMAGE_ASPECT_COLOR_BIT, levels.first, levels.count, 0, 1};
    if (swizzle == Swizzle::ForEffects && key.depth == 0 && isRotated(key.format)) {
        info.components = {VK_COMPONENT_SWIZZLE_G, VK_COMPONENT_SWIZZLE_B, VK_COMPONENT_SWIZZLE_A,
                           VK_COMPONENT_SWIZZLE_R};
    }
    return vkCreateImageView(device.handle(), &info, nullptr, &view);
}

std::uint64_t TextureKey::bytes() const
{
    return rowBytes() * height * std::max(depth, 1U);
}

std::uint64_t TextureKey::rowBytes() const
{
    return std::uint64_t{width} * bytesPerTexel(format);
}

VkResult Texture::create(Device& device, DeviceMemory& memory, const Key& key, Texture& texture)
{
    texture.key = key;
    texture.use.layout = layoutOfNew(tilingOf(device, key));
    VkResult result = createImage(device, key, texture.image);
    if (result == VK_SUCCESS) {
        result = texture.allocate(device, memory);
    }
    if (result == VK_SUCCESS) {
        result = texture.createViews(device);
    }
    if (result != VK_SUCCESS) {
        texture.destroy(device, memory);
    }
    return result;
}

VkResult Texture::createViews(Device& device)
{
    VkResult result = createView(device, key, image, Swizzle::ForEffects, sampled, {0, key.levels});
    if (result == VK_SUCCESS && key.depth == 0) {
        result = createView(device, key, image, Swizzle::None, target);
    }
    for (std::uint32_t level = 1; level < key.levels && result == VK_SUCCESS; ++level) {
        result = createView(device, key, image, Swizzle::None, smaller.emplace_back(), {level, 1});
    }
    return result;
}

VkResult Texture::allocate(Device& device, DeviceMemory& deviceMemory)
{
    VkMemoryRequirements requirements;
    vkGetImageMemoryRequirements(device.handle(), image, &requirements);
    if (const DrawingPath* path = device.drawingPath()) {
        companion = path->createViews(device, key, image, requirements);
    }
    VkResult result = deviceMemory.allocate(requirements, MemoryUse::Image, memory);
    inHostMemory = result == VK_SUCCESS && liesAsHostImage(device);
    if (result == VK_SUCCESS) {
        result = vkBindImageMemory(device.handle(), image, memory.memory, memory.offset);
    }
    if (result == VK_SUCCESS && companion != nullptr) {
        result = companion->bind(device, memory);
    }
    return result;
}

bool Texture::liesAsHostImage(const Device& device) const
{
    constexpr VkMemoryPropertyFlags needed = VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT |
                                             VK_MEMORY_PROPERTY_HOST_COHERENT_BIT |
                                             VK_MEMORY_PROPERTY_HOST_CACHED_BIT;
    const VkMemoryPropertyFlags has = device.memory().memoryTypes[memory.type].propertyFlags;
    return companion != nullptr && key.depth == 0 && !device.physical().withheld.sharedMemory &&
           (has & needed) == needed && companion->rowBytes() == key.rowBytes();
}

void Texture::exchange(Texture& other)
{
    const auto swapValues = [](auto& a, auto& b) { a = b.exchange(a); };
    std::swap(image, other.image);
    std::swap(memory, other.memory);
    std::swap(sampled, other.sampled);
    std::swap(target, other.target);
    std::swap(smaller, other.smaller);
    std::swap(companion, other.companion);
    std::swap(inHostMemory, other.inHostMemory);
    std::swap(use, other.use);
    swapValues(lastUse, other.lastUse);
    swapValues(lastWrite, other.lastWrite);
    swapValues(downloadedBy, other.downloadedBy);
    swapValues(hosted, other.hosted);
    swapValues(givenOut, other.givenOut);
}

void Texture::destroy(Device& device, DeviceMemory& deviceMemory)
{
    if (companion != nullptr) {
        companion->destroy(device);
        companion.reset();
    }
    vkDestroyImageView(device.handle(), sampled, nullptr);
    vkDestroyImageView(device.handle(), target, nullptr);
    for (VkImageView level : smaller) {
        vkDestroyImageView(device.handle(), level, nullptr);
    }
    smaller.clear();
    if (origin != Origin::Application) {
        vkDestroyImage(device.handle(), image, nullptr);
    }
    deviceMemory.release(memory);
    sampled = nullptr;
    target = nullptr;
    image = nullptr;
    memory = {};
}

VkResult createBuffer(Device& device, DeviceMemory& memory, VkDeviceSize bytes, VkBufferUsageFlags usage,
                      MemoryUse use, VkBuffer& buffer, Allocation& allocation)
{
    VkBufferCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_BUFFER_CREATE_INFO;
    info.size = bytes;
    info.usage = usage;
    std::array<std::uint32_t, 2> families{};
    if (use == MemoryUse::HostRead && device.has(Lane::Uploads)) {
        families = {device.queueFamily(Lane::Drawing), device.queueFamily(Lane::Uploads)};
        info.sharingMode = VK_SHARING_MODE_CONCURRENT;
        info.queueFamilyIndexCount = static_cast<std::uint32_t>(families.size());
        info.pQueueFamilyIndices = families.data();
    }
    VkResult result = vkCreateBuffer(device.handle(), &info, nullptr, &buffer);
    if (result != VK_SUCCESS) {
        buffer = nullptr;
        return result;
    }
    VkMemoryRequirements requirements;
    vkGetBufferMemoryRequirements(device.handle(), buffer, &requirements);
    result = memory.allocate(requirements, use, allocation);
    if (result == VK_SUCCESS) {
        result = vkBindBufferMemory(device.handle(), buffer, allocation.memory, allocation.offset);
    }
    if (result != VK_SUCCESS) {
        vkDestroyBuffer(device.handle(), buffer, nullptr);
        memory.release(allocation);
        buffer = nullptr;
        allocation = {};
    }
    return result;
}

VkResult HostBuffer::create(Device& device, DeviceMemory& memory, const Key& key, HostBuffer& buffer)
{
    buffer.key = key;
    return createBuffer(device, memory, key,
                        VK_BUFFER_USAGE_TRANSFER_SRC_BIT | VK_BUFFER_USAGE_TRANSFER_DST_BIT,
                        MemoryUse::HostRead, buffer.buffer, buffer.memory);
}

void HostBuffer::destroy(Device& device, DeviceMemory& deviceMemory)
{
    vkDestroyBuffer(device.handle(), buffer, nullptr);
    deviceMemory.release(memory);
    buffer = nullptr;
    memory = {};
}

VkFormat vulkanFormat(iGPUImage::eFormat format)
{
    if (format == floatTexels) {
        return floatFormat;
    }
    switch (format) {
    case iGPUImage::eARGB8:
        return VK_FORMAT_R8G8B8A8_UNORM;
    case iGPUImage::eARGB16:
        return VK_FORMAT_R16G16B16A16_UNORM;
    case iGPUImage::eARGB10:
        return VK_FORMAT_A2R10G10B10_UNORM_PACK32;
    }
    return VK_FORMAT_UNDEFINED;
}

std::uint32_t bytesPerTexel(VkFormat format)
{
    switch (format) {
    case VK_FORMAT_R16G16B16A16_UNORM:
    case VK_FORMAT_R16G16B16A16_SFLOAT:
        return 8;
    case VK_FORMAT_R32G32B32A32_SFLOAT:
        return 16;
    default:
        return 4;
    }
}

bool isRotated(VkFormat format)
{
    return format == VK_FORMAT_R8G8B8A8_UNORM || format == VK_FORMAT_R16G16B16A16_UNORM ||
           format == floatFormat;
}

bool holdsFloats(VkFormat format)
{
    return format == floatFormat || format == VK_FORMAT_R16G16B16A16_SFLOAT;
}

float maxCode(VkFormat format)
{
    switch (format) {
    case VK_FORMAT_R8G8B8A8_UNORM:
        return 255.0F;
    case VK_FORMAT_R16G16B16A16_UNORM:
        return 65535.0F;
    case VK_FORMAT_A2R10G10B10_UNORM_PACK32:
        return 1023.0F;
    case VK_FORMAT_R16G16B16A16_SFLOAT:
    case floatFormat:
        return codesOfFloats;
    default:
        return 1.0F;
    }
}

std::array<float, 4> maxCodes(VkFormat format)
{
    const float code = maxCode(format);
    return {code, code, code, format == VK_FORMAT_A2R10G10B10_UNORM_PACK32 ? 3.0F : code};
}

} // namespace Qx::Host::Vulkan
