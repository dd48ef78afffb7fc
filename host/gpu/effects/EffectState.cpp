#include "host/gpu/effects/EffectState.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>

namespace Qx::Host::Vulkan {

namespace {

using Parameter = CompiledEffect::Parameter;
using SystemUniforms = CompiledEffect::SystemUniforms;

constexpr std::size_t rowBytes = 16; // std140: array elements and matrix rows start on a float4

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

std::array<float, 3> codesOf(const Picture& picture)
{
    const float code = picture.key.depth > 0 ? 1.0F : maxCode(picture.key.format); // tables have no codes
    return {code, code, code};
}

void fillBySemantic(const Draw& draw)
{
    for (const Parameter& parameter : draw.effect.parameters) {
        const Picture* picture = draw.pictureCalled(parameter.semanticTexture);
        switch (parameter.semantic) {
        case CompiledEffect::Semantic::None:
        case CompiledEffect::Semantic::Identity:
        case CompiledEffect::Semantic::ShaderNumber:
            break;
        case CompiledEffect::Semantic::TextureSize:
            writeAll(draw.uniforms, parameter,
                     picture != nullptr ? sizeOf(*picture) : std::array<float, 3>{});
            break;
        case CompiledEffect::Semantic::TextureMaxCode:
            writeAll(draw.uniforms, parameter,
                     picture != nullptr ? codesOf(*picture) : std::array<float, 3>{});
            break;
        case CompiledEffect::Semantic::TargetSize:
            writeAll(draw.uniforms, parameter, sizeOf(draw.target));
            break;
        case CompiledEffect::Semantic::TargetMaxCode:
            writeAll(draw.uniforms, parameter, codesOf(draw.target));
            break;
        }
    }
}

void fillSystem(const Draw& draw)
{
    const RectangleOf<float>& area = draw.area;
    SystemUniforms system;
    const VkFormat format = draw.target.key.format;
    constexpr float farthest = std::numeric_limits<float>::max();
    system.target = holdsFloats(format) ? std::array<float, 4>{maxCode(format), -farthest, farthest, 1.0F}
                                        : std::array<float, 4>{maxCode(format), 0.0F, maxCode(format), 0.0F};
    system.area = {area.x0, area.y0, 1.0F / (area.x1 - area.x0), 1.0F / (area.y1 - area.y0)};
    system.texCoords.fill({0.0F, 0.0F, 1.0F, 1.0F});
    for (std::size_t i = 0; i < std::min(draw.sources.size(), SystemUniforms::maxTexCoords); ++i) {
        system.texCoords.at(i) = draw.sources[i].texCoords;
    }
    std::memcpy(draw.uniforms.data(), &system, sizeof system);
}

void fillTextures(const Draw& draw)
{
    for (std::size_t i = 0; i < draw.textures.size(); ++i) {
        if (draw.textures[i] != nullptr) {
            CompiledEffect::TextureUniforms texture;
            const TextureKey& key = draw.textures[i]->key;
            texture.maxCode = key.depth > 0 ? 1.0F : maxCode(key.format);
            texture.size = {static_cast<float>(key.width), static_cast<float>(key.height)};
            std::memcpy(draw.uniforms.data() + draw.textureUniforms(i), &texture, sizeof texture);
        }
    }
}

} // namespace

std::size_t componentCount(const Parameter& parameter)
{
    return std::size_t{parameter.rows} * parameter.columns * std::max(parameter.elements, 1U);
}

void fillUniforms(const Draw& draw)
{
    fillBySemantic(draw);
    fillSystem(draw);
    fillTextures(draw);
}

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

bool EffectState::note(const std::string& text)
{
    const bool isNew = isNews(text);
    const std::lock_guard lock(mutex_);
    if (isNew) {
        notes_.push_back(text);
    }
    return isNew;
}

std::vector<std::string> EffectState::notes() const
{
    const std::lock_guard lock(mutex_);
    return notes_;
}

} // namespace Qx::Host::Vulkan
