#include "tools/qxhost/media/rows/RgbPacker.h"

#include "tools/qxhost/media/rows/ComponentRows.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace Qx::Media {

namespace {

constexpr int alphaComponent = 3;

std::uint32_t largest(int bits)
{
    return (1U << static_cast<unsigned>(bits)) - 1;
}

/// Puts one component of a row into every fourth place, from `place` on.
template <class In, class Out>
void spread(const In* codes, Out* row, int place, int width, std::uint32_t from, std::uint32_t to)
{
    for (int x = 0; x < width; ++x) {
        const std::uint32_t code = codes[x];
        row[4 * x + place] = static_cast<Out>(from == to ? code : (code * to + from / 2) / from);
    }
}

template <class Out>
void packComponent(const ComponentRows& components, const AVFrame& picture, int component, int y,
                   std::vector<std::uint16_t>& scratch, Out* row, std::uint32_t to)
{
    const int place = (component + 1) % 4; // alpha, the last one, goes first
    if (component == alphaComponent && !components.hasAlpha()) {
        for (int x = 0; x < picture.width; ++x) {
            row[4 * x] = static_cast<Out>(to);
        }
        return;
    }
    components.read(picture, component, y, 0, picture.width, scratch.data());
    const std::uint32_t from = largest(components.bits());
    if (components.wide()) {
        spread(scratch.data(), row, place, picture.width, from, to);
    } else {
        spread(reinterpret_cast<const std::uint8_t*>(scratch.data()), row, place, picture.width, from, to);
    }
}

} // namespace

Status packRgb(const Frame& frame, Depth depth, void* rows, std::ptrdiff_t pitch)
{
    const AVFrame& picture = *frame.picture();
    const auto format = static_cast<AVPixelFormat>(picture.format);
    if (const std::string why = ComponentRows::unreadable(format); !why.empty()) {
        return Error{"pixel format " + std::string(av_get_pix_fmt_name(format)) +
                     " is not supported: " + why};
    }
    const ComponentRows components(format);
    std::vector<std::uint16_t> scratch(static_cast<std::size_t>(picture.width));
    const std::uint32_t to = largest(static_cast<int>(depth));
    for (int y = 0; y < picture.height; ++y) {
        auto* row = static_cast<std::byte*>(rows) + y * pitch;
        for (int component = 0; component <= alphaComponent; ++component) {
            if (depth == Depth::bits8) {
                packComponent(components, picture, component, y, scratch,
                              reinterpret_cast<std::uint8_t*>(row), to);
            } else {
                packComponent(components, picture, component, y, scratch,
                              reinterpret_cast<std::uint16_t*>(row), to);
            }
        }
    }
    return {};
}

} // namespace Qx::Media
