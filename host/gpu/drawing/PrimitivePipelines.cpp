#include "host/gpu/drawing/PrimitivePipelines.h"

#include "host/gpu/shaders/gradient.frag.h"
#include "host/gpu/shaders/image.frag.h"
#include "host/gpu/shaders/imageOver.frag.h"
#include "host/gpu/shaders/levels.frag.h"
#include "host/gpu/shaders/texels.frag.h"
#include "host/gpu/shaders/texelsOver.frag.h"

#include <algorithm>

namespace Qx::Host::Vulkan {

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
    return createLayouts() && createPipelinesOf(gradientShader, gradient_) &&
           createPipelinesOf(imageShader, image_) && createPipelinesOf(imageOverShader, imageOver_) &&
           createPipelinesOf(texelsShader, texels_) && createPipelinesOf(texelsOverShader, texelsOver_);
}

VkPipeline PrimitivePipelines::image(VkFormat format, Sampling sampling, Over over) const
{
    if (sampling == Sampling::Unfiltered) {
        return pipelineFor(over == Over::Replace ? texels_ : texelsOver_, format);
    }
    return pipelineFor(over == Over::Replace ? image_ : imageOver_, format);
}

VkPipeline PrimitivePipelines::level(VkFormat format)
{
    const std::lock_guard lock(levelsMutex_);
    hasLevels_ = hasLevels_ || createPipelinesOf(levelsShader, levels_, targetFormats);
    return pipelineFor(levels_, format);
}

void PrimitivePipelines::destroy()
{
    destroyPipelines(device_, levels_);
    destroyPipelines(device_, gradient_);
    destroyPipelines(device_, image_);
    destroyPipelines(device_, imageOver_);
    destroyPipelines(device_, texels_);
    destroyPipelines(device_, texelsOver_);
    vkDestroyPipelineLayout(device_.handle(), layout_, nullptr);
    vkDestroyDescriptorSetLayout(device_.handle(), setLayout_, nullptr);
    layout_ = nullptr;
    setLayout_ = nullptr;
}

} // namespace Qx::Host::Vulkan
