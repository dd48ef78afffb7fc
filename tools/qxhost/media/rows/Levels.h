#pragma once

#include "tools/qxhost/media/MediaTypes.h"

#include <cstdint>

namespace Qx::Media {

/// The code of `to` bits at the level of a code of `from` bits, 1 to 16 each, rounded to nearest.
///
/// Levels are those of ITU-T H.273, 8.3. In video range a level's codes differ by powers of two from depth to
/// depth; a half is rounded up. In full range black is 0 and white the largest code at every depth, so that
/// they differ by the ratio of the largest codes.
std::uint16_t codeAtDepth(unsigned code, int from, int to, Range range);

/// The same for Cb and Cr, whose zero is half of the codes at every depth and in both ranges.
std::uint16_t chromaAtDepth(unsigned code, int from, int to, Range range);

/// How codes stand for levels.
struct Coding
{
    int bits = 8; ///< 8 to 16
    Range range = Range::video;
};

/// The code of the same level, rounded to nearest; levels that the other range does not hold become its
/// outermost codes. Within one range, codeAtDepth() and chromaAtDepth().
std::uint16_t codeOfLevel(unsigned code, const Coding& from, const Coding& to);
std::uint16_t chromaOfLevel(unsigned code, const Coding& from, const Coding& to);

} // namespace Qx::Media
