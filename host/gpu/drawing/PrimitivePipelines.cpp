#include "host/gpu/drawing/PrimitivePipelines.h"

#include "host/gpu/shaders/gradient.frag.h"
#include "host/gpu/shaders/image.frag.h"
#include "host/gpu/shaders/imageOver.frag.h"
#include "host/gpu/shaders/levels.frag.h"
#include "host/gpu/shaders/texels.frag.h"
#include "host/gpu/shaders/texelsOver.frag.h"

#include <algorithm>

namespace Qx::Host::Vulkan {

PrimitivePipelines::PrimitivePipelines(Device& device)
    : device_(device),
      gradient_{.spirv = gradientShader},
      image_{.spirv = imageShader},
      imageOver_{.spirv = imageOverShader},
      texels_{.spirv = texelsShader},
      texelsOver_{.spirv = texelsOverShader}
{
}

bool PrimitivePipelines::createLayouts()
{
    std::array<VkDescriptorSetLayoutBinding, 2> bindings{};
    for (std::uint32_t i = 0; i < bindings.size(); ++i) {
        bindings.at(i).binding = i;
        bindings.at(i).descriptorType = VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER;
        bindings.at(i).descriptorCount = 1;
        bindings.at(i).stageFlags = VK_SHADER_STAGE_FRAGMENT_BIT;
    }
    VkDescriptorSetLayoutCreateInfo set{};
    set.sType = VK_STRUCTURE_TYPE_DESCRIPTOR_SET_LAYOUT_CREATE_INFO;
    set.bindingCount = static_cast<std::uint32_t>(bindings.size());
    set.pBindings = bindings.data();
    if (!device_.succeeded(vkCreateDescriptorSetLayout(device_.handle(), &set, nullptr, &setLayout_),
                           "setting up drawing")) {
        return false;
    }
    const VkPushConstantRange range{VK_SHADER_STAGE_FRAGMENT_BIT, 0,
                                    static_cast<std::uint32_t>(std::max(sizeof(Gradient), sizeof(Image)))};
    VkPipelineLayoutCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_PIPELINE_LAYOUT_CREATE_INFO;
    info.setLayoutCount = 1;
    info.pSetLayouts = &setLayout_;
    info.pushConstantRangeCount = 1;
    info.pPushConstantRanges = &range;
    return device_.succeeded(vkCreatePipelineLayout(device_.handle(), &info, nullptr, &layout_),
                             "setting up drawing");
}

bool PrimitivePipelines::createPipelinesOf(std::span<const std::uint32_t> spirv, FormatPipelines& pipelines,
                                           std::span<const VkFormat> formats)
{
    VkShaderModule module = nullptr;
    VkResult result = createShaderModule(device_, spirv, module);
    if (result == VK_SUCCESS) {
        result = createPipelines(device_, module, layout_, pipelines, formats);
        vkDestroyShaderModule(device_.handle(), module, nullptr);
    }
    return device_.succeeded(result, "setting up drawing");
}

bool PrimitivePipelines::create()
{
    const auto all = shaders();
    return createLayouts() && std::ranges::all_of(all, [this](Shader* shader) {
               return createPipelinesOf(shader->spirv, shader->pipelines);
           });
}

VkPipeline PrimitivePipelines::pipelineOf(Shader& shader, VkFormat format)
{
    if (format != floatFormat) {
        return pipelineFor(shader.pipelines, format);
    }
    const std::lock_guard lock(mutex_);
    if (pipelineFor(shader.ofFloats, format) == nullptr) {
        createPipelinesOf(shader.spirv, shader.ofFloats, floatFormats);
    }
    return pipelineFor(shader.ofFloats, format);
}

VkPipeline PrimitivePipelines::image(VkFormat format, Sampling sampling, Over over)
{
    if (sampling == Sampling::Unfiltered) {
        return pipelineOf(over == Over::Replace ? texels_ : texelsOver_, format);
    }
    return pipelineOf(over == Over::Replace ? image_ : imageOver_, format);
}

VkPipeline PrimitivePipelines::level(VkFormat format)
{
    const std::lock_guard lock(mutex_);
    hasLevels_ = hasLevels_ || createPipelinesOf(levelsShader, levels_, targetFormats);
    return pipelineFor(levels_, format);
}

void PrimitivePipelines::destroy()
{
    destroyPipelines(device_, levels_);
    for (Shader* shader : shaders()) {
        destroyPipelines(device_, shader->pipelines);
        destroyPipelines(device_, shader->ofFloats);
    }
    vkDestroyPipelineLayout(device_.handle(), layout_, nullptr);
    vkDestroyDescriptorSetLayout(device_.handle(), setLayout_, nullptr);
    layout_ = nullptr;
    setLayout_ = nullptr;
}

} // namespace Qx::Host::Vulkan
