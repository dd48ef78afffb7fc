#include "host/gpu/images/Picture.h"

#include <algorithm>

namespace Qx::Host::Vulkan {

Texture* Picture::forWriting(Batch& batch, bool replacesAll)
{
    if (replacesAll || !texture_.isShared()) {
        return forReplacing();
    }
    const Pooled<Texture> before = texture_;
    Texture* const own = forReplacing();
    if (own != nullptr) {
        recordCopy(batch, *before, *own);
    }
    return own;
}

Texture* Picture::forReplacing()
{
    if (texture_.isShared()) {
        Pooled<Texture> own = acquireTextureAtOnce(context(), key);
        if (!own || (own->companion != nullptr) != hasCompanion) {
            return nullptr;
        }
        texture_ = std::move(own);
    }
    return &*texture_;
}

VkBufferImageCopy wholeImage(const TextureKey& key)
{
    VkBufferImageCopy region{};
    region.imageSubresource = {VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
    region.imageExtent = {key.width, key.height, std::max(key.depth, 1U)};
    return region;
}

namespace {

void recordCopy(Batch& batch, Texture& source, const VkOffset3D& offset, const VkExtent3D& extent,
                Texture& target)
{
    batch.copyFrom(source);
    batch.copyTo(target);
    batch.flush();
    const VkImageSubresourceLayers layers{VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
    const VkImageCopy region{layers, offset, layers, {}, extent};
    vkCmdCopyImage(batch.commands(), source.image, source.layoutFor(VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL),
                   target.image, target.layoutFor(VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL), 1, &region);
}

} // namespace

void recordCopy(Batch& batch, Texture& source, Texture& target)
{
    recordCopy(batch, source, VkOffset3D{}, wholeImage(source.key).imageExtent, target);
}

void recordCopy(Batch& batch, Texture& source, const VkRect2D& area, Texture& target)
{
    recordCopy(batch, source, VkOffset3D{area.offset.x, area.offset.y, 0},
               VkExtent3D{area.extent.width, area.extent.height, 1}, target);
}

Pooled<Texture> acquireScratch(Context& context, VkFormat format, VkExtent2D size)
{
    const auto rounded = [&](std::uint32_t needed) {
        const std::uint32_t step = needed <= 512 ? 64 : 256;
        const std::uint32_t side = (needed + step - 1) / step * step;
        return std::max(needed, std::min(side, context.device().limits().maxImageDimension2D));
    };
    return acquireTexture(context, {format, rounded(size.width), rounded(size.height), 0});
}

} // namespace Qx::Host::Vulkan
