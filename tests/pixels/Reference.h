#pragma once

#include "tests/pixels/Picture.h"

#include <string>
#include <vector>

namespace Qx::Pixels {

enum class Direction
{
    Decode, ///< packed 4:2:2 to RGB
    Encode  ///< RGB to packed 4:2:2
};
enum class Range
{
    Full = 1,
    Video = 2
};
enum class Matrix
{
    Bt601 = 1,
    Bt709 = 2,
    Bt2020 = 3 ///< of ColourConvert2020.fx; the library has no name for it
};
enum class Filter
{
    Point = 1,
    CatmullRom = 2,
    Mitchell = 3,
    Lanczos = 4
};

/// One conversion between packed 4:2:2 and RGB. The enumerations have the values that the library's take.
struct Conversion
{
    Direction direction = Direction::Decode;
    Range source = Range::Video;
    Range target = Range::Full;
    Matrix matrix = Matrix::Bt709;
    Filter filter = Filter::Point;

    /// The name of the technique that does it.
    std::string technique() const;
};

/// All 36 ways to decode and 24 ways to encode.
std::vector<Conversion> allConversions();

/// What an exact converter would give for each code of the target before rounding, in the target's codes
/// and in double precision, held to what the target can hold. Four values a texel, no padding.
///
/// Written from Kr and Kb (ITU-R BT.601-7, clause 2.5; BT.709-6, clause 3;
/// BT.2020-2, table 4), the ranges (the same, and ITU-T
/// H.273, clause 8.3) and the filters' own formulas, sampled at the distances that the sites of pixels and
/// chroma have. At the edges the outermost sample is repeated.
std::vector<double> exactConversion(const Conversion& conversion, const Picture& source, int targetDepth);

} // namespace Qx::Pixels
