#include "tools/qxhost/pipeline/formats/FormatWay.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace Qx::Program {

namespace {

using Image::Format;
using In = FormatWay::In;
using Out = FormatWay::Out;

constexpr unsigned pairPixels = 2;
constexpr unsigned matroxPixels = 16;

constexpr FormatWay librarysRgb(Format library)
{
    return {In::picture, library, 1, Out::none, ""};
}

constexpr FormatWay rgb(const char* technique)
{
    return {In::picture, Image::UnknownFormat, 1, Out::technique, technique};
}

/// The technique changes the depth; pairs of the same depth leave as they are.
constexpr FormatWay pairs(Format library)
{
    return {In::pairs, library, pairPixels, Out::technique, "YUYVtoYUYV"};
}

constexpr FormatWay reordered(const char* technique, Format library = Image::UnknownFormat)
{
    return {In::reordered, library, pairPixels, Out::technique, technique};
}

} // namespace

FormatWay wayOf(Format format, unsigned bits)
{
    // A table in the form of a switch: a format without a row does not compile.
    switch (format) {
    case Image::ARGB:
    case Image::ARGB10:
    case Image::B64A:
    case Image::BGR24:
    case Image::B48R:
        return librarysRgb(format);
    case Image::RGB24:
        return librarysRgb(Image::BGR24);
    case Image::BGR3:
        return librarysRgb(Image::B48R);
    case Image::BGRA:
    case Image::BGRA32:
        return rgb("ReverseComponentOrder");
    case Image::RGBA:
        return rgb("ARGBtoRGBA");
    case Image::ABGR:
        return rgb("ABGRtoARGB"); // the same reordering both ways
    case Image::PlanarRGB:
        return rgb("ARGBtoRGBPlanar");
    case Image::YUY2:
    case Image::YUYV:
        return pairs(Image::YUY2);
    case Image::Y216:
    case Image::V216:
        return pairs(format);
    case Image::YVYU:
        return reordered("YVYUtoYUYV"); // the same swap both ways, as those below
    case Image::VYUY:
        return reordered("ReverseComponentOrder");
    case Image::UYVY:
        return reordered("UYVYtoYUYV", Image::UYVY);
    case Image::YV12:
        return reordered("YUYVtoYV12");
    case Image::V210:
        return {In::unpacked, Image::UnknownFormat, 1, Out::technique, "YUYVtoV210"};
    case Image::M101:
    case Image::M102:
        return bits == 8 ? pairs(Image::YUY2)
                         : FormatWay{In::reordered, Image::M101, matroxPixels, Out::packed, ""};
    case Image::UnknownFormat:
        break;
    }
    return {};
}

std::optional<Media::PairOrder> pairOrderOf(const PixelFormat& format)
{
    const Host::RowLayout& rows = format.info->layout(format.bits);
    if (!format.isYCrCb() || format.info->planes != Host::Planes::One ||
        rows.packing != Host::Packing::Samples) {
        return {};
    }
    using Media::PairOrder;
    constexpr std::array<std::pair<std::string_view, PairOrder>, 4> orders{
        {{"Y0 Cb Y1 Cr", PairOrder::yuyv},
         {"Cb Y0 Cr Y1", PairOrder::uyvy},
         {"Y0 Cr Y1 Cb", PairOrder::yvyu},
         {"Cr Y1 Cb Y0", PairOrder::vyuy}}};
    const auto* found = std::find_if(orders.begin(), orders.end(),
                                     [&](const auto& order) { return order.first == format.info->order; });
    return found != orders.end() ? std::optional(found->second) : std::nullopt;
}

} // namespace Qx::Program
