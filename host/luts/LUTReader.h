#pragma once

#include "Qx/Ptr.h"
#include "host/Host.h"
#include "host/luts/LUTSteps.h"
#include "platform/GPUImage.h"

#include <filesystem>
#include <string>
#include <vector>

namespace Qx::Host {

/// What a LUT file holds, for people.
struct LUTFacts
{
    std::string title;                ///< the file's own; most have none
    std::string contents;             ///< "a 3D table of 33 points an edge", "curves of 1024 points"
    std::vector<std::string> remarks; ///< what was ignored, a line each
};

/// What goes through a LUT.
enum class LUTInput
{
    Codes,  ///< of 10 and 16 bits: 0 to 1
    Floats, ///< of pictures of floats: -65504 to 65504, the numbers that halves hold
};

/// A LUT as steps, or why it could not be read.
struct LUTReading
{
    LUTSteps steps; ///< empty if reading failed
    LUTFacts facts; ///< what the file says of itself

    /// The largest difference from the file's own result, where black is 0 and white is 1, for codes of 10
    /// and 16 bits: at most largestLUTError. For curves alone every code was tried; otherwise it is 1.5 times
    /// the worst of many thousand colours. 0 for .cube files, whose steps are their own numbers. For floats
    /// every number of a half is tried, or many thousand colours; a difference between two numbers beyond 1
    /// is counted as a part of these.
    double error = 0.0;

    /// Why it failed, one line that names the file and, if known, the line in it: "FILE:LINE: CAUSE".
    std::string failure;
};

/// A LUT as one table, or why it could not be read.
struct LUTTableReading
{
    Qx::Ptr<iHostImage3D> table; ///< empty if reading failed
    LUTFacts facts;              ///< what the file says of itself

    /// Whether the table was baked: made by evaluating the file on a grid.
    bool baked = false;

    /// The largest error of a baked table inside its domain, where black is 0 and white is 1: 1.5 times the
    /// worst of many thousand colours, which include the points of the file's curves. 0 for a table that is
    /// the file's own.
    double error = 0.0;

    std::string failure; ///< as LUTReading::failure
};

/// The limits on files.
inline constexpr std::size_t mostLUTBytes = std::size_t{128} << 20U;
inline constexpr int mostTableEdge = 129;     ///< entries along each axis
inline constexpr int mostCurvePoints = 65536; ///< of .cube files; others may have up to 1048576

/// A quarter of a 10-bit code.
inline constexpr double largestLUTError = 0.25 / 1023.0;

/// Reads a LUT file of any type that CubeLUT::load reads, without logging. Thread-safe; throws nothing.
///
/// Tables, matrices and the points of curves are kept unchanged. Other curves get 65536 points: one for each
/// code of 16 bits if they come first. What is neither is evaluated on a grid. A file whose steps are off by
/// more than largestLUTError is refused, and the failure says by how much and where. For floats, the points
/// of curves that the file does not have lie ever closer towards 0. What the file itself clips stays clipped.
QX_HOST_API LUTReading readLUT(const std::filesystem::path& file, LUTInput input);
QX_HOST_API LUTReading readLUT(const std::filesystem::path& file); ///< The same for codes.

/// Reads the same files as one table, the best that there is, for those who draw nothing else.
///
/// A 3D table is kept unchanged: size, entries and domain. Everything else (curves, curves before a
/// table, matrices, gradings) is evaluated on a grid of 2, 17, 33, 65 or 129 points an edge, or of as many as
/// its own tables have: the first of these whose error is below a quarter of a 10-bit code, or the finest.
/// The grid spans the colours that the file's first table covers, and 0 to 1 for files without one.
QX_HOST_API LUTTableReading readLUTTable(const std::filesystem::path& file);

/// The table's colour for a colour, by tetrahedral interpolation. Colours outside its domain are clamped to
/// it.
QX_HOST_API std::array<float, 3> lookUp(const iHostImage3D& table, const std::array<float, 3>& colour);

/// An error in words, "0.12 codes of 10 bits".
QX_HOST_API std::string lutErrorInCodes(double error);

/// The extensions of the files that readLUT reads, lower case, each once.
QX_HOST_API std::vector<std::string> lutExtensions();

} // namespace Qx::Host
