#pragma once

#include "tests/pixels/Reference.h"

#include <cstdint>
#include <vector>

namespace Qx::Pixels {

/// A frame of a clip: planes of Y, Cb and Cr. Chroma has half the width, and half the height if `halfHeight`,
/// sited to the left of H.264's table E-2: on even pixels, and midway between two lines.
struct PlanarFrame
{
    int width = 0; ///< even, as is the height if halved
    int height = 0;
    bool halfHeight = false;
    int bits = 8;
    Range range = Range::Video;
    Matrix matrix = Matrix::Bt709;
    std::vector<std::uint16_t> y;
    std::vector<std::uint16_t> cb;
    std::vector<std::uint16_t> cr;

    int chromaWidth() const { return width / 2; }
    int chromaHeight() const { return halfHeight ? height / 2 : height; }
};

/// Reads the planes of a frame as FFmpeg writes them: bytes, or little-endian words if bits is more than 8.
PlanarFrame planarFrame(PlanarFrame form, const std::vector<std::uint8_t>& bytes);

/// R, G and B of each pixel in codes of `bits`, before rounding, held to what these can hold. Chroma is
/// interpolated by Catmull-Rom, first down, then across; beyond the edges the outermost sample is repeated.
std::vector<double> exactRgb(const PlanarFrame& frame, Range target, int bits);

/// The same by zimg, in 32-bit floats. Empty if zimg refuses.
std::vector<double> zimgRgb(const PlanarFrame& frame, Range target, int bits);

/// The code of `to` bits at the level of a code of `from` bits, before rounding, held to what it can be.
double exactLevel(unsigned code, int from, int to, Range range, bool chroma);

} // namespace Qx::Pixels
