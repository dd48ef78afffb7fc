#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Qx::Program::Studio {

/// A rectangle of a picture, in its pixels.
struct Region
{
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;

    bool operator==(const Region&) const = default;
};

/// A picture in memory, A R G B in bytes, that belongs to somebody else.
struct PixelView
{
    const std::uint8_t* pixels = nullptr; ///< of the first row
    int width = 0;
    int height = 0;
    std::ptrdiff_t pitch = 0; ///< bytes from a row to the next

    const std::uint8_t* at(int x, int y) const { return pixels + y * pitch + std::ptrdiff_t{4} * x; }

    /// The part of it; the region lies in the picture.
    PixelView part(const Region& region) const
    {
        return {at(region.x, region.y), region.width, region.height, pitch};
    }
};

/// A picture of A R G B in bytes, rows without padding.
struct Pixels
{
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> bytes;

    PixelView view() const { return {bytes.data(), width, height, std::ptrdiff_t{4} * width}; }
};

/// A copy of what is seen.
Pixels copyOf(const PixelView& view);

/// The picture at another size, of its nearest pixels; a copy at its own.
Pixels resized(const PixelView& view, int width, int height);

/// The picture with sides of an n-th: each pixel is the average of n x n, and what is left over at the right
/// and the bottom is left out.
Pixels reduced(const PixelView& view, int n);

/// The difference of the codes of two pictures of the same size, so many times, around 128; opaque.
Pixels differenceOf(const PixelView& one, const PixelView& other, double times);

} // namespace Qx::Program::Studio
