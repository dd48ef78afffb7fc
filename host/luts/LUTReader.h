#pragma once

#include "Qx/Ptr.h"
#include "host/Host.h"
#include "platform/GPUImage.h"

#include <filesystem>
#include <string>
#include <vector>

namespace Qx::Host {

/// What a LUT file holds, for people.
struct LUTFacts
{
    std::string title;    ///< the file's own; most have none
    std::string contents; ///< "a 3D table of 33 points an edge", "curves of 1024 points"

    /// Whether the table was baked: made by evaluating the file on a grid.
    bool baked = false;

    /// The largest error of a baked table inside its domain, where black is 0 and white is 1: 1.5 times the
    /// worst of many thousand colours, which include the points of the file's curves. 0 for a table that is
    /// the file's own.
    double error = 0.0;

    std::vector<std::string> remarks; ///< what was ignored, a line each
};

/// A LUT, or why it could not be read.
struct LUTReading
{
    Qx::Ptr<iHostImage3D> table; ///< empty if reading failed
    LUTFacts facts;

    /// Why it failed, one line that names the file and, if known, the line in it: "FILE:LINE: CAUSE".
    std::string failure;
};

/// The limits on files.
inline constexpr std::size_t mostLUTBytes = std::size_t{128} << 20U;
inline constexpr int mostTableEdge = 129;
inline constexpr int mostCurvePoints = 65536; ///< of .cube files; others may have up to 1048576

/// Reads a LUT file of any type that CubeLUT::load reads, without logging. Thread-safe; throws nothing.
///
/// A 3D table is kept unchanged: size, entries and domain. Everything else (curves, curves before a
/// table, matrices, gradings) is evaluated on a grid of 2, 17, 33, 65 or 129 points an edge, or of as many as
/// its own tables have: the first of these whose error is below a quarter of a 10-bit code, or the finest.
/// The grid spans the colours that the file's first table covers, and 0 to 1 for files without one.
QX_HOST_API LUTReading readLUT(const std::filesystem::path& file);

/// The table's colour for a colour, by tetrahedral interpolation. Colours outside its domain are clamped to
/// it.
QX_HOST_API std::array<float, 3> lookUp(const iHostImage3D& table, const std::array<float, 3>& colour);

/// The extensions of the files that readLUT reads, lower case, each once.
QX_HOST_API std::vector<std::string> lutExtensions();

} // namespace Qx::Host
