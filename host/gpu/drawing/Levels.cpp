#include "host/gpu/drawing/Levels.h"

#include "host/gpu/images/Picture.h"

#include <algorithm>
#include <bit>

namespace Qx::Host::Vulkan {

namespace {

/// The codes of a texel's components as they lie in memory; 0 for floats.
std::array<float, 4> codesInMemory(VkFormat format)
{
    return holdsFloats(format) ? std::array<float, 4>{} : maxCodes(format);
}

VkExtent2D levelSize(const TextureKey& key, std::uint32_t level)
{
    return {std::max(key.width >> level, 1U), std::max(key.height >> level, 1U)};
}

VkImageView levelView(const Texture& texture, std::uint32_t level)
{
    return level == 0 ? texture.target : texture.smaller[level - 1];
}

/// Descriptor sets to read each level but the last. Fewer if memory is exhausted.
std::vector<VkDescriptorSet> levelSets(Batch& batch, Context& context, const Texture& texture)
{
    VkSampler sampler = context.samplers().get(CompiledEffect::Filter::Point, CompiledEffect::Address::Clamp,
                                               CompiledEffect::Address::Clamp);
    std::vector<VkDescriptorSet> sets;
    for (std::uint32_t level = 0; level + 1 < texture.key.levels && sampler != nullptr; ++level) {
        VkDescriptorSet set = batch.descriptorSet(context.primitives().setLayout());
        if (set == nullptr) {
            break;
        }
        const VkDescriptorImageInfo image{sampler, levelView(texture, level), VK_IMAGE_LAYOUT_GENERAL};
        std::array<VkWriteDescriptorSet, 2> writes{}; // the layout has two images, and this shader reads one
        for (std::uint32_t i = 0; i < writes.size(); ++i) {
            writes.at(i).sType = VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET;
            writes.at(i).dstSet = set;
            writes.at(i).dstBinding = i;
            writes.at(i).descriptorCount = 1;
            writes.at(i).descriptorType = VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER;
            writes.at(i).pImageInfo = &image;
        }
        vkUpdateDescriptorSets(context.device().handle(), static_cast<std::uint32_t>(writes.size()),
                               writes.data(), 0, nullptr);
        sets.push_back(set);
    }
    return sets;
}

bool recordAll(Batch& batch, Context& context, Texture* source, Texture& texture)
{
    VkPipeline pipeline = context.primitives().level(texture.key.format);
    const std::vector<VkDescriptorSet> sets = levelSets(batch, context, texture);
    if (pipeline == nullptr || sets.size() + 1 < texture.key.levels) {
        return false;
    }
    if (source != nullptr) {
        recordCopy(batch, *source, texture);
    }
    batch.beginLevels(texture);
    VkCommandBuffer commands = batch.commands();
    for (std::uint32_t level = 1; level < texture.key.levels; ++level) {
        if (level > 1) {
            batch.nextLevel();
        }
        batch.flush();
        const VkExtent2D above = levelSize(texture.key, level - 1);
        const VkExtent2D size = levelSize(texture.key, level);
        const PrimitivePipelines::Level constants{
            codesInMemory(texture.key.format),
            {static_cast<std::int32_t>(above.width) - 1, static_cast<std::int32_t>(above.height) - 1}};
        beginDrawing(commands, {levelView(texture, level), VK_IMAGE_LAYOUT_GENERAL, size}, {{0, 0}, size},
                     VK_ATTACHMENT_LOAD_OP_DONT_CARE);
        vkCmdBindPipeline(commands, VK_PIPELINE_BIND_POINT_GRAPHICS, pipeline);
        vkCmdBindDescriptorSets(commands, VK_PIPELINE_BIND_POINT_GRAPHICS, context.primitives().layout(), 0,
                                1, &sets[level - 1], 0, nullptr);
        vkCmdPushConstants(commands, context.primitives().layout(), VK_SHADER_STAGE_FRAGMENT_BIT, 0,
                           sizeof constants, &constants);
        vkCmdDraw(commands, 3, 1, 0, 0);
        vkCmdEndRendering(commands);
        ++context.draws;
    }
    return true;
}

} // namespace

std::uint32_t levelsOf(std::uint32_t width, std::uint32_t height, std::uint32_t wanted)
{
    return std::clamp(wanted, 1U, static_cast<std::uint32_t>(std::bit_width(std::max({width, height, 1U}))));
}

bool recordLevels(Batch& batch, Context& context, Texture& texture)
{
    return recordAll(batch, context, nullptr, texture);
}

bool recordLevels(Batch& batch, Context& context, Texture& source, Texture& texture)
{
    return recordAll(batch, context, &source, texture);
}

} // namespace Qx::Host::Vulkan
