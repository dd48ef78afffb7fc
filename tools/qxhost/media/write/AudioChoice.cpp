#include "tools/qxhost/media/write/AudioChoice.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace Qx::Media {

namespace {

bool isOneOf(std::string_view name, std::initializer_list<std::string_view> names)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

bool isPcm(AVCodecID codec)
{
    return std::string_view(avcodec_get_name(codec)).starts_with("pcm_");
}

/// ISO/IEC 14496-14 and its kin. QuickTime is not meant.
bool isMp4(const AVOutputFormat& container)
{
    return isOneOf(container.name, {"mp4", "ipod", "psp", "3gp", "3g2", "f4v"});
}

/// Of the stream types of ISO/IEC 13818-1; FFmpeg writes others as private data, which nothing plays.
bool hasStreamType(AVCodecID codec)
{
    switch (codec) {
    case AV_CODEC_ID_MP1:
    case AV_CODEC_ID_MP2:
    case AV_CODEC_ID_MP3:
    case AV_CODEC_ID_AAC:
    case AV_CODEC_ID_AAC_LATM:
    case AV_CODEC_ID_AC3:
    case AV_CODEC_ID_EAC3:
    case AV_CODEC_ID_DTS:
    case AV_CODEC_ID_TRUEHD:
    case AV_CODEC_ID_OPUS:
    case AV_CODEC_ID_S302M:
        return true;
    default:
        return false;
    }
}

/// Significant bits of a sample; lossy audio, which has none, gets those of a studio's.
int bitsOf(const AVCodecParameters& track)
{
    constexpr int studioBits = 24;
    const AVCodecDescriptor* codec = avcodec_descriptor_get(track.codec_id);
    const bool isLossless = codec && (codec->props & AV_CODEC_PROP_LOSSLESS) != 0;
    if (!isLossless) {
        return studioBits;
    }
    constexpr int bitsOfByte = 8;
    const int ofSample = av_get_bytes_per_sample(static_cast<AVSampleFormat>(track.format)) * bitsOfByte;
    return track.bits_per_raw_sample > 0 ? track.bits_per_raw_sample : std::max(ofSample, 1);
}

} // namespace

bool holdsAudio(const AVOutputFormat& container, AVCodecID codec)
{
    if (std::string_view(container.name) == "mpegts") {
        return hasStreamType(codec);
    }
    return avformat_query_codec(&container, codec, FF_COMPLIANCE_NORMAL) != 0;
}

bool suitsAudio(const AVOutputFormat& container, AVCodecID codec)
{
    const bool isUnusual = isMp4(container) && isPcm(codec); // ISO/IEC 23003-5 has it, few players do
    return !isUnusual && holdsAudio(container, codec);
}

bool holdsAnyAudio(const AVOutputFormat& container)
{
    return container.audio_codec != AV_CODEC_ID_NONE;
}

Result<const AVCodec*> chooseAudioEncoder(const AVOutputFormat& container, const AVCodecParameters& track)
{
    const std::string_view name = container.name;
    AVCodecID wanted = container.audio_codec;
    if (isOneOf(name, {"mov", "avi", "mxf", "matroska", "nut"})) {
        constexpr int bitsOfDisc = 16;
        wanted = bitsOf(track) <= bitsOfDisc ? AV_CODEC_ID_PCM_S16LE : AV_CODEC_ID_PCM_S24LE;
    } else if (isMp4(container) || isOneOf(name, {"mpegts", "flv"})) {
        wanted = AV_CODEC_ID_AAC;
    } else if (name == "webm") {
        wanted = AV_CODEC_ID_OPUS;
    }
    for (const AVCodecID codec : {wanted, container.audio_codec}) {
        const AVCodec* found = avcodec_find_encoder(codec);
        if (found && found->type == AVMEDIA_TYPE_AUDIO) {
            return found;
        }
    }
    return Error{std::string("this FFmpeg has no encoder for ") + avcodec_get_name(wanted)};
}

int onlySampleRate(const AVOutputFormat& container)
{
    constexpr int ofMxf = 48'000; // SMPTE ST 382 has others, FFmpeg's writer has not
    return isOneOf(container.name, {"mxf", "mxf_d10", "mxf_opatom"}) ? ofMxf : 0;
}

} // namespace Qx::Media
