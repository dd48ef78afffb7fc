#pragma once

#include "host/gpu/device/DeviceMemory.h"
#include "platform/GPUImage.h"

#include <compare>

namespace Qx::Host::Vulkan {

/// What an image or buffer was last used for, so that the next use can be ordered after it. A layout stands
/// for one stage: an image in a reading layout needs nothing before the next read in it. Only the recorder's
/// lock holder looks at it.
struct UseState
{
    VkImageLayout layout = VK_IMAGE_LAYOUT_UNDEFINED;
    VkPipelineStageFlags2 stage = VK_PIPELINE_STAGE_2_NONE;
    VkAccessFlags2 written = VK_ACCESS_2_NONE;
};

/// What two textures must agree on to replace each other.
struct TextureKey
{
    VkFormat format = VK_FORMAT_UNDEFINED;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t depth = 0; ///< 0 for two-dimensional images

    friend auto operator<=>(const TextureKey&, const TextureKey&) = default;
    std::uint64_t bytes() const;
};

/// The memory of an image in other shapes: as an image whose texels are groups of the image's, and as one
/// row of texels, rows one after the other.
struct PackedTexels
{
    VkImage image = nullptr; ///< of packedFormat
    VkImageView target = nullptr;
    VkBuffer buffer = nullptr;
    std::array<VkBufferView, 3> views{}; ///< see texelsOf()
    std::uint32_t width = 0;             ///< groups in a row of the picture
    std::uint32_t rowPacked = 0;         ///< groups from one row to the next

    /// The buffer as texels of 8 or 16 bytes, of 32-bit components, or, for a size that is less, the image's
    /// own.
    const VkBufferView& texelsOf(std::uint32_t bytes) const
    {
        return views[bytes == 16 ? 2 : bytes == 8 ? 1 : 0];
    }
};

/// An image on the device with its memory and views.
struct Texture
{
    using Key = TextureKey;

    Key key;
    VkImage image = nullptr;
    Allocation memory;
    VkImageView sampled = nullptr; ///< as effects see it
    VkImageView target = nullptr;  ///< as it lies in memory; null for three-dimensional images
    PackedTexels packed;           ///< null where the device does not draw groups, or not of such an image
    bool inHostMemory = false;     ///< its rows lie in memory as those of a host image do
    UseState use;
    std::atomic<std::uint64_t> lastUse{0};   ///< timeline value after which the device is done with it
    std::atomic<std::uint64_t> lastWrite{0}; ///< timeline value after which its texels are there
    std::atomic<std::uint32_t> holders{0};   ///< handles; see Pooled
    std::atomic<bool> hosted{false};         ///< a host image has this memory; one at most
    std::atomic<bool> givenOut{false};       ///< somebody may hold its address

    std::uint64_t memoryBytes() const { return key.bytes(); }
    bool exists() const { return image != nullptr; }
    bool hasPacked() const { return packed.target != nullptr; }

    /// The layout that the image has while it is used in a way that likes `best`: memory in several shapes
    /// keeps one that is common to them.
    VkImageLayout layoutFor(VkImageLayout best) const { return hasPacked() ? VK_IMAGE_LAYOUT_GENERAL : best; }

    static VkResult create(Device& device, DeviceMemory& memory, const Key& key, Texture& texture);
    void destroy(Device& device, DeviceMemory& memory);

    /// Takes what the other one of the same key consists of and gives its own for it; who holds them stays.
    void exchange(Texture& other);

private:
    VkResult allocate(Device& device, DeviceMemory& memory);
    bool liesAsHostImage(const Device& device) const;
    VkResult createPacked(Device& device);
    void destroyPacked(Device& device);
};

/// A buffer in host memory that holds an image for the device to copy.
struct HostBuffer
{
    using Key = std::uint64_t; ///< bytes

    Key key = 0;
    VkBuffer buffer = nullptr;
    Allocation memory;
    UseState use;
    std::atomic<std::uint64_t> lastUse{0};   ///< timeline value after which the device is done with it
    std::atomic<std::uint64_t> lastWrite{0}; ///< timeline value after which its bytes are there
    std::atomic<std::uint32_t> holders{0};   ///< handles; see Pooled
    std::atomic<bool> givenOut{false};       ///< somebody may hold its address

    std::uint64_t memoryBytes() const { return key; }
    bool exists() const { return buffer != nullptr; }
    static VkResult create(Device& device, DeviceMemory& memory, const Key& key, HostBuffer& buffer);
    void destroy(Device& device, DeviceMemory& memory);
};

VkResult createBuffer(Device& device, DeviceMemory& memory, VkDeviceSize bytes, VkBufferUsageFlags usage,
                      MemoryUse use, VkBuffer& buffer, Allocation& allocation);

/// The Vulkan format of an image format; VK_FORMAT_UNDEFINED for a number that is none.
VkFormat vulkanFormat(iGPUImage::eFormat format);
std::uint32_t bytesPerTexel(VkFormat format);

/// Whether memory order is a, r, g, b to effects, so that views are swizzled and results rotated.
bool isRotated(VkFormat format);

/// The largest code of a component.
float maxCode(VkFormat format);

/// Whether a texture of that key can have Texture::inHostMemory.
bool mayLieInHostMemory(const Device& device, const TextureKey& key);

/// Bits of a component of what can be drawn by packed texels; 0 for other formats.
std::uint32_t packedBits(VkFormat format);

} // namespace Qx::Host::Vulkan
