#include "host/luts/LUTSteps.h"

#include "host/luts/LUTReader.h"
#include "host/luts/Table.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

namespace Qx::Host {

namespace {

using Luts::Colour;

/// How a curve's input becomes a place among its points: LUT.fx has the same arithmetic.
struct Placing
{
    explicit Placing(const LUTCurves& curves) : roots(curves.roots)
    {
        for (std::size_t c = 0; c < 3; ++c) {
            low[c] = spread(curves.domain.min[c]);
            const double extent =
                static_cast<double>(spread(curves.domain.max[c])) - static_cast<double>(low[c]);
            scale[c] = static_cast<float>(static_cast<double>(curves.points.size() - 1) / extent);
        }
    }

    float spread(float x) const
    {
        float root = std::abs(x);
        for (int i = 0; i < roots; ++i) {
            root = std::sqrt(root);
        }
        return x < 0.0F ? -root : root;
    }

    int roots;
    Colour low{};
    Colour scale{};
};

/// What rounding can move a code by, as a share of all points.
constexpr float snapping = 1.5e-7F;

float onCurve(const LUTCurves& curves, const Placing& placing, std::size_t c, float x)
{
    const float last = static_cast<float>(curves.points.size() - 1);
    const float raw = (placing.spread(x) - placing.low[c]) * placing.scale[c];
    float place = raw > 0.0F ? std::min(raw, last) : 0.0F;
    const float nearest = std::floor(place + 0.5F);
    place = std::abs(place - nearest) < snapping * last ? nearest : place;
    const float low = std::min(std::floor(place), last - 1.0F);
    const float part = place - low;
    const auto at = static_cast<std::size_t>(low);
    return curves.points[at][c] * (1.0F - part) + curves.points[at + 1][c] * part;
}

Colour through(const LUTCurves& curves, const Colour& in)
{
    const Placing placing(curves);
    Colour out{};
    for (std::size_t c = 0; c < 3; ++c) {
        out[c] = onCurve(curves, placing, c, in[c]);
    }
    if (!curves.keepsHue) {
        return out;
    }
    // The order of equal channels is OpenColorIO's.
    const bool redOverGreen = in[0] > in[1];
    const bool greenOverBlue = in[1] > in[2];
    const bool redOverBlue = in[0] > in[2];
    const std::size_t middle = redOverGreen != redOverBlue ? 0 : greenOverBlue == redOverBlue ? 1 : 2;
    const std::size_t one = middle == 0 ? 1 : 0;
    const std::size_t other = middle == 2 ? 1 : 2;
    const float extent = in[other] - in[one];
    const float share = extent != 0.0F ? (in[middle] - in[one]) / extent : 0.0F;
    out[middle] = out[one] + share * (out[other] - out[one]);
    return out;
}

Colour through(const LUTMatrix& matrix, const Colour& in)
{
    Colour out{};
    for (std::size_t c = 0; c < 3; ++c) {
        const auto& row = matrix.rows[c];
        out[c] = static_cast<float>(row[0]) * in[0] + static_cast<float>(row[1]) * in[1] +
                 static_cast<float>(row[2]) * in[2] + static_cast<float>(row[3]);
    }
    return out;
}

const float* entryAt(const iHostImage3D& table, std::size_t r, std::size_t g, std::size_t b)
{
    const auto edge = static_cast<std::size_t>(table.getSize());
    return table.getData() + 4 * (r + edge * (g + edge * b));
}

Colour trilinear(const iHostImage3D& table, const Colour& in)
{
    const TableDomain domain = table.getDomain();
    const float last = static_cast<float>(table.getSize() - 1);
    std::array<std::size_t, 3> low{};
    Colour part{};
    for (std::size_t c = 0; c < 3; ++c) {
        const float share = (in[c] - domain.min[c]) / (domain.max[c] - domain.min[c]);
        const float place = (share > 0.0F ? std::min(share, 1.0F) : 0.0F) * last;
        const float cell = std::min(std::floor(place), last - 1.0F);
        low[c] = static_cast<std::size_t>(cell);
        part[c] = place - cell;
    }
    Colour out{};
    for (std::size_t corner = 0; corner < 8; ++corner) {
        float weight = 1.0F;
        std::array<std::size_t, 3> at{};
        for (std::size_t c = 0; c < 3; ++c) {
            const std::size_t upper = corner >> c & 1U;
            weight *= upper == 1 ? part[c] : 1.0F - part[c];
            at[c] = low[c] + upper;
        }
        const float* entry = entryAt(table, at[0], at[1], at[2]);
        for (std::size_t c = 0; c < 3; ++c) {
            out[c] += weight * entry[c];
        }
    }
    return out;
}

Colour through(const LUTTable& step, const Colour& in)
{
    return step.trilinear ? trilinear(*step.table, in) : lookUp(*step.table, in);
}

Colour cross(const Colour& a, const Colour& b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

float dot(const Colour& a, const Colour& b)
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

Colour difference(const float* a, const float* b)
{
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}

constexpr float insideEnough = -1e-6F; // rounding between two cells
constexpr float sameColour = 2e-6F;    // rounding, as a share of the numbers that it comes from
constexpr float nearEnough = 1e-3F;    // if no cell has the colour
constexpr float nowhere = 1e30F;

/// A place in a cell, and how far the table's colour there is from the wanted one: 0 up to rounding.
struct Candidate
{
    Colour place{};
    float off = nowhere;
};

using Edges = std::array<Colour, 3>; ///< of a tetrahedron, from its dark corner to the bright one

/// The shares of the edges that come nearest to a colour. The shares of a flat tetrahedron may be anything,
/// so they count only if they add up to the colour.
Candidate placeInTetrahedron(const Colour& missing, const Edges& edges)
{
    const auto& [first, second, third] = edges;
    const Colour across = cross(second, third);
    const float volume = dot(first, across);
    if (volume == 0.0F) {
        return {};
    }
    const float a = dot(missing, across) / volume;
    const float b = dot(missing, cross(third, first)) / volume;
    const float c = dot(missing, cross(first, second)) / volume;
    const float depth = std::min(std::min(1.0F - a, a - b), std::min(b - c, c));
    Candidate candidate;
    float most = 1.0F;
    for (std::size_t i = 0; i < 3; ++i) {
        const float share = i == 0 ? a : (i == 1 ? b : c);
        most = share > 0.0F ? std::min(share, most) : 0.0F;
        candidate.place[i] = most;
    }
    float off = 0.0F;
    float sizes = 0.0F;
    for (std::size_t i = 0; i < 3; ++i) {
        off = std::max(off, std::abs(missing[i] - first[i] * candidate.place[0] -
                                     second[i] * candidate.place[1] - third[i] * candidate.place[2]));
        sizes = std::max(sizes, std::abs(first[i]) + std::abs(second[i]) + std::abs(third[i]));
    }
    const bool has = depth >= insideEnough && off <= sameColour * (1.0F + sizes);
    candidate.off = has ? 0.0F : std::max(off, std::numeric_limits<float>::min());
    return candidate;
}

/// The place in a cell of the table where it comes nearest to the colour. The tetrahedra are told apart by
/// the order in which their axes lead from the dark to the bright corner; OpenColorIO tries them in this
/// sequence too.
Candidate placeInCell(const iHostImage3D& table, const std::array<std::uint8_t, 3>& cell,
                      const Colour& wanted)
{
    constexpr std::array<std::array<std::size_t, 3>, 6> orders{
        {{0, 1, 2}, {1, 0, 2}, {1, 2, 0}, {2, 1, 0}, {2, 0, 1}, {0, 2, 1}}};
    const auto corner = [&](std::array<std::size_t, 3> upper) {
        return entryAt(table, cell[0] + upper[0], cell[1] + upper[1], cell[2] + upper[2]);
    };
    const float* dark = corner({0, 0, 0});
    const float* bright = corner({1, 1, 1});
    const Colour missing = difference(wanted.data(), dark);
    Candidate best;
    for (const auto& order : orders) {
        if (best.off == 0.0F) {
            break;
        }
        std::array<std::size_t, 3> upper{};
        upper[order[0]] = 1;
        const float* one = corner(upper);
        upper[order[1]] = 1;
        const float* two = corner(upper);
        const Candidate found = placeInTetrahedron(
            missing, {difference(one, dark), difference(two, one), difference(bright, two)});
        if (found.off < best.off) {
            best.off = found.off;
            for (std::size_t i = 0; i < 3; ++i) {
                best.place[order[i]] = found.place[i];
            }
        }
    }
    for (std::size_t c = 0; c < 3; ++c) {
        best.place[c] += static_cast<float>(cell[c]);
    }
    return best;
}

Colour through(const LUTInverse& inverse, const Colour& in)
{
    Colour wanted{};
    std::size_t bucket = 0;
    for (std::size_t c = 3; c-- > 0;) {
        wanted[c] = in[c] > 0.0F ? std::min(in[c], 1.0F) : 0.0F;
        const float buckets = static_cast<float>(inverse.buckets);
        const auto at = static_cast<std::size_t>(std::min(wanted[c] * buckets, buckets - 1.0F));
        bucket = bucket * static_cast<std::size_t>(inverse.buckets) + at;
    }
    Candidate best;
    for (std::uint32_t i = inverse.firsts[bucket]; i < inverse.firsts[bucket + 1]; ++i) {
        const Candidate candidate = placeInCell(*inverse.table, inverse.cells[i], wanted);
        best = candidate.off < best.off ? candidate : best;
        if (best.off == 0.0F) {
            break;
        }
    }
    const float last = static_cast<float>(inverse.table->getSize() - 3);
    Colour out{};
    for (std::size_t c = 0; c < 3 && best.off <= nearEnough; ++c) {
        out[c] = std::clamp((best.place[c] - 1.0F) / last, 0.0F, 1.0F);
    }
    return out;
}

/// The kinds of steps, as LUT.fx numbers them.
enum class Kind
{
    curves = 0,
    matrix = 1,
    table = 2,
    inverse = 3,
};

constexpr int headerTexels = 4;

/// Layers that so many texels take, row by row.
int layersFor(std::size_t texels, int edge)
{
    const auto layer = static_cast<std::size_t>(edge) * static_cast<std::size_t>(edge);
    return static_cast<int>((texels + layer - 1) / layer);
}

/// Layers of the image that a step's entries take.
int layersOf(const LUTStep& step, int edge)
{
    if (const auto* curves = std::get_if<LUTCurves>(&step)) {
        return layersFor(curves->points.size(), edge);
    }
    if (const auto* table = std::get_if<LUTTable>(&step)) {
        return table->table->getSize();
    }
    if (const auto* inverse = std::get_if<LUTInverse>(&step)) {
        return inverse->table->getSize() + layersFor(inverse->firsts.size() - 1, edge) +
               layersFor(inverse->cells.size(), edge);
    }
    return 0;
}

int widestOf(const LUTStep& step)
{
    if (const auto* table = std::get_if<LUTTable>(&step)) {
        return table->table->getSize();
    }
    if (const auto* inverse = std::get_if<LUTInverse>(&step)) {
        return inverse->table->getSize();
    }
    return headerTexels;
}

int edgeFor(const LUTSteps& steps)
{
    int edge = std::max(headerTexels, static_cast<int>(steps.size()) + 1);
    for (const LUTStep& step : steps) {
        edge = std::max(edge, widestOf(step));
    }
    constexpr int largest = 256; // what every device has room for
    for (; edge <= largest; ++edge) {
        int layers = 1;
        for (const LUTStep& step : steps) {
            layers += layersOf(step, edge);
        }
        if (layers <= edge) {
            return edge;
        }
    }
    return 0;
}

class Packer
{
public:
    explicit Packer(int edge) : edge_(edge), image_(Qx::makePtr<Luts::Table>(edge, TableDomain{})) {}

    Qx::Ptr<iHostImage3D> pack(const LUTSteps& steps)
    {
        put(0, 0, 0, {static_cast<float>(steps.size()), 0, 0, 0});
        for (const LUTStep& step : steps) {
            ++row_;
            std::visit([this](const auto& known) { add(known); }, step);
            layer_ += layersOf(step, edge_);
        }
        return image_;
    }

private:
    void add(const LUTCurves& curves)
    {
        const Placing placing(curves);
        head(Kind::curves, curves.points.size(), curves.keepsHue);
        put(1, row_, 0, {placing.low[0], placing.low[1], placing.low[2], static_cast<float>(placing.roots)});
        put(2, row_, 0, {placing.scale[0], placing.scale[1], placing.scale[2], 0});
        for (std::size_t i = 0; i < curves.points.size(); ++i) {
            set(layer_, i, curves.points[i]);
        }
    }

    void add(const LUTMatrix& matrix)
    {
        head(Kind::matrix, 0, false);
        for (int i = 0; i < 3; ++i) {
            const auto& row = matrix.rows[static_cast<std::size_t>(i)];
            put(1 + i, row_, 0,
                {static_cast<float>(row[0]), static_cast<float>(row[1]), static_cast<float>(row[2]),
                 static_cast<float>(row[3])});
        }
    }

    void add(const LUTTable& step)
    {
        const TableDomain domain = step.table->getDomain();
        head(Kind::table, static_cast<std::size_t>(step.table->getSize()), step.trilinear);
        put(1, row_, 0, {domain.min[0], domain.min[1], domain.min[2], 0});
        put(2, row_, 0, {domain.max[0], domain.max[1], domain.max[2], 0});
        copy(*step.table, layer_);
    }

    void add(const LUTInverse& inverse)
    {
        const int size = inverse.table->getSize();
        head(Kind::inverse, static_cast<std::size_t>(size), false);
        const int ranges = layer_ + size;
        const int cells = ranges + layersFor(inverse.firsts.size() - 1, edge_);
        put(1, row_, 0,
            {static_cast<float>(ranges), static_cast<float>(cells), static_cast<float>(inverse.buckets), 0});
        copy(*inverse.table, layer_);
        for (std::size_t i = 0; i + 1 < inverse.firsts.size(); ++i) {
            const std::uint32_t first = inverse.firsts[i];
            set(ranges, i, {static_cast<float>(first), static_cast<float>(inverse.firsts[i + 1] - first), 0});
        }
        for (std::size_t i = 0; i < inverse.cells.size(); ++i) {
            const auto& cell = inverse.cells[i];
            set(cells, i,
                {static_cast<float>(cell[0]), static_cast<float>(cell[1]), static_cast<float>(cell[2])});
        }
    }

    void head(Kind kind, std::size_t entries, bool option)
    {
        put(0, row_, 0,
            {static_cast<float>(kind), static_cast<float>(layer_), static_cast<float>(entries),
             option ? 1.0F : 0.0F});
    }

    void copy(const iHostImage3D& table, int layer)
    {
        const auto size = static_cast<std::size_t>(table.getSize());
        const auto edge = static_cast<std::size_t>(edge_);
        for (std::size_t b = 0; b < size; ++b) {
            for (std::size_t g = 0; g < size; ++g) {
                const float* from = entryAt(table, 0, g, b);
                const std::size_t at = edge * (g + edge * (b + static_cast<std::size_t>(layer)));
                std::copy(from, from + 4 * size, image_->getData() + 4 * at);
            }
        }
    }

    /// The i-th texel of the layers that begin at `layer`.
    void set(int layer, std::size_t i, const Colour& colour)
    {
        const auto edge = static_cast<std::size_t>(edge_);
        image_->set(static_cast<std::size_t>(layer) * edge * edge + i, colour);
    }

    void put(int x, int y, int z, const std::array<float, 4>& texel)
    {
        const auto edge = static_cast<std::size_t>(edge_);
        const std::size_t at = static_cast<std::size_t>(x) +
                               edge * (static_cast<std::size_t>(y) + edge * static_cast<std::size_t>(z));
        std::copy(texel.begin(), texel.end(), image_->getData() + 4 * at);
    }

    int edge_;
    Qx::Ptr<Luts::Table> image_;
    int row_ = 0;
    int layer_ = 1; // the first holds the heads
};

} // namespace

std::array<float, 3> apply(const LUTSteps& steps, const std::array<float, 3>& colour)
{
    Colour current = colour;
    for (const LUTStep& step : steps) {
        current = std::visit([&](const auto& known) { return through(known, current); }, step);
    }
    return current;
}

Qx::Ptr<iHostImage3D> singleTable(const LUTSteps& steps)
{
    const auto* table = steps.size() == 1 ? std::get_if<LUTTable>(steps.data()) : nullptr;
    return table != nullptr && !table->trilinear ? table->table : Qx::Ptr<iHostImage3D>();
}

const char* techniqueFor(const LUTSteps& steps)
{
    if (singleTable(steps)) {
        return "LUT";
    }
    std::string kinds;
    for (const LUTStep& step : steps) {
        const auto* curves = std::get_if<LUTCurves>(&step);
        const auto* table = std::get_if<LUTTable>(&step);
        kinds += curves != nullptr && !curves->keepsHue    ? "Curves"
                 : table != nullptr && !table->trilinear   ? "Table"
                 : std::holds_alternative<LUTMatrix>(step) ? "Matrix"
                                                           : "?";
    }
    for (const char* known : {"Curves", "Matrix", "CurvesTable"}) {
        if (kinds == known) {
            return known;
        }
    }
    return "Steps";
}

Qx::Ptr<iHostImage3D> packed(const LUTSteps& steps)
{
    const int edge = edgeFor(steps);
    return edge > 0 ? Packer(edge).pack(steps) : Qx::Ptr<iHostImage3D>();
}

} // namespace Qx::Host
