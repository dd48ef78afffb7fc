#include "host/gpu/effects/ShaderEffect.h"

#include "host/effects/TextureSources.h"
#include "host/effects/framework/ParameterRange.h"
#include "host/effects/spirv/CornerTrial.h"
#include "host/gpu/GPUService.h"
#include "host/gpu/drawing/Areas.h"
#include "host/gpu/drawing/Levels.h"
#include "host/gpu/packed/NativeDrawing.h"

#include <algorithm>
#include <map>
#include <memory>
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

/// What is to be said of a picture that can hardly be what the pass takes it for; empty if there is none.
std::string doubtOf(const Draw& draw, const TechniqueDrawing& drawing)
{
    for (std::size_t p = 0; p < drawing.passCount(); ++p) {
        for (const std::uint32_t index : drawing.program(p).bindings) {
            const CompiledEffect::Sampler& sampler = draw.effect.samplers[index];
            const TextureKey& key = draw.textures[sampler.texture]->key;
            if (!CompiledEffect::fits(sampler, key.width, key.height)) {
                return "texture \"" + draw.effect.textures[sampler.texture].name +
                       "\" is read as a cube, whose six square faces lie side by side; its picture has " +
                       std::to_string(key.width) + " x " + std::to_string(key.height) + " texels";
            }
        }
    }
    return {};
}

/// What is to be said of vertex shaders that leave nothing to draw, with the values that `draw` has; empty if
/// there is none.
std::string emptyPassOf(const Draw& draw, const CompiledEffect::Technique& technique,
                        const StageProgram& stage)
{
    constexpr std::size_t steps = 4096; // far more than the usual vertex shader has
    for (std::size_t p = 0; p < stage.usual->passCount(); ++p) {
        const CompiledEffect::Pass& pass = technique.passes[stage.firstPass + p];
        const CompiledEffect::Corners& corners = pass.corners;
        if (corners.spirv.empty()) {
            continue;
        }
        const Effects::Spirv::CornerTrial trial =
            Effects::Spirv::tryCorners(corners.spirv, draw.uniforms, steps);
        const std::string complaint =
            trial.end == Effects::Spirv::CornerTrial::End::Known
                ? complaintOf(trial, corners.count,
                              corners.positions == CompiledEffect::Corners::Positions::MayBePixels)
                : "";
        if (!complaint.empty()) {
            return (pass.name.empty() ? "" : "pass \"" + pass.name + "\": ") +
                   "with values that its parameters were given, the vertex shader '" + corners.shader + "' " +
                   complaint;
        }
    }
    return {};
}

RectangleOf<float> wholeOf(const TextureKey& key)
{
    return {0.0F, 0.0F, static_cast<float>(key.width), static_cast<float>(key.height)};
}

/// The textures that the passes of one draw draw into and later ones read. They come from the pool and go
/// back to it.
class StageTargets
{
public:
    /// Returns false if memory is exhausted.
    bool make(Context& context, const CompiledEffect& effect, const std::vector<StageProgram>& stages,
              const TextureKey& callers)
    {
        for (const StageProgram& stage : stages) {
            if (stage.drawsForCaller() || pictures_.count(stage.target) != 0) {
                continue;
            }
            Pooled<Texture> texture =
                acquireTexture(context, keyOf(context, effect.textures[stage.target], callers));
            if (!texture) {
                return false;
            }
            pictures_.emplace(stage.target, std::make_unique<Picture>(std::move(texture)));
        }
        return true;
    }

    /// What is to be said of a texture that is smaller than it should be; empty if none is.
    const std::string& note() const { return note_; }

    void bind(std::span<Picture*> textures) const
    {
        for (const auto& [index, picture] : pictures_) {
            textures[index] = picture.get();
        }
    }

private:
    TextureKey keyOf(Context& context, const CompiledEffect::Texture& texture, const TextureKey& callers)
    {
        const std::uint32_t most = context.device().limits().maxImageDimension2D;
        const auto side = [&](std::uint32_t texels, std::uint32_t of, std::uint32_t ratio) {
            constexpr std::uint64_t whole = CompiledEffect::TargetSize::whole;
            const std::uint64_t wanted =
                texels != 0 ? texels : (std::uint64_t{of} * ratio + whole / 2) / whole;
            if (wanted > most) {
                note_ = "texture \"" + texture.name + "\" would be " + std::to_string(wanted) +
                        " texels wide or high; it is " + std::to_string(most) +
                        ", the most that the device draws";
            }
            return static_cast<std::uint32_t>(std::clamp<std::uint64_t>(wanted, 1, most));
        };
        const CompiledEffect::TargetSize& size = texture.targetSize;
        const VkFormat own = ownFormat(context.device(), texture.targetFormat);
        const std::uint32_t width = side(size.width, callers.width, size.ratioX);
        const std::uint32_t height = side(size.height, callers.height, size.ratioY);
        // Codes would clip what a chain of floats keeps.
        const bool wouldClip = callers.format == floatFormat && !holdsFloats(own);
        return {own == VK_FORMAT_UNDEFINED || wouldClip ? callers.format : own, width, height, 0,
                levelsOf(width, height, texture.levels)};
    }

