#include "host/gpu/effects/ShaderEffect.h"

#include "host/gpu/GPUService.h"
#include "host/gpu/drawing/Areas.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <memory_resource>
#include <optional>

namespace Qx::Host::Vulkan {

namespace {

using Parameter = CompiledEffect::Parameter;
using SystemUniforms = CompiledEffect::SystemUniforms;
using Textures = std::span<Picture* const>; // by the effect's texture index; null when nothing is bound

/// Memory for what one draw needs: on the stack, as long as it suffices, so that a draw takes none elsewhere.
class DrawMemory
{
public:
    template <class T>
    std::pmr::vector<T> list(std::size_t size)
    {
        return std::pmr::vector<T>(size, &resource_);
    }

private:
    std::array<std::byte, 8192> buffer_; // a pass with all its inputs takes about a tenth of it
    std::pmr::monotonic_buffer_resource resource_{buffer_.data(), buffer_.size()};
};

constexpr std::size_t rowBytes = 16; // std140: array elements and matrix rows start on a float4

std::size_t componentCount(const Parameter& parameter)
{
    return std::size_t{parameter.rows} * parameter.columns * std::max(parameter.elements, 1U);
}

std::size_t componentOffset(const Parameter& parameter, std::size_t component)
{
    if (parameter.rows == 1 && parameter.elements == 0) {
        return component * sizeof(float);
    }
    return component / parameter.columns * rowBytes + component % parameter.columns * sizeof(float);
}

std::int32_t toInteger(float value)
{
    constexpr float beyond = 2147483648.0F;
    if (std::isnan(value)) {
        return 0;
    }
    if (value >= beyond) {
        return std::numeric_limits<std::int32_t>::max();
    }
    return value < -beyond ? std::numeric_limits<std::int32_t>::min() : static_cast<std::int32_t>(value);
}

void writeComponent(std::span<std::byte> uniforms, const Parameter& parameter, std::size_t component,
                    float value)
{
    const std::size_t at = parameter.offset + componentOffset(parameter, component);
    if (at + sizeof(float) > uniforms.size()) {
        return;
    }
    if (parameter.type == CompiledEffect::ScalarType::Float) {
        std::memcpy(uniforms.data() + at, &value, sizeof value);
        return;
    }
    const std::int32_t number =
        parameter.type == CompiledEffect::ScalarType::Bool ? (value != 0.0F ? 1 : 0) : toInteger(value);
    std::memcpy(uniforms.data() + at, &number, sizeof number);
}

void writeAll(std::span<std::byte> uniforms, const Parameter& parameter, std::array<float, 3> values)
{
    const std::size_t count = std::min(componentCount(parameter), values.size());
    for (std::size_t i = 0; i < count; ++i) {
        writeComponent(uniforms, parameter, i, values.at(i));
    }
}

std::array<float, 3> sizeOf(const Picture& picture)
{
    return {static_cast<float>(picture.key.width), static_cast<float>(picture.key.height),
            static_cast<float>(picture.key.depth)};
}

std::size_t textureIndex(const CompiledEffect& effect, std::string_view name)
{
    const auto found = std::find_if(effect.textures.begin(), effect.textures.end(),
                                    [name](const auto& texture) { return texture.name == name; });
    return static_cast<std::size_t>(found - effect.textures.begin());
}

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

void fillBySemantic(std::span<std::byte> uniforms, const CompiledEffect& effect, Textures textures,
                    const Picture& target)
{
    for (const Parameter& parameter : effect.parameters) {
        const std::size_t index = textureIndex(effect, parameter.semanticTexture);
        const Picture* picture = index < textures.size() ? textures[index] : nullptr;
        switch (parameter.semantic) {
        case CompiledEffect::Semantic::None:
            break;
        case CompiledEffect::Semantic::TextureSize:
            writeAll(uniforms, parameter, picture != nullptr ? sizeOf(*picture) : std::array<float, 3>{});
            break;
        case CompiledEffect::Semantic::TextureMaxCode: {
            const float code = picture != nullptr ? maxCode(picture->key.format) : 0.0F;
            writeAll(uniforms, parameter, {code, code, code});
            break;
        }
        case CompiledEffect::Semantic::TargetSize:
            writeAll(uniforms, parameter, sizeOf(target));
            break;
        case CompiledEffect::Semantic::TargetMaxCode: {
            const float code = maxCode(target.key.format);
            writeAll(uniforms, parameter, {code, code, code});
            break;
        }
        }
    }
}

void fillSystem(std::span<std::byte> uniforms, const Picture& target, const RectangleOf<float>& area,
                const Qx::Vector<iShaderEffect::Source>& sources)
{
    SystemUniforms system;
    system.target = {maxCode(target.key.format)};
    system.area = {area.x0, area.y0, 1.0F / (area.x1 - area.x0), 1.0F / (area.y1 - area.y0)};
    system.texCoords.fill({0.0F, 0.0F, 1.0F, 1.0F});
    for (std::size_t i = 0; i < std::min(sources.size(), SystemUniforms::maxTexCoords); ++i) {
        system.texCoords.at(i) = sources[i].texCoords;
    }
    std::memcpy(uniforms.data(), &system, sizeof system);
}

void fillTextures(std::span<std::byte> uniforms, const CompiledEffect& effect, Textures textures)
{
    for (std::size_t i = 0; i < textures.size(); ++i) {
        if (textures[i] != nullptr) {
            const CompiledEffect::TextureUniforms texture{static_cast<float>(textures[i]->rowPacked),
                                                          maxCode(textures[i]->key.format)};
            std::memcpy(uniforms.data() + effect.textureUniforms + i * sizeof texture, &texture,
                        sizeof texture);
        }
    }
}

/// Whether the conditions of CompiledEffect::PackedShader hold for what the passes read.
bool haveDepth(std::uint32_t bits, const CompiledEffect& effect, const std::vector<PackedProgram>& passes,
               Textures textures)
{
    const auto fits = [bits](const Picture* picture) {
        return picture != nullptr && picture->hasPacked && packedBits(picture->key.format) == bits;
    };
    for (const PackedProgram& pass : passes) {
        for (std::size_t i = 0; i < pass.bindings.size(); ++i) {
            if (pass.dimensions[i] != 3 && !fits(textures[effect.samplers[pass.bindings[i]].texture])) {
                return false;
            }
        }
    }
    return std::all_of(effect.parameters.begin(), effect.parameters.end(), [&](const Parameter& parameter) {
        const std::size_t index = textureIndex(effect, parameter.semanticTexture);
        const Picture* picture = index < textures.size() ? textures[index] : nullptr;
        return parameter.semantic != CompiledEffect::Semantic::TextureMaxCode || picture == nullptr ||
               picture->key.depth > 0 || fits(picture);
    });
}

/// What stops the passes from being drawn; empty when nothing does.
std::string obstacle(const CompiledEffect& effect, const std::vector<PassProgram>& passes, Textures textures,
                     const Picture& target)
{
    for (const PassProgram& pass : passes) {
        for (std::size_t i = 0; i < pass.bindings.size(); ++i) {
            const std::uint32_t index = effect.samplers[pass.bindings[i]].texture;
            const Picture* picture = textures[index];
            const auto name = [&] { return "texture \"" + effect.textures[index].name + "\""; };
            if (picture == nullptr) {
                return name() + " is not bound";
            }
            if (picture == &target) {
                return name() + " is the target itself";
            }
            if ((picture->key.depth > 0 ? 3U : 2U) != pass.dimensions[i]) {
                return name() + " needs an image of " + std::to_string(pass.dimensions[i]) + " dimensions";
            }
        }
    }
    return {};
}

VkDescriptorSet describe(Batch& batch, Device& device, const CompiledEffect& effect,
                         const ShaderProgram& program, Textures textures,
                         const VkDescriptorBufferInfo& uniforms, DrawMemory& memory)
{
    VkDescriptorSet set = batch.descriptorSet(program.setLayout);
    if (set == nullptr) {
        return nullptr;
    }
    auto images = memory.list<VkDescriptorImageInfo>(program.bindings.size());
    auto writes = memory.list<VkWriteDescriptorSet>(1 + program.bindings.size());
    for (VkWriteDescriptorSet& write : writes) {
        write.sType = VK_STRUCTURE_TYPE_WRITE_DESCRIPTOR_SET;
        write.dstSet = set;
        write.descriptorCount = 1;
    }
    writes[0].descriptorType = VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER;
    writes[0].pBufferInfo = &uniforms;
    for (std::size_t i = 0; i < program.bindings.size(); ++i) {
        const std::uint32_t sampler = program.bindings[i];
        const Texture& texture = *textures[effect.samplers[sampler].texture]->texture();
        writes[1 + i].dstBinding = 1 + sampler;
        if (program.dimensions[i] == 1) {
            writes[1 + i].descriptorType = VK_DESCRIPTOR_TYPE_UNIFORM_TEXEL_BUFFER;
            writes[1 + i].pTexelBufferView = &texture.packed.texelsOf(program.texelBytes[i]);
        } else {
            images[i] = {program.samplers[i], texture.sampled,
                         texture.layoutFor(VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL)};
            writes[1 + i].descriptorType = VK_DESCRIPTOR_TYPE_COMBINED_IMAGE_SAMPLER;
            writes[1 + i].pImageInfo = &images[i];
        }
    }
    vkUpdateDescriptorSets(device.handle(), static_cast<std::uint32_t>(writes.size()), writes.data(), 0,
                           nullptr);
    return set;
}

/// One draw of a technique, all of whose parts are known.
struct Draw
{
    /// A pass as it is drawn: of single texels, or of groups.
    struct Step
    {
        const ShaderProgram* program;
        VkPipeline pipeline;
        VkDescriptorSet set;
    };

