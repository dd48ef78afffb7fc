#include "host/gpu/effects/EffectProgram.h"

#include "host/gpu/device/DrawingPath.h"

#include <algorithm>

namespace Qx::Host::Vulkan {

namespace {

void destroyTechniques(Device& device, std::vector<TechniqueProgram>& techniques)
{
    for (TechniqueProgram& technique : techniques) {
        for (StageProgram& stage : technique.stages) {
            stage.usual->destroy(device);
            for (const std::unique_ptr<TechniqueDrawing>& drawing : stage.faster) {
                drawing->destroy(device);
            }
        }
    }
}

/// The formats that a texture may have that passes draw into.
std::span<const VkFormat> formatsOf(const Device& device, const CompiledEffect::Texture& texture)
{
    const VkFormat own = ownFormat(device, texture.targetFormat);
    const auto* const found = std::find(targetFormats.begin(), targetFormats.end(), own);
    return found == targetFormats.end() ? callersFormats : std::span(found, 1);
}

} // namespace

VkFormat ownFormat(const Device& device, CompiledEffect::TargetFormat format)
{
    switch (format) {
    case CompiledEffect::TargetFormat::Same:
        break;
    case CompiledEffect::TargetFormat::Bits8:
        return VK_FORMAT_R8G8B8A8_UNORM;
    case CompiledEffect::TargetFormat::Bits10:
        // Not every device draws into it; the next larger one holds its codes.
        return device.physical().canDrawInto(VK_FORMAT_A2R10G10B10_UNORM_PACK32)
                   ? VK_FORMAT_A2R10G10B10_UNORM_PACK32
                   : VK_FORMAT_R16G16B16A16_UNORM;
    case CompiledEffect::TargetFormat::Bits16:
        return VK_FORMAT_R16G16B16A16_UNORM;
    case CompiledEffect::TargetFormat::Half:
        return VK_FORMAT_R16G16B16A16_SFLOAT;
    }
    return VK_FORMAT_UNDEFINED;
}

TechniqueDrawing& StageProgram::drawingFor(const Draw& draw) const
{
    const auto found = std::find_if(faster.begin(), faster.end(),
                                    [&draw](const auto& drawing) { return drawing->canDraw(draw); });
    return found != faster.end() ? **found : *usual;
}

std::shared_ptr<EffectProgram> EffectProgram::create(std::shared_ptr<Context> context,
                                                     std::shared_ptr<const CompiledEffect> effect,
                                                     PassRefusal& refusal)
{
    std::shared_ptr<EffectProgram> self(new EffectProgram(std::move(context), std::move(effect)));
    self->context_->add(*self);
    for (std::size_t i = 0; i < self->techniques_->size(); ++i) {
        if (!self->createTechnique(i, refusal)) {
            return nullptr;
        }
    }
    return self;
}

bool EffectProgram::createTechnique(std::size_t index, PassRefusal& refusal)
{
    const CompiledEffect::Technique& technique = effect_->techniques[index];
    TechniqueProgram& program = (*techniques_)[index];
    for (std::size_t p = 0; p < technique.passes.size(); ++p) {
        const CompiledEffect::Pass& pass = technique.passes[p];
        if (!stageFor(program, pass.target, p).usual->addPass(pass.spirv, pass.samplers)) {
            refusal = {technique.name, pass.name};
            return false;
        }
    }
    const DrawingPath* path = context_->device().drawingPath();
    const bool hasOneStage = program.stages.size() == 1;
    if (path != nullptr && hasOneStage &&
        !path->createDrawings(*context_, *effect_, technique, program.stages.front().faster)) {
        refusal = {technique.name, technique.passes.back().name};
        return false;
    }
    return true;
}

/// The stage that a pass belongs to: the last, if that has the same target, or a new one.
StageProgram& EffectProgram::stageFor(TechniqueProgram& program, std::uint32_t target, std::size_t pass) const
{
    if (program.stages.empty() || program.stages.back().target != target) {
        StageProgram& stage = program.stages.emplace_back();
        stage.target = target;
        stage.firstPass = pass;
        stage.usual = std::make_unique<TechniqueDrawing>(
            *context_, *effect_,
            stage.drawsForCaller() ? callersFormats
                                   : formatsOf(context_->device(), effect_->textures[target]));
    }
    return program.stages.back();
}

bool EffectProgram::createPipelines(PassRefusal& refusal, const Observer& observer)
{
    for (std::size_t t = 0; t < techniques_->size(); ++t) {
        for (std::size_t p = 0; p < effect_->techniques[t].passes.size(); ++p) {
            if (observer) {
                observer(t, p);
            }
            if (!createPipelines(t, p)) {
                refusal = {effect_->techniques[t].name, effect_->techniques[t].passes[p].name};
                return false;
            }
        }
    }
    return true;
}

bool EffectProgram::createPipelines(std::size_t index, std::size_t pass)
{
    const std::vector<StageProgram>& stages = technique(index).stages;
    const auto stage = std::find_if(stages.rbegin(), stages.rend(),
                                    [pass](const StageProgram& each) { return each.firstPass <= pass; });
    const std::size_t own = pass - stage->firstPass;
    if (stage->faster.empty()) {
        return stage->usual->createPipelines(own);
    }
    return std::all_of(stage->faster.begin(), stage->faster.end(),
                       [own](const auto& drawing) { return drawing->createPipelines(own); });
}

void EffectProgram::useNative(const std::shared_ptr<NativeMaker>& maker)
{
    for (std::size_t t = 0; t < techniques_->size(); ++t) {
        for (const StageProgram& stage : technique(t).stages) {
            for (const auto& drawing : stage.faster) {
                drawing->useNative(maker, effect_->techniques[t].name);
            }
        }
    }
}

EffectProgram::~EffectProgram()
{
    // The device may still be drawing with it, and this may be a static destructor.
    context_->retire(*this, [device = &context_->device(), techniques = techniques_] {
        destroyTechniques(*device, *techniques);
    });
}

void EffectProgram::destroyDeviceObjects(Device& device)
{
    destroyTechniques(device, *techniques_);
}

} // namespace Qx::Host::Vulkan