    std::map<std::uint32_t, std::unique_ptr<Picture>> pictures_; ///< by the effect's texture
    std::string note_;
};

/// The pictures given to textures that samplers read levels of. Each is a copy of what is bound, from the
/// pool.
class LevelledPictures
{
public:
    /// Records the copies, and binds them in the place of the originals. Returns false if memory is
    /// exhausted.
    bool make(Context& context, const CompiledEffect& effect, std::span<Picture*> textures)
    {
        for (std::size_t i = 0; i < textures.size(); ++i) {
            Picture* const original = textures[i];
            const bool isMade = original == nullptr || original->key.depth != 0 || original->key.levels > 1;
            if (isMade || effect.textures[i].levels == 1) {
                continue;
            }
            TextureKey key = original->key;
            key.levels = levelsOf(key.width, key.height, effect.textures[i].levels);
            if (key.levels == 1) {
                continue;
            }
            Pooled<Texture> copy = acquireTexture(context, key);
            const auto record = [&](Batch& batch) {
                return recordLevels(batch, context, *original->texture(), *copy);
            };
            if (!copy || context.recorder().record(2 * key.bytes(), Recorder::Submit::WhenDue, record) == 0) {
                return false;
            }
            pictures_.push_back(std::make_unique<Picture>(std::move(copy)));
            textures[i] = pictures_.back().get();
        }
        return true;
    }

private:
    std::vector<std::unique_ptr<Picture>> pictures_;
};

enum class StageResult
{
    Recorded,
    Failed,
    NoLevels
};

/// Records the passes, and after the last of them the levels of what they drew into.
StageResult recordPasses(Context& context, const TechniqueDrawing& drawing, const Draw& draw,
                         PassRange passes)
{
    Recorder& recorder = context.recorder();
    const std::uint64_t bytes = draw.target.key.bytes();
    using Way = NativeDrawing::Way;
    NativeDrawing* const native = drawing.native();
    const Way way = native != nullptr ? native->wayOf(draw, drawing) : Way::Device;
    const auto record = [&](Batch& batch) { return drawing.record(batch, draw, passes); };
    const bool isRecorded = way == Way::Host ? native->record(draw, drawing)
                                             : recorder.record(bytes, Recorder::Submit::WhenDue, record) != 0;
    if (!isRecorded) {
        return StageResult::Failed;
    }
    if (way == Way::DeviceAndCheck) {
        native->check(draw, drawing);
    }
    const bool needsLevels = draw.target.key.levels > 1 && passes.end == drawing.passCount();
    if (needsLevels && recorder.record(bytes, Recorder::Submit::WhenDue, [&](Batch& batch) {
            return recordLevels(batch, context, *draw.target.texture());
        }) == 0) {
        return StageResult::NoLevels;
    }
    return StageResult::Recorded;
}