    Context& context;
    const CompiledEffect& effect;
    Textures textures;
    Picture& target;
    VkRect2D pixels;
    std::span<const std::byte> uniforms;
    DrawMemory& memory;
    bool packed = false;
    std::pmr::vector<Step> steps = memory.list<Step>(0);

    void take(const TechniqueProgram::Packed& grouped)
    {
        packed = true;
        for (const PackedProgram& pass : grouped.passes) {
            steps.push_back({&pass, pass.pipeline, nullptr});
        }
    }

    void take(const std::vector<PassProgram>& passes)
    {
        for (const PassProgram& pass : passes) {
            steps.push_back({&pass, pipelineFor(pass.pipelines, target.key.format), nullptr});
        }
    }

    /// The index of the technique's groups that this draw can be made of.
    std::optional<std::size_t> packedFor(const TechniqueProgram& technique) const
    {
        if (!target.hasPacked || !coversAll(pixels, target.key)) {
            return std::nullopt;
        }
        for (std::size_t i = 0; i < technique.packed.size(); ++i) {
            const TechniqueProgram::Packed& each = technique.packed[i];
            if (each.depths.target == packedBits(target.key.format) &&
                haveDepth(each.depths.source, effect, each.passes, textures)) {
                return i;
            }
        }
        return std::nullopt;
    }

