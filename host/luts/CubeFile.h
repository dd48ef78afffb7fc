#pragma once

#include "host/luts/Table.h"

#include <optional>
#include <string_view>

namespace Qx::Host::Luts {

/// What a .cube file holds: curves, a table, or curves in front of a table.
struct CubeFile
{
    std::string title;
    std::vector<Colour> curves; ///< a point for red, green and blue each; empty without curves
    TableDomain curvesDomain;
    Qx::Ptr<Table> table;             ///< empty without one
    std::vector<std::string> remarks; ///< keywords that are not supported
};

/// Reads the text of a .cube file in any of its dialects: with TITLE, LUT_1D_SIZE, LUT_3D_SIZE, DOMAIN_MIN,
/// DOMAIN_MAX, LUT_1D_INPUT_RANGE and LUT_3D_INPUT_RANGE in any order before the entries, comments, empty
/// lines and line ends of any system. Entries are kept unchanged, also outside 0 to 1. Empty if it is
/// refused.
std::optional<CubeFile> parseCube(std::string_view text, Refusal& refusal);

/// The colours through the curves, linear between points, clamped to the curves' domain.
void throughCurves(const CubeFile& cube, Colour* colours, std::size_t count);

} // namespace Qx::Host::Luts
