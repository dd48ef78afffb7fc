#pragma once

#include "tools/qxhost/media/Ffmpeg.h"

#include <cstdint>
#include <cstdlib>
#include <map>
#include <optional>

namespace Qx::Media {

/// Keeps the times of packets going on where the clock that they are of starts anew, as that of a transport
/// stream does where two are joined. Times are those of decoding: they rise within a stream.
class ClockJumps
{
public:
    /// Moves the packet's times, which are in `unit`, if there was a jump before it or at it.
    void follow(AVPacket& packet, AVRational unit)
    {
        constexpr AVRational microseconds{1, AV_TIME_BASE};
        const bool hasOrder = packet.dts != AV_NOPTS_VALUE;
        const std::int64_t told = hasOrder ? packet.dts : packet.pts;
        if (told == AV_NOPTS_VALUE) {
            return;
        }
        const std::int64_t given = av_rescale_q(told, unit, microseconds);
        Stream& stream = streams_[packet.stream_index];
        const std::optional<std::int64_t> due = stream.due ? stream.due : latest_;
        const std::int64_t ahead = due ? av_sat_sub64(av_sat_add64(given, offset_), *due) : 0;
        const bool isBefore =
            hasOrder && stream.last && av_sat_add64(given, offset_) < *stream.last - disorder;
        if (ahead > longestGap || ahead < -longestGap || isBefore) {
            offset_ = av_sat_sub64(offset_, ahead);
            ++count_;
        }
        if (hasOrder) {
            stream.last = av_sat_add64(given, offset_);
            stream.due = av_sat_add64(*stream.last, av_rescale_q(packet.duration, unit, microseconds));
            latest_ = stream.last;
        }
        move(packet, unit);
    }

    /// How often the clock has jumped, back or ahead; packets of other streams may lie across a jump, which
    /// then counts once more.
    std::int64_t count() const { return count_; }

private:
    // As ffmpeg has them.
    static constexpr std::int64_t longestGap = 10 * std::int64_t{AV_TIME_BASE};
    static constexpr std::int64_t disorder = AV_TIME_BASE / 10;

    void move(AVPacket& packet, AVRational unit) const
    {
        const std::int64_t by = av_rescale_q(offset_, {1, AV_TIME_BASE}, unit);
        for (std::int64_t* time : {&packet.pts, &packet.dts}) {
            *time = *time == AV_NOPTS_VALUE ? AV_NOPTS_VALUE : av_sat_add64(*time, by);
        }
    }

    struct Stream
    {
        std::optional<std::int64_t> last; ///< in microseconds, moved
        std::optional<std::int64_t> due;  ///< what follows it at once
    };

    std::map<int, Stream> streams_;
    std::optional<std::int64_t> latest_; ///< of any stream
    std::int64_t offset_ = 0;
    std::int64_t count_ = 0;
};

} // namespace Qx::Media
