#pragma once

#include "platform/Api.h"
#include "platform/GPUImage.h"
#include "platform/ImageFormat.h"

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Qx::Host {

/// How the bits of a component lie in a block of pixels. Components follow each other in the format's order.
enum class Packing
{
    Samples,        ///< a byte or a little-endian 16-bit word each
    ThreeInWord,    ///< 10 bits each, three in a little-endian 32-bit word from bit 0 on; the top bits unused
    UpperThenLower, ///< a byte each for the upper eight bits, then two bits each, from bit 0 on, for the
                    ///< lower
    TwoTenTenTen,   ///< one little-endian 32-bit word: two bits, then 10 bits each, from the top down
};

/// How the pixels of a row lie in memory at one depth.
struct RowLayout
{
    unsigned blockPixels = 0;       ///< pixels that are packed together
    unsigned blockBytes = 0;        ///< bytes of such a block; 0: the format does not exist at this depth
    unsigned rowAlignment = 1;      ///< bytes that a row is filled up to a multiple of
    std::uint16_t bitsPerPixel = 0; ///< on average
    iGPUImage::eFormat texels = iGPUImage::eARGB8; ///< of the GPU image that holds such rows
    Packing packing = Packing::Samples;            ///< how the bits of a block lie
};

/// Which components a format has.
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

/// The depths at which a format is read and written, zeros at the end.
using Depths = std::array<std::uint16_t, 3>;

/// One pixel format. The layouts are those of a row of the first plane.
struct FormatInfo
{
    Image::Format format;     ///< the code
    const char* name;         ///< for people; lives for ever
    const char* word;         ///< its name on a command line: lower case, unique
    const char* order;        ///< its components in memory, or its planes: "Y0 Cb Y1 Cr"
    FormatKind kind;          ///< RGB or YCrCb
    Planes planes;            ///< how many
    std::uint16_t usualDepth; ///< bits per component that a description without any means
    RowLayout upTo8Bits;      ///< at 1 to 8 bits per component
    RowLayout at10Bits;       ///< at 10 bits per component
    RowLayout otherDepths;    ///< 9 to 16 bits, in 16-bit words
    Depths depths;            ///< at which it is read and written
    const char* note;         ///< peculiarities, such as a code that means something else in other software

    /// Returns the layout at a depth; blockBytes is 0 if there is none.
    QX_API const RowLayout& layout(unsigned bitsPerComponent) const;
    QX_API bool hasDepth(unsigned bitsPerComponent) const; ///< Returns whether the format exists at a depth.
};

/// Bits of one component in a block of pixels, or, where a component is split, a part of them.
struct ComponentBits
{
    std::string component; ///< "R", "Y0", "Cb": numbered if a block has several pairs
    unsigned bit = 0;      ///< the lowest, counted from bit 0 of the block's first byte on
    unsigned bits = 0;     ///< how many
    unsigned valueBit = 0; ///< which bit of the component's value the lowest is
};

/// The components of a block of the first plane, in memory order; for a planar format the component of each
/// plane in turn, at bit 0.
QX_API std::vector<ComponentBits> componentsOf(const FormatInfo& info, unsigned bitsPerComponent);

/// Every known format.
QX_API std::span<const FormatInfo> formatTable();

/// Null for an unknown code.
QX_API const FormatInfo* findFormat(Image::Format format);

} // namespace Qx::Host
