#include "host/gpu/drawing/Pipelines.h"

#include "host/effects/spirv/Passes.h"
#include "host/gpu/shaders/triangle.vert.h"

#include <algorithm>

namespace Qx::Host::Vulkan {

namespace {

VkPipelineShaderStageCreateInfo stage(VkShaderStageFlagBits which, VkShaderModule module)
{
    VkPipelineShaderStageCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_PIPELINE_SHADER_STAGE_CREATE_INFO;
    info.stage = which;
    info.module = module;
    info.pName = "main";
    return info;
}

VkPipelineColorBlendAttachmentState blendState(Blending blending)
{
    VkPipelineColorBlendAttachmentState state{};
    state.colorWriteMask = VK_COLOR_COMPONENT_R_BIT | VK_COLOR_COMPONENT_G_BIT | VK_COLOR_COMPONENT_B_BIT |
                           VK_COLOR_COMPONENT_A_BIT;
    if (blending == Blending::Premultiplied) {
        state.blendEnable = VK_TRUE;
        state.srcColorBlendFactor = VK_BLEND_FACTOR_ONE;
        state.dstColorBlendFactor = VK_BLEND_FACTOR_ONE_MINUS_SRC_ALPHA;
        state.colorBlendOp = VK_BLEND_OP_ADD;
        state.srcAlphaBlendFactor = VK_BLEND_FACTOR_ONE;
        state.dstAlphaBlendFactor = VK_BLEND_FACTOR_ONE_MINUS_SRC_ALPHA;
        state.alphaBlendOp = VK_BLEND_OP_ADD;
    }
    return state;
}

/// The state that all pipelines share, with pointers to one another.
struct FixedState
{
    VkPipelineVertexInputStateCreateInfo vertices{};
    VkPipelineInputAssemblyStateCreateInfo assembly{};
    VkPipelineViewportStateCreateInfo viewport{};
    VkPipelineRasterizationStateCreateInfo raster{};
    VkPipelineMultisampleStateCreateInfo samples{};
    VkPipelineColorBlendAttachmentState attachment{};
    VkPipelineColorBlendStateCreateInfo blend{};
    std::array<VkDynamicState, 2> dynamicStates{VK_DYNAMIC_STATE_VIEWPORT, VK_DYNAMIC_STATE_SCISSOR};
    VkPipelineDynamicStateCreateInfo dynamic{};

