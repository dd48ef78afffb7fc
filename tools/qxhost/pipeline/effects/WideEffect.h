#pragma once

#include "platform/ImageFormat.h"
#include "platform/Surface.h"
#include "tools/qxhost/media/MediaTypes.h"

namespace Qx::Program {

/// The effect that converts with the matrix of BT.2020, which the library has no name for.
inline constexpr const char* wideEffect = "ColourConvert2020.fx";

/// Pixel pairs, in their range, to a picture of RGB in `range`. Returns false if the effect or the technique
/// is missing.
bool decodeWide(const Image::Surface& pairs, Image::Surface& picture, Image::GamutScaling range,
                Image::Filter filter);

/// The effect that converts 4:4:4.
inline constexpr const char* fullChromaEffect = "ColourConvert444.fx";

/// A Y Cb Cr of every pixel, in `from`, to a picture of RGB in `range` with the same alpha. Returns false as
/// above.
bool decodeFullChroma(const Image::Surface& source, Image::Surface& picture, Media::Matrix matrix,
                      Media::Range from, Image::GamutScaling range);

/// A picture of RGB, in its range, to pixel pairs of video range, each with the chroma of its even pixel.
/// Returns false as above.
bool encodeWide(const Image::Surface& picture, Image::Surface& pairs);

} // namespace Qx::Program
