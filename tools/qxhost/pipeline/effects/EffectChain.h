#pragma once

#include "Qx/LightweightString.h"
#include "Qx/Ptr.h"
#include "host/effects/CompiledEffect.h"
#include "host/effects/Supplies.h"
#include "platform/GPUImage.h"
#include "platform/ShaderEffect.h"
#include "platform/Surface.h"
#include "tools/qxhost/pipeline/effects/EffectTextures.h"
#include "tools/qxhost/pipeline/effects/LutFile.h"
#include "tools/qxhost/pipeline/options/ConvertOptions.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Qx::Program {

/// The effects that every frame runs through, one after the other.
class EffectChain
{
public:
    /// Whose values the parameters of an effect of the catalogue are.
    enum class Parameters
    {
        shared, ///< the process's: for the one chain that is drawn
        own     ///< the chain's: for chains that are drawn in turn
    };

    /// Finds or compiles the effects, reads the LUTs and checks techniques and parameters. `begin` is the
    /// date of the clip's beginning; now without it. `input` is what pictures consist of. Throws Failure
    /// (effect), a WrongOption for what the effect has not.
    explicit EffectChain(const std::vector<EffectRequest>& requests, std::optional<DateTime> begin = {},
                         Parameters parameters = Parameters::shared,
                         Host::LUTInput input = Host::LUTInput::Codes);

    std::size_t size() const { return links_.size(); }

    /// The files that pictures of textures were read from.
    const std::vector<std::filesystem::path>& textureFiles() const { return textureFiles_; }

    /// How many frames before a frame the effects need to draw it.
    int framesBefore() const;

    /// The first effect that draws over its own result of the frame before, and so needs all frames before;
    /// empty if there is none.
    std::string recursiveEffect() const;

    /// What the n-th effect was compiled to.
    const Host::CompiledEffect& compiled(std::size_t n) const { return *links_[n].compiled; }

    /// Sets a parameter of the n-th effect for the frames that follow; its key frames, if it has any, are
    /// dropped. Throws WrongOption.
    void set(std::size_t n, const ParameterSetting& setting);

    /// Gives a parameter of the n-th effect other key frames, from the next frame on. Throws WrongOption.
    void set(std::size_t n, const KeyedParameter& parameter);

    /// The next picture that apply() gets is not that of the frame after the last one: effects that look back
    /// see it as the first.
    void forgetFrames();

    /// What a user should know of the settings, a line each.
    const std::vector<std::string>& warnings() const { return warnings_; }

    /// What there is to say after the last frame, a line each.
    std::vector<std::string> remarks() const;

    /// The picture after all effects, in a GPU image of the same size and format; the picture itself if there
    /// are none. The size and the date in `facts` are filled in. Throws Failure (device, effect) if
    /// an effect is not drawn. One thread, in the order of the frames.
    Image::Surface apply(const Image::Surface& picture, iGPUImage::eFormat format, Host::FrameFacts facts);

private:
    struct Link
    {
        std::string file;
        Qx::Ptr<iShaderEffect> effect;
        LightweightString<char> technique;
        Qx::Ptr<iGPUImage3D> table; ///< of a LUT
        const Host::CompiledEffect* compiled = nullptr;
        std::vector<std::size_t> supplied; ///< parameters that every frame sets
        std::vector<KeyedParameter> keyed; ///< the same, of key frames
        std::vector<TextureBinding> bindings;
        std::vector<std::pair<LightweightString<char>, std::shared_ptr<iTextureFile>>> files;
        Image::Surface pictureBefore; ///< of the last frame; empty unless it is read
        Image::Surface resultBefore;
    };

    Link makeLink(const EffectRequest& request);
    Link makeLink(const EffectRequest& request, std::optional<LutOnGpu> table);
    void takeLut(Link& link, const std::string& lut) const;
    static void takeTable(Link& link, LutOnGpu table);
    void takeParameters(Link& link, const EffectRequest& request);
    void warnOfRange(const Link& link, const EffectRequest& request, const ParameterSetting& setting);
    static void setValue(Link& link, const EffectRequest& request, const ParameterSetting& setting);
    static void setKeys(Link& link, const EffectRequest& request, const KeyedParameter& parameter);
    void takeTextures(Link& link, const EffectRequest& request);
    void warnOfUnread(const Host::CompiledEffect& effect, const Host::CompiledEffect::Technique& technique,
                      const EffectRequest& request);
    void warnOfCube(const std::string& file, const Host::CompiledEffect& effect, const std::string& texture,
                    const iGPUResource* resource);
    static Qx::Ptr<iShaderEffect> bound(const Link& link, const Image::Surface& picture,
                                        const Host::FrameFacts& facts);
    static void keep(Link& link, const Image::Surface& picture, const Image::Surface& result);
    static void supply(const Link& link, const Host::FrameFacts& facts);
    bool isInUse(const Qx::Ptr<iShaderEffect>& effect) const;

    const DateTime begin_;
    const Parameters parameters_;
    const Host::LUTInput input_;
    std::vector<Link> links_;
    std::vector<std::filesystem::path> textureFiles_;
    std::vector<std::string> warnings_;
};

} // namespace Qx::Program
