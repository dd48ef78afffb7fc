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

} // namespace Qx::Program
