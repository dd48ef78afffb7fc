#pragma once

#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/MediaTypes.h"

#include <cstdint>
#include <optional>

namespace Qx::Media {

/// The times of frames in the time base of a file's packets, strictly increasing.
class PacketTimes
{
public:
    PacketTimes() = default;
    explicit PacketTimes(Rational of) : of_(Media::toAv(of)) {}

    /// The frame's time; moved later if the time base cannot distinguish it from the one before.
    std::int64_t next(const FrameTime& time, AVRational in)
    {
        std::int64_t pts = av_rescale_q(time.pts, of_, in);
        if (last_ && pts <= *last_) {
            pts = av_sat_add64(*last_, 1);
            ++moved_;
        }
        last_ = pts;
        return pts;
    }

    std::int64_t duration(const FrameTime& time, AVRational in) const
    {
        return av_rescale_q(time.duration, of_, in);
    }

    /// Frames that were given later times.
    std::int64_t moved() const { return moved_; }

private:
    AVRational of_{1, 1};
    std::optional<std::int64_t> last_;
    std::int64_t moved_ = 0;
};

} // namespace Qx::Media
