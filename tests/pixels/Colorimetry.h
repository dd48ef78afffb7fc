#pragma once

#include <array>
#include <cstddef>
#include <utility>

// Colours as numbers, in double precision.

namespace Qx::Pixels {

using Vector = std::array<double, 3>;
using Matrix3 = std::array<Vector, 3>;

inline Vector operator*(const Matrix3& m, const Vector& v)
{
    Vector result{};
    for (std::size_t i = 0; i < 3; ++i)
        result[i] = m[i][0] * v[0] + m[i][1] * v[1] + m[i][2] * v[2];
    return result;
}

inline Matrix3 inverse(const Matrix3& m)
{
    const auto minor = [&](std::size_t i, std::size_t j) {
        const std::size_t a = (i + 1) % 3;
        const std::size_t b = (i + 2) % 3;
        const std::size_t c = (j + 1) % 3;
        const std::size_t d = (j + 2) % 3;
        return m[a][c] * m[b][d] - m[a][d] * m[b][c];
    };
    const double determinant = m[0][0] * minor(0, 0) + m[0][1] * minor(0, 1) + m[0][2] * minor(0, 2);
    Matrix3 result{};
    for (std::size_t i = 0; i < 3; ++i) {
        for (std::size_t j = 0; j < 3; ++j)
            result[j][i] = minor(i, j) / determinant;
    }
    return result;
}

inline Vector xyzOf(double x, double y)
{
    return {x / y, 1, (1 - x - y) / y};
}

/// x and y of red, green and blue.
using Chromaticities = std::array<std::pair<double, double>, 3>;

// BT.709-6, table 1; BT.2020-2, table 3; SMPTE EG 432-1.
inline constexpr Chromaticities primariesOfBt709{{{0.64, 0.33}, {0.30, 0.60}, {0.15, 0.06}}};
inline constexpr Chromaticities primariesOfBt2020{{{0.708, 0.292}, {0.170, 0.797}, {0.131, 0.046}}};
inline constexpr Chromaticities primariesOfP3{{{0.680, 0.320}, {0.265, 0.690}, {0.150, 0.060}}};

/// XYZ of linear RGB with these primaries, whose white is D65.
inline Matrix3 xyzOfRgb(const Chromaticities& primaries)
{
    Matrix3 m{};
    for (std::size_t j = 0; j < 3; ++j) {
        const Vector column = xyzOf(primaries[j].first, primaries[j].second);
        for (std::size_t i = 0; i < 3; ++i)
            m[i][j] = column[i];
    }
    const Vector scale = inverse(m) * xyzOf(0.3127, 0.3290);
    for (Vector& row : m) {
        for (std::size_t j = 0; j < 3; ++j)
            row[j] *= scale[j];
    }
    return m;
}

} // namespace Qx::Pixels
