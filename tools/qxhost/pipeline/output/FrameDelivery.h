#pragma once

#include "platform/Surface.h"
#include "tools/qxhost/pipeline/formats/FormatWay.h"
#include "tools/qxhost/pipeline/formats/PixelFormat.h"

namespace Qx::Program {

/// Takes frames from the GPU to host memory in a pixel format: through the library's own way out where that
/// ends at the format, else with the one technique that finishes it.
class FrameDelivery
{
public:
    explicit FrameDelivery(const PixelFormat& format);

    const PixelFormat& format() const { return format_; }

    /// A picture of full-range RGB, A R G B on the GPU. As YCrCb it becomes video range, BT.709 when it is
    /// wider than 720 pixels and BT.601 else. Throws Failure (device, effect).
    Image::Surface fromPicture(const Image::Surface& picture) const;

    /// Pixel pairs in YUY2 order, for a YCrCb format: the codes stay as they are; where depths differ, they
    /// keep their place among the steps of video. Throws Failure (device, effect).
    Image::Surface fromPairs(const Image::Surface& pairs) const;

private:
    bool isLibrarys(unsigned width) const;
    Image::Surface encode(const Image::Surface& picture) const;
    Image::Surface packMatrox(const Image::Surface& pairs) const;
    Image::Surface through(const char* technique, const Image::Surface& from, const Image::Surface& of) const;
    Image::Surface toHost(Image::Surface frame, const Image::Surface& of) const;

    PixelFormat format_;
    FormatWay way_;
};

} // namespace Qx::Program
