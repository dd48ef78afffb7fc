#include "host/luts/Baking.h"

#include "host/luts/LUTReader.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <set>

namespace Qx::Host::Luts {

namespace {

constexpr std::size_t greys = 16384;
constexpr std::size_t colours = 16384;

float between(const TableDomain& domain, std::size_t c, double part)
{
    const double low = static_cast<double>(domain.min[c]);
    return static_cast<float>(low + part * (static_cast<double>(domain.max[c]) - low));
}

Colour colourAt(const TableDomain& domain, double r, double g, double b)
{
    return {between(domain, 0, r), between(domain, 1, g), between(domain, 2, b)};
}

/// Grey ramps, one of them through the knots, and colours without a pattern, the same every time.
std::vector<Colour> trials(const TableDomain& domain, std::size_t knots)
{
    std::vector<Colour> result;
    for (const std::size_t steps : {greys, std::max<std::size_t>(knots, 2) - 1}) {
        for (std::size_t i = 0; i <= steps; ++i) {
            const double part = static_cast<double>(i) / static_cast<double>(steps);
            result.push_back(colourAt(domain, part, part, part));
        }
    }
    std::mt19937 random(1); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same colours are wanted every time
    const auto part = [&] {
        return static_cast<double>(random()) / static_cast<double>(std::mt19937::max());
    };
    for (std::size_t i = 0; i < colours; ++i) {
        const double r = part();
        const double g = part();
        result.push_back(colourAt(domain, r, g, part()));
    }
    return result;
}

Qx::Ptr<Table> onGrid(const Evaluation& evaluate, const TableDomain& domain, int size)
{
    const Qx::Ptr<Table> table = Qx::makePtr<Table>(size, domain);
    const auto edge = static_cast<std::size_t>(size);
    const double last = static_cast<double>(size - 1);
    std::vector<Colour> plane(edge * edge);
    for (std::size_t b = 0; b < edge; ++b) {
        for (std::size_t g = 0; g < edge; ++g) {
            for (std::size_t r = 0; r < edge; ++r) {
                plane[g * edge + r] = colourAt(domain, static_cast<double>(r) / last,
                                               static_cast<double>(g) / last, static_cast<double>(b) / last);
            }
        }
        evaluate(plane.data(), plane.size());
        for (std::size_t i = 0; i < plane.size(); ++i) {
            table->set(b * plane.size() + i, plane[i]);
        }
    }
    return table;
}

double worstDifference(const iHostImage3D& table, const std::vector<Colour>& places,
                       const std::vector<Colour>& exact)
{
    double worst = 0.0;
    for (std::size_t i = 0; i < places.size(); ++i) {
        const Colour got = lookUp(table, places[i]);
        for (std::size_t c = 0; c < 3; ++c) {
            const double difference =
                std::abs(static_cast<double>(got[c]) - static_cast<double>(exact[i][c]));
            if (!std::isfinite(difference)) {
                return std::numeric_limits<double>::infinity();
            }
            worst = std::max(worst, difference);
        }
    }
    return worst;
}

} // namespace

Baked bake(const Evaluation& evaluate, const TableDomain& domain, const std::vector<int>& sizes,
           std::size_t knots)
{
    std::set<int> candidates{2, 17, 33, 65, mostTableEdge};
    for (const int size : sizes) {
        if (size >= 2 && size <= mostTableEdge) {
            candidates.insert(size);
        }
    }
    const std::vector<Colour> places = trials(domain, knots);
    std::vector<Colour> exact = places;
    evaluate(exact.data(), exact.size());
    Baked baked;
    for (const int size : candidates) {
        baked.table = onGrid(evaluate, domain, size);
        baked.error = untriedMargin * worstDifference(*baked.table, places, exact);
        if (baked.error <= largestLUTError) {
            break;
        }
    }
    return baked;
}

} // namespace Qx::Host::Luts
