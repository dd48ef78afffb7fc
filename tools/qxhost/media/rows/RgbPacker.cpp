#include "tools/qxhost/media/rows/RgbPacker.h"

#include "tools/qxhost/media/rows/ComponentRows.h"
#include "tools/qxhost/media/rows/Levels.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace Qx::Media {

namespace {

constexpr int alphaComponent = 3;

/// What a code of the source becomes.
using CodeTable = std::vector<std::uint16_t>;

CodeTable tableOf(const Coding& from, const Coding& to)
{
    CodeTable table(std::size_t{1} << from.bits);
    for (unsigned code = 0; code < table.size(); ++code) {
        table[code] = codeOfLevel(code, from, to);
    }
    return table;
}

/// Puts one component of a row into every fourth place, from `place` on.
template <class In, class Out>
void spread(const In* codes, Out* row, int place, int width, const CodeTable& table)
{
    for (int x = 0; x < width; ++x) {
        row[4 * x + place] = static_cast<Out>(table[codes[x]]);
    }
}

template <class Out>
void packComponent(const ComponentRows& components, const AVFrame& picture, int component, int y,
                   std::vector<std::uint16_t>& scratch, Out* row, const CodeTable& table)
{
    const int place = (component + 1) % 4; // alpha, the last one, goes first
    if (component == alphaComponent && !components.hasAlpha()) {
        for (int x = 0; x < picture.width; ++x) {
            row[4 * x] = static_cast<Out>(table.back());
        }
        return;
    }
    components.read(picture, component, y, 0, picture.width, scratch.data());
    if (components.wide()) {
        spread(scratch.data(), row, place, picture.width, table);
    } else {
        spread(reinterpret_cast<const std::uint8_t*>(scratch.data()), row, place, picture.width, table);
    }
}

} // namespace

Status packRgb(const Frame& frame, const FramePacker::Target& target, void* rows, std::ptrdiff_t pitch)
{
    const AVFrame& picture = *frame.picture();
    const auto format = static_cast<AVPixelFormat>(picture.format);
    if (const std::string why = ComponentRows::unreadable(format); !why.empty()) {
        return Error{"pixel format " + std::string(av_get_pix_fmt_name(format)) +
                     " is not supported: " + why};
    }
    const ComponentRows components(format);
    std::vector<std::uint16_t> scratch(static_cast<std::size_t>(picture.width));
    const int to = static_cast<int>(target.depth);
    const CodeTable colours = tableOf({components.bits(), target.rangeOf(frame)}, {to, target.range});
    const CodeTable alpha = tableOf({components.bits(), Range::full}, {to, Range::full});
    for (int y = 0; y < picture.height; ++y) {
        auto* row = static_cast<std::byte*>(rows) + y * pitch;
        for (int component = 0; component <= alphaComponent; ++component) {
            const CodeTable& table = component == alphaComponent ? alpha : colours;
            if (target.depth == Depth::bits8) {
                packComponent(components, picture, component, y, scratch,
                              reinterpret_cast<std::uint8_t*>(row), table);
            } else {
                packComponent(components, picture, component, y, scratch,
                              reinterpret_cast<std::uint16_t*>(row), table);
            }
        }
    }
    return {};
}

} // namespace Qx::Media
