#include "tools/qxhost/media/read/StreamColour.h"

#include "tools/qxhost/media/Matrices.h"
#include "tools/qxhost/media/rows/ComponentRows.h"

namespace Qx::Media {

namespace {

std::string named(const char* what, const char* name)
{
    return std::string(what) + " " + (name ? name : "of an unknown number");
}

bool isLinearOrLog(AVColorTransferCharacteristic transfer)
{
    return transfer == AVCOL_TRC_LINEAR || transfer == AVCOL_TRC_LOG || transfer == AVCOL_TRC_LOG_SQRT;
}

/// RGB has no matrix. Its tags "linear" and "log" tell nothing either: FFmpeg's DPX encoder writes "linear"
/// on every picture.
std::string whyUnsupported(AVColorSpace matrix, AVColorPrimaries primaries,
                           AVColorTransferCharacteristic transfer, bool rgb)
{
    if (transfer == AVCOL_TRC_SMPTE2084 || transfer == AVCOL_TRC_ARIB_STD_B67) {
        return std::string("its transfer characteristic is ") +
               (transfer == AVCOL_TRC_SMPTE2084 ? "PQ (SMPTE ST 2084)" : "HLG (ARIB STD-B67)") +
               ", high dynamic range";
    }
    if (!rgb && isLinearOrLog(transfer)) {
        return named("its transfer characteristic is", av_color_transfer_name(transfer));
    }
    const bool isUntagged = matrix == AVCOL_SPC_UNSPECIFIED || matrix == AVCOL_SPC_RESERVED;
    if (!rgb && !matrixOfTag(matrix) && !isUntagged) {
        return named("its matrix is", matrix == AVCOL_SPC_BT2020_NCL || matrix == AVCOL_SPC_BT2020_CL
                                          ? "BT.2020"
                                          : av_color_space_name(matrix));
    }
    if (primaries == AVCOL_PRI_BT2020) {
        return "its primaries are BT.2020";
    }
    return {};
}

} // namespace

Colour colourOf(const AVFrame& frame, const AVCodecParameters& stream)
{
    const ComponentRows components(static_cast<AVPixelFormat>(frame.format));
    const auto either = [](const auto& ofFrame, const auto& ofStream, auto count, auto unspecified,
                           auto unknown) {
        const auto tag = tagOf(ofFrame, count, unknown);
        return tag != unspecified ? tag : tagOf(ofStream, count, unknown);
    };
    // A matrix of an unknown number is refused. An unknown number of the others says nothing.
    const AVColorSpace matrix =
        either(frame.colorspace, stream.color_space, AVCOL_SPC_NB, AVCOL_SPC_UNSPECIFIED, AVCOL_SPC_NB);
    const AVColorRange range = either(frame.color_range, stream.color_range, AVCOL_RANGE_NB,
                                      AVCOL_RANGE_UNSPECIFIED, AVCOL_RANGE_UNSPECIFIED);
    const AVColorPrimaries primaries = either(frame.color_primaries, stream.color_primaries, AVCOL_PRI_NB,
                                              AVCOL_PRI_UNSPECIFIED, AVCOL_PRI_UNSPECIFIED);
    const AVColorTransferCharacteristic transfer =
        either(frame.color_trc, stream.color_trc, AVCOL_TRC_NB, AVCOL_TRC_UNSPECIFIED, AVCOL_TRC_UNSPECIFIED);

    Colour colour;
    colour.fromRgb = components.isRgb() ||
                     (components.isGrey() &&
                      tagOf(frame.color_range, AVCOL_RANGE_NB, AVCOL_RANGE_UNSPECIFIED) != AVCOL_RANGE_MPEG);
    colour.matrixTag = matrix;
    colour.primariesTag = primaries;
    colour.transferTag = colour.fromRgb && isLinearOrLog(transfer) ? AVCOL_TRC_UNSPECIFIED : transfer;
    colour.unsupported = whyUnsupported(matrix, primaries, transfer, colour.fromRgb);
    const std::optional<Matrix> taggedMatrix = matrixOfTag(matrix);
    colour.matrix = matrixForWidth(frame.width);
    if (colour.fromRgb) {
        colour.rgbRange = components.isRgb() && range == AVCOL_RANGE_MPEG ? Range::video : Range::full;
        colour.rangeGuessed = components.isRgb() && range == AVCOL_RANGE_UNSPECIFIED;
        return colour;
    }
    const bool jpegFormat = frame.format == AV_PIX_FMT_YUVJ420P || frame.format == AV_PIX_FMT_YUVJ422P ||
                            frame.format == AV_PIX_FMT_YUVJ444P || frame.format == AV_PIX_FMT_YUVJ440P ||
                            frame.format == AV_PIX_FMT_YUVJ411P;
    colour.range = range == AVCOL_RANGE_JPEG || jpegFormat ? Range::full : Range::video;
    colour.rangeGuessed = range == AVCOL_RANGE_UNSPECIFIED && !jpegFormat;
    colour.matrix = taggedMatrix.value_or(colour.matrix);
    colour.matrixGuessed = !taggedMatrix;
    return colour;
}

Colour colourOf(const AVFrame& frame)
{
    AVCodecParameters noTags{};
    noTags.color_space = AVCOL_SPC_UNSPECIFIED;
    noTags.color_primaries = AVCOL_PRI_UNSPECIFIED;
    noTags.color_trc = AVCOL_TRC_UNSPECIFIED;
    return colourOf(frame, noTags);
}

} // namespace Qx::Media
