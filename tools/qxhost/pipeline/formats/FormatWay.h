#pragma once

#include "platform/ImageFormat.h"
#include "tools/qxhost/media/rows/PackRows.h"
#include "tools/qxhost/pipeline/formats/PixelFormat.h"

#include <optional>

namespace Qx::Program {

/// How frames of a pixel format reach the GPU, and how they leave it.
struct FormatWay
{
    /// From host memory to pixel pairs in YUY2 order, or to A R G B.
    enum class In
    {
        picture,   ///< RGB, which the library converts to A R G B
        pairs,     ///< the bytes are pairs in YUY2 order
        reordered, ///< the library reorders them on the GPU
        unpacked   ///< the library unpacks them in host memory
    };

    /// From there to the format, where the library's copy to host memory does not write it.
    enum class Out
    {
        none,      ///< never needed: the library writes every width
        technique, ///< `technique`
        packed     ///< the library's packing of 10 bits
    };

    In in = In::picture;

    /// The format of the same bytes that the library's copy to host memory writes; UnknownFormat if it writes
    /// none. It writes whole blocks of pixels alone, and leaves out the rest of a row.
    Image::Format library = Image::UnknownFormat;
    unsigned libraryBlock = 1;

    Out out = Out::none;
    const char* technique = ""; ///< of "null.fx"
};

/// The way of a format at a depth, in bits per component.
FormatWay wayOf(Image::Format format, unsigned bits);

/// The order of the samples of a format whose rows are nothing but pairs of bytes or words; empty for all
/// others.
std::optional<Media::PairOrder> pairOrderOf(const PixelFormat& format);

} // namespace Qx::Program
