#pragma once

#include "host/gpu/drawing/Barriers.h"
#include "host/gpu/drawing/CommandList.h"
#include "host/gpu/drawing/HostQueue.h"

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace Qx::Host::Vulkan {

/// The commands of one submission, with everything that they need until the device has finished them. Used
/// under the recorder's lock only.
///
/// Where the device has queues of their own for that, the uploads come before all drawing of the batch and
/// the downloads after it: drawing waits for the uploads of its batch, and downloads wait for the drawing.
/// Batches overlap.
class Batch
{
public:
    Batch(Device& device, DeviceMemory& memory)
        : device_(device),
          memory_(memory),
          drawing_(device, Lane::Drawing),
          uploads_(device, Lane::Uploads),
          downloads_(device, Lane::Downloads)
    {
    }
    Batch(const Batch&) = delete;
    Batch& operator=(const Batch&) = delete;

    /// Starts recording. The device must have finished what was recorded before. A timed batch writes
    /// timestamps at its beginning and end.
    bool begin(std::uint64_t value, bool timed);

    /// Starts a batch that the host computes: it has no commands, and only the calls for the host may be
    /// used.
    void beginOnHost(std::uint64_t value);
    HostStamps& hostStamps() { return hostStamps_; }

    bool end();
    void destroy();

    VkCommandBuffer commands() const { return drawing_.handle(); }

    /// The commands for the queue of uploads or downloads; null if there are none.
    VkCommandBuffer uploads() const { return hasUploads_ ? uploads_.handle() : nullptr; }
    VkCommandBuffer downloads() const { return hasDownloads_ ? downloads_.handle() : nullptr; }
    std::uint64_t value() const { return value_; } ///< of the timeline, once the device has finished it

    /// The timestamps of a timed batch that the device has finished, in ticks; empty if there are none.
    struct Stamps
    {
        std::uint64_t begin;
        std::uint64_t end;
    };
    std::optional<Stamps> stamps() const;

    /// Copies `data` to memory that shaders of this batch can read. Returns false if memory is exhausted.
    bool uniform(std::span<const std::byte> data, VkDescriptorBufferInfo& info);

    /// A descriptor set that lives as long as the batch; null if memory is exhausted.
    VkDescriptorSet descriptorSet(VkDescriptorSetLayout layout);

    /// Announces the next use of a resource. Then flush() records the barriers, and after it come the
    /// commands that use the resources. A function that records must not fail after the first of these calls.
    void sample(Texture& texture);
    void count(Texture& texture); ///< a compute shader reads it, in VK_IMAGE_LAYOUT_GENERAL
    void renderTo(Texture& texture, bool discard);
    void
    beginLevels(Texture& texture); ///< its levels are drawn one after the other, each from the one before
    void nextLevel();              ///< what was drawn last is read now
    void copyFrom(Texture& texture);
    void copyTo(Texture& texture);
    void copyInto(Texture& texture); ///< a part of it; the rest is kept
    /// The application uses it from the end of the batch on, in the layout, or in the one that layoutFor()
    /// says.
    void giveAway(Texture& texture, VkImageLayout layout);
    /// The application has used it, before the batch begins, and has left it in that layout.
    void takeBack(Texture& texture, VkImageLayout layout);
    void copyFrom(HostBuffer& buffer);
    void copyTo(HostBuffer& buffer);
    void flush();

    /// Copies all texels. `target` of an upload, or of a download, is one that no batch uses any more. The
    /// last operation of a batch with a download.
    void upload(HostBuffer& source, Texture& target);
    void download(Texture& source, HostBuffer& target);

    /// Brings a texture with companion views into the layout in which the host may use its memory.
    void bringToHost(Texture& texture);

    /// For batches of the host: it uses the memory of a texture that was brought to it.
    void readOnHost(Texture& texture);
    void writeOnHost(Texture& texture);

    /// Orders what follows after earlier uses of memory that has no UseState, such as scratch buffers.
    void order(VkPipelineStageFlags2 stage, VkAccessFlags2 written, VkPipelineStageFlags2 nextStage,
               VkAccessFlags2 nextAccess);

    /// Makes what was copied to the buffer visible to the host and to later copies.
    void publish(HostBuffer& buffer);

    std::vector<VkSemaphoreSubmitInfo> waits; ///< before the device begins to draw
    std::uint64_t uploadsAfter = 0;           ///< the batch that must be finished before uploads begin
    std::uint64_t drawsAfterDownloads = 0;    ///< the batch whose downloads must be finished before drawing
    std::uint64_t bytes = 0;                  ///< of images in flight
    std::uint32_t operations = 0;
    std::uint64_t barriers = 0; ///< recorded in this batch

private:
    struct UniformChunk
    {
        VkBuffer buffer = nullptr;
        Allocation memory;
        VkDeviceSize bytes = 0;
    };
    struct Use
    {
        VkImageLayout layout;
        VkPipelineStageFlags2 stage;
        VkAccessFlags2 access;
        bool writes;
        bool discard;
    };
    static const Use sampled_;

    void beginEmpty(std::uint64_t value);
    void use(Texture& texture, const Use& next);
    void useMemory(Texture& texture, const Use& next);
    void passToPartner(const Texture& texture, const Passing& passing);
    void passOn(Texture& texture, const CommandList& from, const CommandList& to, const Use& next);
    void takeFromDownloads(Texture& texture, bool discard);
    bool addUniformChunk(VkDeviceSize bytes);
    bool addDescriptorPool();
    void showToHost();
    bool beginStamps();
    void stamp(std::uint32_t query);

    Device& device_;
    DeviceMemory& memory_;
    std::uint64_t value_ = 0;
    CommandList drawing_;
    CommandList uploads_;
    CommandList downloads_;
    bool hasUploads_ = false;
    bool hasDownloads_ = false;
    VkQueryPool queries_ = nullptr; // none before the first timed use
    bool timed_ = false;
    bool isHosts_ = false;
    HostStamps hostStamps_;
    std::vector<UniformChunk> chunks_;
    std::size_t chunk_ = 0;
    VkDeviceSize chunkUsed_ = 0;
    std::vector<VkDescriptorPool> descriptorPools_;
    std::size_t descriptorPool_ = 0;
    Barriers barriers_; // announced and not recorded yet
};

} // namespace Qx::Host::Vulkan
