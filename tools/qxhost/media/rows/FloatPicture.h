#pragma once

#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/Result.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace Qx::Media {

// Pictures of 32-bit floating-point numbers in planes, as OpenEXR's come from FFmpeg and go to it. Here 0 to
// 1 stand for the codes 0 to 65535, whatever the transfer characteristic is.

/// Of a format of floats that is read, the one of codes of 16 bits with the same planes; else
/// AV_PIX_FMT_NONE.
AVPixelFormat codesOfFloats(AVPixelFormat format);

/// Whether a picture itself is of such a format.
bool isOfFloats(const AVFrame& picture);

/// The numbers of a picture that codes cannot hold.
struct ClippedNumbers
{
    std::int64_t pictures = 0; ///< that have any
    float least = 0;
    float greatest = 1;
};

/// What is to be said of them: "2 frames have values beyond 0 and 1 (from -0.1 to 16), which are clipped".
/// Empty if there are none.
std::string clippedText(const ClippedNumbers& clipped);

/// The same picture in codes of 16 bits, to the nearest; of grey, red, green and blue alike. Null if memory
/// lacks. With `keepsFloats`, floatsOf() gives the picture of floats, which stays as long as the one of
/// codes.
FramePtr codesFrom(const AVFrame& floats, ClippedNumbers& clipped, bool keepsFloats);

/// The picture of floats that one of codes was made from; null if there is none, or it was not kept.
const AVFrame* floatsOf(const AVFrame& codes);

/// Whether a picture has floats, or codes of 16 bits in the planes of one.
bool hasFloatPlanes(const AVFrame& picture);

/// Forgets the picture of floats, of a picture whose codes have become others.
void forgetFloats(AVFrame& codes);

/// Writes a picture as rows of A R G B, four floats a pixel, rows beginning at rows, rows + pitch, ...: its
/// floats if it is of these or has them, otherwise its codes of 16 bits as parts of 65535. hasFloatPlanes()
/// is true of it. What is no number is black, and without alpha it is opaque.
void placeFloats(const AVFrame& codes, void* rows, std::ptrdiff_t pitch);

/// Rows of A R G B as codes of 16 bits of a picture, to the nearest.
struct FloatRows
{
    const void* rows = nullptr;
    std::ptrdiff_t pitch = 0; ///< bytes
    int width = 0;
    int height = 0;
};
void codesFrom(const FloatRows& from, void* rows, std::ptrdiff_t pitch, ClippedNumbers& clipped);

/// Rows of A R G B as the planes of a picture of floats, which has its memory; see floatsFrom().
void planesFrom(const FloatRows& from, AVFrame& floats, bool asHalves);

/// The planes of codes of 8 or 16 bits as those of a picture of floats, which has its memory; for files of
/// halves as the nearest of these, since FFmpeg's encoder cuts off the digits that halves lack.
void floatsFrom(const AVFrame& codes, AVFrame& floats, bool asHalves);

} // namespace Qx::Media
