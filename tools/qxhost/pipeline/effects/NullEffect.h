#pragma once

#include "platform/GPUImage.h"
#include "platform/Surface.h"

namespace Qx::Program {

/// Runs a technique of "null.fx" over a surface into another that has a GPU image. Throws Failure (device,
/// effect) if the technique is missing or is not drawn.
void applyNullEffect(const char* technique, const Image::Surface& from, Image::Surface& to);

/// A copy of the picture in another depth, each code at its share of the largest one; the picture itself if
/// it has that depth already. Throws Failure (device, effect).
Image::Surface atDepth(const Image::Surface& picture, iGPUImage::eFormat format);

} // namespace Qx::Program
