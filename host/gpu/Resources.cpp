#include "host/gpu/Resources.h"

#include <algorithm>

namespace Qx::Host::Vulkan {

namespace {

VkResult createImage(Device& device, const TextureKey& key, VkImage& image)
{
    VkImageCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_IMAGE_CREATE_INFO;
    info.imageType = key.depth > 0 ? VK_IMAGE_TYPE_3D : VK_IMAGE_TYPE_2D;
    info.format = key.format;
    info.extent = {key.width, key.height, std::max(key.depth, 1U)};
    info.mipLevels = 1;
    info.arrayLayers = 1;
    info.samples = VK_SAMPLE_COUNT_1_BIT;
    info.tiling = VK_IMAGE_TILING_OPTIMAL;
    info.usage = VK_IMAGE_USAGE_SAMPLED_BIT | VK_IMAGE_USAGE_TRANSFER_DST_BIT;
    if (key.depth == 0) {
        info.usage |= VK_IMAGE_USAGE_TRANSFER_SRC_BIT | VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT;
    }
    VkImageFormatProperties properties;
    const VkResult supported = vkGetPhysicalDeviceImageFormatProperties(
        device.physical(), info.format, info.imageType, info.tiling, info.usage, 0, &properties);
    if (supported != VK_SUCCESS) {
        return supported;
    }
    if (key.width > properties.maxExtent.width || key.height > properties.maxExtent.height ||
        key.depth > properties.maxExtent.depth || key.bytes() > properties.maxResourceSize) {
        return VK_ERROR_FORMAT_NOT_SUPPORTED;
    }
    return vkCreateImage(device.handle(), &info, nullptr, &image);
}

VkResult createView(Device& device, const TextureKey& key, VkImage image, bool swizzled, VkImageView& view)
{
    VkImageViewCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_IMAGE_VIEW_CREATE_INFO;
    info.image = image;
    info.viewType = key.depth > 0 ? VK_IMAGE_VIEW_TYPE_3D : VK_IMAGE_VIEW_TYPE_2D;
    info.format = key.format;
    info.subresourceRange = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
    if (swizzled && isRotated(key.format)) {
        info.components = {VK_COMPONENT_SWIZZLE_G, VK_COMPONENT_SWIZZLE_B, VK_COMPONENT_SWIZZLE_A,
                           VK_COMPONENT_SWIZZLE_R};
    }
    return vkCreateImageView(device.handle(), &info, nullptr, &view);
}

} // namespace

std::uint64_t TextureKey::bytes() const
{
    return std::uint64_t{width} * height * std::max(depth, 1U) * bytesPerTexel(format);
}

VkResult Texture::create(Device& device, DeviceMemory& memory, const Key& key, Texture& texture)
{
    texture.key = key;
    VkResult result = createImage(device, key, texture.image);
    if (result == VK_SUCCESS) {
        VkMemoryRequirements requirements;
        vkGetImageMemoryRequirements(device.handle(), texture.image, &requirements);
        result = memory.allocate(requirements, MemoryUse::Image, texture.memory);
    }
    if (result == VK_SUCCESS) {
        result =
            vkBindImageMemory(device.handle(), texture.image, texture.memory.memory, texture.memory.offset);
    }
    if (result == VK_SUCCESS) {
        result = createView(device, key, texture.image, true, texture.sampled);
    }
    if (result == VK_SUCCESS && key.depth == 0) {
        result = createView(device, key, texture.image, false, texture.target);
    }
    if (result != VK_SUCCESS) {
        texture.destroy(device, memory);
    }
    return result;
}

void Texture::destroy(Device& device, DeviceMemory& deviceMemory)
{
    vkDestroyImageView(device.handle(), sampled, nullptr);
    vkDestroyImageView(device.handle(), target, nullptr);
    vkDestroyImage(device.handle(), image, nullptr);
    deviceMemory.free(memory);
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
        memory.free(allocation);
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
    deviceMemory.free(memory);
    buffer = nullptr;
    memory = {};
}

VkFormat vulkanFormat(iGPUImage::eFormat format)
{
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
        return 8;
    case VK_FORMAT_R32G32B32A32_SFLOAT:
        return 16;
    default:
        return 4;
    }
}

bool isRotated(VkFormat format)
{
    return format == VK_FORMAT_R8G8B8A8_UNORM || format == VK_FORMAT_R16G16B16A16_UNORM;
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
    default:
        return 1.0F;
    }
}

} // namespace Qx::Host::Vulkan
