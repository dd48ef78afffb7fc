#include "tools/qxhost/media/rows/FieldRows.h"

#include "tools/qxhost/media/FfmpegVersions.h"

namespace Qx::Media {

zimg_chroma_location_e chromaLocation(const AVFrame& frame)
{
    switch (tagOf(frame.chroma_location, AVCHROMA_LOC_NB, AVCHROMA_LOC_UNSPECIFIED)) {
    case AVCHROMA_LOC_LEFT:
        return ZIMG_CHROMA_LEFT;
    case AVCHROMA_LOC_CENTER:
        return ZIMG_CHROMA_CENTER;
    case AVCHROMA_LOC_TOPLEFT:
        return ZIMG_CHROMA_TOP_LEFT;
    case AVCHROMA_LOC_TOP:
        return ZIMG_CHROMA_TOP;
    case AVCHROMA_LOC_BOTTOMLEFT:
        return ZIMG_CHROMA_BOTTOM_LEFT;
    case AVCHROMA_LOC_BOTTOM:
        return ZIMG_CHROMA_BOTTOM;
    default:
        break;
    }
    switch (frame.format) {
    case AV_PIX_FMT_YUVJ420P:
    case AV_PIX_FMT_YUVJ422P:
    case AV_PIX_FMT_YUVJ440P:
    case AV_PIX_FMT_YUVJ411P:
        return ZIMG_CHROMA_CENTER; // JPEG, JFIF 1.02
    default:
        return ZIMG_CHROMA_LEFT; // H.264 table E-2 and MPEG-2 where nothing is said
    }
}

void repeatLast(void* row, int count, int wanted, bool wide)
{
    if (count >= wanted) {
        return;
    }
    if (wide) {
        auto* codes = static_cast<std::uint16_t*>(row);
        std::fill(codes + count, codes + wanted, codes[count - 1]);
    } else {
        auto* codes = static_cast<std::uint8_t*>(row);
        std::fill(codes + count, codes + wanted, codes[count - 1]);
    }
}

PlanarFormat FieldRows::planarFormat() const
{
    PlanarFormat format;
    format.shiftX = components.chromaShiftX();
    format.shiftY = components.chromaShiftY();
    format.width = static_cast<unsigned>(roundUp(width, format.shiftX));
    format.height = static_cast<unsigned>(roundUp(rows(), format.shiftY));
    format.rgb = components.isRgb() || components.isGrey();
    format.bits = components.bits();
    format.parity = fields == 1 ? ZIMG_FIELD_PROGRESSIVE : (field == 0 ? ZIMG_FIELD_TOP : ZIMG_FIELD_BOTTOM);
    return format;
}

void FieldRows::take(const RowGraph::Window& window, unsigned row, unsigned left, unsigned right,
                     AVFrame& to) const
{
    const std::ptrdiff_t codeSize = components.wide() ? 2 : 1;
    each(row, left, right, [&](int plane, int index, int at, int first, int count) {
        const auto* codes = static_cast<const std::byte*>(window.row(plane, static_cast<unsigned>(index)));
        components.write(to, plane, at, first, count, codes + first * codeSize);
    });
}

} // namespace Qx::Media
