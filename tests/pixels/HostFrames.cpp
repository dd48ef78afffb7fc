#include "tests/pixels/HostFrames.h"

#include <algorithm>
#include <cstring>
#include <random>

namespace Qx::Pixels {

using namespace Image;

namespace {

unsigned componentsAPixel(Format format)
{
    switch (format) {
    case RGB24:
    case BGR24:
    case BGR3:
    case B48R:
        return 3;
    default:
        return 4;
    }
}

bool isPacked422(Format format)
{
    switch (format) {
    case YUY2:
    case YUYV:
    case YVYU:
    case UYVY:
    case VYUY:
    case Y216:
    case V216:
    case M101:
    case M102:
        return true;
    default:
        return false;
    }
}

std::size_t texelBytes(const FrameSpec& spec)
{
    return spec.depth == 16 ? 8 : 4;
}

} // namespace

std::string FrameSpec::name() const
{
    std::string text;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        const auto character = static_cast<char>(format >> shift & 0xFF);
        text += character >= ' ' ? character : '.';
    }
    return (format < 256 ? std::to_string(format) : text) + " " + std::to_string(depth) + " bits " +
           std::to_string(width) + " x " + std::to_string(height) + (bottomUp ? " bottom-up" : "") +
           (padding != 0 ? " padded" : "");
}

std::size_t rowBytesOf(const FrameSpec& spec)
{
    const std::size_t width = spec.width;
    const std::size_t component = spec.depth == 16 ? 2 : 1;
    if (spec.format == V210)
        return (width + 5) / 6 * 16;
    if ((spec.format == M101 || spec.format == M102) && spec.depth == 10)
        return (width + 15) / 16 * 40;
    if (spec.format == YV12 || spec.format == PlanarRGB)
        return width * component;
    if (isPacked422(spec.format))
        return (width + 1) / 2 * 4 * component;
    return width * componentsAPixel(spec.format) * component;
}

std::size_t rowsOf(const FrameSpec& spec)
{
    const std::size_t height = spec.height;
    return spec.format == PlanarRGB ? 3 * height
           : spec.format == YV12    ? height + (height + 1) / 2 * 2
                                    : height;
}

Surface makeFrame(const FrameSpec& spec)
{
    const std::size_t texel = texelBytes(spec);
    const std::size_t tight = (rowBytesOf(spec) + texel - 1) / texel * texel;
    const std::size_t pitch = spec.padding == 0 ? 0 : tight + spec.padding * texel;
    Surface frame(spec.width, spec.height, spec.format, spec.bottomUp,
                  static_cast<unsigned short>(spec.depth), 0, static_cast<unsigned short>(pitch));
    frame.allocateHost();
    return frame;
}

Surface randomFrame(const FrameSpec& spec)
{
    Surface frame = makeFrame(spec);
    auto* const bytes = frame.getHostImage()
                            ? static_cast<std::byte*>(frame.getHostImage()->map(iHostImage::Write))
                            : nullptr;
    if (bytes != nullptr) {
        const std::size_t count =
            frame.getHostImage()->getPitch() * static_cast<std::size_t>(frame.getHostImage()->getSize().y);
        std::mt19937 random(spec.width * 7919 + spec.height);
        std::generate_n(bytes, count, [&] { return static_cast<std::byte>(random()); });
    }
    return frame;
}

Rows rowsIn(const Surface& host, const FrameSpec& spec)
{
    const std::size_t bytes = rowBytesOf(spec);
    const std::size_t count = rowsOf(spec);
    const Qx::Ptr<iHostImage> image = host.getHostImage();
    if (!image || image->getPitch() < bytes || static_cast<std::size_t>(image->getSize().y) < count)
        return {};
    const auto* row = static_cast<const std::byte*>(image->map(iHostImage::Read));
    Rows rows;
    for (std::size_t y = 0; row != nullptr && y < count; ++y, row += image->getPitch())
        rows.emplace_back(row, row + bytes);
    return rows;
}

void fillRows(Surface& host, const Rows& rows)
{
    auto* row = static_cast<std::byte*>(host.getHostImage()->map(iHostImage::Write));
    for (const auto& bytes : rows) {
        std::copy(bytes.begin(), bytes.end(), row);
        row += host.getHostImage()->getPitch();
    }
}

std::string firstDifference(const Rows& got, const Rows& wanted)
{
    if (got.size() != wanted.size())
        return std::to_string(got.size()) + " rows for " + std::to_string(wanted.size());
    for (std::size_t y = 0; y < got.size(); ++y) {
        const auto [one, other] =
            std::mismatch(got[y].begin(), got[y].end(), wanted[y].begin(), wanted[y].end());
        if (one == got[y].end() && other == wanted[y].end())
            continue;
        if (one == got[y].end() || other == wanted[y].end())
            return "row " + std::to_string(y) + " has " + std::to_string(got[y].size()) + " bytes for " +
                   std::to_string(wanted[y].size());
        return "byte " + std::to_string(one - got[y].begin()) + " of row " + std::to_string(y) + ": " +
               std::to_string(std::to_integer<int>(*one)) + " for " +
               std::to_string(std::to_integer<int>(*other));
    }
    return {};
}

} // namespace Qx::Pixels
