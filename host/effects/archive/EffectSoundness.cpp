#include "host/effects/archive/EffectSoundness.h"

#include "host/effects/framework/Limits.h"
#include "host/effects/hlsl/ParameterLayout.h"
#include "host/effects/spirv/SpirvModule.h"

#include <algorithm>

namespace Qx::Host {
namespace {

using namespace Effects;

bool isSpirv(const Spirv::Words& words)
{
    constexpr std::uint32_t newest = 0x00010300; // the newest version that Vulkan 1.1 takes
    return words.size() > Spirv::headerWords && words[0] == spv::MagicNumber && words[1] <= newest &&
           Spirv::forEach(words, [](const Spirv::Instruction&) {});
}

bool isTextureSemantic(CompiledEffect::Semantic semantic)
{
    return semantic == CompiledEffect::Semantic::TextureSize ||
           semantic == CompiledEffect::Semantic::TextureMaxCode;
}

/// Whether the host can fill the parameter as its semantic says.
bool isFillable(const CompiledEffect::Parameter& parameter, const CompiledEffect& effect)
{
    if (parameter.semantic == CompiledEffect::Semantic::None ||
        parameter.semantic == CompiledEffect::Semantic::ShaderNumber) {
        return true;
    }
    if (parameter.semantic == CompiledEffect::Semantic::Identity) {
        return parameter.type == CompiledEffect::ScalarType::Float && parameter.rows > 1 &&
               parameter.elements == 0;
    }
    const bool size = parameter.semantic == CompiledEffect::Semantic::TextureSize ||
                      parameter.semantic == CompiledEffect::Semantic::TargetSize;
    const bool textureKnown =
        std::any_of(effect.textures.begin(), effect.textures.end(),
                    [&](const auto& texture) { return texture.name == parameter.semanticTexture; });
    return parameter.type == CompiledEffect::ScalarType::Float && parameter.rows == 1 &&
           parameter.elements == 0 && parameter.columns == (size ? 2U : 1U) &&
           (textureKnown || !isTextureSemantic(parameter.semantic));
}

bool isSound(const CompiledEffect::Parameter& parameter, const CompiledEffect& effect)
{
    constexpr std::uint32_t mostRows = 4;
    if (parameter.rows == 0 || parameter.rows > mostRows || parameter.columns == 0 ||
        parameter.columns > mostRows || parameter.elements > Limits::uniformBytes) {
        return false;
    }
    const ParameterPlacement placement = placementOf(parameter);
    return parameter.bytes == placement.bytes && parameter.defaultValue.size() == placement.bytes &&
           parameter.offset >= sizeof(CompiledEffect::SystemUniforms) &&
           parameter.offset % placement.alignment == 0 && parameter.offset <= effect.uniformBytes &&
           placement.bytes <= effect.uniformBytes - parameter.offset && isFillable(parameter, effect);
}

bool isSoundShader(const std::vector<std::uint32_t>& spirv, const std::vector<std::uint32_t>& samplers,
                   const CompiledEffect& effect)
{
    const auto notAscending = [](std::uint32_t a, std::uint32_t b) { return a >= b; };
    const bool ascending =
        std::adjacent_find(samplers.begin(), samplers.end(), notAscending) == samplers.end();
    return ascending && (samplers.empty() || samplers.back() < effect.samplers.size()) && isSpirv(spirv);
}

bool isSound(const CompiledEffect::PackedShader& shader, const CompiledEffect& effect)
{
    const auto isTexel = [&](std::uint32_t bytes) {
        return bytes == shader.depths.source / 2 || bytes == 8 || bytes == 16;
    };
    const auto isRow = [&](std::uint32_t row) { return row < effect.uniformBytes / 16; };
    const auto isPlace = [](std::uint32_t place) {
        return place == CompiledEffect::PackedShader::noPlace ||
               place < CompiledEffect::SystemUniforms::maxTexCoords;
    };
    const auto isDepth = [](std::uint32_t bits) { return bits == 8 || bits == 16; };
    return isDepth(shader.depths.source) && isDepth(shader.depths.target) &&
           shader.texelBytes.size() == shader.samplers.size() &&
           std::all_of(shader.texelBytes.begin(), shader.texelBytes.end(), isTexel) &&
           shader.rows.size() <= CompiledEffect::PackedShader::mostRows &&
           std::all_of(shader.rows.begin(), shader.rows.end(), isRow) &&
           (shader.places.empty() || shader.places.size() == shader.samplers.size()) &&
           std::all_of(shader.places.begin(), shader.places.end(), isPlace) &&
           isSoundShader(shader.spirv, shader.samplers, effect);
}

bool isSound(const CompiledEffect::Corners& corners)
{
    return (corners.count == 3 || corners.count == 4) && (corners.spirv.empty() || isSpirv(corners.spirv));
}

bool isSound(const CompiledEffect::Pass& pass, const CompiledEffect& effect)
{
    const bool hasTarget = pass.target != CompiledEffect::Pass::callersTarget;
    const bool readsTarget =
        std::any_of(pass.samplers.begin(), pass.samplers.end(), [&](std::uint32_t sampler) {
            return sampler < effect.samplers.size() && effect.samplers[sampler].texture == pass.target;
        });
    return isSoundShader(pass.spirv, pass.samplers, effect) && !readsTarget && isSound(pass.corners) &&
           pass.result < CompiledEffect::Pass::results && (pass.result == 0 || hasTarget) &&
           (!hasTarget || (pass.target < effect.textures.size() && pass.packed.empty())) &&
           std::all_of(pass.packed.begin(), pass.packed.end(),
                       [&](const auto& shader) { return isSound(shader, effect); });
}

bool hasSoundLevels(const CompiledEffect::Texture& texture)
{
    return texture.levels > 0 && texture.levels <= CompiledEffect::Texture::mostLevels;
}

bool isSound(const CompiledEffect::Sampler& sampler, const CompiledEffect& effect)
{
    return sampler.texture < effect.textures.size() && (sampler.faces == 1 || sampler.faces == 6) &&
           (sampler.dimensions == 2 || (sampler.dimensions == 3 && sampler.mip == CompiledEffect::Mip::None));
}

bool hasRoomForTextures(const CompiledEffect& effect)
{
    constexpr std::uint32_t bytes = sizeof(CompiledEffect::TextureUniforms);
    return effect.textureUniforms % bytes == 0 &&
           effect.textureUniforms >= sizeof(CompiledEffect::SystemUniforms) &&
           effect.textureUniforms <= effect.uniformBytes &&
           effect.textures.size() <= (effect.uniformBytes - effect.textureUniforms) / bytes;
}

} // namespace

bool isSound(const CompiledEffect& effect)
{
    const auto soundPasses = [&](const CompiledEffect::Technique& technique) {
        return !technique.passes.empty() &&
               technique.passes.back().target == CompiledEffect::Pass::callersTarget &&
               std::all_of(technique.passes.begin(), technique.passes.end(),
                           [&](const CompiledEffect::Pass& pass) { return isSound(pass, effect); });
    };
    return hasRoomForTextures(effect) && effect.uniformBytes <= Limits::uniformBytes &&
           !effect.techniques.empty() &&
           std::all_of(effect.parameters.begin(), effect.parameters.end(),
                       [&](const auto& parameter) { return isSound(parameter, effect); }) &&
           std::all_of(effect.textures.begin(), effect.textures.end(), hasSoundLevels) &&
           std::all_of(effect.samplers.begin(), effect.samplers.end(),
                       [&](const auto& sampler) { return isSound(sampler, effect); }) &&
           std::all_of(effect.techniques.begin(), effect.techniques.end(), soundPasses);
}

} // namespace Qx::Host
