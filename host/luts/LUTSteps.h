#pragma once

#include "Qx/Ptr.h"
#include "host/Host.h"
#include "platform/GPUImage.h"

#include <array>
#include <cstdint>
#include <variant>
#include <vector>

/// A LUT as the steps that a colour goes through: curves, matrices and tables in the file's own order. A
/// single 3D table cannot follow steep curves, and a matrix needs none.
namespace Qx::Host {

/// A curve for each channel, linear between its points.
struct LUTCurves
{
    std::vector<std::array<float, 3>> points; ///< for red, green and blue; at least 2

    /// The inputs of the first and of the last point. Inputs outside are clamped.
    TableDomain domain;

    /// The points are at equal distances of the input if this is 0, of its square root if it is 1, of the
    /// square root of that if it is 2, and so on; of negative inputs with their sign. Roots put more points
    /// near 0.
    int roots = 0;

    /// Whether the channel between the lowest and the highest keeps its share of their distance, instead of
    /// following its own curve.
    bool keepsHue = false;
};

/// Three rows: what red, green and blue are multiplied by, then what is added.
struct LUTMatrix
{
    /// For red, green and blue.
    std::array<std::array<double, 4>, 3> rows{{{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}}};
};

/// A table with the way between its entries.
struct LUTTable
{
    Qx::Ptr<iHostImage3D> table; ///< never empty in a reading without failure
    bool trilinear = false;      ///< interpolated in cubes; otherwise in tetrahedra
};

/// The inverse of a table: the colour that the table, interpolated in tetrahedra, turns into the given one.
/// It is searched in the cells whose colours come near the given one; the first that has it gives it.
struct LUTInverse
{
    /// The table, with one more entry at each end of each axis that extrapolates it. Its domain is not used.
    Qx::Ptr<iHostImage3D> table;

    int buckets = 0; ///< into which 0 to 1 is divided in each channel

    /// For each bucket, red running fastest, where its cells begin in `cells`; at last the number of all.
    std::vector<std::uint32_t> firsts;
    std::vector<std::array<std::uint8_t, 3>> cells; ///< by the entry of their dark corner
};

using LUTStep = std::variant<LUTCurves, LUTMatrix, LUTTable, LUTInverse>; ///< one step
using LUTSteps = std::vector<LUTStep>; ///< in the order in which a colour goes through

/// The colour after all steps, computed as LUT.fx does.
QX_HOST_API std::array<float, 3> apply(const LUTSteps& steps, const std::array<float, 3>& colour);

/// The table, if the steps are one table that is interpolated in tetrahedra; otherwise null. The technique
/// "LUT" of LUT.fx draws it.
QX_HOST_API Qx::Ptr<iHostImage3D> singleTable(const LUTSteps& steps);

/// The technique of LUT.fx that draws the steps fastest: "LUT" draws singleTable(), the others draw packed().
QX_HOST_API const char* techniqueFor(const LUTSteps& steps);

/// The steps as one image for the techniques of LUT.fx but "LUT"; the file describes its layout. Empty for
/// steps without number: more than an image has room for.
QX_HOST_API Qx::Ptr<iHostImage3D> packed(const LUTSteps& steps);

} // namespace Qx::Host
