#include "host/effects/TextureSources.h"

#include "host/core/AsciiCase.h"

#include <algorithm>
#include <array>

namespace Qx::Host {
namespace {

/// The annotations that name a picture's file, in lower case.
constexpr std::array<std::string_view, 6> fileAnnotations{"resourcename",       "source", "file", "filename",
                                                          "sasresourceaddress", "name"};

using Kind = TextureSource::Kind;

/// Whether it looks like a file's name: "noise.png", "textures\\noise.dds".
bool isFileName(const std::string& text)
{
    const std::size_t dot = text.rfind('.');
    return dot != std::string::npos && dot + 1 < text.size() &&
           text.find_first_of("/\\ ", dot) == std::string::npos;
}

/// Whether a pass draws the texture.
bool draws(const CompiledEffect::Technique& technique, std::size_t texture)
{
    return std::any_of(technique.passes.begin(), technique.passes.end(),
                       [texture](const auto& pass) { return pass.target == texture; });
}

} // namespace

std::vector<std::size_t> texturesRead(const CompiledEffect& effect,
                                      const CompiledEffect::Technique& technique)
{
    std::vector<std::size_t> textures;
    for (const CompiledEffect::Pass& pass : technique.passes) {
        for (const std::uint32_t sampler : pass.samplers) {
            const std::size_t texture = effect.samplers[sampler].texture;
            if (!draws(technique, texture) &&
                std::find(textures.begin(), textures.end(), texture) == textures.end()) {
                textures.push_back(texture);
            }
        }
    }
    return textures;
}

bool isVolume(const CompiledEffect& effect, std::size_t texture)
{
    return std::any_of(effect.samplers.begin(), effect.samplers.end(), [texture](const auto& sampler) {
        return sampler.texture == texture && sampler.dimensions == 3;
    });
}

TextureSource sourceOf(const CompiledEffect::Texture& texture)
{
    const std::string semantic = asciiLower(texture.semantic);
    if (semantic == "previous" || semantic == "previousresult") {
        return {semantic == "previous" ? Kind::PictureBefore : Kind::ResultBefore, "", ""};
    }
    TextureSource none;
    for (const CompiledEffect::Annotation& annotation : texture.annotations) {
        const std::string name = asciiLower(annotation.name);
        const bool names =
            std::find(fileAnnotations.begin(), fileAnnotations.end(), name) != fileAnnotations.end();
        const bool saysMore = name == "source" || name == "name"; // things of other kinds

        if (names && asciiLower(annotation.type) == "string" && isFileName(annotation.value)) {
            return {Kind::File, annotation.value, ""};
        }
        if (names && !saysMore && !annotation.value.empty()) {
            none.noFile = annotation.name + " = " + annotation.value;
        }
    }
    return none;
}

std::optional<std::size_t> pictureTexture(const CompiledEffect& effect,
                                          const CompiledEffect::Technique& technique,
                                          const std::vector<std::string>& given)
{
    std::vector<std::size_t> free;
    std::size_t inputs = 0;
    for (std::size_t i = 0; i < effect.textures.size(); ++i) {
        const CompiledEffect::Texture& texture = effect.textures[i];
        const Kind kind = sourceOf(texture).kind;
        const bool isGiven = std::find(given.begin(), given.end(), texture.name) != given.end();
        if (kind == Kind::PictureBefore || kind == Kind::ResultBefore || draws(technique, i) ||
            isVolume(effect, i)) {
            continue;
        }
        ++inputs;
        if (!isGiven) {
            free.push_back(i);
        }
    }
    const auto isFree = [&](std::size_t texture) {
        return std::find(free.begin(), free.end(), texture) != free.end();
    };
    const auto named = std::find_if(free.begin(), free.end(),
                                    [&](std::size_t i) { return effect.textures[i].name == "Input"; });
    if (named != free.end()) {
        return *named;
    }
    if (inputs == 1 && !free.empty()) {
        return free.front();
    }
    const auto atRegister =
        std::find_if(effect.samplers.begin(), effect.samplers.end(), [&](const auto& sampler) {
            return sampler.registerIndex == 0 && isFree(sampler.texture);
        });
    if (atRegister != effect.samplers.end()) {
        return atRegister->texture;
    }
    const std::vector<std::size_t> read = texturesRead(effect, technique);
    const auto first = std::find_if(read.begin(), read.end(), [&](std::size_t i) {
        return isFree(i) && sourceOf(effect.textures[i]).kind == Kind::None;
    });
    return first == read.end() ? std::nullopt : std::optional(*first);
}

const CompiledEffect::Technique* techniqueNamed(const CompiledEffect& effect, std::string_view name)
{
    const auto found = std::find_if(effect.techniques.begin(), effect.techniques.end(),
                                    [name](const auto& technique) { return technique.name == name; });
    return found == effect.techniques.end() ? nullptr : &*found;
}

} // namespace Qx::Host
