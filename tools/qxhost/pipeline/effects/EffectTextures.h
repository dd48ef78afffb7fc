#pragma once

#include "Qx/Ptr.h"
#include "host/effects/CompiledEffect.h"
#include "platform/GPUImage.h"
#include "tools/qxhost/pipeline/options/ConvertOptions.h"

#include <filesystem>
#include <string>
#include <vector>

namespace Qx::Program {

/// Where a texture that a technique reads gets its picture.
struct TextureBinding
{
    enum class Kind
    {
        missing,
        picture,       ///< that the effect is drawn over
        file,          ///< of "--texture", or of an annotation
        pictureBefore, ///< what the effect was drawn over in the frame before
        resultBefore,  ///< what it drew there
    };
    std::string texture;
    Kind kind = Kind::missing;
    std::filesystem::path file;
    bool isVolume = false;
    std::string obstacle; ///< if missing: why, and what to do, for people
};

/// The textures that a technique reads, in the order in which it reads them. `effectFile` is the effect's
/// own, beside which the files of annotations lie.
std::vector<TextureBinding> bindingsOf(const Host::CompiledEffect& effect,
                                       const Host::CompiledEffect::Technique& technique,
                                       const std::filesystem::path& effectFile,
                                       const std::vector<TextureFile>& given);

/// Why `convert` cannot draw the technique, for people: the first texture that it reads and that nothing
/// gives a picture. Empty if it can.
std::string obstacleTo(const Host::CompiledEffect& effect, const Host::CompiledEffect::Technique& technique,
                       const std::filesystem::path& effectFile, const std::vector<TextureFile>& given = {});

/// The options without which `convert` cannot draw the technique: "--texture To=FILE". Empty if it can.
std::vector<std::string> neededBy(const Host::CompiledEffect& effect,
                                  const Host::CompiledEffect::Technique& technique,
                                  const std::filesystem::path& effectFile);

/// What gives a texture its picture without further options, for people: "the picture", "noise.png".
std::string givenTo(const Host::CompiledEffect& effect, std::size_t texture,
                    const std::filesystem::path& effectFile);

/// The picture of a binding to a file: the first frame of a picture or clip, as `convert` would make RGB of
/// it, with its alpha; or, for a volume, the table of a LUT. Throws Failure (effect), with the reason.
Qx::Ptr<iGPUResource> loadTexture(const std::string& effect, const TextureBinding& binding);

} // namespace Qx::Program
