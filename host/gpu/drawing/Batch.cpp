#include "host/gpu/drawing/Batch.h"

#include "host/gpu/device/DrawingPath.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace Qx::Host::Vulkan {

namespace {

constexpr VkDeviceSize uniformChunkBytes = 1U << 16;
constexpr std::uint32_t setsPerPool = 128;
constexpr std::uint32_t samplersPerPool = setsPerPool * 8;
constexpr std::uint32_t texelBuffersPerPool = setsPerPool * 4;
constexpr std::uint32_t storageBuffersPerPool = 4; // scopes are counted once a frame

constexpr std::uint32_t firstStamp = 0;
constexpr std::uint32_t lastStamp = 1;
constexpr std::uint32_t stampsPerBatch = 2;

/// An image that another process passed on is acquired from GENERAL into this layout. Layouts that are equal
/// would be no transition, which validation layers lose track of.
constexpr VkImageLayout layoutOfReceived = VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL;

constexpr VkPipelineStageFlags2 copyStage = VK_PIPELINE_STAGE_2_COPY_BIT;
constexpr VkPipelineStageFlags2 levelStages =
    VK_PIPELINE_STAGE_2_FRAGMENT_SHADER_BIT | VK_PIPELINE_STAGE_2_COLOR_ATTACHMENT_OUTPUT_BIT;
constexpr VkAccessFlags2 levelAccesses =
    VK_ACCESS_2_SHADER_SAMPLED_READ_BIT | VK_ACCESS_2_COLOR_ATTACHMENT_WRITE_BIT;

VkDeviceSize alignedUp(VkDeviceSize value, VkDeviceSize alignment)
{
    return (value + alignment - 1) / alignment * alignment;
}

} // namespace

void Batch::beginEmpty(std::uint64_t value)
{
    value_ = value;
    waits.clear();
    uploadsAfter = 0;
    drawsAfterDownloads = 0;
    hasUploads_ = false;
    hasDownloads_ = false;
    bytes = 0;
    operations = 0;
    barriers = 0;
}

void Batch::beginOnHost(std::uint64_t value)
{
    beginEmpty(value);
    isHosts_ = true;
}

bool Batch::begin(std::uint64_t value, bool timed)
{
    beginEmpty(value);
    isHosts_ = false;
    timed_ = timed;
    chunk_ = 0;
    chunkUsed_ = 0;
    descriptorPool_ = 0;
    for (VkDescriptorPool pool : descriptorPools_) {
        vkResetDescriptorPool(device_.handle(), pool, 0);
    }
    if (!drawing_.begin()) {
        return false;
    }
    for (CommandList* const copies : {&uploads_, &downloads_}) {
        if (device_.has(copies->lane()) && !copies->begin()) {
            return false;
        }
    }
    if (const DrawingPath* path = device_.drawingPath()) {
        path->beginCommands(commands());
    }
    return !timed_ || beginStamps();
}

bool Batch::beginStamps()
{
    if (queries_ == nullptr) {
        VkQueryPoolCreateInfo info{};
        info.sType = VK_STRUCTURE_TYPE_QUERY_POOL_CREATE_INFO;
        info.queryType = VK_QUERY_TYPE_TIMESTAMP;
        info.queryCount = stampsPerBatch;
        if (!device_.succeeded(vkCreateQueryPool(device_.handle(), &info, nullptr, &queries_),
                               "creating a query pool")) {
            queries_ = nullptr;
            return false;
        }
    }
    vkCmdResetQueryPool(commands(), queries_, 0, stampsPerBatch);
    stamp(firstStamp);
    return true;
}

void Batch::stamp(std::uint32_t query)
{
    // After all earlier work, so that the time of an earlier batch does not count twice.
    vkCmdWriteTimestamp2(commands(), VK_PIPELINE_STAGE_2_ALL_COMMANDS_BIT, queries_, query);
}

std::optional<Batch::Stamps> Batch::stamps() const
{
    if (isHosts_) {
        return Stamps{hostStamps_.begin, hostStamps_.end};
    }
    std::array<std::uint64_t, stampsPerBatch> ticks{};
    const VkResult result = vkGetQueryPoolResults(device_.handle(), queries_, 0, stampsPerBatch, sizeof ticks,
                                                  ticks.data(), sizeof ticks[0], VK_QUERY_RESULT_64_BIT);
    return result == VK_SUCCESS ? std::optional<Stamps>({ticks[firstStamp], ticks[lastStamp]}) : std::nullopt;
}

