#include "host/gpu/effects/ShaderEffect.h"

#include "host/effects/framework/ParameterRange.h"
#include "host/gpu/GPUService.h"
#include "host/gpu/drawing/Areas.h"

#include <algorithm>
#include <span>

namespace Qx::Host::Vulkan {

namespace {

using Parameter = CompiledEffect::Parameter;

void bindSources(Context& context, const CompiledEffect& effect,
                 const Qx::Vector<iShaderEffect::Source>& sources, std::span<Picture*> textures)
{
    for (const iShaderEffect::Source& source : sources) {
        const std::size_t index = textureIndex(effect, source.name.c_str());
        if (index < textures.size()) {
            textures[index] = pictureOf(context, source.resource.get());
        }
    }
}

/// Why the technique cannot be drawn; empty if it can.
std::string obstacle(const Draw& draw, const TechniqueDrawing& drawing)
{
    const CompiledEffect& effect = draw.effect;
    for (std::size_t p = 0; p < drawing.passCount(); ++p) {
        const ShaderProgram& pass = drawing.program(p);
        for (std::size_t i = 0; i < pass.bindings.size(); ++i) {
            const std::uint32_t index = effect.samplers[pass.bindings[i]].texture;
            const Picture* picture = draw.textures[index];
            const auto name = [&] { return "texture \"" + effect.textures[index].name + "\""; };
            if (picture == nullptr) {
                return name() + " is not bound";
            }
            if (picture == &draw.target) {
                return name() + " is the target itself";
            }
            if ((picture->key.depth > 0 ? 3U : 2U) != pass.dimensions[i]) {
                return name() + " needs an image of " + std::to_string(pass.dimensions[i]) + " dimensions";
            }
        }
    }
    return {};
}

} // namespace

bool NumberParameter::setValue(float value)
{
    return guarded(false, [&] { return state_->setAll(parameter_, value); });
}

bool NumberParameter::setValues(const float* values, std::size_t count)
{
    return guarded(false, [&] { return state_->setValues(parameter_, values, count); });
}

std::size_t NumberParameter::getComponentCount() const
{
    return componentCount(parameter_);
}

ShaderEffect::ShaderEffect(std::shared_ptr<EffectProgram> program)
    : state_(std::make_shared<EffectState>(std::move(program)))
{
    for (const Parameter& parameter : parameters()) {
        parameters_.push_back(Qx::makePtr<NumberParameter>(state_, parameter));
    }
}

bool ShaderEffect::setTechnique(const LightweightString<char>& name)
{
    return guarded(false, [&] { return state_->setTechnique(name.c_str()); });
}

Qx::Vector<LightweightString<char>> ShaderEffect::getTechniqueNames() const
{
    return guarded(Qx::Vector<LightweightString<char>>(), [&] {
        Qx::Vector<LightweightString<char>> names;
        for (const CompiledEffect::Technique& technique : state_->effect().techniques) {
            names.emplace_back(technique.name.c_str());
        }
        return names;
    });
}

Qx::Ptr<iShaderParam> ShaderEffect::getParam(const char* name)
{
    return guarded(Qx::Ptr<iShaderParam>(), [&]() -> Qx::Ptr<iShaderParam> {
        if (name == nullptr) {
            return {};
        }
        for (std::size_t i = 0; i < parameters_.size(); ++i) {
            if (parameters()[i].name == name) {
                return parameters_[i];
            }
        }
        if (textureIndex(state_->effect(), name) < textures().size()) {
            return Qx::makePtr<TextureParameter>();
        }
        return {};
    });
}

bool ShaderEffect::fail(const std::string& reason)
{
    if (state_->isNews(reason)) {
        report("GPU: an effect cannot be drawn: " + reason);
    }
    return false;
}

std::vector<std::string> ShaderEffect::texturesRead(std::string_view technique) const
{
    const CompiledEffect& effect = state_->effect();
    std::vector<std::string> names;
    for (const CompiledEffect::Technique& each : effect.techniques) {
        for (const CompiledEffect::Pass& pass : each.passes) {
            for (const std::uint32_t sampler : pass.samplers) {
                const std::string& name = effect.textures[effect.samplers[sampler].texture].name;
                if (each.name == technique && std::find(names.begin(), names.end(), name) == names.end()) {
                    names.push_back(name);
                }
            }
        }
    }
    return names;
}

bool ShaderEffect::render(Qx::Ptr<iGPUImage> target, const Qx::Vector<Source>& sources)
{
    return guarded(false, [&] {
        auto* image = dynamic_cast<GPUImage*>(target.get());
        if (image == nullptr) {
            return false;
        }
        const RectangleOf<float> all{0.0F, 0.0F, static_cast<float>(image->getSize().x),
                                     static_cast<float>(image->getSize().y)};
        return draw(*image, all, sources);
    });
}

bool ShaderEffect::draw(GPUImage& target, const RectangleOf<float>& area, const Qx::Vector<Source>& sources)
{
    Context& context = state_->program().context();
    const Operation operation(context);
    if (!operation || &target.context() != &context) {
        return false;
    }
    const CompiledEffect& effect = state_->effect();
    if (effect.techniques.empty()) {
        return fail("it has no technique");
    }
    DrawMemory memory;
    auto uniforms = memory.list<std::byte>(state_->uniformBytes());
    const std::size_t technique = state_->snapshot(uniforms);
    const TechniqueProgram& program = state_->program().technique(technique);
    auto textures = memory.list<Picture*>(effect.textures.size());
    bindSources(context, effect, sources, textures);
    const Draw draw{effect,   textures, target.picture(), pixelsInside(area, target.picture().key),
                    uniforms, memory};
    const auto because = [&](const std::string& reason) {
        return fail("technique \"" + effect.techniques[technique].name + "\": " + reason);
    };
    if (const std::string reason = obstacle(draw, *program.usual); !reason.empty()) {
        return because(reason);
    }
    if (isEmpty(draw.pixels) || program.usual->passCount() == 0) {
        return true;
    }
    fillUniforms(draw, area, sources);
    TechniqueDrawing& drawing = program.drawingFor(draw);
    if (!drawing.createPipelines()) {
        return because("its pipelines cannot be created");
    }
    return context.recorder().record(target.picture().key.bytes(), Recorder::Submit::WhenDue,
                                     [&](Batch& batch) { return drawing.record(batch, draw); }) != 0;
}

} // namespace Qx::Host::Vulkan

namespace Qx::Host {

std::vector<std::string> settableParameters(const iShaderEffect& effect)
{
    std::vector<std::string> names;
    if (const auto* ours = dynamic_cast<const Vulkan::ShaderEffect*>(&effect)) {
        for (const CompiledEffect::Parameter& parameter : ours->parameters()) {
            if (parameter.semantic == CompiledEffect::Semantic::None) {
                names.push_back(parameter.name);
            }
        }
    }
    return names;
}

ParameterRange rangeOf(const iShaderEffect& effect, std::string_view parameter)
{
    if (const auto* ours = dynamic_cast<const Vulkan::ShaderEffect*>(&effect)) {
        for (const CompiledEffect::Parameter& each : ours->parameters()) {
            if (each.name == parameter) {
                return rangeOf(each);
            }
        }
    }
    return {};
}

std::vector<std::string> texturesRead(const iShaderEffect& effect, std::string_view technique)
{
    const auto* ours = dynamic_cast<const Vulkan::ShaderEffect*>(&effect);
    return ours != nullptr ? ours->texturesRead(technique) : std::vector<std::string>();
}

} // namespace Qx::Host
