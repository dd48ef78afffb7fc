#pragma once

// Owners for FFmpeg's objects, conversions to and from its types, and its error texts.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libavutil/imgutils.h>
#include <libavutil/mastering_display_metadata.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

#include "tools/qxhost/media/MediaTypes.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace Qx::Media {

struct FreeFrame
{
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct FreePacket
{
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct FreeCodec
{
    void operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
};
struct FreeParameters
{
    void operator()(AVCodecParameters* parameters) const { avcodec_parameters_free(&parameters); }
};

using FramePtr = std::unique_ptr<AVFrame, FreeFrame>;
using PacketPtr = std::unique_ptr<AVPacket, FreePacket>;
using CodecPtr = std::unique_ptr<AVCodecContext, FreeCodec>;

/// Opens a stream, again if a signal interrupts that. 0, or FFmpeg's error.
inline int openStream(AVIOContext*& stream, const std::string& url, int flags)
{
    int error = 0;
    do {
        error = avio_open2(&stream, url.c_str(), flags, nullptr, nullptr);
    } while (error == AVERROR(EINTR));
    return std::min(error, 0);
}

// A packet's number, which the frames decoded from it tell in whatever order they come.
#if LIBAVCODEC_VERSION_MAJOR >= 60
/// To be called before the decoder is opened.
inline void numberFrames(AVCodecContext& decoder)
{
    decoder.flags |= AV_CODEC_FLAG_COPY_OPAQUE;
}

/// To be called before the packet is sent.
inline void numberPacket(AVCodecContext& /*decoder*/, AVPacket& packet, std::int64_t number)
{
    packet.opaque = reinterpret_cast<void*>(static_cast<std::intptr_t>(number + 1));
}

inline std::optional<std::int64_t> packetNumber(const AVFrame& frame)
{
    return frame.opaque ? std::optional(reinterpret_cast<std::intptr_t>(frame.opaque) - 1) : std::nullopt;
}
#else
inline void numberFrames(AVCodecContext& /*decoder*/) {}

inline void numberPacket(AVCodecContext& decoder, AVPacket& /*packet*/, std::int64_t number)
{
    decoder.reordered_opaque = number;
}

/// Empty if the decoder does not say.
inline std::optional<std::int64_t> packetNumber(const AVFrame& frame)
{
    return frame.reordered_opaque >= 0 ? std::optional(frame.reordered_opaque) : std::nullopt;
}
#endif

inline AVRational toAv(Rational value)
{
    return {value.num, value.den};
}

inline AVColorRange toAv(Range range)
{
    return range == Range::full ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
}

inline AVFieldOrder toAv(FieldOrder order)
{
    switch (order) {
    case FieldOrder::progressive:
        break;
    case FieldOrder::topFirst:
        return AV_FIELD_TT;
    case FieldOrder::bottomFirst:
        return AV_FIELD_BB;
    }
    return AV_FIELD_PROGRESSIVE;
}

inline Rational fromAv(AVRational value)
{
    return value.den == 0 ? Rational{} : Rational{value.num, value.den};
}

/// A tag that came from a file, or `unknown` if its number is `count` or more. FFmpeg passes on any number,
/// which must not be read as a value of the enumeration.
template <class Tag>
Tag tagOf(const Tag& stored, Tag count, Tag unknown)
{
    unsigned number = 0;
    static_assert(sizeof(Tag) == sizeof(number));
    std::memcpy(&number, &stored, sizeof(number));
    return number < static_cast<unsigned>(count) ? stored : unknown;
}

/// FFmpeg's text for an error code, or the system's for an errno.
std::string errorText(int code);

/// Error messages of one decoder or input, from any of its threads. A decoder or input whose `opaque` points
/// to this object sends its errors here: some decoders patch damage, and some inputs end, with no other sign.
class SourceMessages
{
public:
    void add(std::string text)
    {
        const std::lock_guard lock(mutex_);
        last_ = std::move(text);
    }
    /// The last message since the last call, or empty.
    std::string take()
    {
        const std::lock_guard lock(mutex_);
        return std::exchange(last_, {});
    }

private:
    std::mutex mutex_;
    std::string last_;
};

/// Redirects FFmpeg's messages from standard error to this module. Call it before opening a file; cheap.
void captureFfmpegLog();

/// FFmpeg's last error message on any thread since the last call, without those that went to SourceMessages;
/// or empty. A hint for people: with several clips open it may belong to another one.
std::string takeFfmpegMessage();

/// ": MESSAGE" of takeFfmpegMessage(), or empty.
std::string ffmpegHint();

} // namespace Qx::Media
