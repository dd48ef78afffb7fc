#pragma once

#include "Qx/Ptr.h"
#include "host/effects/CompiledEffect.h"
#include "host/effects/Supplies.h"
#include "platform/GPUImage.h"
#include "tools/qxhost/pipeline/options/ConvertOptions.h"

#include <filesystem>
#include <memory>
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

/// The text with the option "--texture NAME=FILE" in it, if it has that, as a step of a look has it:
/// `texture = { NAME = "FILE" }` and `place`.
std::string asInLooks(const std::string& text, const std::string& place);

/// The options without which `convert` cannot draw the technique: "--texture To=FILE". Empty if it can.
std::vector<std::string> neededBy(const Host::CompiledEffect& effect,
                                  const Host::CompiledEffect::Technique& technique,
                                  const std::filesystem::path& effectFile);

/// What gives a texture its picture without further options, for people: "the picture", "noise.png".
std::string givenTo(const Host::CompiledEffect& effect, std::size_t texture,
                    const std::filesystem::path& effectFile);

/// What a binding to a file gives, for each frame: a picture, or the frames of a clip, as `convert` would
/// make RGB of them, with their alpha; or, for a volume, the table of a LUT.
class iTextureFile
{
public:
    virtual ~iTextureFile() = default;

    /// The frame of a clip that is shown at that time: its n-th in the n-th frame of `clip`, or, if their
    /// rates differ, the last that began before; its last frame after its end. For ever later frames. Throws
    /// Failure (effect) if the clip is damaged there.
    virtual Qx::Ptr<iGPUResource> at(const Host::FrameFacts& clip) = 0;

    /// What is to be said in the end, for people; empty if nothing is.
    virtual std::string remark() const { return {}; }
};

/// Reads the picture, or the first frames of a clip. Throws Failure (effect), with the reason.
std::unique_ptr<iTextureFile> openTexture(const std::string& effect, const TextureBinding& binding);

} // namespace Qx::Program
