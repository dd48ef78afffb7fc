#include "tools/qxhost/media/rows/PackRows.h"

#include <cstddef>

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

template <class In, class Out>
void packByTables(const void* y, const void* cb, const void* cr, void* out, int pairs,
                  const PackTables& tables)
{
    const auto* luma = static_cast<const In*>(y);
    const auto* blue = static_cast<const In*>(cb);
    const auto* red = static_cast<const In*>(cr);
    auto* to = static_cast<Out*>(out);
    const std::size_t mask = tables.luma.size() - 1;
    for (int i = 0; i < pairs; ++i) {
        to[4 * i + 0] = static_cast<Out>(tables.luma[luma[2 * i] & mask]);
        to[4 * i + 1] = static_cast<Out>(tables.chroma[blue[i] & mask]);
        to[4 * i + 2] = static_cast<Out>(tables.luma[luma[2 * i + 1] & mask]);
        to[4 * i + 3] = static_cast<Out>(tables.chroma[red[i] & mask]);
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

void packRowByTables(const void* y, const void* cb, const void* cr, bool wideFrom, void* out, bool wideTo,
                     int pairs, const PackTables& tables)
{
    const auto pack =
        wideFrom
            ? (wideTo ? packByTables<std::uint16_t, std::uint16_t>
                      : packByTables<std::uint16_t, std::uint8_t>)
            : (wideTo ? packByTables<std::uint8_t, std::uint16_t> : packByTables<std::uint8_t, std::uint8_t>);
    pack(y, cb, cr, out, pairs, tables);
}

} // namespace Qx::Media
