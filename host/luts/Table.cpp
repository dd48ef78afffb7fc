#include "host/luts/Table.h"

#include "host/luts/LUTReader.h"

#include <algorithm>
#include <cmath>

namespace Qx::Host {

namespace Luts {

Table::Table(int size, const TableDomain& domain)
    : size_(size), domain_(domain), entries_(4 * entriesOf(size), 0.0F)
{
    for (std::size_t i = 3; i < entries_.size(); i += 4) {
        entries_[i] = 1.0F;
    }
}

void Table::set(std::size_t i, const Colour& colour)
{
    std::copy(colour.begin(), colour.end(), entries_.begin() + static_cast<std::ptrdiff_t>(4 * i));
}

std::size_t entriesOf(int size)
{
    const auto edge = static_cast<std::size_t>(size);
    return edge * edge * edge;
}

} // namespace Luts

std::array<float, 3> lookUp(const iHostImage3D& table, const std::array<float, 3>& colour)
{
    const auto edge = static_cast<std::size_t>(table.getSize());
    const std::array<std::size_t, 3> strides{4, 4 * edge, 4 * edge * edge};
    const TableDomain domain = table.getDomain();
    std::array<std::pair<float, std::size_t>, 3>
        steps; // how far along an axis, and the way to the next entry
    const float* at = table.getData();
    for (std::size_t c = 0; c < 3; ++c) {
        const float part = (colour[c] - domain.min[c]) / (domain.max[c] - domain.min[c]);
        // This order of comparisons takes a colour that is no number to the first entry.
        const float place = static_cast<float>(edge - 1) * (part > 0.0F ? std::min(part, 1.0F) : 0.0F);
        const float low = std::min(std::floor(place), static_cast<float>(edge - 2));
        at += static_cast<std::size_t>(low) * strides[c];
        steps[c] = {place - low, strides[c]};
    }
    std::sort(steps.begin(), steps.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    std::array<float, 3> result{};
    for (std::size_t c = 0; c < 3; ++c) {
        const float* corner = at;
        double sum = (1.0 - static_cast<double>(steps[0].first)) * static_cast<double>(corner[c]);
        for (std::size_t i = 0; i < 3; ++i) {
            corner += steps[i].second;
            const float next = i < 2 ? steps[i + 1].first : 0.0F;
            sum += (static_cast<double>(steps[i].first) - static_cast<double>(next)) *
                   static_cast<double>(corner[c]);
        }
        result[c] = static_cast<float>(sum);
    }
    return result;
}

} // namespace Qx::Host
