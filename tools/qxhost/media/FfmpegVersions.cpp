#include "tools/qxhost/media/FfmpegVersions.h"

#include <algorithm>
#include <cstring>

namespace Qx::Media {

namespace {

constexpr std::size_t displayMatrixSize = sizeof(DisplayMatrix);

} // namespace

std::int64_t durationOf(const AVFrame& frame)
{
#if LIBAVUTIL_VERSION_MAJOR >= 58 // FFmpeg 6.0
    const std::int64_t duration = frame.duration;
#else
    const std::int64_t duration = frame.pkt_duration;
#endif
    return std::max<std::int64_t>(duration, 0);
}

FieldOrder fieldOrderOf(const AVFrame& frame)
{
#if LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(58, 7, 100) // FFmpeg 6.1
    const bool interlaced = (frame.flags & AV_FRAME_FLAG_INTERLACED) != 0;
    const bool topFirst = (frame.flags & AV_FRAME_FLAG_TOP_FIELD_FIRST) != 0;
#else
    const bool interlaced = frame.interlaced_frame != 0;
    const bool topFirst = frame.top_field_first != 0;
#endif
    if (!interlaced) {
        return FieldOrder::progressive;
    }
    return topFirst ? FieldOrder::topFirst : FieldOrder::bottomFirst;
}

void setFieldOrder(AVFrame& frame, FieldOrder order)
{
    const bool interlaced = order != FieldOrder::progressive;
    const bool topFirst = order == FieldOrder::topFirst;
#if LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(58, 7, 100) // FFmpeg 6.1
    frame.flags &= ~(AV_FRAME_FLAG_INTERLACED | AV_FRAME_FLAG_TOP_FIELD_FIRST);
    frame.flags |=
        (interlaced ? AV_FRAME_FLAG_INTERLACED : 0) | (topFirst ? AV_FRAME_FLAG_TOP_FIELD_FIRST : 0);
#else
    frame.interlaced_frame = interlaced;
    frame.top_field_first = topFirst;
#endif
}

std::span<const std::uint8_t> sideDataOf(const AVStream& stream, AVPacketSideDataType type)
{
#if LIBAVFORMAT_VERSION_INT >= AV_VERSION_INT(60, 15, 100) // FFmpeg 6.1
    const AVPacketSideData* found =
        av_packet_side_data_get(stream.codecpar->coded_side_data, stream.codecpar->nb_coded_side_data, type);
    return found ? std::span<const std::uint8_t>(found->data, found->size) : std::span<const std::uint8_t>();
#else
    std::size_t size = 0;
    const std::uint8_t* data = av_stream_get_side_data(&stream, type, &size);
    return data ? std::span(data, size) : std::span<const std::uint8_t>();
#endif
}

bool setSideData(AVStream& stream, AVPacketSideDataType type, std::span<const std::uint8_t> content)
{
#if LIBAVFORMAT_VERSION_INT >= AV_VERSION_INT(60, 15, 100) // FFmpeg 6.1
    AVPacketSideData* made = av_packet_side_data_new(
        &stream.codecpar->coded_side_data, &stream.codecpar->nb_coded_side_data, type, content.size(), 0);
    std::uint8_t* data = made ? made->data : nullptr;
#else
    std::uint8_t* data = av_stream_new_side_data(&stream, type, content.size());
#endif
    if (data) {
        std::memcpy(data, content.data(), content.size());
    }
    return data != nullptr;
}

const std::int32_t* displayMatrixOf(const AVStream& stream)
{
    const std::span<const std::uint8_t> data = sideDataOf(stream, AV_PKT_DATA_DISPLAYMATRIX);
    return data.size() >= displayMatrixSize ? reinterpret_cast<const std::int32_t*>(data.data()) : nullptr;
}

bool setDisplayMatrix(AVStream& stream, const DisplayMatrix& matrix)
{
    return setSideData(stream, AV_PKT_DATA_DISPLAYMATRIX,
                       {reinterpret_cast<const std::uint8_t*>(matrix.data()), displayMatrixSize});
}

std::span<const AVPixelFormat> pixelFormatsOf(const AVCodec& codec)
{
#if LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(61, 13, 100) // FFmpeg 7.1
    const void* formats = nullptr;
    int count = 0;
    if (avcodec_get_supported_config(nullptr, &codec, AV_CODEC_CONFIG_PIX_FORMAT, 0, &formats, &count) < 0 ||
        !formats) {
        return {};
    }
    return {static_cast<const AVPixelFormat*>(formats), static_cast<std::size_t>(count)};
#else
    std::size_t count = 0;
    while (codec.pix_fmts && codec.pix_fmts[count] != AV_PIX_FMT_NONE) {
        ++count;
    }
    return {codec.pix_fmts, count};
#endif
}

} // namespace Qx::Media
