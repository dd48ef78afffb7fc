#pragma once

#include "host/effects/CompiledEffect.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::Host {

// Where the pictures of an effect's textures come from in a program that draws effects over one picture. The
// library itself binds pictures by name only: iShaderEffect::Source.

/// The indices of the textures that a technique's passes read, but for those that its passes draw, each once,
/// in the order in which they are read.
std::vector<std::size_t> texturesRead(const CompiledEffect& effect,
                                      const CompiledEffect::Technique& technique);

/// Whether samplers read the texture as a volume.
bool isVolume(const CompiledEffect& effect, std::size_t texture);

/// What a texture's declaration says of its picture.
struct TextureSource
{
    enum class Kind : std::uint8_t
    {
        None,
        File,          ///< an annotation names a picture's file
        PictureBefore, ///< semantic PREVIOUS: what the effect was drawn over in the frame before
        ResultBefore,  ///< semantic PREVIOUSRESULT: what it drew there
    };
    Kind kind = Kind::None;
    std::string file; ///< as written
    std::string
        noFile; ///< without a Kind: what an annotation has in the place of a file's name; may be empty
};

TextureSource sourceOf(const CompiledEffect::Texture& texture);

/// The texture that gets the picture that a technique is drawn over: the one called Input; else the effect's
/// only one; else the one at register(s0); else the first that the technique reads and that no annotation or
/// semantic gives another picture. Textures of the names `given`, to which the user gives pictures, do not
/// count, nor do volumes, those with a semantic above and those that the technique draws. Nothing if there is
/// none.
std::optional<std::size_t> pictureTexture(const CompiledEffect& effect,
                                          const CompiledEffect::Technique& technique,
                                          const std::vector<std::string>& given = {});

/// The technique of that name; null if there is none.
const CompiledEffect::Technique* techniqueNamed(const CompiledEffect& effect, std::string_view name);

} // namespace Qx::Host
