#include "tools/qxhost/media/write/StoredVideo.h"

#include "tools/qxhost/media/Matrices.h"

#include <algorithm>
#include <cstring>

namespace Qx::Media {

namespace {

std::uint32_t tagOf(const char* text)
{
    std::uint32_t tag = 0;
    if (*text != '\0') {
        std::memcpy(&tag, text, sizeof tag); // little-endian, as FFmpeg's tags are
    }
    return tag;
}

void swapWords(std::uint8_t* bytes, std::size_t size)
{
    for (std::size_t i = 0; i + 1 < size; i += 2) {
        std::swap(bytes[i], bytes[i + 1]);
    }
}

} // namespace

StoredVideo::StoredVideo(const StoredContainer& container, const StoredLayout& layout, PacketTimes times)
    : container_(container), layout_(layout), times_(times)
{
}

Result<std::unique_ptr<iVideoPackets>> StoredVideo::make(const StoredContainer& container,
                                                         const OutputSettings& settings, AVRational timeBase)
{
    std::unique_ptr<StoredVideo> video(
        new StoredVideo(container, *settings.stored, PacketTimes(settings.timeBase)));
    if (!video->describe(settings, timeBase)) {
        return Error{"out of memory"};
    }
    return std::unique_ptr<iVideoPackets>(std::move(video));
}

bool StoredVideo::describe(const OutputSettings& settings, AVRational timeBase)
{
    context_.reset(avcodec_alloc_context3(nullptr));
    if (!context_) {
        return false;
    }
    context_->codec_type = AVMEDIA_TYPE_VIDEO;
    context_->codec_id = container_.codec;
    context_->codec_tag = tagOf(container_.tag);
    context_->pix_fmt = container_.pixelFormat;
    context_->width = settings.width;
    context_->height = settings.height;
    context_->time_base = timeBase;
    context_->framerate = toAv(settings.frameRate);
    context_->sample_aspect_ratio = toAv(settings.sampleAspect);
    context_->field_order = toAv(settings.fieldOrder);
    context_->bits_per_coded_sample =
        av_get_padded_bits_per_pixel(av_pix_fmt_desc_get(container_.pixelFormat));
    tagColours(settings);
    return container_.codec != AV_CODEC_ID_M101 || setMatroxData(settings);
}

void StoredVideo::tagColours(const OutputSettings& settings)
{
    context_->color_primaries = static_cast<AVColorPrimaries>(settings.colour.primariesTag);
    context_->color_trc = static_cast<AVColorTransferCharacteristic>(settings.colour.transferTag);
    if (!layout_.yCrCb) {
        context_->colorspace = AVCOL_SPC_RGB;
        context_->color_range = toAv(settings.rgbRange);
        return;
    }
    if (!settings.colour.rangeGuessed) {
        context_->color_range = toAv(settings.colour.range);
    }
    if (!settings.colour.matrixGuessed) {
        context_->colorspace =
            static_cast<AVColorSpace>(writtenTag(settings.colour.matrix, settings.colour.matrixTag));
    }
    context_->chroma_sample_location = AVCHROMA_LOC_LEFT;
}

bool StoredVideo::setMatroxData(const OutputSettings& settings)
{
    // The fields of the cards' own files that decoders read: the depth at byte 8, the scan in the low bits of
    // byte 12 (3 is progressive; bit 0 the upper field first), the row stride at byte 20.
    constexpr std::size_t size = 24;
    constexpr std::size_t depthAt = 8;
    constexpr std::size_t scanAt = 12;
    constexpr std::size_t strideAt = 20;
    auto* data = static_cast<std::uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
    if (data == nullptr) {
        return false;
    }
    data[depthAt] = static_cast<std::uint8_t>(layout_.bits);
    data[scanAt] = settings.fieldOrder == FieldOrder::progressive
                       ? 3
                       : (settings.fieldOrder == FieldOrder::topFirst ? 1 : 2);
    const std::size_t stride = layout_.planes.front().rowBytes;
    for (std::size_t i = 0; i < 4; ++i) {
        data[strideAt + i] = static_cast<std::uint8_t>(stride >> (8 * i));
    }
    context_->extradata = data;
    context_->extradata_size = static_cast<int>(size);
    return true;
}

Status StoredVideo::encode(const void* rows, std::ptrdiff_t pitch, const FrameTime& time, const Sink& sink)
{
    PacketPtr packet(av_packet_alloc());
    const std::size_t size = layout_.frameBytes();
    if (size > static_cast<std::size_t>(INT32_MAX) - AV_INPUT_BUFFER_PADDING_SIZE) {
        return Error{"frames of " + std::to_string(size) + " bytes are too large for a container"};
    }
    if (!packet || av_new_packet(packet.get(), static_cast<int>(size)) < 0) {
        return Error{"out of memory for a frame"};
    }
    layout_.gather(rows, pitch, reinterpret_cast<std::byte*>(packet->data));
    if (container_.bigEndian) {
        swapWords(packet->data, size);
    }
    if (layout_.format == Image::PlanarRGB) {
        std::rotate(packet->data, packet->data + size / 3, packet->data + size); // green comes first there
    }
    packet->pts = times_.next(time, context_->time_base);
    packet->dts = packet->pts;
    packet->duration = times_.duration(time, context_->time_base);
    packet->flags |= AV_PKT_FLAG_KEY;
    return sink(*packet);
}

std::string StoredVideo::description() const
{
    const std::string codec =
        container_.codec == AV_CODEC_ID_RAWVIDEO ? "raw" : avcodec_get_name(container_.codec);
    return layout_.name + ", " + codec;
}

} // namespace Qx::Media
