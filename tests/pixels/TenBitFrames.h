#pragma once

#include "tests/pixels/HostFrames.h"

#include <cstdint>
#include <vector>

/// 10-bit 4:2:2 in the layouts of cards and files, packed on the CPU bit by bit.
namespace Qx::Pixels {

struct TenBitCodes
{
    unsigned width = 0;                           ///< in pixels
    std::vector<std::vector<std::uint16_t>> rows; ///< Y0 Cb Y1 Cr of each pair, of a half one too

    static TenBitCodes random(unsigned width, unsigned height);
    /// Every code in each component.
    static TenBitCodes everyCode();

    std::size_t pairs() const { return (std::size_t{width} + 1) / 2; }
    unsigned height() const { return static_cast<unsigned>(rows.size()); }
};

/// What lies behind the picture is 0.
Rows packV210(const TenBitCodes& codes);
Rows packM101(const TenBitCodes& codes);
Rows packDvs(const TenBitCodes& codes);

/// The codes as rows of Y0 Cb Y1 Cr in 16 bits, the upper ones used; and in 8 bits, rounded to nearest or
/// cut.
Rows as16Bits(const TenBitCodes& codes);
Rows as8Bits(const TenBitCodes& codes, bool rounded);

} // namespace Qx::Pixels