    /// Decides what is drawn with. False when the device does not take it.
    bool choose(EffectProgram& made, std::size_t index)
    {
        const TechniqueProgram& technique = made.technique(index);
        const std::optional<std::size_t> grouped = packedFor(technique);
        if (grouped ? !made.makePackedPipelines(index, *grouped) : !made.makePipelines(index)) {
            return false;
        }
        if (grouped) {
            take(technique.packed[*grouped]);
        } else {
            take(technique.passes);
        }
        return true;
    }

    bool record(Batch& batch)
    {
        VkDescriptorBufferInfo info;
        if (!batch.uniform(uniforms, info)) {
            return false;
        }
        for (Step& step : steps) {
            step.set = describe(batch, context.device(), effect, *step.program, textures, info, memory);
            if (step.set == nullptr) {
                return false;
            }
        }
        const bool replacesAll =
            packed || (coversAll(pixels, target.key) && !steps.front().program->discards);
        Texture* const texture = target.forWriting(batch, replacesAll);
        if (texture == nullptr) {
            return false;
        }
        prepare(batch, *texture, replacesAll);
        if (packed) {
            beginDrawingPacked(batch.commands(), *texture);
        } else {
            beginDrawing(batch.commands(), *texture, pixels,
                         replacesAll ? VK_ATTACHMENT_LOAD_OP_DONT_CARE : VK_ATTACHMENT_LOAD_OP_LOAD);
        }
        for (const Step& step : steps) {
            vkCmdBindPipeline(batch.commands(), VK_PIPELINE_BIND_POINT_GRAPHICS, step.pipeline);
            vkCmdBindDescriptorSets(batch.commands(), VK_PIPELINE_BIND_POINT_GRAPHICS, step.program->layout,
                                    0, 1, &step.set, 0, nullptr);
            pushRows(batch, *step.program);
            vkCmdDraw(batch.commands(), 3, 1, 0, 0);
        }
        vkCmdEndRendering(batch.commands());
        context.draws += steps.size();
        context.packedDraws += packed ? steps.size() : 0;
        return true;
    }

