#pragma once

namespace Qx {

/// A pair of numbers: width and height, or x and y.
template <class T>
struct XY
{
    T x{};
    T y{};

    friend bool operator==(const XY&, const XY&) = default;
};

} // namespace Qx

using Qx::XY;
