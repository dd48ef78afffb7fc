#include "tools/qxhost/commands/FormatPicture.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <vector>

namespace Qx::Program {

namespace {

using Host::ComponentBits;
using Host::FormatInfo;
using Host::Packing;
using Host::Planes;
using Host::RowLayout;

/// A box of the drawing, with the text above it.
struct Cell
{
    std::string above;
    std::string inside;
};

/// A row of boxes, with `name` before it.
std::string drawCells(const std::string& name, const std::vector<Cell>& cells)
{
    const std::size_t indent = std::max<std::size_t>(name.size(), 4) + 1;
    std::string above = fmt::format("{:<{}}", name, indent);
    std::string rule(indent, ' ');
    std::string inside(indent, ' ');
    for (const Cell& cell : cells) {
        const std::size_t width = std::max(cell.above.size(), cell.inside.size()) + 2;
        above += fmt::format(" {:^{}}", cell.above, width);
        rule += "+" + std::string(width, '-');
        inside += fmt::format("|{:^{}}", cell.inside, width);
    }
    above.erase(above.find_last_not_of(' ') + 1);
    return above + "\n" + rule + "+\n" + inside + "|\n" + rule + "+\n";
}

/// Boxes of one unit of memory each, with the number of their byte above, in rows short enough to read.
std::string drawUnits(const std::vector<ComponentBits>& parts)
{
    constexpr std::size_t cellsInRow = 8;
    std::string text;
    std::vector<Cell> cells;
    for (const ComponentBits& part : parts) {
        const std::string bits =
            part.valueBit == 0 ? "" : fmt::format(" {}:{}", part.valueBit + part.bits - 1, part.valueBit);
        cells.push_back({std::to_string(part.bit / 8), part.component + bits});
        if (cells.size() == cellsInRow) {
            text += drawCells("byte", cells);
            cells.clear();
        }
    }
    return cells.empty() ? text : text + drawCells("byte", cells);
}

std::string bitRange(unsigned high, unsigned low)
{
    return high == low ? std::to_string(high) : fmt::format("{}-{}", high, low);
}

/// A unit of several components, its highest bit on the left.
std::string drawFields(unsigned unit, unsigned unitBits, std::vector<ComponentBits> parts, bool split)
{
    std::sort(parts.begin(), parts.end(),
              [](const ComponentBits& a, const ComponentBits& b) { return a.bit > b.bit; });
    std::vector<Cell> cells;
    unsigned next = (unit + 1) * unitBits;
    for (const ComponentBits& part : parts) {
        if (part.bit + part.bits < next) {
            cells.push_back(
                {bitRange(next - 1 - unit * unitBits, part.bit + part.bits - unit * unitBits), "-"});
        }
        const unsigned low = part.bit - unit * unitBits;
        const std::string value =
            split ? fmt::format(" {}:{}", part.valueBit + part.bits - 1, part.valueBit) : "";
        cells.push_back({bitRange(low + part.bits - 1, low), part.component + value});
        next = part.bit;
    }
    const std::string name =
        unitBits == 8 ? fmt::format("byte {}, bits", unit) : fmt::format("word {}, bits", unit);
    return drawCells(name, cells);
}

std::string drawPlanes(const FormatInfo& info, unsigned bits)
{
    std::string text;
    int plane = 0;
    for (const ComponentBits& part : Host::componentsOf(info, bits)) {
        const bool half = info.planes == Planes::OneAndTwoHalf && plane > 0;
        text += drawCells(
            fmt::format("plane {}", plane),
            {{"0", part.component + " of pixel 0"},
             {std::to_string(part.bits / 8), part.component + (half ? " of pixel 2" : " of pixel 1")},
             {"...", "..."}});
        text += half ? "        half the picture's width and height, rounded up\n" : "";
        ++plane;
    }
    return text;
}

} // namespace

std::string drawLayout(const FormatInfo& info, unsigned bits)
{
    if (info.planes != Planes::One) {
        return drawPlanes(info, bits);
    }
    const RowLayout& layout = info.layout(bits);
    const bool inWords = layout.packing == Packing::ThreeInWord || layout.packing == Packing::TwoTenTenTen;
    const unsigned unitBits = inWords ? 32 : 8;
    std::vector<ComponentBits> whole;
    std::map<unsigned, std::vector<ComponentBits>> shared; // by unit
    for (const ComponentBits& part : Host::componentsOf(info, bits)) {
        if (part.bits >= unitBits || (!inWords && part.bits % 8 == 0)) {
            whole.push_back(part);
        } else {
            shared[part.bit / unitBits].push_back(part);
        }
    }
    std::string text = drawUnits(whole);
    for (const auto& [unit, parts] : shared) {
        text += drawFields(unit, unitBits, parts, layout.packing == Packing::UpperThenLower);
    }
    return text;
}

} // namespace Qx::Program
