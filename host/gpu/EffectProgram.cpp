#include "host/gpu/EffectProgram.h"

#include "host/gpu/SpirvReflection.h"

namespace Qx::Host::Vulkan {

namespace {

void destroyPass(Device& device, PassProgram& pass)
{
    destroyPipelines(device, pass.pipelines);
    vkDestroyPipelineLayout(device.handle(), pass.layout, nullptr);
    vkDestroyDescriptorSetLayout(device.handle(), pass.setLayout, nullptr);
    pass.layout = nullptr;
    pass.setLayout = nullptr;
}

} // namespace

std::shared_ptr<EffectProgram> EffectProgram::create(std::shared_ptr<Context> context,
                                                     std::shared_ptr<const CompiledEffect> effect,
                                                     PassRefusal& refusal, const Observer& observer)
{
    std::shared_ptr<EffectProgram> self(new EffectProgram(std::move(context), std::move(effect)));
    self->context_->add(*self);
    self->techniques_.resize(self->effect_->techniques.size());
    for (std::size_t i = 0; i < self->techniques_.size(); ++i) {
        const CompiledEffect::Technique& technique = self->effect_->techniques[i];
        self->techniques_[i].resize(technique.passes.size());
        for (std::size_t p = 0; p < technique.passes.size(); ++p) {
            if (observer) {
                observer(i, p);
            }
            if (!self->createPass(technique.passes[p], self->techniques_[i][p])) {
                refusal = {technique.name, technique.passes[p].name};
                return nullptr;
            }
        }
    }
    return self;
}

EffectProgram::~EffectProgram()
{
    // The device may still be drawing with it, and this may be a static destructor.
    context_->retire(*this, [device = &context_->device(), techniques = techniques_]() mutable {
        for (auto& passes : techniques) {
            for (PassProgram& pass : passes) {
                destroyPass(*device, pass);
            }
        }
    });
}

void EffectProgram::destroyDeviceObjects(Device& device)
{
    for (auto& passes : techniques_) {
        for (PassProgram& pass : passes) {
            destroyPass(device, pass);
        }
    }
}

bool EffectProgram::createLayouts(const CompiledEffect::Pass& pass, PassProgram& program)
{
    Device& device = context_->device();
    std::vector<VkDescriptorSetLayoutBinding> bindings(1 + pass.samplers.size());
    bindings[0].descriptorType = VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER;
    for (std::size_t i = 0; i < pass.samplers.size(); ++i) {
        bindings[1 + i].binding = 1 + pass.samplers[i];
        bindings[1 + i].descriptorType = VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER;
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
    return device.succeeded(vkCreatePipelineLayout(device.handle(), &info, nullptr, &program.layout),
                            "setting up an effect");
}

bool EffectProgram::createPass(const CompiledEffect::Pass& pass, PassProgram& program)
{
    Device& device = context_->device();
    const SpirvReflection reflection = reflect(pass.spirv);
    if (!reflection.valid || pass.samplers.size() > device.limits().maxPerStageDescriptorSamplers) {
        return false;
    }
    program.discards = reflection.discards;
    for (const std::uint32_t index : pass.samplers) {
        const CompiledEffect::Sampler& sampler = effect_->samplers.at(index);
        const VkSampler made = context_->samplers().get(sampler.filter, sampler.addressU, sampler.addressV);
        if (made == nullptr) {
            return false;
        }
        program.samplers.push_back(made);
        const auto dimensions = reflection.imageDimensions.find(1 + index);
        program.dimensions.push_back(dimensions != reflection.imageDimensions.end() ? dimensions->second : 2);
    }
    if (!createLayouts(pass, program)) {
        return false;
    }
    VkShaderModule module = nullptr;
    VkResult result = createShaderModule(device, pass.spirv, module);
    if (result == VK_SUCCESS) {
        result = createPipelines(device, module, program.layout, Blending::Replace, program.pipelines);
        vkDestroyShaderModule(device.handle(), module, nullptr);
    }
    return device.succeeded(result, "making an effect's pipeline");
}

} // namespace Qx::Host::Vulkan
