#pragma once

#include "host/gpu/images/Resources.h"

#include <array>
#include <span>

namespace Qx::Host::Vulkan {

/// The target formats for which pipelines are created.
constexpr std::array<VkFormat, 5> targetFormats{VK_FORMAT_R8G8B8A8_UNORM, VK_FORMAT_R16G16B16A16_UNORM,
                                                VK_FORMAT_A2R10G10B10_UNORM_PACK32,
                                                VK_FORMAT_R16G16B16A16_SFLOAT, floatFormat};

/// Those that callers' targets usually have.
constexpr std::span<const VkFormat> callersFormats = std::span(targetFormats).first<3>();

/// That of chains of floats.
constexpr std::span<const VkFormat> floatFormats = std::span(targetFormats).last<1>();

/// A pipeline for each of targetFormats; null if it was not created.
using FormatPipelines = std::array<VkPipeline, targetFormats.size()>;

VkPipeline pipelineFor(const FormatPipelines& pipelines, VkFormat format);

/// How a pass combines with the target's contents.
enum class Blending
{
    Replace,
    Premultiplied, ///< over it, by the result's own alpha; for targets whose components are not rotated
};

VkResult createShaderModule(Device& device, std::span<const std::uint32_t> spirv, VkShaderModule& module);

/// Creates the pipelines of a fragment shader that replace what a triangle over the whole target covers, for
/// those of `formats`, each one of targetFormats, that the device can draw into. Specialization constant 0 is
/// set for targets with rotated components, 1 for those of 32-bit floats.
VkResult createPipelines(Device& device, VkShaderModule fragment, VkPipelineLayout layout,
                         FormatPipelines& pipelines, std::span<const VkFormat> formats = callersFormats);
void destroyPipelines(Device& device, FormatPipelines& pipelines);

/// Creates one pipeline, for targets of that format.
VkResult createPipeline(Device& device, VkShaderModule vertex, VkShaderModule fragment,
                        VkPipelineLayout layout, Blending blending, VkFormat format, VkPipeline& pipeline);

/// Begins drawing into a target that Batch::renderTo() announced. Only `area` changes.
void beginDrawing(VkCommandBuffer commands, const Texture& target, VkRect2D area, VkAttachmentLoadOp load,
                  const VkClearColorValue& clear = {});

/// The same into any view of a target.
struct DrawTarget
{
    VkImageView view;
    VkImageLayout layout;
    VkExtent2D size;
};
void beginDrawing(VkCommandBuffer commands, const DrawTarget& target, VkRect2D area, VkAttachmentLoadOp load,
                  const VkClearColorValue& clear = {});

} // namespace Qx::Host::Vulkan
