#include "host/gpu/packed/PackedViews.h"

#include <algorithm>

namespace Qx::Host::Vulkan {

namespace {

VkSubresourceLayout layoutInMemory(Device& device, VkImage image)
{
    const VkImageSubresource whole{VK_IMAGE_ASPECT_COLOR_BIT, 0, 0};
    VkSubresourceLayout layout;
    vkGetImageSubresourceLayout(device.handle(), image, &whole, &layout);
    return layout;
}

void raise(VkMemoryRequirements& requirements, const VkMemoryRequirements& others)
{
    requirements.size = std::max(requirements.size, others.size);
    requirements.alignment = std::max(requirements.alignment, others.alignment);
    requirements.memoryTypeBits &= others.memoryTypeBits;
}

VkExtent2D packedSize(const TextureKey& key)
{
    const std::uint32_t texels = packedBytes / bytesPerTexel(key.format);
    return {(key.width + texels - 1) / texels, key.height};
}

} // namespace

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

bool isPackedVolume(const TextureKey& key)
{
    return key.depth > 0 && key.format == volumeFormat;
}

PackedViews::PackedViews(const TextureKey& key) : bits_(packedBits(key.format)), size_(packedSize(key)) {}

const PackedViews* PackedViews::of(const Texture& texture)
{
    return static_cast<const PackedViews*>(texture.companion.get()); // a device has one drawing path
}

std::unique_ptr<PackedViews> PackedViews::create(Device& device, const TextureKey& key, VkImage image,
                                                 VkMemoryRequirements& requirements)
{
    std::unique_ptr<PackedViews> self(new PackedViews(key));
    if (self->createUnbound(device, key, image) != VK_SUCCESS) {
        self->destroy(device);
        return nullptr;
    }
    VkMemoryRequirements others;
    if (self->image_ != nullptr) {
        vkGetImageMemoryRequirements(device.handle(), self->image_, &others);
        raise(requirements, others);
    }
    vkGetBufferMemoryRequirements(device.handle(), self->buffer_, &others);
    raise(requirements, others);
    return self;
}

VkResult PackedViews::createUnbound(Device& device, const TextureKey& key, VkImage image)
{
    const VkSubresourceLayout texels = layoutInMemory(device, image);
    const bool isVolume = key.depth > 0;
    const VkDeviceSize bytes = isVolume ? texels.depthPitch * key.depth : texels.rowPitch * key.height;
    if (texels.offset != 0 || texels.rowPitch % packedBytes != 0 ||
        (isVolume && texels.depthPitch % texels.rowPitch != 0) ||
        bytes / bytesPerTexel(key.format) > device.limits().maxTexelBufferElements) {
        return VK_ERROR_FORMAT_NOT_SUPPORTED;
    }
    rowPacked_ = static_cast<std::uint32_t>(texels.rowPitch / packedBytes);
    VkResult result = VK_SUCCESS;
    if (isVolume) {
        layerRows_ = static_cast<std::uint32_t>(texels.depthPitch / texels.rowPitch);
    } else {
        result = createPackedImage(device, texels);
    }
    if (result != VK_SUCCESS) {
        return result;
    }
    VkBufferCreateInfo buffer{};
    buffer.sType = VK_STRUCTURE_TYPE_BUFFER_CREATE_INFO;
    buffer.size = bytes;
    buffer.usage = VK_BUFFER_USAGE_UNIFORM_TEXEL_BUFFER_BIT;
    result = vkCreateBuffer(device.handle(), &buffer, nullptr, &buffer_);
    if (result != VK_SUCCESS) {
        buffer_ = nullptr;
    }
    return result;
}

VkResult PackedViews::createPackedImage(Device& device, const VkSubresourceLayout& texels)
{
    const VkImageCreateInfo info = imageInfo({packedFormat, size_.width, size_.height, 0},
                                             VK_IMAGE_TILING_LINEAR, VK_IMAGE_USAGE_COLOR_ATTACHMENT_BIT);
    const VkResult result = vkCreateImage(device.handle(), &info, nullptr, &image_);
    if (result != VK_SUCCESS) {
        image_ = nullptr;
        return result;
    }
    const VkSubresourceLayout packed = layoutInMemory(device, image_);
    return texels.rowPitch == packed.rowPitch && packed.offset == 0 ? VK_SUCCESS
                                                                    : VK_ERROR_FORMAT_NOT_SUPPORTED;
}

VkResult PackedViews::bind(Device& device, const Allocation& memory)
{
    VkResult result = VK_SUCCESS;
    if (image_ != nullptr) {
        result = vkBindImageMemory(device.handle(), image_, memory.memory, memory.offset);
    }
    if (result == VK_SUCCESS) {
        result = vkBindBufferMemory(device.handle(), buffer_, memory.memory, memory.offset);
    }
    if (result == VK_SUCCESS && image_ != nullptr) {
        result =
            createView(device, {packedFormat, size_.width, size_.height, 0}, image_, Swizzle::None, target_);
    }
    return result == VK_SUCCESS ? createTexels(device) : result;
}

VkResult PackedViews::createTexels(Device& device)
{
    const bool isByte = bits_ == 8;
    std::array<VkFormat, 3> formats{isByte ? VK_FORMAT_R8G8B8A8_UINT : VK_FORMAT_UNDEFINED,
                                    isByte ? VK_FORMAT_R32G32_UINT : VK_FORMAT_R16G16B16A16_UINT,
                                    VK_FORMAT_R32G32B32A32_UINT};
    if (image_ == nullptr) {
        formats = {VK_FORMAT_UNDEFINED, VK_FORMAT_UNDEFINED, volumeFormat};
    }
    VkResult result = VK_SUCCESS;
    for (std::size_t i = 0; i < formats.size() && result == VK_SUCCESS; ++i) {
        if (formats[i] != VK_FORMAT_UNDEFINED) {
            VkBufferViewCreateInfo info{};
            info.sType = VK_STRUCTURE_TYPE_BUFFER_VIEW_CREATE_INFO;
            info.buffer = buffer_;
            info.format = formats[i];
            info.range = VK_WHOLE_SIZE;
            result = vkCreateBufferView(device.handle(), &info, nullptr, &texels_[i]);
        }
    }
    return result;
}

void PackedViews::destroy(Device& device)
{
    vkDestroyImageView(device.handle(), target_, nullptr);
    for (VkBufferView& view : texels_) {
        vkDestroyBufferView(device.handle(), view, nullptr);
        view = nullptr;
    }
    vkDestroyImage(device.handle(), image_, nullptr);
    vkDestroyBuffer(device.handle(), buffer_, nullptr);
    target_ = nullptr;
    image_ = nullptr;
    buffer_ = nullptr;
}

} // namespace Qx::Host::Vulkan
