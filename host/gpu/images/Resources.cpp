#include "host/gpu/images/Resources.h"

#include <algorithm>
#include <utility>

namespace Qx::Host::Vulkan {

namespace {

constexpr std::uint32_t packedBytes = 16;

/// The host may have written to an image in rows before the device first uses it.
VkImageLayout layoutOfNew(VkImageTiling tiling)
{
    return tiling == VK_IMAGE_TILING_LINEAR ? VK_IMAGE_LAYOUT_PREINITIALIZED : VK_IMAGE_LAYOUT_UNDEFINED;
}

VkImageCreateInfo imageInfo(const TextureKey& key, VkImageTiling tiling, VkImageUsageFlags usage)
{
    VkImageCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_IMAGE_CREATE_INFO;
    info.imageType = key.depth > 0 ? VK_IMAGE_TYPE_3D : VK_IMAGE_TYPE_2D;
    info.format = key.format;
    info.extent = {key.width, key.height, std::max(key.depth, 1U)};
    info.mipLevels = 1;
    info.arrayLayers = 1;
    info.samples = VK_SAMPLE_COUNT_1_BIT;
    info.tiling = tiling;
    info.usage = usage;
    info.initialLayout = layoutOfNew(tiling);
    return info;
}

VkImageTiling tilingOf(const Device& device, const TextureKey& key)
{
    const bool rowByRow = device.drawsPacked() && key.depth == 0 && packedBits(key.format) != 0;
    return rowByRow ? VK_IMAGE_TILING_LINEAR : VK_IMAGE_TILING_OPTIMAL;
}

VkResult createImage(Device& device, const TextureKey& key, VkImage& image)
{
    VkImageUsageFlags usage = VK_IMAGE_USAGE_SAMPLED_BIT | VK_IMAGE_USAGE_TRANSFER_DST_BIT;
    if (key.depth == 0) {
        usage |= VK_IMAGE_USAGE_TRANSFER_SRC_BIT | VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT;
    }
    const VkImageCreateInfo info = imageInfo(key, tilingOf(device, key), usage);
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

VkSubresourceLayout layoutInMemory(Device& device, VkImage image)
{
    const VkImageSubresource whole{VK_IMAGE_ASPECT_COLOR_BIT, 0, 0};
    VkSubresourceLayout layout;
    vkGetImageSubresourceLayout(device.handle(), image, &whole, &layout);
    return layout;
}

VkResult createView(Device& device, VkFormat format, bool table, VkImage image, bool swizzled,
                    VkImageView& view)
{
    VkImageViewCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_IMAGE_VIEW_CREATE_INFO;
    info.image = image;
    info.viewType = table ? VK_IMAGE_VIEW_TYPE_3D : VK_IMAGE_VIEW_TYPE_2D;
    info.format = format;
    info.subresourceRange = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 1, 0, 1};
    if (swizzled && isRotated(format)) {
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
    texture.use.layout = layoutOfNew(tilingOf(device, key));
    VkResult result = createImage(device, key, texture.image);
    if (result == VK_SUCCESS) {
        result = texture.allocate(device, memory);
    }
    if (result == VK_SUCCESS) {
        result = createView(device, key.format, key.depth > 0, texture.image, true, texture.sampled);
    }
    if (result == VK_SUCCESS && key.depth == 0) {
        result = createView(device, key.format, false, texture.image, false, texture.target);
    }
    if (result != VK_SUCCESS) {
        texture.destroy(device, memory);
    }
    return result;
}

VkResult Texture::allocate(Device& device, DeviceMemory& deviceMemory)
{
    VkMemoryRequirements requirements;
    vkGetImageMemoryRequirements(device.handle(), image, &requirements);
    if (tilingOf(device, key) == VK_IMAGE_TILING_LINEAR && createPacked(device) == VK_SUCCESS) {
        VkMemoryRequirements others;
        vkGetImageMemoryRequirements(device.handle(), packed.image, &others);
        requirements.size = std::max(requirements.size, others.size);
        requirements.alignment = std::max(requirements.alignment, others.alignment);
        requirements.memoryTypeBits &= others.memoryTypeBits;
        vkGetBufferMemoryRequirements(device.handle(), packed.buffer, &others);
        requirements.size = std::max(requirements.size, others.size);
        requirements.alignment = std::max(requirements.alignment, others.alignment);
        requirements.memoryTypeBits &= others.memoryTypeBits;
    } else {
        destroyPacked(device);
    }
    VkResult result = deviceMemory.allocate(requirements, MemoryUse::Image, memory);
    inHostMemory = result == VK_SUCCESS && liesAsHostImage(device);
    if (result == VK_SUCCESS) {
        result = vkBindImageMemory(device.handle(), image, memory.memory, memory.offset);
    }
    if (result != VK_SUCCESS || packed.image == nullptr) {
        return result;
    }
    result = vkBindImageMemory(device.handle(), packed.image, memory.memory, memory.offset);
    if (result == VK_SUCCESS) {
        result = vkBindBufferMemory(device.handle(), packed.buffer, memory.memory, memory.offset);
    }
    if (result == VK_SUCCESS) {
        result = createView(device, packedFormat, false, packed.image, false, packed.target);
    }
    const bool isByte = packedBits(key.format) == 8;
    const std::array<VkFormat, 3> formats{isByte ? VK_FORMAT_R8G8B8A8_UINT : VK_FORMAT_UNDEFINED,
                                          isByte ? VK_FORMAT_R32G32_UINT : VK_FORMAT_R16G16B16A16_UINT,
                                          VK_FORMAT_R32G32B32A32_UINT};
    for (std::size_t i = 0; i < formats.size() && result == VK_SUCCESS; ++i) {
        if (formats[i] != VK_FORMAT_UNDEFINED) {
            VkBufferViewCreateInfo info{};
            info.sType = VK_STRUCTURE_TYPE_BUFFER_VIEW_CREATE_INFO;
            info.buffer = packed.buffer;
            info.format = formats[i];
            info.range = VK_WHOLE_SIZE;
            result = vkCreateBufferView(device.handle(), &info, nullptr, &packed.views[i]);
        }
    }
    return result;
}

bool mayLieInHostMemory(const Device& device, const TextureKey& key)
{
    return tilingOf(device, key) == VK_IMAGE_TILING_LINEAR &&
           key.width * bytesPerTexel(key.format) % packedBytes == 0;
}

bool Texture::liesAsHostImage(const Device& device) const
{
    constexpr VkMemoryPropertyFlags needed = VK_MEMORY_PROPERTY_HOST_VISIBLE_BIT |
                                             VK_MEMORY_PROPERTY_HOST_COHERENT_BIT |
                                             VK_MEMORY_PROPERTY_HOST_CACHED_BIT;
    const VkMemoryPropertyFlags has = device.memory().memoryTypes[memory.type].propertyFlags;
    return packed.image != nullptr && (has & needed) == needed &&
           packed.rowPacked * packedBytes == key.width * bytesPerTexel(key.format);
}

/// Fails where the image's rows cannot be seen in the other shapes.
VkResult Texture::createPacked(Device& device)
{
    const std::uint32_t texelBytes = bytesPerTexel(key.format);
    const std::uint32_t texelsPerPacked = packedBytes / texelBytes;
    packed.width = (key.width + texelsPerPacked - 1) / texelsPerPacked;
    const VkImageCreateInfo info = imageInfo({packedFormat, packed.width, key.height, 0},
                                             VK_IMAGE_TILING_LINEAR, VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT);
    VkResult result = vkCreateImage(device.handle(), &info, nullptr, &packed.image);
    if (result != VK_SUCCESS) {
        packed.image = nullptr;
        return result;
    }
    const VkSubresourceLayout texels = layoutInMemory(device, image);
    const VkSubresourceLayout whole = layoutInMemory(device, packed.image);
    const VkDeviceSize bytes = texels.rowPitch * key.height;
    if (texels.rowPitch != whole.rowPitch || texels.offset != 0 || whole.offset != 0 ||
        texels.rowPitch % packedBytes != 0 || bytes / texelBytes > device.limits().maxTexelBufferElements) {
        return VK_ERROR_FORMAT_NOT_SUPPORTED;
    }
    packed.rowPacked = static_cast<std::uint32_t>(texels.rowPitch / packedBytes);
    VkBufferCreateInfo buffer{};
    buffer.sType = VK_STRUCTURE_TYPE_BUFFER_CREATE_INFO;
    buffer.size = bytes;
    buffer.usage = VK_BUFFER_USAGE_UNIFORM_TEXEL_BUFFER_BIT;
    result = vkCreateBuffer(device.handle(), &buffer, nullptr, &packed.buffer);
    if (result != VK_SUCCESS) {
        packed.buffer = nullptr;
    }
    return result;
}

void Texture::exchange(Texture& other)
{
    const auto swapValues = [](auto& a, auto& b) { a = b.exchange(a); };
    std::swap(image, other.image);
    std::swap(memory, other.memory);
    std::swap(sampled, other.sampled);
    std::swap(target, other.target);
    std::swap(packed, other.packed);
    std::swap(inHostMemory, other.inHostMemory);
    std::swap(use, other.use);
    swapValues(lastUse, other.lastUse);
    swapValues(lastWrite, other.lastWrite);
    swapValues(hosted, other.hosted);
    swapValues(givenOut, other.givenOut);
}

void Texture::destroyPacked(Device& device)
{
    vkDestroyImageView(device.handle(), packed.target, nullptr);
    for (VkBufferView view : packed.views) {
        vkDestroyBufferView(device.handle(), view, nullptr);
    }
    vkDestroyImage(device.handle(), packed.image, nullptr);
    vkDestroyBuffer(device.handle(), packed.buffer, nullptr);
    packed = {};
}

void Texture::destroy(Device& device, DeviceMemory& deviceMemory)
{
    destroyPacked(device);
    vkDestroyImageView(device.handle(), sampled, nullptr);
    vkDestroyImageView(device.handle(), target, nullptr);
    vkDestroyImage(device.handle(), image, nullptr);
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

std::uint32_t packedBits(VkFormat format)
{
    switch (format) {
    case VK_FORMAT_R8G8B8A8_UNORM:
        return 8;
    case VK_FORMAT_R16G16B16A16_UNORM:
        return 16;
    default:
        return 0;
    }
}

} // namespace Qx::Host::Vulkan
