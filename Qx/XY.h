#pragma once

namespace Qx {

/// A pair of numbers: width and height, or a horizontal and a vertical position.
template <class T>
struct XY
{
    T x{};
    T y{};

    friend bool operator==(const XY&, const XY&) = default;
};

} // namespace Qx

using Qx::XY;
