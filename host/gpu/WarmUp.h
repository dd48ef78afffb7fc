#pragma once

#include "host/gpu/EffectProgram.h"
#include "host/gpu/ShaderEffect.h"

#include <array>

namespace Qx::Host::Vulkan {

/// Draws techniques of an effect into a pixel or two, with its parameters' defaults and black pictures, so
/// that the work that drivers put off to a first draw is done. Each draw is submitted and waited for on its
/// own: what others draw meanwhile comes between them.
class WarmUp
{
public:
    /// The formats that pictures have while they are worked on; source and target are of the same.
    static constexpr std::array formats{iGPUImage::eARGB8, iGPUImage::eARGB16};

    explicit WarmUp(std::shared_ptr<EffectProgram> program);

    /// Which of a technique's shaders draw.
    enum class Form
    {
        Usual,   ///< those for whole pictures
        ByTexel, ///< those that can draw a part of one
    };

    /// False when the device cannot draw it: memory is exhausted, or the device is lost, or the service is
    /// shut down.
    bool draw(std::size_t technique, iGPUImage::eFormat format, Form form = Form::Usual);

    /// Whether the two are not the same.
    bool hasForms(std::size_t technique) const;

    /// Every technique as usual in every format, until one cannot be drawn.
    void drawAll();

private:
    bool prepare(iGPUImage::eFormat format);

    const std::shared_ptr<EffectProgram> program_;
    const Qx::Ptr<ShaderEffect> effect_;
    Qx::Ptr<GPUImage> picture_;
    Qx::Ptr<GPUImage> target_;
    Qx::Ptr<GPUImage3D> table_;
};

} // namespace Qx::Host::Vulkan
