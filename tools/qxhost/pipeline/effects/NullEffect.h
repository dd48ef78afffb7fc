#pragma once

#include "platform/GPUImage.h"
#include "platform/Surface.h"
#include "tools/qxhost/media/MediaTypes.h"

namespace Qx::Program {

/// Runs a technique of "null.fx" over a surface into another that has a GPU image. Throws Failure (device,
/// effect) if the technique is missing or is not drawn.
void applyNullEffect(const char* technique, const Image::Surface& from, Image::Surface& to);

/// A copy of an A R G B picture in another depth, each code of `range` at its level; the picture itself if it
/// has that depth already. Throws Failure (device, effect).
Image::Surface atDepth(const Image::Surface& picture, iGPUImage::eFormat format, Media::Range range);

/// A copy of full-range pixel pairs, whose codes of `from` bits become those of `to` bits at their levels:
/// 8, 10 or 16, not equal. Codes fill the upper bits of their samples. Throws Failure (device, effect).
Image::Surface fullRangeAtDepth(const Image::Surface& pairs, int from, int to);

} // namespace Qx::Program