    explicit FixedState(Blending blending) : attachment(blendState(blending))
    {
        vertices.sType = VK_STRUCTURE_TYPE_PIPELINE_VERTEX_INPUT_STATE_CREATE_INFO;
        assembly.sType = VK_STRUCTURE_TYPE_PIPELINE_INPUT_ASSEMBLY_STATE_CREATE_INFO;
        assembly.topology = VK_PRIMITIVE_TOPOLOGY_TRIANGLE_LIST;
        viewport.sType = VK_STRUCTURE_TYPE_PIPELINE_VIEWPORT_STATE_CREATE_INFO;
        viewport.viewportCount = 1;
        viewport.scissorCount = 1;
        raster.sType = VK_STRUCTURE_TYPE_PIPELINE_RASTERIZATION_STATE_CREATE_INFO;
        raster.polygonMode = VK_POLYGON_MODE_FILL;
        raster.cullMode = VK_CULL_MODE_NONE;
        raster.frontFace = VK_FRONT_FACE_COUNTER_CLOCKWISE;
        raster.lineWidth = 1.0F;
        samples.sType = VK_STRUCTURE_TYPE_PIPELINE_MULTISAMPLE_STATE_CREATE_INFO;
        samples.rasterizationSamples = VK_SAMPLE_COUNT_1_BIT;
        blend.sType = VK_STRUCTURE_TYPE_PIPELINE_COLOR_BLEND_STATE_CREATE_INFO;
        blend.attachmentCount = 1;
        blend.pAttachments = &attachment;
        dynamic.sType = VK_STRUCTURE_TYPE_PIPELINE_DYNAMIC_STATE_CREATE_INFO;
        dynamic.dynamicStateCount = static_cast<std::uint32_t>(dynamicStates.size());
        dynamic.pDynamicStates = dynamicStates.data();
    }
    FixedState(const FixedState&) = delete;
    FixedState& operator=(const FixedState&) = delete;
};

/// The place in targetFormats; their number if it is none of them.
std::size_t indexOf(VkFormat format)
{
    return static_cast<std::size_t>(std::find(targetFormats.begin(), targetFormats.end(), format) -
                                    targetFormats.begin());
}

} // namespace

VkResult createPipeline(Device& device, VkShaderModule vertex, VkShaderModule fragment,
                        VkPipelineLayout layout, Blending blending, VkFormat format, VkPipeline& pipeline)
{
    const FixedState fixed(blending);
    const std::array<VkBool32, 2> constants{isRotated(format) ? VK_TRUE : VK_FALSE,
                                            format == floatFormat ? VK_TRUE : VK_FALSE};
    const std::array<VkSpecializationMapEntry, 2> entries{
        {{0, 0, sizeof constants[0]}, {1, sizeof constants[0], sizeof constants[1]}}};
    const VkSpecializationInfo specialization{static_cast<std::uint32_t>(entries.size()), entries.data(),
                                              sizeof constants, constants.data()};
    std::array<VkPipelineShaderStageCreateInfo, 2> stages{stage(VK_SHADER_STAGE_VERTEX_BIT, vertex),
                                                          stage(VK_SHADER_STAGE_FRAGMENT_BIT, fragment)};
    stages[1].pSpecializationInfo = &specialization;
    VkPipelineRenderingCreateInfo rendering{};
    rendering.sType = VK_STRUCTURE_TYPE_PIPELINE_RENDERING_CREATE_INFO;
    rendering.colorAttachmentCount = 1;
    rendering.pColorAttachmentFormats = &format;

    VkGraphicsPipelineCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_GRAPHICS_PIPELINE_CREATE_INFO;
    info.pNext = &rendering;
    info.stageCount = static_cast<std::uint32_t>(stages.size());
    info.pStages = stages.data();
    info.pVertexInputState = &fixed.vertices;
    info.pInputAssemblyState = &fixed.assembly;
    info.pViewportState = &fixed.viewport;
    info.pRasterizationState = &fixed.raster;
    info.pMultisampleState = &fixed.samples;
    info.pColorBlendState = &fixed.blend;
    info.pDynamicState = &fixed.dynamic;
    info.layout = layout;
    return vkCreateGraphicsPipelines(device.handle(), device.pipelineCache(), 1, &info, nullptr, &pipeline);
}

VkPipeline pipelineFor(const FormatPipelines& pipelines, VkFormat format)
{
    const std::size_t index = indexOf(format);
    return index < pipelines.size() ? pipelines.at(index) : nullptr;
}

VkResult createShaderModule(Device& device, std::span<const std::uint32_t> spirv, VkShaderModule& module)
{
    VkShaderModuleCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_SHADER_MODULE_CREATE_INFO;
    info.codeSize = spirv.size_bytes();
    info.pCode = spirv.data();
    Effects::Spirv::Words adding;
    if (device.physical().convertsSlowly) {
        adding = Effects::convertByAdding({spirv.begin(), spirv.end()});
        info.codeSize = adding.size() * sizeof adding.front();
        info.pCode = adding.data();
    }
    return vkCreateShaderModule(device.handle(), &info, nullptr, &module);
}

VkResult createPipelines(Device& device, VkShaderModule fragment, VkPipelineLayout layout,
                         FormatPipelines& pipelines, std::span<const VkFormat> formats)
{
    VkShaderModule vertex = nullptr;
    VkResult result = createShaderModule(device, triangleVertexShader, vertex);
    for (const VkFormat format : formats) {
        if (result == VK_SUCCESS && device.physical().canDrawInto(format)) {
            result = createPipeline(device, vertex, fragment, layout, Blending::Replace, format,
                                    pipelines.at(indexOf(format)));
        }
    }
    vkDestroyShaderModule(device.handle(), vertex, nullptr);
    if (result != VK_SUCCESS) {
        destroyPipelines(device, pipelines);
    }
    return result;
}

void destroyPipelines(Device& device, FormatPipelines& pipelines)
{
    for (VkPipeline& pipeline : pipelines) {
        vkDestroyPipeline(device.handle(), pipeline, nullptr);
        pipeline = nullptr;
    }
}

void beginDrawing(VkCommandBuffer commands, const DrawTarget& target, VkRect2D area, VkAttachmentLoadOp load,
                  const VkClearColorValue& clear)
{
    VkRenderingAttachmentInfo attachment{};
    attachment.sType = VK_STRUCTURE_TYPE_RENDERING_ATTACHMENT_INFO;
    attachment.imageView = target.view;
    attachment.imageLayout = target.layout;
    attachment.loadOp = load;
    attachment.storeOp = VK_ATTACHMENT_STORE_OP_STORE;
    attachment.clearValue.color = clear;
    VkRenderingInfo info{};
    info.sType = VK_STRUCTURE_TYPE_RENDERING_INFO;
    info.renderArea = area;
    info.layerCount = 1;
    info.colorAttachmentCount = 1;
    info.pColorAttachments = &attachment;
    vkCmdBeginRendering(commands, &info);
    // The triangle spans the whole target, so that a fragment's position is the pixel's.
    const VkViewport viewport{
        0.0F, 0.0F, static_cast<float>(target.size.width), static_cast<float>(target.size.height),
        0.0F, 1.0F};
    vkCmdSetViewport(commands, 0, 1, &viewport);
    vkCmdSetScissor(commands, 0, 1, &area);
}

void beginDrawing(VkCommandBuffer commands, const Texture& target, VkRect2D area, VkAttachmentLoadOp load,
                  const VkClearColorValue& clear)
{
    beginDrawing(commands,
                 DrawTarget{target.target,
                            target.layoutFor(VK_IMAGE_LAYOUT_COLOR_ATTACHMENT_OPTIMAL),
                            {target.key.width, target.key.height}},
                 area, load, clear);
}

} // namespace Qx::Host::Vulkan
