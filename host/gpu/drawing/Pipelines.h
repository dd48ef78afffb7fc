#pragma once

#include "host/gpu/images/Resources.h"

#include <array>
#include <span>

namespace Qx::Host::Vulkan {

/// The target formats that pipelines are made for.
constexpr std::array<VkFormat, 3> targetFormats{VK_FORMAT_R8G8B8A8_UNORM, VK_FORMAT_R16G16B16A16_UNORM,
                                                VK_FORMAT_A2R10G10B10_UNORM_PACK32};

/// A pipeline for each of targetFormats; null where the device cannot draw into images of the format.
using FormatPipelines = std::array<VkPipeline, targetFormats.size()>;

VkPipeline pipelineFor(const FormatPipelines& pipelines, VkFormat format);

/// How a pass meets what is in the target.
enum class Blending
{
    Replace,
    ByCoverage, ///< a second output says, for each component, how much of the first one replaces the target
};

VkResult createShaderModule(Device& device, std::span<const std::uint32_t> spirv, VkShaderModule& module);

/// Makes the pipelines of a fragment shader, behind a vertex shader of triangles without buffers or, when
/// that is empty, one triangle that covers the target. Specialization constant 0 is set for targets that hold
/// rotated components.
VkResult createPipelines(Device& device, VkShaderModule fragment, VkPipelineLayout layout, Blending blending,
                         FormatPipelines& pipelines, std::span<const std::uint32_t> vertex = {});
void destroyPipelines(Device& device, FormatPipelines& pipelines);

/// Makes one pipeline, for targets of that format.
VkResult createPipeline(Device& device, VkShaderModule vertex, VkShaderModule fragment,
                        VkPipelineLayout layout, Blending blending, VkFormat format, VkPipeline& pipeline);

/// Begins drawing into a target that renderTo() was announced for; only `area` is touched.
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
