#include "host/gpu/effects/EffectProgram.h"

#include "host/gpu/device/DrawingPath.h"

#include <algorithm>

namespace Qx::Host::Vulkan {

namespace {

void destroyTechniques(Device& device, std::vector<TechniqueProgram>& techniques)
{
    for (TechniqueProgram& technique : techniques) {
        if (technique.usual != nullptr) {
            technique.usual->destroy(device);
        }
        for (const std::unique_ptr<TechniqueDrawing>& drawing : technique.faster) {
            drawing->destroy(device);
        }
    }
}

} // namespace

TechniqueDrawing& TechniqueProgram::drawingFor(const Draw& draw) const
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
    program.usual = std::make_unique<TechniqueDrawing>(*context_, *effect_);
    for (const CompiledEffect::Pass& pass : technique.passes) {
        if (!program.usual->addPass(pass.spirv, pass.samplers)) {
            refusal = {technique.name, pass.name};
            return false;
        }
    }
    const DrawingPath* path = context_->device().drawingPath();
    if (path != nullptr && !path->createDrawings(*context_, *effect_, technique, program.faster)) {
        refusal = {technique.name, technique.passes.back().name};
        return false;
    }
    return true;
}

bool EffectProgram::createPipelines(PassRefusal& refusal, const Observer& observer)
{
    for (std::size_t t = 0; t < techniques_->size(); ++t) {
        for (std::size_t p = 0; p < technique(t).usual->passCount(); ++p) {
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
    const TechniqueProgram& program = technique(index);
    if (program.faster.empty()) {
        return program.usual->createPipelines(pass);
    }
    return std::all_of(program.faster.begin(), program.faster.end(),
                       [pass](const auto& drawing) { return drawing->createPipelines(pass); });
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
