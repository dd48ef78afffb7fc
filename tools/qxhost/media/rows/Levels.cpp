#include "tools/qxhost/media/rows/Levels.h"

#include <algorithm>

namespace Qx::Media {

namespace {

std::int64_t largest(int bits)
{
    return (std::int64_t{1} << bits) - 1;
}

std::uint16_t byPowersOfTwo(unsigned code, int from, int to)
{
    if (to >= from) {
        return static_cast<std::uint16_t>(code << (to - from));
    }
    const unsigned half = 1U << (from - to - 1);
    return static_cast<std::uint16_t>(std::min<std::int64_t>((code + half) >> (from - to), largest(to)));
}

/// Scales the distance from zero by the ratio of the largest codes. These are odd, so nothing lies half way.
std::uint16_t byLargestCodes(unsigned code, int from, int to, std::int64_t zeroFrom, std::int64_t zeroTo)
{
    const std::int64_t scaled =
        zeroTo * largest(from) + (std::int64_t{code} - zeroFrom) * largest(to) + largest(from) / 2;
    return static_cast<std::uint16_t>(
        std::clamp<std::int64_t>(std::max<std::int64_t>(scaled, 0) / largest(from), 0, largest(to)));
}

} // namespace

std::uint16_t codeAtDepth(unsigned code, int from, int to, Range range)
{
    return range == Range::video ? byPowersOfTwo(code, from, to) : byLargestCodes(code, from, to, 0, 0);
}

std::uint16_t chromaAtDepth(unsigned code, int from, int to, Range range)
{
    return range == Range::video
               ? byPowersOfTwo(code, from, to)
               : byLargestCodes(code, from, to, std::int64_t{1} << (from - 1), std::int64_t{1} << (to - 1));
}

} // namespace Qx::Media
