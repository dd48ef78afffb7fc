#pragma once

namespace Qx {

/// A pair of numbers: width and height, or x and y.
template <class T>
struct XY
{
    T x{}; ///< width, or the distance from the left
    T y{}; ///< height, or the distance from the top

    /// Compares all members.
    friend bool operator==(const XY&, const XY&) = default;
};

} // namespace Qx

using Qx::XY;
