#include "tools/qxhost/media/read/PictureDescription.h"

#include "tools/qxhost/media/FfmpegVersions.h"
#include "tools/qxhost/media/rows/ComponentRows.h"
#include "tools/qxhost/media/rows/FramePacker.h"

#include <algorithm>
#include <vector>

namespace Qx::Media {

namespace {

/// A palette always has an alpha component; whether it is used shows in its entries.
bool usesAlpha(const AVFrame& frame, const ComponentRows& components)
{
    if (!components.hasAlpha() || frame.format != AV_PIX_FMT_PAL8) {
        return components.hasAlpha();
    }
    constexpr std::uint8_t opaque = 255;
    std::vector<std::uint8_t> row(static_cast<std::size_t>(frame.width));
    for (int y = 0; y < frame.height; ++y) {
        components.read(frame, 3, y, 0, frame.width, row.data());
        if (std::any_of(row.begin(), row.end(), [](std::uint8_t alpha) { return alpha != opaque; })) {
            return true;
        }
    }
    return false;
}

} // namespace

void describePicture(const AVFrame& frame, StreamInfo& info)
{
    const auto format = static_cast<AVPixelFormat>(frame.format);
    const ComponentRows components(format);
    info.width = frame.width;
    info.height = frame.height;
    info.fieldOrder = fieldOrderOf(frame);
    info.pixelFormat = av_get_pix_fmt_name(format);
    info.bitsPerComponent = components.bits();
    info.naturalDepth = components.wide() ? Depth::bits16 : Depth::bits8;
    info.packsCodes = FramePacker::onlyRearranges(frame);
    info.packingDepth = info.packsCodes ? info.naturalDepth : Depth::bits16;
    info.hasAlpha = usesAlpha(frame, components);
    // Grey with alpha is taken for RGB, whose components are alike.
    info.hasFullChroma = components.isGrey() ? components.hasAlpha() : components.chromaShiftX() == 0;
    info.subsamplesChroma =
        components.isGrey() || components.chromaShiftX() != 0 || components.chromaShiftY() != 0;
}

} // namespace Qx::Media