/// For images that share memory with the host: it reads them without a command that could be a barrier.
void Batch::showToHost()
{
    barriers_.memory.push_back(memoryBarrier(VK_PIPELINE_STAGE_2_ALL_COMMANDS_BIT,
                                             VK_ACCESS_2_MEMORY_WRITE_BIT, VK_PIPELINE_STAGE_2_HOST_BIT,
                                             VK_ACCESS_2_HOST_READ_BIT));
    flush();
}

bool Batch::end()
{
    if (device_.drawingPath() != nullptr) {
        showToHost();
    }
    if (timed_) {
        stamp(lastStamp);
    }
    return drawing_.end() && (!hasUploads_ || uploads_.end()) && (!hasDownloads_ || downloads_.end());
}

void Batch::destroy()
{
    for (UniformChunk& chunk : chunks_) {
        vkDestroyBuffer(device_.handle(), chunk.buffer, nullptr);
        memory_.release(chunk.memory);
    }
    for (VkDescriptorPool pool : descriptorPools_) {
        vkDestroyDescriptorPool(device_.handle(), pool, nullptr);
    }
    vkDestroyQueryPool(device_.handle(), queries_, nullptr);
    for (CommandList* const list : {&drawing_, &uploads_, &downloads_}) {
        list->destroy();
    }
    chunks_.clear();
    descriptorPools_.clear();
    queries_ = nullptr;
}

bool Batch::addUniformChunk(VkDeviceSize bytes_)
{
    UniformChunk chunk;
    chunk.bytes = std::max(uniformChunkBytes, bytes_);
    if (!device_.succeeded(createBuffer(device_, memory_, chunk.bytes, VK_BUFFER_USAGE_UNIFORM_BUFFER_BIT,
                                        MemoryUse::Uniform, chunk.buffer, chunk.memory),
                           "allocating memory for parameters")) {
        return false;
    }
    chunks_.push_back(chunk);
    return true;
}

bool Batch::uniform(std::span<const std::byte> data, VkDescriptorBufferInfo& info)
{
    VkDeviceSize offset = alignedUp(chunkUsed_, device_.limits().minUniformBufferOffsetAlignment);
    while (chunk_ < chunks_.size() && offset + data.size() > chunks_[chunk_].bytes) {
        ++chunk_;
        offset = 0;
    }
    if (chunk_ == chunks_.size() && !addUniformChunk(data.size())) {
        chunkUsed_ = 0;
        return false;
    }
    std::memcpy(static_cast<std::byte*>(chunks_[chunk_].memory.mapped) + offset, data.data(), data.size());
    chunkUsed_ = offset + data.size();
    info = {chunks_[chunk_].buffer, offset, data.size()};
    return true;
}

bool Batch::addDescriptorPool()
{
    const std::array<VkDescriptorPoolSize, 4> sizes{{
        {VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER, setsPerPool},
        {VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER, samplersPerPool},
        {VK_DESCRIPTOR_TYPE_UNIFORM_TEXEL_BUFFER, texelBuffersPerPool},
        {VK_DESCRIPTOR_TYPE_STORAGE_BUFFER, storageBuffersPerPool},
    }};
    VkDescriptorPoolCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_DESCRIPTOR_POOL_CREATE_INFO;
    info.maxSets = setsPerPool;
    info.poolSizeCount = static_cast<std::uint32_t>(sizes.size());
    info.pPoolSizes = sizes.data();
    VkDescriptorPool pool = nullptr;
    if (!device_.succeeded(vkCreateDescriptorPool(device_.handle(), &info, nullptr, &pool),
                           "creating a descriptor pool")) {
        return false;
    }
    descriptorPools_.push_back(pool);
    return true;
}

