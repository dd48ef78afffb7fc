#pragma once

#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/Result.h"

#include <cstdint>

namespace Qx::Media {

// Pictures of 32-bit floating-point numbers in planes, as OpenEXR's come from FFmpeg and go to it. Here 0 to
// 1 stand for the codes 0 to 65535, whatever the transfer characteristic is.

/// Of a format of floats that is read, the one of codes of 16 bits with the same planes; else
/// AV_PIX_FMT_NONE.
AVPixelFormat codesOfFloats(AVPixelFormat format);

/// The numbers of a picture that codes cannot hold.
struct ClippedNumbers
{
    std::int64_t pictures = 0; ///< that have any
    float least = 0;
    float greatest = 1;
};

/// The same picture in codes of 16 bits, to the nearest. Null if memory lacks.
FramePtr codesFrom(const AVFrame& floats, ClippedNumbers& clipped);

/// The planes of codes of 8 or 16 bits as those of a picture of floats, which has its memory; for files of
/// halves as the nearest of these, since FFmpeg's encoder cuts off the digits that halves lack.
void floatsFrom(const AVFrame& codes, AVFrame& floats, bool asHalves);

} // namespace Qx::Media
