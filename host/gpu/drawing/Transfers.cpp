// The part of Batch that copies between host memory and whole textures, on queues of their own where the
// device has them.

#include "host/gpu/drawing/Batch.h"
#include "host/gpu/images/Picture.h"

#include <algorithm>

namespace Qx::Host::Vulkan {

namespace {

constexpr VkPipelineStageFlags2 copyStage = VK_PIPELINE_STAGE_2_COPY_BIT;

/// Of a texture with contents that nobody needs. One queue waits for another with all stages.
constexpr UseState replaced{VK_IMAGE_LAYOUT_UNDEFINED, VK_PIPELINE_STAGE_2_ALL_COMMANDS_BIT,
                            VK_ACCESS_2_NONE};

void recordCopy(VkCommandBuffer commands, const HostBuffer& source, const Texture& target)
{
    const VkBufferImageCopy region = wholeImage(target.key);
    vkCmdCopyBufferToImage(commands, source.buffer, target.image,
                           target.layoutFor(VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL), 1, &region);
}

void recordCopy(VkCommandBuffer commands, const Texture& source, const HostBuffer& target)
{
    const VkBufferImageCopy region = wholeImage(source.key);
    vkCmdCopyImageToBuffer(commands, source.image, source.layoutFor(VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL),
                           target.buffer, 1, &region);
}

} // namespace

const Batch::Use Batch::sampled_{VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL,
                                 VK_PIPELINE_STAGE_2_FRAGMENT_SHADER_BIT, VK_ACCESS_2_SHADER_SAMPLED_READ_BIT,
                                 false, false};

void Batch::upload(HostBuffer& source, Texture& target)
{
    if (!device_.has(Lane::Uploads)) {
        copyFrom(source);
        copyTo(target);
        flush();
        recordCopy(commands(), source, target);
        return;
    }
    hasUploads_ = true;
    uploadsAfter = std::max({uploadsAfter, source.lastWrite.load(), target.lastUse.load()});
    source.lastUse.store(value_, std::memory_order_relaxed);
    target.lastUse.store(value_, std::memory_order_relaxed);
    target.lastWrite.store(value_, std::memory_order_relaxed);
    target.downloadedBy = 0; // its contents are replaced, so that nobody need pass them on
    Barriers before;
    before.images.push_back(imageBarrier(target.image, replaced, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL));
    before.images.back().dstStageMask = copyStage;
    before.images.back().dstAccessMask = VK_ACCESS_2_TRANSFER_WRITE_BIT;
    barriers += before.record(uploads_.handle());
    recordCopy(uploads_.handle(), source, target);
    target.use = {VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, copyStage, VK_ACCESS_2_TRANSFER_WRITE_BIT};
    passOn(target, uploads_, drawing_, sampled_);
}

void Batch::download(Texture& source, HostBuffer& target)
{
    if (!device_.has(Lane::Downloads)) {
        copyFrom(source);
        copyTo(target);
        flush();
        recordCopy(commands(), source, target);
        publish(target);
        return;
    }
    hasDownloads_ = true;
    source.lastUse.store(value_, std::memory_order_relaxed);
    target.lastUse.store(value_, std::memory_order_relaxed);
    target.lastWrite.store(value_, std::memory_order_relaxed);
    if (source.downloadedBy == 0) {
        passOn(
            source, drawing_, downloads_,
            {VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL, copyStage, VK_ACCESS_2_TRANSFER_READ_BIT, false, false});
    }
    source.downloadedBy = value_;
    recordCopy(downloads_.handle(), source, target);
    Barriers after;
    after.buffers.push_back(publishingBarrier(target));
    barriers += after.record(downloads_.handle());
}

/// What is to be replaced need not be passed on. The rest goes by way of the uploads, which are before this
/// batch's drawing.
void Batch::takeFromDownloads(Texture& texture, bool discard)
{
    const std::uint64_t after = texture.downloadedBy.exchange(0);
    if (discard) {
        drawsAfterDownloads = std::max(drawsAfterDownloads, after);
        texture.use = replaced;
        return;
    }
    hasUploads_ = true;
    uploadsAfter = std::max(uploadsAfter, after);
    texture.use.stage = replaced.stage;
    passOn(texture, uploads_, drawing_, sampled_);
}

/// Passes a texture between the queue families. Both record the same.
void Batch::passOn(Texture& texture, const CommandList& from, const CommandList& to, const Use& next)
{
    const Passing passing{device_.queueFamily(from.lane()), device_.queueFamily(to.lane())};
    Barriers barrier;
    barrier.images.push_back(imageBarrier(texture.image, texture.use, next.layout, passing));
    barriers += Barriers(barrier).record(from.handle());
    VkImageMemoryBarrier2& taken = barrier.images.back();
    taken.srcStageMask = replaced.stage;
    taken.srcAccessMask = replaced.written;
    taken.dstStageMask = next.stage;
    taken.dstAccessMask = next.access;
    barriers += barrier.record(to.handle());
    texture.use = {next.layout, next.stage, VK_ACCESS_2_NONE};
}

} // namespace Qx::Host::Vulkan
