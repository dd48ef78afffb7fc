#pragma once

#include "host/gpu/images/Resources.h"

#include <cstdint>
#include <vector>

namespace Qx::Host::Vulkan {

/// The queue families that a barrier passes an image between; none: it stays in its family.
struct Passing
{
    std::uint32_t from = VK_QUEUE_FAMILY_IGNORED;
    std::uint32_t to = VK_QUEUE_FAMILY_IGNORED;
};

/// Barriers for a use after an earlier one. The caller adds what is missing of stages and accesses.
VkImageMemoryBarrier2 imageBarrier(VkImage image, const UseState& before, VkImageLayout layout,
                                   const Passing& passing = {});
VkMemoryBarrier2 memoryBarrier(VkPipelineStageFlags2 stage, VkAccessFlags2 written,
                               VkPipelineStageFlags2 nextStage, VkAccessFlags2 nextAccess);
VkBufferMemoryBarrier2 bufferBarrier(const HostBuffer& buffer);

/// Between what was copied to the buffer, and the host and later copies.
VkBufferMemoryBarrier2 publishingBarrier(const HostBuffer& buffer);

/// Barriers to be recorded together.
struct Barriers
{
    std::vector<VkMemoryBarrier2> memory;
    std::vector<VkImageMemoryBarrier2> images;
    std::vector<VkBufferMemoryBarrier2> buffers;

    /// Records them, and forgets them. Returns their number.
    std::uint64_t record(VkCommandBuffer commands);
};

} // namespace Qx::Host::Vulkan
