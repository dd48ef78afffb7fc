#pragma once

#include "Qx/LightweightString.h"
#include "Qx/Ptr.h"
#include "platform/GPUImage.h"
#include "platform/ShaderEffect.h"
#include "platform/Surface.h"
#include "tools/qxhost/pipeline/options/ConvertOptions.h"

#include <string>
#include <vector>

namespace Qx::Program {

/// The effects that every frame runs through, one after the other.
class EffectChain
{
public:
    /// Finds or compiles the effects, reads the LUTs and checks techniques and parameters. Throws Failure
    /// (effect).
    explicit EffectChain(const std::vector<EffectRequest>& requests);

    std::size_t size() const { return links_.size(); }

    /// What a user should know of the settings, a line each.
    const std::vector<std::string>& warnings() const { return warnings_; }

    /// The picture after all effects, in a GPU image of the same size and format; the picture itself if there
    /// are none. Throws Failure (device, effect) if an effect is not drawn. One thread.
    Image::Surface apply(const Image::Surface& picture, iGPUImage::eFormat format);

private:
    struct Link
    {
        std::string file;
        Qx::Ptr<iShaderEffect> effect;
        LightweightString<char> technique;
        Qx::Ptr<iGPUImage3D> table; ///< of a LUT
    };

    Link makeLink(const EffectRequest& request);
    void takeLut(Link& link, const std::string& lut) const;
    bool isInUse(const Qx::Ptr<iShaderEffect>& effect) const;

    std::vector<Link> links_;
    std::vector<std::string> warnings_;
};

} // namespace Qx::Program
