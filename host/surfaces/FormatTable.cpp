#include "host/surfaces/FormatTable.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <sstream>

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

constexpr unsigned componentsIn(const char* order)
{
    unsigned count = 1;
    for (const char* c = order; *c != '\0'; ++c) {
        count += *c == ' ' ? 1 : 0;
    }
    return count;
}

constexpr Depths eightOrSixteen{8, 16, 0};

/// A format whose components are whole bytes or 16-bit words.
constexpr FormatInfo plain(Image::Format format, const char* name, const char* word, const char* order,
                           FormatKind kind, std::uint16_t usualDepth = 8, const char* note = "")
{
    const unsigned blockPixels = kind == YCrCb ? 2 : 1;
    const unsigned components = componentsIn(order);
    return {format,
            name,
            word,
            order,
            kind,
            One,
            usualDepth,
            bytes(blockPixels, components),
            words(blockPixels, components),
            words(blockPixels, components),
            eightOrSixteen,
            note};
}

/// 4:2:2 that is always stored in 16 bits.
constexpr FormatInfo always16(Image::Format format, const char* name, const char* word, const char* note)
{
    const RowLayout only = words(2, 4);
    return {format, name, word, "Y0 Cb Y1 Cr", YCrCb, One, 16, only, only, only, {16, 0, 0}, note};
}

/// A planar format: a row of the first plane has one component a pixel.
constexpr FormatInfo planar(Image::Format format, const char* name, const char* word, const char* order,
                            FormatKind kind, Planes planes, std::uint16_t bitsPerPixelAt8, const char* note)
{
    const RowLayout at8{1, 1, 1, bitsPerPixelAt8, iGPUImage::eARGB8};
    const RowLayout at16{1, 2, 1, static_cast<std::uint16_t>(bitsPerPixelAt8 * 2), iGPUImage::eARGB16};
    return {format, name, word, order, kind, planes, 8, at8, at16, at16, eightOrSixteen, note};
}

constexpr RowLayout v210Rows{6, 16, 128, 20, iGPUImage::eARGB8, Packing::ThreeInWord};
constexpr RowLayout matroxRows{16, 40, 1, 20, iGPUImage::eARGB8, Packing::UpperThenLower};
constexpr RowLayout argb10Words{1, 4, 1, 32, iGPUImage::eARGB10, Packing::TwoTenTenTen};

constexpr FormatInfo argb10{
    Image::ARGB10, "ARGB10",    "argb10",    "A R G B",
    RGB,           One,         10,          bytes(1, 4),
    argb10Words,   words(1, 4), {8, 10, 16}, "The code is the number 35. With 8 or 16 bits it is ARGB."};

constexpr FormatInfo v210{
    Image::V210, "v210",   "v210",     "Cb Y0 Cr Y1",
    YCrCb,       One,      10,         v210Rows,
    v210Rows,    v210Rows, {10, 0, 0}, "Rows are filled up to whole groups of 48 pixels, 128 bytes."};

constexpr FormatInfo matrox(Image::Format format, const char* name, const char* word, const char* note)
{
    return {format, name,        word,       "Y0 Cb Y1 Cr", YCrCb,      One,
            10,     bytes(2, 4), matroxRows, none,          {8, 10, 0}, note};
}

