#pragma once

#include "platform/Api.h"

#include <cstdint>

namespace Qx::Image {

/// Packs four characters into a little-endian 32-bit number: the first character is the lowest byte.
constexpr std::uint32_t fourCharacterCode(char a, char b, char c, char d)
{
    return static_cast<std::uint32_t>(static_cast<unsigned char>(a)) |
           static_cast<std::uint32_t>(static_cast<unsigned char>(b)) << 8 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(c)) << 16 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(d)) << 24;
}

/// Pixel formats, as rows lie in memory: the order of components. All planes have the pitch of the first.
enum Format : std::uint32_t
{
    UnknownFormat = 0,
    BGRA32 = 32,    ///< B G R A
    ARGB10 = 35,    ///< A R G B; at 10 bits one little-endian 32-bit word, alpha on top
    PlanarRGB = 37, ///< planes R, G, B
    YUY2 = fourCharacterCode('Y', 'U', 'Y', '2'), ///< Y0 Cb Y1 Cr
    YUYV = fourCharacterCode('Y', 'U', 'Y', 'V'), ///< Y0 Cb Y1 Cr
    YVYU = fourCharacterCode('Y', 'V', 'Y', 'U'), ///< Y0 Cr Y1 Cb
    UYVY = fourCharacterCode('U', 'Y', 'V', 'Y'), ///< Cb Y0 Cr Y1
    VYUY = fourCharacterCode('V', 'Y', 'U', 'Y'), ///< Cr Y1 Cb Y0
    YV12 = fourCharacterCode('Y', 'V', '1', '2'), ///< planes Y, Cr, Cb; 4:2:0
    V210 = fourCharacterCode('v', '2', '1', '0'), ///< 6 pixels of 10-bit 4:2:2 in 16 bytes
    M101 = fourCharacterCode('M', '1', '0', '1'), ///< 10 bits: 16 pixels in 40 bytes; 8 bits: as YUY2
    M102 = fourCharacterCode('M', '1', '0', '2'), ///< as M101
    Y216 = fourCharacterCode('Y', '2', '1', '6'), ///< Y0 Cb Y1 Cr, 16 bits
    V216 = fourCharacterCode('v', '2', '1', '6'), ///< Y0 Cb Y1 Cr, 16 bits
    ARGB = fourCharacterCode('A', 'R', 'G', 'B'),
    BGRA = fourCharacterCode('B', 'G', 'R', 'A'),
    RGBA = fourCharacterCode('R', 'G', 'B', 'A'),
    ABGR = fourCharacterCode('A', 'B', 'G', 'R'),
    RGB24 = fourCharacterCode(' ', 'R', 'G', 'B'), ///< B G R, 8 or 16 bits
    BGR24 = fourCharacterCode('2', '4', 'B', 'G'), ///< B G R, 8 or 16 bits
    BGR3 = fourCharacterCode('B', 'G', 'R', '3'),  ///< R G B, 8 or 16 bits
    B48R = fourCharacterCode('b', '4', '8', 'r'),  ///< R G B, 8 or 16 bits
    B64A = fourCharacterCode('b', '6', '4', 'a'),  ///< A R G B, 16 bits
};

/// The range of codes between black and white: full range is Rec. ITU-T H.273, clause 8.3; video range is
/// Rec. ITU-R BT.601-7, clause 2.5.3, and BT.709-6, clause 3.4.
enum class GamutScaling : std::uint32_t
{
    Unknown = 0,
    Unscaled = 1, ///< full range: 0 to the largest code
    Video = 2,    ///< video range: black 16, white 235, chroma 16 to 240, times 2^(n-8) at n bits
};

/// The YCrCb matrix of a surface.
enum class ColourSpace : std::uint32_t
{
    Unknown = 0,
    BT601 = 1, ///< Kr 0.299, Kb 0.114 (Rec. ITU-R BT.601-7, clause 2.5.1)
    BT709 = 2, ///< Kr 0.2126, Kb 0.0722 (Rec. ITU-R BT.709-6, clause 3.2)
};

/// The resampling filter for chroma.
enum class Filter : std::uint32_t
{
    Point = 1,
    CatmullRom = 2,
    Mitchell = 3,
    Lanczos = 4
};

/// The field order of a frame.
enum class Polarity : std::uint32_t
{
    Progressive = 0,
    UpperFieldFirst = 1,
    LowerFieldFirst = 2
};

/// The lines of a frame that a drawing operation covers.
enum class Raster : std::uint32_t
{
    Frame = 0,
    UpperField = 1, ///< lines 0, 2, 4, ...
    LowerField = 2, ///< lines 1, 3, 5, ...
};

/// The meaning of alpha.
enum class TransparencyType : std::uint32_t
{
    Unknown = 0,
    Straight = 1,
    Premultiplied = 2,
    Opaque = 3,
};

/// Returns whether a format is RGB, or YCrCb, in any component order. Both return false for an unknown code.
QX_PLATFORM_API bool isRGB(Format format);
QX_PLATFORM_API bool isYUV(Format format); ///< As isRGB(), for YCrCb.

} // namespace Qx::Image
