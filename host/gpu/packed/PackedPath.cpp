#include "host/gpu/device/DrawingPath.h"
#include "host/gpu/packed/PackedDrawing.h"
#include "host/gpu/packed/PackedViews.h"

namespace Qx::Host::Vulkan {

namespace {

/// Whether the device can draw into rows of texels as packed texels, and read them as texel buffers.
bool canDrawPacked(const PhysicalDevice& device)
{
    constexpr VkFormatFeatureFlags drawn = VK_FORMAT_FEATURE_COLOR_ATTACHMENT_BIT;
    constexpr VkFormatFeatureFlags whole =
        drawn | VK_FORMAT_FEATURE_COLOR_ATTACHMENT_BLEND_BIT | VK_FORMAT_FEATURE_SAMPLED_IMAGE_BIT |
        VK_FORMAT_FEATURE_SAMPLED_IMAGE_FILTER_LINEAR_BIT | VK_FORMAT_FEATURE_TRANSFER_SRC_BIT |
        VK_FORMAT_FEATURE_TRANSFER_DST_BIT;
    constexpr VkFormatFeatureFlags read = VK_FORMAT_FEATURE_UNIFORM_TEXEL_BUFFER_BIT;
    const auto offers = [&device](VkFormat format, VkFormatFeatureFlags linear, VkFormatFeatureFlags buffer) {
        const VkFormatProperties properties = device.uses(format);
        return (properties.linearTilingFeatures & linear) == linear &&
               (properties.bufferFeatures & buffer) == buffer;
    };
    return offers(VK_FORMAT_R8G8B8A8_UNORM, whole, 0) && offers(VK_FORMAT_R16G16B16A16_UNORM, whole, 0) &&
           offers(packedFormat, drawn, 0) && offers(VK_FORMAT_R8G8B8A8_UINT, 0, read) &&
           offers(VK_FORMAT_R16G16B16A16_UINT, 0, read) && offers(VK_FORMAT_R32G32_UINT, 0, read) &&
           offers(VK_FORMAT_R32G32B32A32_UINT, 0, read);
}

/// Whether the device stores volumes in rows and reads them as texel buffers.
bool canReadVolumes(const PhysicalDevice& device)
{
    VkImageFormatProperties properties;
    return (device.uses(volumeFormat).bufferFeatures & VK_FORMAT_FEATURE_UNIFORM_TEXEL_BUFFER_BIT) != 0 &&
           vkGetPhysicalDeviceImageFormatProperties(
               device.handle, volumeFormat, VK_IMAGE_TYPE_3D, VK_IMAGE_TILING_LINEAR,
               VK_IMAGE_USAGE_SAMPLED_BIT | VK_IMAGE_USAGE_TRANSFER_DST_BIT, 0, &properties) == VK_SUCCESS;
}

class PackedPath final : public DrawingPath
{
public:
    explicit PackedPath(bool readsVolumes) : readsVolumes_(readsVolumes) {}

    VkImageTiling tilingOf(const TextureKey& key) const override
    {
        const bool isPicture = key.depth == 0 && key.levels == 1 && packedBits(key.format) != 0;
        return isPicture || (readsVolumes_ && isPackedVolume(key)) ? VK_IMAGE_TILING_LINEAR
                                                                   : VK_IMAGE_TILING_OPTIMAL;
    }

    bool mayLieAsHostImage(const TextureKey& key) const override
    {
        return key.depth == 0 && tilingOf(key) == VK_IMAGE_TILING_LINEAR && key.rowBytes() % packedBytes == 0;
    }

    std::unique_ptr<CompanionViews> createViews(Device& device, const TextureKey& key, VkImage image,
                                                VkMemoryRequirements& requirements) const override
    {
        return tilingOf(key) == VK_IMAGE_TILING_LINEAR ? PackedViews::create(device, key, image, requirements)
                                                       : nullptr;
    }

    void beginCommands(VkCommandBuffer commands) const override
    {
        // Mesa's software device (22.3) skips a barrier that is a buffer's first command, and tracks the uses
        // of each image by itself, which does not work for memory with several views.
        vkCmdSetDepthBias(commands, 0.0F, 0.0F, 0.0F);
    }

    bool createDrawings(Context& context, const CompiledEffect& effect,
                        const CompiledEffect::Technique& technique,
                        std::vector<std::unique_ptr<TechniqueDrawing>>& drawings) const override
    {
        return PackedDrawing::createAll(context, effect, technique, drawings);
    }

private:
    const bool readsVolumes_;
};

} // namespace

std::unique_ptr<const DrawingPath> createDrawingPath(const PhysicalDevice& device)
{
    // Software devices pay for each fragment. Elsewhere linear images are slow or cannot be drawn into.
    return device.isSoftware() && canDrawPacked(device) ? std::make_unique<PackedPath>(canReadVolumes(device))
                                                        : nullptr;
}

} // namespace Qx::Host::Vulkan
