#pragma once

#include "host/gpu/DeviceSharing.h"
#include "host/gpu/device/DeviceMemory.h"
#include "host/gpu/images/CompanionViews.h"
#include "platform/GPUImage.h"

#include <array>
#include <compare>
#include <vector>

namespace Qx::Host::Vulkan {

/// The last use of an image or buffer, against which the next use is ordered. A layout stands for one stage:
/// an image in a reading layout needs no barrier before the next read in it. For holders of the recorder's
/// lock only.
struct UseState
{
    VkImageLayout layout = VK_IMAGE_LAYOUT_UNDEFINED;
    VkPipelineStageFlags2 stage = VK_PIPELINE_STAGE_2_NONE;
    VkAccessFlags2 written = VK_ACCESS_2_NONE;
};

/// The properties that make two textures interchangeable.
struct TextureKey
{
    VkFormat format = VK_FORMAT_UNDEFINED;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t depth = 0;  ///< 0 for two-dimensional images
    std::uint32_t levels = 1; ///< of two-dimensional images: see drawing/Levels.h

    friend auto operator<=>(const TextureKey&, const TextureKey&) = default;
    std::uint64_t rowBytes() const; ///< of the texels alone
    std::uint64_t bytes() const;    ///< of the texels of the first level
};

/// Who made a texture's image, and who else has it.
enum class Origin
{
    Service,     ///< we made it, and reuse it
    Application, ///< the application made it and keeps it; the views are ours
    Exchanged,   ///< its memory is shared by a file descriptor: not for reuse
};

/// An image on the device with its memory and views.
struct Texture
{
    using Key = TextureKey;

    Key key;
    Origin origin = Origin::Service;
    /// The queue family of those who have its memory too: VK_QUEUE_FAMILY_EXTERNAL or FOREIGN; none: IGNORED.
    std::uint32_t partner = VK_QUEUE_FAMILY_IGNORED;
    MemoryHandle handle = MemoryHandle::Opaque; ///< by which its memory is exchanged
    VkImage image = nullptr;
    Allocation memory;
    VkImageView sampled = nullptr;             ///< as effects see it, with all levels
    VkImageView target = nullptr;              ///< as it lies in memory; null for three-dimensional images
    std::vector<VkImageView> smaller;          ///< the levels after the first, as `target` has that
    std::unique_ptr<CompanionViews> companion; ///< null if the device's DrawingPath has none for it
    bool inHostMemory = false; ///< its memory is laid out as a host image and the host sees it
    UseState use;
    std::atomic<std::uint64_t> lastUse{0};   ///< timeline value after which the device is done with it
    std::atomic<std::uint64_t> lastWrite{0}; ///< timeline value after which its texels are written
    /// The batch that has downloaded it on the queue of downloads, which has the image since; 0: that for
    /// drawing has it.
    std::atomic<std::uint64_t> downloadedBy{0};
    std::atomic<std::uint32_t> holders{0}; ///< handles; see Pooled
    std::atomic<bool> hosted{false};       ///< a host image shares this memory; one at most
    std::atomic<bool> givenOut{false};     ///< somebody may hold its address
    std::atomic<bool> given{false};        ///< the application may use it: it stays as it is

    std::uint64_t memoryBytes() const
    {
        return origin == Origin::Application ? 0 : key.bytes() + (key.levels > 1 ? key.bytes() / 3 : 0);
    }
    bool isGiven() const { return given; }
    /// Whether drawing into it would wait for a download.
    bool isDownloading(std::uint64_t completed) const { return downloadedBy > completed; }
    bool isReusable() const { return origin == Origin::Service && !isGiven(); }
    bool exists() const { return image != nullptr; }

    /// The layout in which the image is used where `best` would be best: an image with companion views keeps
    /// the layout that all of them share.
    VkImageLayout layoutFor(VkImageLayout best) const
    {
        return companion != nullptr ? VK_IMAGE_LAYOUT_GENERAL : best;
    }

    static VkResult create(Device& device, DeviceMemory& memory, const Key& key, Texture& texture);
    void destroy(Device& device, DeviceMemory& memory);

    /// Creates the views of an image that exists.
    VkResult createViews(Device& device);

    /// Swaps the contents with a texture of the same key. The handles keep their textures.
    void exchange(Texture& other);

private:
    VkResult allocate(Device& device, DeviceMemory& memory);
    bool liesAsHostImage(const Device& device) const;
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
    std::atomic<std::uint64_t> lastWrite{0}; ///< timeline value after which its bytes are written
    std::atomic<std::uint32_t> holders{0};   ///< handles; see Pooled
    std::atomic<bool> givenOut{false};       ///< somebody may hold its address

    std::uint64_t memoryBytes() const { return key; }
    static constexpr bool isGiven() { return false; }
    static constexpr bool isDownloading(std::uint64_t) { return false; }
    static constexpr bool isReusable() { return true; }
    bool exists() const { return buffer != nullptr; }
    static VkResult create(Device& device, DeviceMemory& memory, const Key& key, HostBuffer& buffer);
    void destroy(Device& device, DeviceMemory& memory);
};

VkResult createBuffer(Device& device, DeviceMemory& memory, VkDeviceSize bytes, VkBufferUsageFlags usage,
                      MemoryUse use, VkBuffer& buffer, Allocation& allocation);

/// Of two-dimensional images of floatTexels; also that of tables.
constexpr VkFormat floatFormat = VK_FORMAT_R32G32B32A32_SFLOAT;

/// The Vulkan format of an image format; VK_FORMAT_UNDEFINED for an invalid number.
VkFormat vulkanFormat(iGPUImage::eFormat format);
std::uint32_t bytesPerTexel(VkFormat format);

/// Whether the memory order of two-dimensional images is a, r, g, b for effects, so that views are swizzled
/// and results rotated.
bool isRotated(VkFormat format);

/// Whether the components are floats, which are neither clamped nor rounded.
bool holdsFloats(VkFormat format);

/// The largest code of a component.
float maxCode(VkFormat format);

/// The largest codes of a texel's red, green, blue and alpha.
std::array<float, 4> maxCodes(VkFormat format);

/// What images are used for.
VkImageUsageFlags usageOf(const TextureKey& key);

/// An image of that key, of one layer and one sample.
VkImageCreateInfo imageInfo(const TextureKey& key, VkImageTiling tiling, VkImageUsageFlags usage);

/// In which order a view has an image's components.
enum class Swizzle
{
    None,      ///< as they lie in memory
    ForEffects ///< as effects see them: see isRotated()
};
/// Which of an image's levels a view has.
struct Levels
{
    std::uint32_t first = 0;
    std::uint32_t count = 1;
};
VkResult createView(Device& device, const TextureKey& key, VkImage image, Swizzle swizzle, VkImageView& view,
                    Levels levels = {});

} // namespace Qx::Host::Vulkan