/// Records a stage: at once, or pass by pass while the time of each is measured.
StageResult recordStage(Context& context, const TechniqueDrawing& drawing, const Draw& draw)
{
    Recorder& recorder = context.recorder();
    if (!recorder.timesPasses()) {
        return recordPasses(context, drawing, draw, {0, drawing.passCount()});
    }
    StageResult result = StageResult::Recorded;
    for (std::size_t p = 0; p < drawing.passCount() && result == StageResult::Recorded; ++p) {
        if (!recorder.beginPass()) {
            return StageResult::Failed;
        }
        result = recordPasses(context, drawing, draw, {p, p + 1});
        if (!recorder.endPass()) {
            return StageResult::Failed;
        }
    }
    return result;
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

ShaderEffect::ShaderEffect(std::shared_ptr<EffectProgram> program, bool tells)
    : state_(std::make_shared<EffectState>(std::move(program))), tells_(tells)
{
    for (const Parameter& parameter : compiled().parameters) {
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
            if (compiled().parameters[i].name == name) {
                return parameters_[i];
            }
        }
        if (textureIndex(compiled(), name) < compiled().textures.size()) {
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

bool ShaderEffect::render(Qx::Ptr<iGPUImage> target, const Qx::Vector<Source>& sources)
{
    return guarded(false, [&] {
        GPUImage* const image = usableImage(state_->program().context(), target.get());
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
    const auto because = [&](const std::string& reason) {
        return fail("technique \"" + effect.techniques[technique].name + "\": " + reason);
    };
    const auto note = [&](const std::string& text) {
        if (!text.empty() &&
            state_->note("technique \"" + effect.techniques[technique].name + "\": " + text)) {
            report("GPU: " + state_->notes().back());
        }
    };
    const std::vector<StageProgram>& stages = state_->program().technique(technique).stages;
    auto textures = memory.list<Picture*>(effect.textures.size());
    bindSources(context, effect, sources, textures);
    StageTargets targets;
    if (!targets.make(context, effect, stages, target.picture().key)) {
        return because("there is not enough memory for the textures that its passes draw into");
    }
    note(targets.note());
    targets.bind(textures);
    const Qx::Vector<iShaderEffect::Source> none;
    const auto drawOf = [&](const StageProgram& stage, const RectangleOf<float>& part) {
        Picture& picture = stage.drawsForCaller() ? target.picture() : *textures[stage.target];
        const bool isFirst = std::none_of(
            stages.data(), &stage, [&](const StageProgram& before) { return before.target == stage.target; });
        return Draw{effect,
                    textures,
                    picture,
                    pixelsInside(part, picture.key),
                    uniforms,
                    memory,
                    isFirst && !stage.drawsForCaller(),
                    part,
                    stage.drawsForCaller() ? sources : none};
    };
    const auto areaOf = [&](const StageProgram& stage) {
        return stage.drawsForCaller() ? area : wholeOf(textures[stage.target]->key);
    };
    for (const StageProgram& stage : stages) {
        const RectangleOf<float> part = areaOf(stage);
        const Draw draw = drawOf(stage, part);
        if (const std::string reason = obstacle(draw, *stage.usual); !reason.empty()) {
            return because(reason);
        }
        if (const std::string doubt = tells_ ? doubtOf(draw, *stage.usual) : std::string();
            !doubt.empty() && state_->isNews(doubt)) {
            report("GPU: technique \"" + effect.techniques[technique].name + "\": " + doubt);
        }
        if (!isEmpty(draw.pixels) && !stage.drawingFor(draw).createPipelinesFor(draw.target.key.format)) {
            return because("its pipelines cannot be created");
        }
    }
    LevelledPictures levelled;
    if (!levelled.make(context, effect, textures)) {
        return because("there is not enough memory for the levels of its textures");
    }
    for (const StageProgram& stage : stages) {
        const RectangleOf<float> part = areaOf(stage);
        const Draw draw = drawOf(stage, part);
        if (isEmpty(draw.pixels)) {
            continue;
        }
        // A texture that passes draw into stands for the whole input, whatever part the caller draws.
        fillUniforms(draw);
        note(tells_ ? emptyPassOf(draw, effect.techniques[technique], stage) : std::string());
        switch (recordStage(context, stage.drawingFor(draw), draw)) {
        case StageResult::Failed:
            return false;
        case StageResult::NoLevels:
            return because("there is not enough memory for the levels of its textures");
        case StageResult::Recorded:
            break;
        }
    }
    return true;
}

} // namespace Qx::Host::Vulkan

namespace Qx::Host {

const CompiledEffect* compiledEffect(const iShaderEffect& effect)
{
    const auto* ours = dynamic_cast<const Vulkan::ShaderEffect*>(&effect);
    return ours != nullptr ? &ours->compiled() : nullptr;
}

std::vector<std::string> drawingNotes(const iShaderEffect& effect)
{
    const auto* ours = dynamic_cast<const Vulkan::ShaderEffect*>(&effect);
    return ours != nullptr ? ours->notes() : std::vector<std::string>();
}

std::vector<std::string> settableParameters(const iShaderEffect& effect)
{
    std::vector<std::string> names;
    if (const CompiledEffect* compiled = compiledEffect(effect)) {
        for (const CompiledEffect::Parameter& parameter : compiled->parameters) {
            if (parameter.semantic == CompiledEffect::Semantic::None) {
                names.push_back(parameter.name);
            }
        }
    }
    return names;
}

ParameterRange rangeOf(const iShaderEffect& effect, std::string_view parameter)
{
    if (const CompiledEffect* compiled = compiledEffect(effect)) {
        for (const CompiledEffect::Parameter& each : compiled->parameters) {
            if (each.name == parameter) {
                return rangeOf(each);
            }
        }
    }
    return {};
}

std::vector<std::string> texturesRead(const iShaderEffect& effect, std::string_view technique)
{
    std::vector<std::string> names;
    if (const CompiledEffect* compiled = compiledEffect(effect)) {
        if (const CompiledEffect::Technique* named = techniqueNamed(*compiled, technique)) {
            for (const std::size_t texture : texturesRead(*compiled, *named)) {
                names.push_back(compiled->textures[texture].name);
            }
        }
    }
    return names;
}

} // namespace Qx::Host