    void pushRows(Batch& batch, const ShaderProgram& program) const
    {
        if (program.rows.empty()) {
            return;
        }
        constexpr std::size_t bytes = 16;
        std::array<std::byte, packedRows.size> rows{};
        for (std::size_t i = 0; i < program.rows.size(); ++i) {
            std::memcpy(rows.data() + i * bytes, uniforms.data() + program.rows[i] * bytes, bytes);
        }
        vkCmdPushConstants(batch.commands(), program.layout, packedRows.stageFlags, packedRows.offset,
                           packedRows.size, rows.data());
    }

    void prepare(Batch& batch, Texture& into, bool replacesAll) const
    {
        for (const Step& step : steps) {
            for (const std::uint32_t sampler : step.program->bindings) {
                batch.sample(*textures[effect.samplers[sampler].texture]->texture());
            }
        }
        batch.renderTo(into, replacesAll);
        batch.flush();
    }
};

} // namespace

EffectState::EffectState(std::shared_ptr<EffectProgram> program) : program_(std::move(program))
{
    uniforms_.resize(std::max<std::size_t>(effect().uniformBytes, sizeof(SystemUniforms)));
    for (const Parameter& parameter : effect().parameters) {
        const std::size_t room = uniforms_.size() - std::min<std::size_t>(parameter.offset, uniforms_.size());
        std::copy_n(parameter.defaultValue.begin(), std::min(parameter.defaultValue.size(), room),
                    uniforms_.begin() + static_cast<std::ptrdiff_t>(uniforms_.size() - room));
    }
}

bool EffectState::setTechnique(std::string_view name)
{
    const auto& techniques = effect().techniques;
    const auto found = std::find_if(techniques.begin(), techniques.end(),
                                    [name](const auto& technique) { return technique.name == name; });
    if (found == techniques.end()) {
        return false;
    }
    const std::lock_guard lock(mutex_);
    technique_ = static_cast<std::size_t>(found - techniques.begin());
    return true;
}

template <class ValueOf>
bool EffectState::set(const Parameter& parameter, ValueOf valueOf)
{
    if (parameter.semantic != CompiledEffect::Semantic::None) {
        return false;
    }
    const std::lock_guard lock(mutex_);
    for (std::size_t i = 0; i < componentCount(parameter); ++i) {
        writeComponent(uniforms_, parameter, i, valueOf(i));
    }
    return true;
}

bool EffectState::setValues(const Parameter& parameter, const float* values, std::size_t count)
{
    return values != nullptr && count == componentCount(parameter) &&
           set(parameter, [values](std::size_t i) { return values[i]; });
}

bool EffectState::setAll(const Parameter& parameter, float value)
{
    return set(parameter, [value](std::size_t) { return value; });
}

std::size_t EffectState::snapshot(std::span<std::byte> uniforms) const
{
    const std::lock_guard lock(mutex_);
    std::copy_n(uniforms_.begin(), std::min(uniforms_.size(), uniforms.size()), uniforms.begin());
    return technique_;
}

bool EffectState::isNews(const std::string& text)
{
    const std::lock_guard lock(mutex_);
    return told_.insert(text).second;
}

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
    const std::string reason = obstacle(effect, program.passes, textures, target.picture());
    if (!reason.empty()) {
        return fail("technique \"" + effect.techniques[technique].name + "\": " + reason);
    }
    const VkRect2D pixels = pixelsInside(area, target.picture().key);
    if (isEmpty(pixels) || program.passes.empty()) {
        return true;
    }
    fillBySemantic(uniforms, effect, textures, target.picture());
    fillSystem(uniforms, target.picture(), area, sources);
    fillTextures(uniforms, effect, textures);
    Draw draw{context, effect, textures, target.picture(), pixels, uniforms, memory};
    if (!draw.choose(state_->program(), technique)) {
        return fail("technique \"" + effect.techniques[technique].name + "\": its pipelines cannot be made");
    }
    return context.recorder().record(target.picture().key.bytes(), Recorder::Submit::WhenDue,
                                     [&draw](Batch& batch) { return draw.record(batch); }) != 0;
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

std::vector<std::string> texturesRead(const iShaderEffect& effect, std::string_view technique)
{
    const auto* ours = dynamic_cast<const Vulkan::ShaderEffect*>(&effect);
    return ours != nullptr ? ours->texturesRead(technique) : std::vector<std::string>();
}

} // namespace Qx::Host
