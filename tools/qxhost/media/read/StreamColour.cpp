#include "tools/qxhost/media/read/StreamColour.h"

#include "tools/qxhost/media/FfmpegVersions.h"
#include "tools/qxhost/media/Matrices.h"
#include "tools/qxhost/media/rows/ComponentRows.h"

#include <algorithm>
#include <cstring>

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
std::string whyUnsupported(AVColorSpace matrix, AVColorTransferCharacteristic transfer, bool rgb)
{
    if (rgb) {
        return {};
    }
    if (isLinearOrLog(transfer)) {
        return named("its transfer characteristic is", av_color_transfer_name(transfer));
    }
    if (matrix == AVCOL_SPC_BT2020_CL) {
        return "its matrix is BT.2020 with constant luminance";
    }
    const bool isUntagged = matrix == AVCOL_SPC_UNSPECIFIED || matrix == AVCOL_SPC_RESERVED;
    if (!matrixOfTag(matrix) && !isUntagged) {
        return named("its matrix is", av_color_space_name(matrix));
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
    colour.unsupported = whyUnsupported(matrix, transfer, colour.fromRgb);
    const std::optional<Matrix> taggedMatrix = matrixOfTag(matrix);
    colour.matrix = primaries == AVCOL_PRI_BT2020 ? Matrix::bt2020 : matrixForWidth(frame.width);
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

Brightness brightnessOf(const AVFrame& frame, const AVStream& stream)
{
    const auto either = [&](AVFrameSideDataType ofFrame, AVPacketSideDataType ofStream) {
        const AVFrameSideData* data = av_frame_get_side_data(&frame, ofFrame);
        const std::span<const std::uint8_t> bytes =
            data ? std::span<const std::uint8_t>(data->data, data->size) : sideDataOf(stream, ofStream);
        return std::vector<std::uint8_t>(bytes.begin(), bytes.end());
    };
    Brightness found;
    found.mastering =
        either(AV_FRAME_DATA_MASTERING_DISPLAY_METADATA, AV_PKT_DATA_MASTERING_DISPLAY_METADATA);
    found.content = either(AV_FRAME_DATA_CONTENT_LIGHT_LEVEL, AV_PKT_DATA_CONTENT_LIGHT_LEVEL);
    AVMasteringDisplayMetadata mastering{};
    if (found.mastering.size() >= sizeof mastering) {
        std::memcpy(&mastering, found.mastering.data(), sizeof mastering);
        if (mastering.has_luminance != 0 && mastering.max_luminance.den != 0) {
            found.peak = std::max(av_q2d(mastering.max_luminance), 0.0);
        }
    }
    AVContentLightMetadata content{};
    if (found.peak == 0 && found.content.size() >= sizeof content) {
        std::memcpy(&content, found.content.data(), sizeof content);
        found.peak = content.MaxCLL;
    }
    return found;
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
