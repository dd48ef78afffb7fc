#pragma once

#include "Qx/LightweightString.h"
#include "Qx/Ptr.h"
#include "platform/Api.h"
#include "platform/GPUImage.h"
#include "platform/ShaderEffect.h"
#include "platform/Surface.h"

/// The single path by which a technique of an effect is run over a surface. Thread-safe: applications are
/// serialised by the manager's gpuLock(). They record the work and return without waiting for the device.
namespace Qx::Image {

/// Returns the compiled effect with that file name ("null.fx"), ignoring case, or an empty pointer if there
/// is no such file or it does not compile. Initialises colour conversion on first use. Blocks while the
/// effect is being compiled.
QX_API Qx::Ptr<iShaderEffect> getShader(const LightweightString<wchar_t>& fileName) noexcept;

/// Runs a technique of an effect over the whole of `dst`, which must have a GPU image, and copies the
/// source's descriptions to `dst`. Sets the effect's "_Width" to `width` and its "_Height" to the source's
/// height. Binds the source to its "Input" twice, the second time shifted one texel to the right.
///
/// Returns false and does nothing if the effect is empty or has no such technique. True does not mean that
/// the host could draw it.
QX_API bool applyTechnique(Qx::Ptr<iShaderEffect> effect, const Surface& src, Surface& dst,
                           const LightweightString<char>& technique, float width) noexcept;

/// As above with "null.fx", with three differences: if there is no such technique, the current one runs; the
/// second input is shifted one texel to the left, a texel being 1 / `width`; `format` is ignored. Returns
/// false and does nothing if "null.fx" is unavailable.
QX_API bool applyTechnique(const Surface& src, Surface& dst, const LightweightString<char>& technique,
                           float width, iGPUImage::eFormat format) noexcept;

} // namespace Qx::Image
