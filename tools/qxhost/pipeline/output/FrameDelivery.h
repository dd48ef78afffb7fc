#pragma once

#include "platform/Surface.h"
#include "tools/qxhost/media/MediaTypes.h"
#include "tools/qxhost/pipeline/formats/FormatWay.h"
#include "tools/qxhost/pipeline/formats/PixelFormat.h"

#include <optional>

namespace Qx::Program {

/// Reads frames back to host memory in a pixel format: by the library's copy to host memory where that writes
/// the format, else through one more technique.
class FrameDelivery
{
public:
    /// `matrix` is that of YCrCb which is made of pictures; empty: of Media::matrixForWidth().
    explicit FrameDelivery(const PixelFormat& format, std::optional<Media::Matrix> matrix = {});

    const PixelFormat& format() const { return format_; }

    /// A picture of RGB in `range`, A R G B on the GPU. RGB keeps its levels. As YCrCb it becomes video
    /// range, with the matrix. Throws Failure (device, effect).
    Image::Surface fromPicture(const Image::Surface& picture, Media::Range range) const;

    /// Pixel pairs in YUY2 order, for a YCrCb format: codes are unchanged, or scaled by a power of two where
    /// depths of samples differ. Throws Failure (device, effect).
    Image::Surface fromPairs(const Image::Surface& pairs) const;

private:
    bool isLibrarys(unsigned width) const;
    Image::Surface encode(const Image::Surface& picture, Media::Range range) const;
    Image::Surface packMatrox(const Image::Surface& pairs) const;
    Image::Surface through(const char* technique, const Image::Surface& from, const Image::Surface& of) const;
    Image::Surface toHost(Image::Surface frame, const Image::Surface& of) const;

    PixelFormat format_;
    std::optional<Media::Matrix> matrix_;
    FormatWay way_;
};

} // namespace Qx::Program
