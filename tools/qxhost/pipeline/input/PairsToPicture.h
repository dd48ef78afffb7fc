#pragma once

#include "platform/GPUImage.h"
#include "platform/ImageFormat.h"
#include "platform/Surface.h"
#include "tools/qxhost/media/MediaTypes.h"
#include "tools/qxhost/media/rows/FramePacker.h"

namespace Qx::Program {

/// Makes RGB of pixel pairs in YUY2 order, A R G B on the GPU, in the range of `outputRange`. Codes of the
/// pairs stand for levels as `form` says. Throws Failure (device, effect).
Image::Surface toPicture(const Image::Surface& pairs, const Media::FramePacker::CodeForm& form,
                         Media::Matrix matrix, iGPUImage::eFormat format, Image::GamutScaling outputRange,
                         Image::Filter filter);

/// The same of frames in which every pixel has its own chroma, and its alpha, as FramePacker packs them for
/// that target.
Image::Surface fullChromaToPicture(const Image::Surface& frame, const Media::FramePacker::CodeForm& form,
                                   const Media::FramePacker::Target& source, iGPUImage::eFormat format,
                                   Image::GamutScaling outputRange);

} // namespace Qx::Program
