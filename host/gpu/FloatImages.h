#pragma once

#include "platform/GPUImage.h"

/// Images of floats, for chains of effects whose colours are not to be clipped. They are this host's own:
/// nothing else that implements platform/ knows them.
namespace Qx::Host {

/// The format of images with four 32-bit floats a texel, A R G B. Black is 0 and white is 1. Effects read and
/// write them as they do others, but results are neither clamped nor rounded. iGPUService creates them,
/// copies them from and to host images of the same format, and returns an empty pointer for them where the
/// device cannot draw into them. Rectangles, images and text are drawn over them without clipping or rounding
/// what is there; what is drawn has colours of 0 to 1.
inline constexpr auto floatTexels = static_cast<iGPUImage::eFormat>(4 * 32);

/// The largest code of such an image for effects that ask for it (TARGETMAXCODE, TEXTUREMAXCODE), and what
/// COLORCODE is a multiple of: so many that half a code is nothing. Codes beyond it, below 0 and between two
/// are as good as others.
inline constexpr float codesOfFloats = 16777216.0F;

} // namespace Qx::Host
