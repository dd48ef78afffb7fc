#pragma once

#include "host/gpu/effects/EffectProgram.h"
#include "host/gpu/effects/ShaderEffect.h"

#include <array>

namespace Qx::Host::Vulkan {

/// Draws techniques of an effect into one or two pixels, with the parameters' defaults and black pictures, so
/// that the work that drivers defer to a first draw is done. Each draw is submitted and waited for on its
/// own, so that other draws come between them.
class Prewarm
{
public:
    /// The formats of pictures in a chain; source and target usually have the same.
    static constexpr std::array formats{iGPUImage::eARGB8, iGPUImage::eARGB16};

    explicit Prewarm(std::shared_ptr<EffectProgram> program);

    /// What is drawn, which decides which of a technique's shaders draw it.
    enum class Form
    {
        Whole,       ///< a whole picture from one of the same depth
        Part,        ///< a part of a picture
        MixedDepths, ///< a whole picture from one of another depth
    };

    /// Returns false if the device cannot draw: memory is exhausted, the device is lost or the service is
    /// shut down.
    bool draw(std::size_t technique, iGPUImage::eFormat format, Form form = Form::Whole);

    /// Whether the technique has other shaders for that form than for Form::Whole.
    bool hasForm(std::size_t technique, Form form) const;

    /// Draws every technique in every format over whole pictures, until one cannot be drawn.
    void drawAll();

private:
    bool prepare(iGPUImage::eFormat format, iGPUImage::eFormat sourceFormat);
    Qx::Vector<iShaderEffect::Source> sourcesOf(std::size_t technique);

    const std::shared_ptr<EffectProgram> program_;
    const Qx::Ptr<ShaderEffect> effect_;
    Qx::Ptr<GPUImage> picture_;
    Qx::Ptr<GPUImage> target_;
    Qx::Ptr<GPUImage3D> table_;
};

} // namespace Qx::Host::Vulkan
