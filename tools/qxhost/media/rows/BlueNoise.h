#pragma once

#include "tools/qxhost/media/MediaTypes.h"

#include <cstdint>

namespace Qx::Media {

/// How codes of 16 bits become codes of 8.
struct Narrowing
{
    Range range = Range::full; ///< of both
    bool isChroma = false;     ///< Cb or Cr, whose zero lies between the ends
    int plane = 0;             ///< 0 to 2; each has the pattern in another place
};

/// Narrows the codes of columns [first, first + count) of a row. Each is rounded up if its fraction is at
/// least the threshold that a fixed pattern of blue noise, 64 pixels wide and high, has at its place: the
/// mean of a surface is kept, and no code is off by a whole one. The first call makes the pattern.
/// Thread-safe.
void narrowWithBlueNoise(const std::uint16_t* codes, std::uint8_t* to, int row, int first, int count,
                         const Narrowing& how);

} // namespace Qx::Media
