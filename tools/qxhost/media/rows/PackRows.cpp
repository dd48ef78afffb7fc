#include "tools/qxhost/media/rows/PackRows.h"

#include <cstddef>

namespace Qx::Media {

namespace {

/// Where in a pair its samples lie.
struct Places
{
    int firstLuma;
    int blue;
    int secondLuma;
    int red;
};

constexpr Places yuyvPlaces{0, 1, 2, 3};
constexpr Places uyvyPlaces{1, 0, 3, 2};
constexpr Places yvyuPlaces{0, 3, 2, 1};
constexpr Places vyuyPlaces{3, 2, 1, 0};

/// Calls `pack` with the places of that order, which the compiler knows in each of its copies.
template <class Pack>
void inOrder(PairOrder order, const Pack& pack)
{
    switch (order) {
    case PairOrder::yuyv:
        return pack.template operator()<yuyvPlaces>();
    case PairOrder::uyvy:
        return pack.template operator()<uyvyPlaces>();
    case PairOrder::yvyu:
        return pack.template operator()<yvyuPlaces>();
    case PairOrder::vyuy:
        return pack.template operator()<vyuyPlaces>();
    }
}

// One loop body with four stores: the compiler turns it into vector interleaves.
template <Places places, class In, class Out>
void interleave(const In* __restrict y, const In* __restrict cb, const In* __restrict cr, Out* __restrict out,
                int pairs, int shift)
{
    for (int i = 0; i < pairs; ++i) {
        out[4 * i + places.firstLuma] = static_cast<Out>(y[2 * i] << shift);
        out[4 * i + places.blue] = static_cast<Out>(cb[i] << shift);
        out[4 * i + places.secondLuma] = static_cast<Out>(y[2 * i + 1] << shift);
        out[4 * i + places.red] = static_cast<Out>(cr[i] << shift);
    }
}

template <class In, class Out>
void pack(const In* y, const In* cb, const In* cr, Out* out, int pairs, int shift, PairOrder order)
{
    inOrder(order, [&]<Places places> { interleave<places>(y, cb, cr, out, pairs, shift); });
}

template <Places places, class In, class Out>
void interleaveByTables(const void* y, const void* cb, const void* cr, void* out, int pairs,
                        const PackTables& tables)
{
    const auto* luma = static_cast<const In*>(y);
    const auto* blue = static_cast<const In*>(cb);
    const auto* red = static_cast<const In*>(cr);
    auto* to = static_cast<Out*>(out);
    const std::size_t mask = tables.luma.size() - 1;
    for (int i = 0; i < pairs; ++i) {
        to[4 * i + places.firstLuma] = static_cast<Out>(tables.luma[luma[2 * i] & mask]);
        to[4 * i + places.blue] = static_cast<Out>(tables.chroma[blue[i] & mask]);
        to[4 * i + places.secondLuma] = static_cast<Out>(tables.luma[luma[2 * i + 1] & mask]);
        to[4 * i + places.red] = static_cast<Out>(tables.chroma[red[i] & mask]);
    }
}

} // namespace

void packRow8(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr, std::uint8_t* out,
              int pairs, PairOrder order)
{
    pack(y, cb, cr, out, pairs, 0, order);
}

void packRow16(const std::uint16_t* y, const std::uint16_t* cb, const std::uint16_t* cr, std::uint16_t* out,
               int pairs, int shift, PairOrder order)
{
    pack(y, cb, cr, out, pairs, shift, order);
}

void packRow8To16(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr, std::uint16_t* out,
                  int pairs, int shift, PairOrder order)
{
    pack(y, cb, cr, out, pairs, shift, order);
}

void packRowByTables(const void* y, const void* cb, const void* cr, bool wideFrom, void* out, bool wideTo,
                     int pairs, const PackTables& tables, PairOrder order)
{
    using Byte = std::uint8_t;
    using Word = std::uint16_t;
    inOrder(order, [&]<Places places> {
        const auto pack =
            wideFrom
                ? (wideTo ? interleaveByTables<places, Word, Word> : interleaveByTables<places, Word, Byte>)
                : (wideTo ? interleaveByTables<places, Byte, Word> : interleaveByTables<places, Byte, Byte>);
        pack(y, cb, cr, out, pairs, tables);
    });
}

} // namespace Qx::Media
