#include "host/luts/InverseTable.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <vector>

namespace Qx::Host::Luts {

namespace {

using Place = std::array<std::size_t, 3>;

constexpr std::size_t mostCellsOfBucket = 1024;
constexpr std::size_t mostCells = 4'000'000;

/// With one more entry at each end of each axis: OpenColorIO extends a table so before it inverts it.
Qx::Ptr<Table> extended(const iHostImage3D& source)
{
    const auto edge = static_cast<std::size_t>(source.getSize());
    const std::size_t wide = edge + 2;
    const Qx::Ptr<Table> table = Qx::makePtr<Table>(static_cast<int>(wide), TableDomain{});
    for (std::size_t i = 0; i < wide * wide * wide; ++i) {
        const Place at{i % wide, i / wide % wide, i / wide / wide};
        std::size_t from = 0;
        bool outside = false;
        for (std::size_t c = 3; c-- > 0;) {
            from = from * edge + std::clamp<std::size_t>(at[c], 1, edge) - 1;
            outside = outside || at[c] == 0 || at[c] == edge + 1;
        }
        Colour colour{};
        for (std::size_t c = 0; c < 3; ++c) {
            const float value = source.getData()[4 * from + c];
            colour[c] = outside ? (value - 0.5F) * 4.0F + 0.5F : value;
        }
        table->set(i, colour);
    }
    return table;
}

/// The order in which OpenColorIO searches the cells: where several have a colour, the first one counts.
std::size_t rank(const Place& cell)
{
    std::size_t result = 0;
    for (std::size_t bit = 0; bit < 8; ++bit) {
        for (std::size_t c = 0; c < 3; ++c) {
            result |= (cell[c] >> bit & 1U) << (3 * bit + c);
        }
    }
    return result;
}

/// Whether a cell is beyond two or three faces of the source. All its corners are then in one plane, which
/// the cells beyond one face cover from both sides; a colour in it would be at any place along that edge.
bool isFlat(const Place& cell, std::size_t cellsAlong)
{
    return std::count_if(cell.begin(), cell.end(),
                         [&](std::size_t at) { return at == 0 || at + 1 == cellsAlong; }) > 1;
}

struct Bounds
{
    Place first{};
    Place last{};
    bool inside = true;
};

/// The buckets that a cell's colours can be in.
Bounds bucketsOf(const iHostImage3D& table, const Place& cell, int buckets)
{
    constexpr float slack = 1e-5F;
    const auto edge = static_cast<std::size_t>(table.getSize());
    Bounds bounds;
    for (std::size_t c = 0; c < 3; ++c) {
        float low = std::numeric_limits<float>::max();
        float high = std::numeric_limits<float>::lowest();
        for (std::size_t corner = 0; corner < 8; ++corner) {
            const std::size_t at = cell[0] + (corner & 1U) +
                                   edge * (cell[1] + (corner >> 1U & 1U) + edge * (cell[2] + (corner >> 2U)));
            low = std::min(low, table.getData()[4 * at + c]);
            high = std::max(high, table.getData()[4 * at + c]);
        }
        bounds.inside = bounds.inside && high >= -slack && low <= 1.0F + slack;
        const auto bucket = [&](float value) {
            const float place = std::clamp(value, 0.0F, 1.0F) * static_cast<float>(buckets);
            return static_cast<std::size_t>(std::min(place, static_cast<float>(buckets - 1)));
        };
        bounds.first[c] = bucket(low - slack);
        bounds.last[c] = bucket(high + slack);
    }
    return bounds;
}

/// Stops where `use` returns false, and returns whether it never did.
template <class Use>
bool forEachBucket(const Bounds& bounds, int buckets, Use&& use)
{
    const auto edge = static_cast<std::size_t>(buckets);
    for (std::size_t b = bounds.first[2]; bounds.inside && b <= bounds.last[2]; ++b) {
        for (std::size_t g = bounds.first[1]; g <= bounds.last[1]; ++g) {
            for (std::size_t r = bounds.first[0]; r <= bounds.last[0]; ++r) {
                if (!use(r + edge * (g + edge * b))) {
                    return false;
                }
            }
        }
    }
    return true;
}

} // namespace

std::optional<LUTInverse> inverseOf(const iHostImage3D& table)
{
    LUTInverse inverse;
    const Qx::Ptr<Table> wide = extended(table);
    inverse.table = wide;
    inverse.buckets = std::clamp(table.getSize() - 1, 16, 48);
    const auto cellsAlong = static_cast<std::size_t>(wide->getSize() - 1);
    std::vector<Place> cells;
    for (std::size_t i = 0; i < cellsAlong * cellsAlong * cellsAlong; ++i) {
        const Place cell{i % cellsAlong, i / cellsAlong % cellsAlong, i / cellsAlong / cellsAlong};
        if (!isFlat(cell, cellsAlong)) {
            cells.push_back(cell);
        }
    }
    std::sort(cells.begin(), cells.end(), [](const Place& a, const Place& b) { return rank(a) < rank(b); });
    std::vector<std::size_t> counts(entriesOf(inverse.buckets), 0);
    std::size_t all = 0;
    for (const Place& cell : cells) {
        const bool few =
            forEachBucket(bucketsOf(*wide, cell, inverse.buckets), inverse.buckets, [&](std::size_t bucket) {
                return ++all <= mostCells && ++counts[bucket] <= mostCellsOfBucket;
            });
        if (!few) {
            return std::nullopt;
        }
    }
    inverse.firsts.push_back(0);
    for (const std::size_t count : counts) {
        inverse.firsts.push_back(static_cast<std::uint32_t>(inverse.firsts.back() + count));
    }
    inverse.cells.resize(inverse.firsts.back());
    std::vector<std::uint32_t> next(inverse.firsts.begin(), inverse.firsts.end() - 1);
    for (const Place& cell : cells) {
        forEachBucket(bucketsOf(*wide, cell, inverse.buckets), inverse.buckets, [&](std::size_t bucket) {
            std::array<std::uint8_t, 3>& entry = inverse.cells[next[bucket]++];
            for (std::size_t c = 0; c < 3; ++c) {
                entry[c] = static_cast<std::uint8_t>(cell[c]);
            }
            return true;
        });
    }
    return inverse;
}

} // namespace Qx::Host::Luts
