#pragma once

#include <cstdint>

namespace Qx::Media {

/// Interleaves plain rows into pairs Y0 Cb Y1 Cr: `pairs` pairs, y has 2 x pairs samples.
void packRow8(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr, std::uint8_t* out,
              int pairs);
/// The same for words, each shifted left.
void packRow16(const std::uint16_t* y, const std::uint16_t* cb, const std::uint16_t* cr, std::uint16_t* out,
               int pairs, int shift);
/// Bytes to words, each shifted left.
void packRow8To16(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr, std::uint16_t* out,
                  int pairs, int shift);

} // namespace Qx::Media
