#pragma once

#include <cstdint>
#include <vector>

namespace Qx::Media {

/// The order of the samples of a pair in memory.
enum class PairOrder
{
    yuyv, ///< Y0 Cb Y1 Cr
    uyvy, ///< Cb Y0 Cr Y1
    yvyu, ///< Y0 Cr Y1 Cb
    vyuy  ///< Cr Y1 Cb Y0
};

/// Interleaves plain rows into pairs of that order: `pairs` pairs, y has 2 x pairs samples.
void packRow8(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr, std::uint8_t* out,
              int pairs, PairOrder order);
/// The same for words, each shifted left.
void packRow16(const std::uint16_t* y, const std::uint16_t* cb, const std::uint16_t* cr, std::uint16_t* out,
               int pairs, int shift, PairOrder order);
/// Bytes to words, each shifted left.
void packRow8To16(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr, std::uint16_t* out,
                  int pairs, int shift, PairOrder order);

/// What is written for each code of a source: a power of two of entries. Bits of a sample beyond these are
/// ignored.
struct PackTables
{
    std::vector<std::uint16_t> luma;
    std::vector<std::uint16_t> chroma;
};

/// The same by tables, from bytes or words (`wideFrom`) to bytes or words (`wideTo`).
void packRowByTables(const void* y, const void* cb, const void* cr, bool wideFrom, void* out, bool wideTo,
                     int pairs, const PackTables& tables, PairOrder order);

} // namespace Qx::Media
