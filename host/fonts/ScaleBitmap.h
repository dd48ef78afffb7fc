#pragma once

#include "host/fonts/Face.h"

namespace Qx::Host::Text {

/// The picture at another size, about the same pen and baseline. A pixel is the average of its area in the
/// picture, or of one texel where the picture is enlarged.
GlyphBitmap scaled(const GlyphBitmap& bitmap, double scale);

} // namespace Qx::Host::Text
