#pragma once

#include "platform/GPUImage.h"
#include "platform/ImageFormat.h"

#include <cstdint>
#include <span>

namespace Qx::Host {

/// How the pixels of a row lie in memory at one depth.
struct RowLayout
{
    unsigned blockPixels = 0;  ///< pixels that are packed together
    unsigned blockBytes = 0;   ///< bytes of such a block; 0: the format does not exist at this depth
    unsigned rowAlignment = 1; ///< bytes that a row is filled up to a multiple of
    std::uint16_t bitsPerPixel = 0;
    iGPUImage::eFormat texels = iGPUImage::eARGB8; ///< of the GPU image that holds such rows
};

enum class FormatKind
{
    RGB,
    YCrCb
};

/// Where the planes of a picture lie: rows after rows, all at the pitch of the first plane.
enum class Planes
{
    One,
    ThreeFull,     ///< three planes of the picture's size
    OneAndTwoHalf, ///< one of the picture's size, then two of half its size both ways, rounded up
};

/// One pixel format. The layouts are those of a row of the first plane.
struct FormatInfo
{
    Image::Format format;
    const char* name;
    FormatKind kind;
    Planes planes;
    std::uint16_t usualDepth; ///< bits per component that a description without any means
    RowLayout upTo8Bits;
    RowLayout at10Bits;
    RowLayout otherDepths; ///< 9 to 16 bits, in 16-bit words

    const RowLayout& layout(unsigned bitsPerComponent) const;
};

/// Every format that there is.
std::span<const FormatInfo> formatTable();

/// Null for an unknown code.
const FormatInfo* findFormat(Image::Format format);

} // namespace Qx::Host
