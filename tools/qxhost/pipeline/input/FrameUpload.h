#pragma once

#include "Qx/Ptr.h"
#include "platform/GPUImage.h"
#include "platform/ImageDescription.h"
#include "platform/Surface.h"
#include "tools/qxhost/media/rows/FramePacker.h"

namespace Qx::Program {

/// A host image for a frame of floats, A R G B; empty if out of memory.
Qx::Ptr<iHostImage> makeFloatImage(int width, int height);

/// That frame on the GPU. Throws Failure (device).
Image::Surface uploadFloats(const Qx::Ptr<iHostImage>& image);

/// Whether the device can draw into images of floats.
bool deviceDrawsFloats();

/// Uploads frames of any format in the form that conversions start from: YCrCb as pixel pairs in YUY2 order,
/// RGB as A R G B.
class FrameUpload
{
public:
    /// `layout` describes the frames; `source` has the range of their codes and the matrix of YCrCb. Codes of
    /// `codeBits` (0: the layout's bits per component) fill the upper bits of their samples.
    FrameUpload(const Image::Core::Data& layout, const Media::FramePacker::Target& source, int codeBits = 0);

    bool isYCrCb() const;

    /// A host image for one frame; empty if out of memory.
    Qx::Ptr<iHostImage> makeHostImage() const;

    /// The frame on the GPU as it lies in memory: texels of four components. Throws Failure (device).
    Image::Surface uploadAsIs(const Qx::Ptr<iHostImage>& image, const Media::FrameTime& time) const;

    /// The frame on the GPU: YUY2 of the frame's depth, 8 or 16 bits (deeper than 8 is 16), or ARGB in the
    /// depth of `working`. Codes of YUY2 are at the levels of source.bits; 0: of all bits of their samples.
    /// Throws Failure (device, effect).
    Image::Surface upload(const Qx::Ptr<iHostImage>& image, const Media::FrameTime& time,
                          iGPUImage::eFormat working) const;

private:
    Image::Surface describe(const Qx::Ptr<iHostImage>& image, const Media::FrameTime& time) const;
    Image::Surface toPairs(Image::Surface host) const;
    Image::Surface atWantedLevels(const Image::Surface& pairs) const;
    Image::Surface toPicture(const Image::Surface& host, iGPUImage::eFormat working) const;
    [[noreturn]] void fail() const;

    Image::Core::Data layout_;
    Media::FramePacker::Target source_;
    int codeBits_;
};

} // namespace Qx::Program
