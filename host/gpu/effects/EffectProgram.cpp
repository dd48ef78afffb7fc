#include "host/gpu/effects/EffectProgram.h"

#include "host/gpu/effects/SpirvReflection.h"

#include <algorithm>
#include <array>
#include <atomic>

namespace Qx::Host::Vulkan {

namespace {

/// What is made under the lock is looked at without it, so that a draw whose pipelines are there does not
/// wait for another's to be made.
template <class Made>
bool isMade(Made& made)
{
    return std::atomic_ref(made).load(std::memory_order_acquire) != Made{};
}

template <class Made>
void setMade(Made& place, Made made)
{
    std::atomic_ref(place).store(made, std::memory_order_release);
}

void destroyShader(Device& device, ShaderProgram& shader)
{
    vkDestroyPipelineLayout(device.handle(), shader.layout, nullptr);
    vkDestroyDescriptorSetLayout(device.handle(), shader.setLayout, nullptr);
    shader.layout = nullptr;
    shader.setLayout = nullptr;
}

void destroyTechnique(Device& device, TechniqueProgram& technique)
{
    for (PassProgram& pass : technique.passes) {
        destroyPipelines(device, pass.pipelines);
        destroyShader(device, pass);
    }
    for (TechniqueProgram::Packed& packed : technique.packed) {
        for (PackedProgram& pass : packed.passes) {
            vkDestroyPipeline(device.handle(), pass.pipeline, nullptr);
            pass.pipeline = nullptr;
            destroyShader(device, pass);
        }
    }
}

} // namespace

std::shared_ptr<EffectProgram> EffectProgram::create(std::shared_ptr<Context> context,
                                                     std::shared_ptr<const CompiledEffect> effect,
                                                     PassRefusal& refusal)
{
    std::shared_ptr<EffectProgram> self(new EffectProgram(std::move(context), std::move(effect)));
    self->context_->add(*self);
    self->techniques_.resize(self->effect_->techniques.size());
    for (std::size_t i = 0; i < self->techniques_.size(); ++i) {
        if (!self->createTechnique(i, refusal)) {
            return nullptr;
        }
    }
    return self;
}

bool EffectProgram::createTechnique(std::size_t index, PassRefusal& refusal)
{
    const CompiledEffect::Technique& technique = effect_->techniques[index];
    TechniqueProgram& program = techniques_[index];
    program.passes.resize(technique.passes.size());
    for (std::size_t p = 0; p < technique.passes.size(); ++p) {
        const CompiledEffect::Pass& pass = technique.passes[p];
        if (!createShader(pass.spirv, pass.samplers, program.passes[p])) {
            refusal = {technique.name, pass.name};
            return false;
        }
    }
    if (!createPacked(technique, program)) {
        refusal = {technique.name, technique.passes.back().name};
        return false;
    }
    return true;
}

bool EffectProgram::makeReady(PassRefusal& refusal, const Observer& observer)
{
    for (std::size_t t = 0; t < techniques_.size(); ++t) {
        for (std::size_t p = 0; p < techniques_[t].passes.size(); ++p) {
            if (observer) {
                observer(t, p);
            }
            if (!makeReady(t, p)) {
                refusal = {effect_->techniques[t].name, effect_->techniques[t].passes[p].name};
                return false;
            }
        }
    }
    return true;
}

bool EffectProgram::makeReady(std::size_t technique, std::size_t pass)
{
    const std::lock_guard lock(making_);
    TechniqueProgram& program = techniques_[technique];
    if (program.packed.empty()) {
        return makePipelines(effect_->techniques[technique].passes[pass], program.passes[pass]);
    }
    return std::all_of(program.packed.begin(), program.packed.end(),
                       [&](TechniqueProgram::Packed& packed) { return makePipeline(packed.passes[pass]); });
}

bool EffectProgram::makePipelines(std::size_t technique)
{
    std::vector<PassProgram>& passes = techniques_[technique].passes;
    if (std::all_of(passes.begin(), passes.end(),
                    [](PassProgram& pass) { return isMade(pass.hasPipelines); })) {
        return true;
    }
    const std::lock_guard lock(making_);
    for (std::size_t p = 0; p < passes.size(); ++p) {
        if (!makePipelines(effect_->techniques[technique].passes[p], passes[p])) {
            return false;
        }
    }
    return true;
}

bool EffectProgram::makePackedPipelines(std::size_t technique, std::size_t packed)
{
    std::vector<PackedProgram>& passes = techniques_[technique].packed[packed].passes;
    if (std::all_of(passes.begin(), passes.end(),
                    [](PackedProgram& pass) { return isMade(pass.pipeline); })) {
        return true;
    }
    const std::lock_guard lock(making_);
    return std::all_of(passes.begin(), passes.end(),
                       [this](PackedProgram& pass) { return makePipeline(pass); });
}

EffectProgram::~EffectProgram()
{
    // The device may still be drawing with it, and this may be a static destructor.
    context_->retire(*this, [device = &context_->device(), techniques = techniques_]() mutable {
        for (TechniqueProgram& technique : techniques) {
            destroyTechnique(*device, technique);
        }
    });
}

void EffectProgram::destroyDeviceObjects(Device& device)
{
    for (TechniqueProgram& technique : techniques_) {
        destroyTechnique(device, technique);
    }
}

bool EffectProgram::createLayouts(ShaderProgram& program)
{
    Device& device = context_->device();
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
    if (!program.rows.empty()) {
        info.pushConstantRangeCount = 1;
        info.pPushConstantRanges = &packedRows;
    }
    return device.succeeded(vkCreatePipelineLayout(device.handle(), &info, nullptr, &program.layout),
                            "setting up an effect");
}

/// All but the pipelines.
bool EffectProgram::createShader(const std::vector<std::uint32_t>& spirv,
                                 const std::vector<std::uint32_t>& samplers, ShaderProgram& program)
{
    const SpirvReflection reflection = reflect(spirv);
    if (!reflection.valid || samplers.size() > context_->device().limits().maxPerStageDescriptorSamplers) {
        return false;
    }
    program.discards = reflection.discards;
    program.bindings = samplers;
    for (const std::uint32_t index : samplers) {
        const CompiledEffect::Sampler& sampler = effect_->samplers.at(index);
        const VkSampler made = context_->samplers().get(sampler.filter, sampler.addressU, sampler.addressV);
        if (made == nullptr) {
            return false;
        }
        program.samplers.push_back(made);
        const auto dimensions = reflection.imageDimensions.find(1 + index);
        program.dimensions.push_back(dimensions != reflection.imageDimensions.end() ? dimensions->second : 2);
    }
    return createLayouts(program);
}

bool EffectProgram::makePipelines(const CompiledEffect::Pass& pass, PassProgram& program)
{
    if (program.hasPipelines) {
        return true;
    }
    Device& device = context_->device();
    destroyPipelines(device, program.pipelines); // of an attempt that failed
    VkShaderModule module = nullptr;
    VkResult result = createShaderModule(device, pass.spirv, module);
    if (result == VK_SUCCESS) {
        result = createPipelines(device, module, program.layout, Blending::Replace, program.pipelines);
        vkDestroyShaderModule(device.handle(), module, nullptr);
    }
    if (!device.succeeded(result, "making an effect's pipeline")) {
        return false;
    }
    setMade(program.hasPipelines, true);
    return true;
}

bool EffectProgram::createPacked(const CompiledEffect::Technique& technique, TechniqueProgram& program)
{
    if (!context_->device().drawsPacked()) {
        return true;
    }
    for (const CompiledEffect::PackedShader& first : technique.passes.front().packed) {
        std::vector<const CompiledEffect::PackedShader*> shaders;
        for (const CompiledEffect::Pass& pass : technique.passes) {
            const auto found = std::find_if(pass.packed.begin(), pass.packed.end(), [&](const auto& shader) {
                return shader.depths == first.depths;
            });
            if (found != pass.packed.end()) {
                shaders.push_back(&*found);
            }
        }
        if (shaders.size() != technique.passes.size()) {
            continue;
        }
        std::vector<PackedProgram>& passes =
            program.packed.emplace_back(TechniqueProgram::Packed{first.depths, {}}).passes;
        for (const CompiledEffect::PackedShader* shader : shaders) {
            PackedProgram& pass = passes.emplace_back();
            pass.shader = shader;
            pass.texelBytes = shader->texelBytes;
            pass.rows = shader->rows;
            if (!createShader(shader->spirv, shader->samplers, pass)) {
                return false;
            }
        }
    }
    return true;
}

bool EffectProgram::makePipeline(PackedProgram& program)
{
    if (program.pipeline != nullptr) {
        return true;
    }
    Device& device = context_->device();
    VkPipeline pipeline = nullptr;
    VkShaderModule module = nullptr;
    VkResult result = createShaderModule(device, program.shader->spirv, module);
    if (result == VK_SUCCESS) {
        result = createPackedPipeline(device, module, program.layout, !program.rows.empty(), pipeline);
        vkDestroyShaderModule(device.handle(), module, nullptr);
    }
    if (!device.succeeded(result, "making an effect's pipeline for packed texels")) {
        return false;
    }
    setMade(program.pipeline, pipeline);
    return true;
}

} // namespace Qx::Host::Vulkan
