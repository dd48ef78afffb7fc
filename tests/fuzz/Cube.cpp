#include "host/luts/CubeFile.h"
#include "host/luts/LUTReader.h"
#include "tests/fuzz/Targets.h"

#include <algorithm>
#include <cmath>

namespace Qx::Fuzz {
namespace {

using Host::Luts::Colour;
using Host::Luts::CubeFile;

bool allFinite(const float* numbers, std::size_t count)
{
    return std::all_of(numbers, numbers + count, [](float number) { return std::isfinite(number); });
}

bool isSound(const TableDomain& domain)
{
    for (std::size_t c = 0; c < 3; ++c) {
        if (!std::isfinite(domain.min[c]) || !std::isfinite(domain.max[c]) ||
            domain.min[c] >= domain.max[c]) {
            return false;
        }
    }
    return true;
}

void throughCurves(const CubeFile& cube)
{
    promise(isSound(cube.curvesDomain), "curves over no domain");
    promise(cube.curves.size() >= 2 && cube.curves.size() <= Host::mostCurvePoints, "a count of points");
    promise(allFinite(cube.curves.front().data(), cube.curves.size() * 3), "a point that is no number");
    Colour colours[] = {{0.0F, 0.5F, 1.0F}, {-1e30F, 1e30F, 0.25F}};
    Host::Luts::throughCurves(cube, colours, 2);
    promise(allFinite(colours[0].data(), 6), "a colour that is no number");
}

void throughTable(const iHostImage3D& table)
{
    promise(isSound(table.getDomain()), "a table over no domain");
    promise(table.getSize() >= 2 && table.getSize() <= Host::mostTableEdge, "a table's size");
    promise(allFinite(table.getData(), Host::Luts::entriesOf(table.getSize()) * 4),
            "an entry that is no number");
    for (const Colour& colour : {Colour{0.0F, 0.5F, 1.0F}, Colour{-1e30F, 1e30F, 0.25F}}) {
        promise(allFinite(Host::lookUp(table, colour).data(), 3), "a colour that is no number");
    }
}

} // namespace

void cube(Input input)
{
    const std::string_view text(reinterpret_cast<const char*>(input.data()), input.size());
    Host::Luts::Refusal refusal;
    const std::optional<CubeFile> read = Host::Luts::parseCube(text, refusal);
    if (!read) {
        promise(!refusal.cause.empty(), "refused without a cause");
        promise(refusal.cause.find('\n') == std::string::npos, "a cause of several lines");
        promise(refusal.cause.size() < 300, "a cause without end");
        promise(refusal.line <= input.size() + 1, "a line behind the end");
        return;
    }
    promise(read->table || !read->curves.empty(), "a LUT of nothing");
    if (!read->curves.empty()) {
        throughCurves(*read);
    }
    if (read->table) {
        throughTable(*read->table);
    }
}

} // namespace Qx::Fuzz
