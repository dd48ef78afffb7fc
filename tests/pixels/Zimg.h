#pragma once

#include "tests/pixels/Reference.h"

namespace Qx::Pixels {

/// Pixels on the left and on the right that depend on how zimg treats edges.
inline constexpr int edgeOfZimg = 12;

/// The picture converted by zimg, whose filters, siting and ranges are set to those of the conversion. Its
/// treatment of the left and right edges is its own. Point gives zimg the chroma already repeated, or has it
/// keep all of it, so that matrix and range are judged alone. A picture of width 0 when zimg refuses.
///
/// The result has the source's depth.
Picture convertByZimg(const Conversion& conversion, const Picture& source);

enum class Transfer
{
    Gamma, ///< ITU-R BT.1886
    Pq,
    Hlg
};

/// RGB of BT.2020 with that curve, PQ or HLG, as zimg shows it on a display of BT.709 and 100 cd/m2: what is
/// brighter or beyond the primaries is clipped. A picture of width 0 when zimg refuses.
Picture coloursByZimg(const Picture& source, Transfer transfer);

} // namespace Qx::Pixels
