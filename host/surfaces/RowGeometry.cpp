#include "host/surfaces/RowGeometry.h"

#include "host/gpu/FloatImages.h"
#include "host/surfaces/FormatTable.h"

#include <limits>

namespace Qx::Host {

namespace {

// Widths, heights and pitches have 32 bits, so none of the sums and products below can leave 64 bits before
// the last one, which is checked.

std::uint64_t roundUp(std::uint64_t value, std::uint64_t multiple)
{
    return (value + multiple - 1) / multiple * multiple;
}

std::uint64_t rowsOf(Planes planes, std::uint64_t height)
{
    switch (planes) {
    case Planes::ThreeFull:
        return height * 3;
    case Planes::OneAndTwoHalf:
        return height + (height + 1) / 2 * 2;
    case Planes::One:
        break;
    }
    return height;
}

/// The layout of a description. Without a known format, pixels are packed bit after bit.
std::optional<RowLayout> layoutOf(const Image::Core::Data& data, const FormatInfo* info)
{
    RowLayout layout;
    if (info != nullptr) {
        layout = info->layout(data.bitsPerComponent);
    } else if (data.bitsPerPixel != 0) {
        layout = {8, data.bitsPerPixel, 1, data.bitsPerPixel,
                  data.bitsPerComponent > 8 ? iGPUImage::eARGB16 : iGPUImage::eARGB8};
    }
    if (layout.blockBytes == 0) {
        return std::nullopt;
    }
    return layout;
}

bool fitsAnImage(const RowGeometry& geometry)
{
    constexpr std::uint64_t largestEdge = std::numeric_limits<int>::max();
    std::uint64_t total = 0;
    return geometry.pitch / bytesPerTexel(geometry.texels) <= largestEdge && geometry.rows <= largestEdge &&
           !__builtin_mul_overflow(geometry.pitch, geometry.rows, &total) &&
           total <= static_cast<std::uint64_t>(std::numeric_limits<std::ptrdiff_t>::max());
}

} // namespace

XY<int> RowGeometry::imageSize() const
{
    return {static_cast<int>(pitch / bytesPerTexel(texels)), static_cast<int>(rows)};
}

unsigned bytesPerTexel(iGPUImage::eFormat format)
{
    return format == floatTexels ? 16 : format == iGPUImage::eARGB16 ? 8 : 4;
}

std::uint16_t bitsPerPixelOf(const Image::Core::Data& data)
{
    const FormatInfo* info = findFormat(data.format);
    return info != nullptr ? info->layout(data.bitsPerComponent).bitsPerPixel : std::uint16_t{0};
}

std::optional<RowGeometry> rowGeometryAtAnyPitch(const Image::Core::Data& data)
{
    const FormatInfo* info = findFormat(data.format);
    const std::optional<RowLayout> layout = layoutOf(data, info);
    if (!layout || data.width == 0 || data.height == 0) {
        return std::nullopt;
    }
    RowGeometry result;
    const std::uint64_t blocks = (std::uint64_t{data.width} + layout->blockPixels - 1) / layout->blockPixels;
    result.texels = layout->texels;
    // Bits that are packed without regard to formats need not fill their last block.
    result.rowBytes = info != nullptr ? blocks * layout->blockBytes
                                      : (std::uint64_t{data.width} * layout->bitsPerPixel + 7) / 8;
    const std::uint64_t stride =
        data.rowPitch != 0 ? data.rowPitch : roundUp(result.rowBytes, layout->rowAlignment);
    result.pitch = roundUp(stride, bytesPerTexel(result.texels));
    result.rows = rowsOf(info != nullptr ? info->planes : Planes::One, data.height);
    if (!fitsAnImage(result)) {
        return std::nullopt;
    }
    return result;
}

std::optional<RowGeometry> rowGeometryOf(const Image::Core::Data& data)
{
    std::optional<RowGeometry> result = rowGeometryAtAnyPitch(data);
    if (result && data.rowPitch != 0 && data.rowPitch < result->rowBytes) {
        result.reset();
    }
    return result;
}

} // namespace Qx::Host
