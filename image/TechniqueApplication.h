#pragma once

#include "Qx/LightweightString.h"
#include "Qx/Ptr.h"
#include "platform/Api.h"
#include "platform/GPUImage.h"
#include "platform/ShaderEffect.h"
#include "platform/Surface.h"

/// The one path by which a technique of an effect runs over a surface.
namespace Qx::Image {

/// The compiled effect of that file name ("null.fx"), whatever its letter case; empty when there is no such
/// file or it does not compile. It initialises colour conversion when that has not been done.
QX_API Qx::Ptr<iShaderEffect> getShader(const LightweightString<wchar_t>& fileName) noexcept;

/// Runs a technique of an effect over the whole of `dst`, which must have a GPU image, and gives `dst` the
/// source's descriptions. The effect's "_Width" is set to `width` and its "_Height" to the source's height;
/// its "Input" is bound to the source twice, the second time shifted one texel to the right.
///
/// False, and nothing done, when the effect is empty or has no such technique. Any thread; applications take
/// turns.
QX_API bool applyTechnique(Qx::Ptr<iShaderEffect> effect, const Surface& src, Surface& dst,
                           const LightweightString<char>& technique, float width) noexcept;

/// The same with "null.fx", but: a technique that it lacks leaves its current one to run, and the second
/// input is shifted one texel to the left, a texel being 1 / `width`. `format` has no effect. False, and
/// nothing done, when "null.fx" cannot be had.
QX_API bool applyTechnique(const Surface& src, Surface& dst, const LightweightString<char>& technique,
                           float width, iGPUImage::eFormat format) noexcept;

} // namespace Qx::Image
