#include "tools/qxhost/media/FfmpegVersions.h"

extern "C" {
#include <libavfilter/version.h>
}

#include <algorithm>
#include <cstring>

namespace Qx::Media {

namespace {

constexpr std::size_t displayMatrixSize = sizeof(DisplayMatrix);

#if LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(61, 13, 100) // FFmpeg 7.1

/// A list of an encoder's, by its name there and the type of its values.
template <class Value>
struct Configuration
{
    AVCodecConfig name;
};

constexpr Configuration<AVPixelFormat> pixelFormats{AV_CODEC_CONFIG_PIX_FORMAT};
constexpr Configuration<AVSampleFormat> sampleFormats{AV_CODEC_CONFIG_SAMPLE_FORMAT};
constexpr Configuration<int> sampleRates{AV_CODEC_CONFIG_SAMPLE_RATE};
constexpr Configuration<AVChannelLayout> channelLayouts{AV_CODEC_CONFIG_CHANNEL_LAYOUT};

template <class Value>
std::span<const Value> configurations(const AVCodec& codec, Configuration<Value> which)
{
    const void* values = nullptr;
    int count = 0;
    if (avcodec_get_supported_config(nullptr, &codec, which.name, 0, &values, &count) < 0 || !values) {
        return {};
    }
    return {static_cast<const Value*>(values), static_cast<std::size_t>(count)};
}

#else

/// A list of an encoder's, by its member there and what ends it.
template <class Value>
struct Configuration
{
    const Value* AVCodec::*list;
    bool (*isEnd)(const Value& value);
};

constexpr Configuration<AVPixelFormat> pixelFormats{
    &AVCodec::pix_fmts, [](const AVPixelFormat& format) { return format == AV_PIX_FMT_NONE; }};
constexpr Configuration<AVSampleFormat> sampleFormats{
    &AVCodec::sample_fmts, [](const AVSampleFormat& format) { return format == AV_SAMPLE_FMT_NONE; }};
constexpr Configuration<int> sampleRates{&AVCodec::supported_samplerates,
                                         [](const int& rate) { return rate == 0; }};
constexpr Configuration<AVChannelLayout> channelLayouts{
    &AVCodec::ch_layouts, [](const AVChannelLayout& layout) { return layout.nb_channels == 0; }};

template <class Value>
std::span<const Value> configurations(const AVCodec& codec, const Configuration<Value>& which)
{
    const Value* values = codec.*which.list;
    std::size_t count = 0;
    while (values != nullptr && !which.isEnd(values[count])) {
        ++count;
    }
    return {values, count};
}

#endif

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

void setDuration(AVFrame& frame, std::int64_t duration)
{
#if LIBAVUTIL_VERSION_MAJOR >= 58 // FFmpeg 6.0
    frame.duration = duration;
#else
    frame.pkt_duration = duration;
#endif
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

#if LIBAVFILTER_VERSION_MAJOR >= 10 // FFmpeg 7.0
std::string colourArguments(AVPixelFormat format, AVColorSpace matrix, AVColorRange range)
{
    const AVPixFmtDescriptor* description = av_pix_fmt_desc_get(format);
    const bool isRgb = description && (description->flags & AV_PIX_FMT_FLAG_RGB) != 0;
    return isRgb ? ""
                 : ":colorspace=" + std::to_string(static_cast<int>(matrix)) +
                       ":range=" + std::to_string(static_cast<int>(range));
}
#else
std::string colourArguments(AVPixelFormat /*format*/, AVColorSpace /*matrix*/, AVColorRange /*range*/)
{
    return {};
}
#endif

std::span<const AVPixelFormat> pixelFormatsOf(const AVCodec& codec)
{
    return configurations(codec, pixelFormats);
}

std::span<const AVSampleFormat> sampleFormatsOf(const AVCodec& codec)
{
    return configurations(codec, sampleFormats);
}

std::span<const int> sampleRatesOf(const AVCodec& codec)
{
    return configurations(codec, sampleRates);
}

std::span<const AVChannelLayout> channelLayoutsOf(const AVCodec& codec)
{
    return configurations(codec, channelLayouts);
}

} // namespace Qx::Media
