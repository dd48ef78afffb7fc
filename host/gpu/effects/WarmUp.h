#pragma once

#include "host/gpu/effects/EffectProgram.h"
#include "host/gpu/effects/ShaderEffect.h"

#include <array>

namespace Qx::Host::Vulkan {

/// Draws techniques of an effect into a pixel or two, with its parameters' defaults and black pictures, so
/// that the work that drivers put off to a first draw is done. Each draw is submitted and waited for on its
/// own: what others draw meanwhile comes between them.
class WarmUp
{
public:
    /// The formats that pictures have while they are worked on; source and target are of the same as a rule.
    static constexpr std::array formats{iGPUImage::eARGB8, iGPUImage::eARGB16};

    explicit WarmUp(std::shared_ptr<EffectProgram> program);

    /// Which of a technique's shaders draw.
    enum class Form
    {
        Usual,   ///< those for whole pictures
        ByTexel, ///< those that can draw a part of one
        Mixed,   ///< those for whole pictures from one of another depth
    };

    /// False when the device cannot draw it: memory is exhausted, or the device is lost, or the service is
    /// shut down.
    bool draw(std::size_t technique, iGPUImage::eFormat format, Form form = Form::Usual);

    /// Whether the technique has shaders of that form beside the usual ones.
    bool hasForm(std::size_t technique, Form form) const;

    /// Every technique for whole pictures in every format, until one cannot be drawn.
    void drawAll();

private:
    bool prepare(iGPUImage::eFormat format, iGPUImage::eFormat sourceFormat);

    const std::shared_ptr<EffectProgram> program_;
    const Qx::Ptr<ShaderEffect> effect_;
    Qx::Ptr<GPUImage> picture_;
    Qx::Ptr<GPUImage> target_;
    Qx::Ptr<GPUImage3D> table_;
};

} // namespace Qx::Host::Vulkan
