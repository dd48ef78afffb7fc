#include "host/gpu/effects/ShaderProgram.h"

#include "host/gpu/effects/SpirvReflection.h"

namespace Qx::Host::Vulkan {

namespace {

bool createLayouts(Device& device, const VkPushConstantRange* pushConstants, ShaderProgram& program)
{
    std::vector<VkDescriptorSetLayoutBinding> bindings(1 + program.bindings.size());
    bindings[0].descriptorType = VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER;
    for (std::size_t i = 0; i < program.bindings.size(); ++i) {
        bindings[1 + i].binding = 1 + program.bindings[i];
        bindings[1 + i].descriptorType = program.dimensions[i] == 1
                                             ? VK_DESCRIPTOR_TYPE_UNIFORM_TEXEL_BUFFER
                                             : VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER;
    }
    for (VkDescriptorSetLayoutBinding& binding : bindings) {
        binding.descriptorCount = 1;
        binding.stageFlags = VK_SHADER_STAGE_FRAGMENT_BIT;
    }
    VkDescriptorSetLayoutCreateInfo set{};
    set.sType = VK_STRUCTURE_TYPE_DESCRIPTOR_SET_LAYOUT_CREATE_INFO;
    set.bindingCount = static_cast<std::uint32_t>(bindings.size());
    set.pBindings = bindings.data();
    if (!device.succeeded(vkCreateDescriptorSetLayout(device.handle(), &set, nullptr, &program.setLayout),
                          "setting up an effect")) {
        return false;
    }
    VkPipelineLayoutCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_PIPELINE_LAYOUT_CREATE_INFO;
    info.setLayoutCount = 1;
    info.pSetLayouts = &program.setLayout;
    info.pushConstantRangeCount = pushConstants != nullptr ? 1 : 0;
    info.pPushConstantRanges = pushConstants;
    return device.succeeded(vkCreatePipelineLayout(device.handle(), &info, nullptr, &program.layout),
                            "setting up an effect");
}

} // namespace

bool createShaderProgram(Context& context, const CompiledEffect& effect, const ShaderSource& source,
                         ShaderProgram& program)
{
    Device& device = context.device();
    const SpirvReflection reflection = reflect(source.spirv);
    if (!reflection.valid || source.samplers.size() > device.limits().maxPerStageDescriptorSamplers) {
        return false;
    }
    program.discards = reflection.discards;
    program.bindings = source.samplers;
    for (const std::uint32_t index : source.samplers) {
        const CompiledEffect::Sampler& sampler = effect.samplers.at(index);
        const bool hasLevels = sampler.mip != CompiledEffect::Mip::None;
        VkSampler made = context.samplers().get(hasLevels ? CompiledEffect::Filter::Point : sampler.filter,
                                                sampler.addressU, sampler.addressV, hasLevels);
        if (made == nullptr) {
            return false;
        }
        program.samplers.push_back(made);
        const auto dimensions = reflection.imageDimensions.find(1 + index);
        program.dimensions.push_back(dimensions != reflection.imageDimensions.end() ? dimensions->second : 2);
    }
    return createLayouts(device, source.pushConstants, program);
}

void destroyShaderProgram(Device& device, ShaderProgram& program)
{
    vkDestroyPipelineLayout(device.handle(), program.layout, nullptr);
    vkDestroyDescriptorSetLayout(device.handle(), program.setLayout, nullptr);
    program.layout = nullptr;
    program.setLayout = nullptr;
}

} // namespace Qx::Host::Vulkan
