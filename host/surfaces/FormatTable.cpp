#include "host/surfaces/FormatTable.h"

#include <algorithm>
#include <array>

namespace Qx::Host {

namespace {

using enum FormatKind;
using enum Planes;

constexpr RowLayout none{};

constexpr RowLayout bytes(unsigned blockPixels, unsigned components)
{
    return {blockPixels, components, 1, static_cast<std::uint16_t>(components * 8 / blockPixels),
            iGPUImage::eARGB8};
}

constexpr RowLayout words(unsigned blockPixels, unsigned components)
{
    return {blockPixels, components * 2, 1, static_cast<std::uint16_t>(components * 16 / blockPixels),
            iGPUImage::eARGB16};
}

/// A format whose components are whole bytes or 16-bit words, `components` of them for `blockPixels`.
constexpr FormatInfo plain(Image::Format format, const char* name, FormatKind kind, unsigned blockPixels,
                           unsigned components, std::uint16_t usualDepth = 8)
{
    return {format,
            name,
            kind,
            One,
            usualDepth,
            bytes(blockPixels, components),
            words(blockPixels, components),
            words(blockPixels, components)};
}

/// A format that is 16 bits deep whatever part of them is used.
constexpr FormatInfo always16(Image::Format format, const char* name, FormatKind kind, unsigned blockPixels,
                              unsigned components)
{
    const RowLayout only = words(blockPixels, components);
    return {format, name, kind, One, 16, only, only, only};
}

/// A planar format: a row of the first plane has one component a pixel.
constexpr FormatInfo planar(Image::Format format, const char* name, FormatKind kind, Planes planes,
                            std::uint16_t bitsPerPixelAt8)
{
    const RowLayout at8{1, 1, 1, bitsPerPixelAt8, iGPUImage::eARGB8};
    const RowLayout at16{1, 2, 1, static_cast<std::uint16_t>(bitsPerPixelAt8 * 2), iGPUImage::eARGB16};
    return {format, name, kind, planes, 8, at8, at16, at16};
}

constexpr RowLayout v210Rows{6, 16, 128, 20, iGPUImage::eARGB8};
constexpr RowLayout matroxRows{16, 40, 1, 20, iGPUImage::eARGB8};
constexpr RowLayout argb10Words{1, 4, 1, 32, iGPUImage::eARGB10};

constexpr std::array table{
    FormatInfo{Image::ARGB10, "ARGB10", RGB, One, 10, bytes(1, 4), argb10Words, words(1, 4)},
    plain(Image::BGRA32, "BGRA32", RGB, 1, 4),
    planar(Image::PlanarRGB, "PlanarRGB", RGB, ThreeFull, 24),
    plain(Image::ARGB, "ARGB", RGB, 1, 4),
    plain(Image::BGRA, "BGRA", RGB, 1, 4),
    plain(Image::RGBA, "RGBA", RGB, 1, 4),
    plain(Image::ABGR, "ABGR", RGB, 1, 4),
    plain(Image::RGB24, "RGB24", RGB, 1, 3),
    plain(Image::BGR24, "BGR24", RGB, 1, 3),
    plain(Image::BGR3, "BGR3", RGB, 1, 3),
    plain(Image::B48R, "b48r", RGB, 1, 3, 16),
    plain(Image::B64A, "b64a", RGB, 1, 4, 16),
    plain(Image::YUY2, "YUY2", YCrCb, 2, 4),
    plain(Image::YUYV, "YUYV", YCrCb, 2, 4),
    plain(Image::YVYU, "YVYU", YCrCb, 2, 4),
    plain(Image::UYVY, "UYVY", YCrCb, 2, 4),
    plain(Image::VYUY, "VYUY", YCrCb, 2, 4),
    planar(Image::YV12, "YV12", YCrCb, OneAndTwoHalf, 12),
    FormatInfo{Image::V210, "v210", YCrCb, One, 10, v210Rows, v210Rows, v210Rows},
    FormatInfo{Image::M101, "M101", YCrCb, One, 10, bytes(2, 4), matroxRows, none},
    FormatInfo{Image::M102, "M102", YCrCb, One, 10, bytes(2, 4), matroxRows, none},
    always16(Image::Y216, "Y216", YCrCb, 2, 4),
    always16(Image::V216, "v216", YCrCb, 2, 4),
};

} // namespace

const RowLayout& FormatInfo::layout(unsigned bitsPerComponent) const
{
    const unsigned depth = bitsPerComponent != 0 ? bitsPerComponent : usualDepth;
    return depth <= 8 ? upTo8Bits : depth == 10 ? at10Bits : otherDepths;
}

std::span<const FormatInfo> formatTable()
{
    return table;
}

const FormatInfo* findFormat(Image::Format format)
{
    const auto* entry = std::find_if(table.begin(), table.end(),
                                     [&](const FormatInfo& info) { return info.format == format; });
    return entry != table.end() ? entry : nullptr;
}

} // namespace Qx::Host

namespace Qx::Image {

bool isRGB(Format format)
{
    const Host::FormatInfo* info = Host::findFormat(format);
    return info != nullptr && info->kind == Host::FormatKind::RGB;
}

bool isYUV(Format format)
{
    const Host::FormatInfo* info = Host::findFormat(format);
    return info != nullptr && info->kind == Host::FormatKind::YCrCb;
}

} // namespace Qx::Image
