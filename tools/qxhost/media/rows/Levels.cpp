#include "tools/qxhost/media/rows/Levels.h"

#include <algorithm>
#include <cmath>

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

/// A code's distance from `zeroFrom` as a part of `codesFrom`, at the other end.
std::uint16_t byParts(unsigned code, double zeroFrom, double codesFrom, double zeroTo, double codesTo,
                      int bits)
{
    const double level = (code - zeroFrom) / codesFrom;
    return static_cast<std::uint16_t>(
        std::clamp(std::floor(zeroTo + level * codesTo + 0.5), 0.0, static_cast<double>(largest(bits))));
}

/// Codes of 8 bits at this depth (ITU-T H.273, 8.3).
double videoCodes(double codes, int bits)
{
    return std::ldexp(codes, bits - 8);
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

std::uint16_t codeOfLevel(unsigned code, const Coding& from, const Coding& to)
{
    if (from.range == to.range) {
        return codeAtDepth(code, from.bits, to.bits, to.range);
    }
    const auto black = [](const Coding& coding) {
        return coding.range == Range::video ? videoCodes(16, coding.bits) : 0.0;
    };
    const auto codes = [](const Coding& coding) {
        return coding.range == Range::video ? videoCodes(219, coding.bits)
                                            : static_cast<double>(largest(coding.bits));
    };
    return byParts(code, black(from), codes(from), black(to), codes(to), to.bits);
}

std::uint16_t chromaOfLevel(unsigned code, const Coding& from, const Coding& to)
{
    if (from.range == to.range) {
        return chromaAtDepth(code, from.bits, to.bits, to.range);
    }
    const auto codes = [](const Coding& coding) {
        return coding.range == Range::video ? videoCodes(224, coding.bits)
                                            : static_cast<double>(largest(coding.bits));
    };
    return byParts(code, std::ldexp(1.0, from.bits - 1), codes(from), std::ldexp(1.0, to.bits - 1), codes(to),
                   to.bits);
}

} // namespace Qx::Media