VkDescriptorSet Batch::descriptorSet(VkDescriptorSetLayout layout)
{
    VkDescriptorSetAllocateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_DESCRIPTOR_SET_ALLOCATE_INFO;
    info.descriptorSetCount = 1;
    info.pSetLayouts = &layout;
    for (bool fresh = false;;) {
        if (descriptorPool_ == descriptorPools_.size()) {
            if (fresh || !addDescriptorPool()) {
                return nullptr;
            }
            fresh = true;
        }
        info.descriptorPool = descriptorPools_[descriptorPool_];
        VkDescriptorSet set = nullptr;
        if (vkAllocateDescriptorSets(device_.handle(), &info, &set) == VK_SUCCESS) {
            return set;
        }
        ++descriptorPool_;
    }
}

void Batch::use(Texture& texture, const Use& next)
{
    texture.lastUse.store(value_, std::memory_order_relaxed);
    if (next.writes) {
        texture.lastWrite.store(value_, std::memory_order_relaxed);
    }
    if (texture.downloadedBy != 0) {
        takeFromDownloads(texture, next.discard);
    }
    if (texture.companion != nullptr) {
        useMemory(texture, next);
        return;
    }
    if (!next.writes && texture.use.layout == next.layout && texture.use.stage == next.stage) {
        return;
    }
    VkImageMemoryBarrier2 barrier = imageBarrier(texture.image, texture.use, next.layout);
    barrier.oldLayout = next.discard ? VK_IMAGE_LAYOUT_UNDEFINED : barrier.oldLayout;
    barrier.dstStageMask = next.stage;
    barrier.dstAccessMask = next.access;
    barriers_.images.push_back(barrier);
    texture.use = {next.layout, next.stage, next.writes ? next.access : VK_ACCESS_2_NONE};
}

/// A memory barrier orders the uses of all views of the memory.
void Batch::useMemory(Texture& texture, const Use& next)
{
    const VkAccessFlags2 written = next.writes ? next.access : VK_ACCESS_2_NONE;
    if (texture.use.layout != VK_IMAGE_LAYOUT_GENERAL) {
        for (VkImage image : {texture.image, texture.companion->image()}) {
            if (image == nullptr) {
                continue;
            }
            VkImageMemoryBarrier2 barrier = imageBarrier(image, texture.use, VK_IMAGE_LAYOUT_GENERAL);
            barrier.dstStageMask = next.stage;
            barrier.dstAccessMask = next.access;
            barriers_.images.push_back(barrier);
        }
    } else if (next.writes || texture.use.written != VK_ACCESS_2_NONE || texture.use.stage != next.stage) {
        barriers_.memory.push_back(
            memoryBarrier(texture.use.stage, texture.use.written, next.stage, next.access));
    }
    texture.use = {VK_IMAGE_LAYOUT_GENERAL, next.stage, written};
}

void Batch::bringToHost(Texture& texture)
{
    use(texture, {VK_IMAGE_LAYOUT_GENERAL, VK_PIPELINE_STAGE_2_HOST_BIT,
                  VK_ACCESS_2_HOST_READ_BIT | VK_ACCESS_2_HOST_WRITE_BIT, true, false});
}

void Batch::readOnHost(Texture& texture)
{
    texture.lastUse.store(value_, std::memory_order_relaxed);
}

/// What the device does later is ordered after all that the host has written before.
void Batch::writeOnHost(Texture& texture)
{
    texture.lastUse.store(value_, std::memory_order_relaxed);
    texture.lastWrite.store(value_, std::memory_order_relaxed);
    texture.use = {VK_IMAGE_LAYOUT_GENERAL, VK_PIPELINE_STAGE_2_HOST_BIT, VK_ACCESS_2_HOST_WRITE_BIT};
}

void Batch::sample(Texture& texture)
{
    use(texture, sampled_);
}

void Batch::count(Texture& texture)
{
    use(texture, {VK_IMAGE_LAYOUT_GENERAL, VK_PIPELINE_STAGE_2_COMPUTE_SHADER_BIT,
                  VK_ACCESS_2_SHADER_SAMPLED_READ_BIT, false, false});
}

void Batch::renderTo(Texture& texture, bool discard)
{
    use(texture,
        {VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL, VK_PIPELINE_STAGE_2_COLOR_ATTACHMENT_OUTPUT_BIT,
         VK_ACCESS_2_COLOR_ATTACHMENT_READ_BIT | VK_ACCESS_2_COLOR_ATTACHMENT_WRITE_BIT, true, discard});
}

