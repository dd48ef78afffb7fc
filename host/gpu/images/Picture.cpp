#include "host/gpu/images/Picture.h"

#include <algorithm>

namespace Qx::Host::Vulkan {

Texture* Picture::forWriting(Batch& batch, bool replacesAll)
{
    if (texture_.isShared()) {
        Pooled<Texture> own = acquireTextureAtOnce(context(), key);
        if (!own || (own->companion != nullptr) != hasCompanion) {
            return nullptr;
        }
        if (!replacesAll) {
            recordCopy(batch, *texture_, *own);
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

void recordCopy(Batch& batch, Texture& source, Texture& target)
{
    batch.copyFrom(source);
    batch.copyTo(target);
    batch.flush();
    const VkImageSubresourceLayers layers{VK_IMAGE_ASPECT_COLOR_BIT, 0, 0, 1};
    const VkImageCopy region{layers, {}, layers, {}, wholeImage(source.key).imageExtent};
    vkCmdCopyImage(batch.commands(), source.image, source.layoutFor(VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL),
                   target.image, target.layoutFor(VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL), 1, &region);
}

} // namespace Qx::Host::Vulkan