constexpr std::array table{
    argb10,
    plain(Image::BGRA32, "BGRA32", "bgra32", "B G R A", RGB, 8, "The code is the number 32."),
    planar(Image::PlanarRGB, "PlanarRGB", "planar", "R G B", RGB, ThreeFull, 24,
           "The code is the number 37. Planes of RGB come in other orders elsewhere (G, B, R)."),
    plain(Image::ARGB, "ARGB", "argb", "A R G B", RGB),
    plain(Image::BGRA, "BGRA", "bgra", "B G R A", RGB),
    plain(Image::RGBA, "RGBA", "rgba", "R G B A", RGB),
    plain(Image::ABGR, "ABGR", "abgr", "A B G R", RGB),
    plain(Image::RGB24, "RGB24", "rgb24", "B G R", RGB, 8,
          "The code is \" RGB\", named as a little-endian number reads: blue has the lowest address. Where "
          "\"rgb24\" means R G B, that is bgr3 here."),
    plain(Image::BGR24, "24BG", "24bg", "B G R", RGB),
    plain(Image::BGR3, "BGR3", "bgr3", "R G B", RGB, 8,
          "Elsewhere (Video4Linux) this code means B G R, which is 24bg here. In .mov, 8 bits need an even "
          "width: nobody reads other rows back."),
    plain(Image::B48R, "b48r", "b48r", "R G B", RGB, 16,
          "16-bit words are in the machine's order in memory and in raw files; QuickTime stores them "
          "big-endian, and so it is done in .mov. There, 8 bits need an even width: nobody reads other rows "
          "back."),
    plain(Image::B64A, "b64a", "b64a", "A R G B", RGB, 16,
          "16-bit words are in the machine's order in memory and in raw files; QuickTime stores them "
          "big-endian, and so it is done in .mov."),
    plain(Image::YUY2, "YUY2", "yuy2", "Y0 Cb Y1 Cr", YCrCb),
    plain(Image::YUYV, "YUYV", "yuyv", "Y0 Cb Y1 Cr", YCrCb, 8, "Another name of yuy2."),
    plain(Image::YVYU, "YVYU", "yvyu", "Y0 Cr Y1 Cb", YCrCb),
    plain(Image::UYVY, "UYVY", "uyvy", "Cb Y0 Cr Y1", YCrCb),
    plain(Image::VYUY, "VYUY", "vyuy", "Cr Y1 Cb Y0", YCrCb, 8,
          "yuy2 read backwards. Elsewhere (Video4Linux) this code means Cr Y0 Cb Y1, with the pixels of a "
          "pair in the other order."),
    planar(Image::YV12, "YV12", "yv12", "Y Cr Cb", YCrCb, OneAndTwoHalf, 12,
           "4:2:0. In memory all planes have the row pitch of the first; in files the rows of the chroma "
           "planes follow each other without gaps."),
    v210,
    matrox(Image::M101, "M101", "m101",
           "With 8 bits it is yuy2. Beyond the picture, rows of 10 bits hold 0."),
    matrox(Image::M102, "M102", "m102", "Another name of m101."),
    always16(Image::Y216, "Y216", "y216",
             "Codes of fewer bits fill the upper ones in video range: white is 235 x 256. In full range it "
             "is 65535."),
    always16(Image::V216, "v216", "v216",
             "As y216. Elsewhere (QuickTime) this code means Cb Y0 Cr Y1, which is uyvy:16 here."),
};

/// "Y0 Cb Y1 Cr" as its words.
std::vector<std::string> wordsOf(const char* order)
{
    std::istringstream text(order);
    return {std::istream_iterator<std::string>(text), {}};
}

/// The name of a block's n-th component: in a block of several pairs, pixels and pairs are numbered
/// consecutively.
std::string numbered(const std::vector<std::string>& order, unsigned n, bool severalPairs)
{
    const std::string& name = order[n % order.size()];
    if (!severalPairs) {
        return name;
    }
    const unsigned pair = n / static_cast<unsigned>(order.size());
    const bool isLuma = name.front() == 'Y';
    const unsigned pixel = 2 * pair + (name == "Y1" ? 1 : 0);
    return isLuma ? "Y" + std::to_string(pixel) : name + std::to_string(2 * pair);
}

} // namespace

const RowLayout& FormatInfo::layout(unsigned bitsPerComponent) const
{
    const unsigned depth = bitsPerComponent != 0 ? bitsPerComponent : usualDepth;
    return depth <= 8 ? upTo8Bits : depth == 10 ? at10Bits : otherDepths;
}

bool FormatInfo::hasDepth(unsigned bitsPerComponent) const
{
    return bitsPerComponent != 0 && std::find(depths.begin(), depths.end(), bitsPerComponent) != depths.end();
}

std::vector<ComponentBits> componentsOf(const FormatInfo& info, unsigned bitsPerComponent)
{
    const RowLayout& layout = info.layout(bitsPerComponent);
    const std::vector<std::string> order = wordsOf(info.order);
    const auto inOrder = static_cast<unsigned>(order.size());
    const unsigned sampleBits = layout.texels == iGPUImage::eARGB16 ? 16 : 8;
    const bool severalPairs = info.kind == FormatKind::YCrCb && layout.blockPixels > 2;
    const unsigned count = severalPairs ? layout.blockPixels * 2 : inOrder;
    std::vector<ComponentBits> parts;
    for (unsigned n = 0; n < count; ++n) {
        const std::string name = numbered(order, n, severalPairs);
        switch (layout.packing) {
        case Packing::Samples:
            parts.push_back({name, info.planes == Planes::One ? n * sampleBits : 0, sampleBits, 0});
            break;
        case Packing::ThreeInWord:
            parts.push_back({name, n / 3 * 32 + n % 3 * 10, 10, 0});
            break;
        case Packing::UpperThenLower:
            parts.push_back({name, n * 8, 8, 2});
            break;
        case Packing::TwoTenTenTen:
            parts.push_back({name, 30 - n * 10, n == 0 ? 2U : 10U, 0});
            break;
        }
    }
    for (unsigned n = 0; n < count && layout.packing == Packing::UpperThenLower; ++n) {
        parts.push_back({parts[n].component, count * 8 + n * 2, 2, 0});
    }
    return parts;
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
