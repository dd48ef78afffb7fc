#include "host/gpu/drawing/Barriers.h"

namespace Qx::Host::Vulkan {

VkImageMemoryBarrier2 imageBarrier(VkImage image, const UseState& before, VkImageLayout layout,
                                   const Passing& passing)
{
    VkImageMemoryBarrier2 barrier{};
    barrier.sType = VK_STRUCTURE_TYPE_IMAGE_MEMORY_BARRIER_2;
    barrier.srcStageMask = before.stage;
    barrier.srcAccessMask = before.written;
    barrier.oldLayout = before.layout;
    barrier.newLayout = layout;
    barrier.srcQueueFamilyIndex = passing.from;
    barrier.dstQueueFamilyIndex = passing.to;
    barrier.image = image;
    barrier.subresourceRange = {VK_IMAGE_ASPECT_COLOR_BIT, 0, VK_REMAINING_MIP_LEVELS, 0, 1};
    return barrier;
}

VkMemoryBarrier2 memoryBarrier(VkPipelineStageFlags2 stage, VkAccessFlags2 written,
                               VkPipelineStageFlags2 nextStage, VkAccessFlags2 nextAccess)
{
    VkMemoryBarrier2 barrier{};
    barrier.sType = VK_STRUCTURE_TYPE_MEMORY_BARRIER_2;
    barrier.srcStageMask = stage;
    barrier.srcAccessMask = written;
    barrier.dstStageMask = nextStage;
    barrier.dstAccessMask = nextAccess;
    return barrier;
}

VkBufferMemoryBarrier2 bufferBarrier(const HostBuffer& buffer)
{
    VkBufferMemoryBarrier2 barrier{};
    barrier.sType = VK_STRUCTURE_TYPE_BUFFER_MEMORY_BARRIER_2;
    barrier.srcQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED;
    barrier.dstQueueFamilyIndex = VK_QUEUE_FAMILY_IGNORED;
    barrier.buffer = buffer.buffer;
    barrier.size = VK_WHOLE_SIZE;
    return barrier;
}

VkBufferMemoryBarrier2 publishingBarrier(const HostBuffer& buffer)
{
    VkBufferMemoryBarrier2 barrier = bufferBarrier(buffer);
    barrier.srcStageMask = VK_PIPELINE_STAGE_2_COPY_BIT;
    barrier.srcAccessMask = VK_ACCESS_2_TRANSFER_WRITE_BIT;
    barrier.dstStageMask = VK_PIPELINE_STAGE_2_HOST_BIT | VK_PIPELINE_STAGE_2_COPY_BIT;
    barrier.dstAccessMask =
        VK_ACCESS_2_HOST_READ_BIT | VK_ACCESS_2_TRANSFER_READ_BIT | VK_ACCESS_2_TRANSFER_WRITE_BIT;
    return barrier;
}

std::uint64_t Barriers::record(VkCommandBuffer commands)
{
    const std::uint64_t count = memory.size() + images.size() + buffers.size();
    if (count == 0) {
        return 0;
    }
    VkDependencyInfo info{};
    info.sType = VK_STRUCTURE_TYPE_DEPENDENCY_INFO;
    info.memoryBarrierCount = static_cast<std::uint32_t>(memory.size());
    info.pMemoryBarriers = memory.data();
    info.imageMemoryBarrierCount = static_cast<std::uint32_t>(images.size());
    info.pImageMemoryBarriers = images.data();
    info.bufferMemoryBarrierCount = static_cast<std::uint32_t>(buffers.size());
    info.pBufferMemoryBarriers = buffers.data();
    vkCmdPipelineBarrier2(commands, &info);
    memory.clear();
    images.clear();
    buffers.clear();
    return count;
}

} // namespace Qx::Host::Vulkan
