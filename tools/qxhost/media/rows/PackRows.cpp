#include "tools/qxhost/media/rows/PackRows.h"

namespace Qx::Media {

namespace {

// One loop body with the four stores in a fixed order: the compiler turns it into vector interleaves.
template <class In, class Out>
void pack(const In* __restrict y, const In* __restrict cb, const In* __restrict cr, Out* __restrict out,
          int pairs, int shift)
{
    for (int i = 0; i < pairs; ++i) {
        out[4 * i + 0] = static_cast<Out>(y[2 * i] << shift);
        out[4 * i + 1] = static_cast<Out>(cb[i] << shift);
        out[4 * i + 2] = static_cast<Out>(y[2 * i + 1] << shift);
        out[4 * i + 3] = static_cast<Out>(cr[i] << shift);
    }
}

} // namespace

void packRow8(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr, std::uint8_t* out,
              int pairs)
{
    pack(y, cb, cr, out, pairs, 0);
}

void packRow16(const std::uint16_t* y, const std::uint16_t* cb, const std::uint16_t* cr, std::uint16_t* out,
               int pairs, int shift)
{
    pack(y, cb, cr, out, pairs, shift);
}

void packRow8To16(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr, std::uint16_t* out,
                  int pairs, int shift)
{
    pack(y, cb, cr, out, pairs, shift);
}

} // namespace Qx::Media
