#include "tools/qxhost/media/rows/BlueNoise.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <vector>

namespace Qx::Media {

namespace {

constexpr std::size_t side = 64;
constexpr std::size_t cells = side * side;

/// Ranks the cells of a square that repeats, so that those below any rank are spread evenly: the method of
/// void and cluster (R. Ulichney, Proc. SPIE 1913, 1993). Each cell that is set adds a bell to the density
/// around it; the next one is set in the largest void, where the density is least.
class VoidAndCluster
{
public:
    VoidAndCluster() : ranks_(cells), density_(cells), isSet_(cells)
    {
        constexpr double sigma = 1.5;
        for (std::size_t y = 0; y < side; ++y) {
            for (std::size_t x = 0; x < side; ++x) {
                const auto dx = static_cast<double>(std::min(x, side - x));
                const auto dy = static_cast<double>(std::min(y, side - y));
                bell_.at(y * side + x) = std::exp(-(dx * dx + dy * dy) / (2 * sigma * sigma));
            }
        }
    }

    std::vector<std::uint16_t> ranks()
    {
        spreadFirst();
        const std::vector<bool> first = isSet_;
        const std::vector<double> density = density_;
        for (std::size_t rank = firstCells; rank-- > 0;) {
            const std::size_t cell = tightest();
            ranks_[cell] = static_cast<std::uint16_t>(rank);
            change(cell);
        }
        isSet_ = first;
        density_ = density;
        for (std::size_t rank = firstCells; rank < cells; ++rank) {
            const std::size_t cell = largestVoid();
            ranks_[cell] = static_cast<std::uint16_t>(rank);
            change(cell);
        }
        return ranks_;
    }

private:
    static constexpr std::size_t firstCells = cells / 10;

    /// Sets the first cells anywhere, and moves them from clusters to voids until that changes nothing.
    void spreadFirst()
    {
        std::uint32_t seed = 1;
        for (std::size_t count = 0; count < firstCells;) {
            seed = seed * 1664525 + 1013904223;
            const std::size_t cell = (seed >> 16U) % cells;
            if (!isSet_[cell]) {
                change(cell);
                ++count;
            }
        }
        for (;;) {
            const std::size_t from = tightest();
            change(from);
            const std::size_t to = largestVoid();
            change(to);
            if (from == to) {
                return;
            }
        }
    }

    void change(std::size_t cell)
    {
        const double weight = isSet_[cell] ? -1 : 1;
        isSet_[cell] = !isSet_[cell];
        const std::size_t x0 = cell % side;
        const std::size_t y0 = cell / side;
        for (std::size_t y = 0; y < side; ++y) {
            const double* row = &bell_[(y + side - y0) % side * side];
            for (std::size_t x = 0; x < side; ++x) {
                density_[y * side + x] += weight * row[(x + side - x0) % side];
            }
        }
    }

    std::size_t tightest() const
    {
        std::size_t best = cells;
        for (std::size_t i = 0; i < cells; ++i) {
            if (isSet_[i] && (best == cells || density_[i] > density_[best])) {
                best = i;
            }
        }
        return best;
    }

    std::size_t largestVoid() const
    {
        std::size_t best = cells;
        for (std::size_t i = 0; i < cells; ++i) {
            if (!isSet_[i] && (best == cells || density_[i] < density_[best])) {
                best = i;
            }
        }
        return best;
    }

    std::array<double, cells> bell_{};
    std::vector<std::uint16_t> ranks_;
    std::vector<double> density_;
    std::vector<bool> isSet_;
};

const std::vector<std::uint16_t>& noisePattern()
{
    static const std::vector<std::uint16_t> ranks = VoidAndCluster().ranks();
    return ranks;
}

/// Where in the pattern each plane begins, so that the errors of components do not fall on each other.
struct Beginning
{
    std::size_t x;
    std::size_t y;
};
constexpr std::array<Beginning, 3> beginnings{{{0, 0}, {23, 41}, {47, 19}}};

} // namespace

void narrowWithBlueNoise(const std::uint16_t* codes, std::uint8_t* to, int row, int first, int count,
                         const Narrowing& how)
{
    const Beginning& beginning = beginnings.at(static_cast<std::size_t>(how.plane));
    const std::uint16_t* ranks = &noisePattern()[(static_cast<std::size_t>(row) + beginning.y) % side * side];
    // Video range and its depths are powers of two apart; full range ends at 255 and 65535.
    const int step = how.range == Range::video ? 256 : 257;
    const int zero = how.isChroma && how.range == Range::full ? 32768 : 0;
    const int zeroMade = zero / 256;
    constexpr int largest = 255;
    constexpr int scale = static_cast<int>(cells) * 2; // thresholds lie between whole ranks
    for (int i = 0; i < count; ++i) {
        const std::size_t x = (static_cast<std::size_t>(first + i) + beginning.x) % side;
        // floor((code - zero) / step + (rank + 1/2) / cells), of a number that is not negative
        const std::int64_t shifted = std::int64_t{codes[i]} - zero + std::int64_t{step} * zeroMade;
        const std::int64_t sum = shifted * scale + std::int64_t{step} * (2 * ranks[x] + 1);
        const std::int64_t code = sum / (std::int64_t{step} * scale);
        to[i] = static_cast<std::uint8_t>(std::clamp<std::int64_t>(code, 0, largest));
    }
}

} // namespace Qx::Media