void Batch::beginLevels(Texture& texture)
{
    use(texture, {VK_IMAGE_LAYOUT_GENERAL, levelStages, levelAccesses, true, false});
}

void Batch::nextLevel()
{
    barriers_.memory.push_back(
        memoryBarrier(VK_PIPELINE_STAGE_2_COLOR_ATTACHMENT_OUTPUT_BIT, VK_ACCESS_2_COLOR_ATTACHMENT_WRITE_BIT,
                      VK_PIPELINE_STAGE_2_FRAGMENT_SHADER_BIT, VK_ACCESS_2_SHADER_SAMPLED_READ_BIT));
}

void Batch::copyFrom(Texture& texture)
{
    use(texture,
        {VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL, copyStage, VK_ACCESS_2_TRANSFER_READ_BIT, false, false});
}

void Batch::copyTo(Texture& texture)
{
    use(texture,
        {VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, copyStage, VK_ACCESS_2_TRANSFER_WRITE_BIT, true, true});
}

void Batch::copyInto(Texture& texture)
{
    use(texture,
        {VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL, copyStage, VK_ACCESS_2_TRANSFER_WRITE_BIT, true, false});
}

void Batch::giveAway(Texture& texture, VkImageLayout layout)
{
    use(texture, {texture.layoutFor(layout), VK_PIPELINE_STAGE_2_ALL_COMMANDS_BIT,
                  VK_ACCESS_2_MEMORY_READ_BIT | VK_ACCESS_2_MEMORY_WRITE_BIT, true, false});
    flush();
    if (texture.partner != VK_QUEUE_FAMILY_IGNORED) {
        passToPartner(texture, {device_.queueFamily(), texture.partner});
    }
}

void Batch::takeBack(Texture& texture, VkImageLayout layout)
{
    texture.lastUse.store(value_, std::memory_order_relaxed);
    texture.lastWrite.store(value_, std::memory_order_relaxed);
    texture.use = {layout, VK_PIPELINE_STAGE_2_ALL_COMMANDS_BIT, VK_ACCESS_2_MEMORY_WRITE_BIT};
    if (texture.partner != VK_QUEUE_FAMILY_IGNORED) {
        passToPartner(texture, {texture.partner, device_.queueFamily()});
        texture.use.layout = layoutOfReceived;
    }
}

/// The same barrier is recorded on both sides: see ExportedImage.
void Batch::passToPartner(const Texture& texture, const Passing& passing)
{
    VkImageMemoryBarrier2 barrier = imageBarrier(texture.image, texture.use, layoutOfReceived, passing);
    barrier.dstStageMask = VK_PIPELINE_STAGE_2_ALL_COMMANDS_BIT;
    barrier.dstAccessMask = VK_ACCESS_2_MEMORY_READ_BIT | VK_ACCESS_2_MEMORY_WRITE_BIT;
    barriers_.images.push_back(barrier);
    flush();
}

void Batch::copyFrom(HostBuffer& buffer)
{
    buffer.lastUse.store(value_, std::memory_order_relaxed);
    buffer.use.stage = copyStage;
}

void Batch::copyTo(HostBuffer& buffer)
{
    buffer.lastUse.store(value_, std::memory_order_relaxed);
    buffer.lastWrite.store(value_, std::memory_order_relaxed);
    if (buffer.use.stage != VK_PIPELINE_STAGE_2_NONE) {
        VkBufferMemoryBarrier2 barrier = bufferBarrier(buffer);
        barrier.srcStageMask = copyStage;
        barrier.dstStageMask = copyStage;
        barrier.dstAccessMask = VK_ACCESS_2_TRANSFER_WRITE_BIT;
        barriers_.buffers.push_back(barrier);
    }
}

void Batch::order(VkPipelineStageFlags2 stage, VkAccessFlags2 written, VkPipelineStageFlags2 nextStage,
                  VkAccessFlags2 nextAccess)
{
    barriers_.memory.push_back(memoryBarrier(stage, written, nextStage, nextAccess));
    flush();
}

void Batch::publish(HostBuffer& buffer)
{
    barriers_.buffers.push_back(publishingBarrier(buffer));
    buffer.use.stage = VK_PIPELINE_STAGE_2_NONE;
    flush();
}

void Batch::flush()
{
    barriers += barriers_.record(commands());
}

} // namespace Qx::Host::Vulkan
