#pragma once

#include "host/gpu/images/CompanionViews.h"
#include "host/gpu/images/Resources.h"

#include <array>

namespace Qx::Host::Vulkan {

/// A packed texel: 16 bytes, that is 4 texels of 8 bits a component or 2 of 16.
constexpr VkFormat packedFormat = VK_FORMAT_R32G32B32A32_UINT;
constexpr std::uint32_t packedBytes = 16;

/// An entry of a volume, which is as large.
constexpr VkFormat volumeFormat = VK_FORMAT_R32G32B32A32_SFLOAT;

/// Bits of a component of images that are drawn by packed texels; 0 for other formats.
std::uint32_t packedBits(VkFormat format);

/// Whether it is a volume whose entries are read as a texel buffer of floats.
bool isPackedVolume(const TextureKey& key);

/// A texture's memory as an image of packed texels and as texel buffers, in which the rows follow one
/// another; that of a volume as a texel buffer only.
class PackedViews final : public CompanionViews
{
public:
    /// Null if the rows of the image cannot be seen as packed texels, or if memory is exhausted.
    static std::unique_ptr<PackedViews> create(Device& device, const TextureKey& key, VkImage image,
                                               VkMemoryRequirements& requirements);

    /// The texture's views; null if it has none.
    static const PackedViews* of(const Texture& texture);

    VkResult bind(Device& device, const Allocation& memory) override;
    void destroy(Device& device) override;
    VkImage image() const override { return image_; }
    VkDeviceSize rowBytes() const override { return VkDeviceSize{rowPacked_} * packedBytes; }

    /// Rows from one layer of a volume to the next.
    std::uint32_t layerRows() const { return layerRows_; }

    /// For drawing, and its size in packed texels. Null for volumes.
    VkImageView target() const { return target_; }
    VkExtent2D size() const { return size_; }

    /// Packed texels from one row to the next.
    std::uint32_t rowPacked() const { return rowPacked_; }

    /// The memory as texels of that many bytes: the texture's own, or larger ones with 32-bit components.
    /// That of a volume as its entries.
    const VkBufferView& texels(std::uint32_t bytes) const
    {
        return texels_[bytes == 16 ? 2 : bytes == 8 ? 1 : 0];
    }

private:
    explicit PackedViews(const TextureKey& key);
    VkResult createUnbound(Device& device, const TextureKey& key, VkImage image);
    VkResult createPackedImage(Device& device, const VkSubresourceLayout& texels);
    VkResult createTexels(Device& device);

    const std::uint32_t bits_; ///< of a picture's components; 0 for volumes
    const VkExtent2D size_;
    std::uint32_t rowPacked_ = 0;
    std::uint32_t layerRows_ = 0;
    VkImage image_ = nullptr;
    VkImageView target_ = nullptr;
    VkBuffer buffer_ = nullptr;
    std::array<VkBufferView, 3> texels_{}; ///< see texels()
};

} // namespace Qx::Host::Vulkan
