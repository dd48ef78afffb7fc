#pragma once

#include "tools/qxhost/media/Ffmpeg.h"

namespace Qx::Media {

/// What a decoder must have of audio before a cut to be right at the cut, in seconds: Opus needs 80 ms
/// (RFC 7845, 4.6), AAC and others one or two packets.
inline constexpr AVRational audioPreroll{1, 10};

/// Whether a packet of audio is needed by nothing that is heard from that time of the video on.
inline bool isPastAudio(const AVPacket& packet, AVRational timeBase, std::int64_t pts, AVRational ofPts)
{
    if (packet.pts == AV_NOPTS_VALUE) {
        return false;
    }
    const std::int64_t end = av_sat_add64(packet.pts, packet.duration);
    const std::int64_t needed = av_sat_add64(end, av_rescale_q(1, audioPreroll, timeBase));
    return av_compare_ts(needed, timeBase, pts, ofPts) <= 0;
}

} // namespace Qx::Media
