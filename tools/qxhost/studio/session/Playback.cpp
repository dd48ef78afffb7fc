#include "tools/qxhost/studio/session/Playback.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace Qx::Program::Studio {

namespace {

/// Frames that are left out at once, at most.
constexpr std::int64_t mostSkipped = 8;

} // namespace

std::int64_t Playback::out() const
{
    const std::int64_t last = count_ ? *count_ - 1 : std::numeric_limits<std::int64_t>::max();
    return out_ ? std::min(*out_, last) : last;
}

std::int64_t Playback::limited(std::int64_t frame) const
{
    const std::int64_t last = count_ ? *count_ - 1 : std::numeric_limits<std::int64_t>::max();
    return std::clamp<std::int64_t>(frame, 0, std::max<std::int64_t>(last, 0));
}

void Playback::setCount(std::optional<std::int64_t> count)
{
    count_ = count;
    frame_ = limited(frame_);
    in_ = limited(in_);
}

void Playback::setRange(std::int64_t in, std::int64_t out)
{
    in_ = limited(in);
    out_ = std::max(limited(out), in_);
}

void Playback::begin(std::int64_t frame, Clock::time_point now)
{
    frame_ = limited(frame);
    from_ = frame_;
    since_ = now;
}

void Playback::seek(std::int64_t frame, Clock::time_point now)
{
    holds_ = false;
    begin(frame, now);
}

void Playback::hold()
{
    holds_ = holds_ || playing_;
    playing_ = false;
}

void Playback::resume(Clock::time_point now)
{
    if (std::exchange(holds_, false)) {
        playing_ = rate_ > 0 && out() > in_;
        begin(frame_, now);
    }
}

void Playback::play(Clock::time_point now)
{
    holds_ = false;
    playing_ = rate_ > 0 && out() > in_;
    begin(frame_ >= out() || frame_ < in_ ? in_ : frame_, now);
}

bool Playback::advance(Clock::time_point now)
{
    if (!playing_) {
        return false;
    }
    const double elapsed = std::chrono::duration<double>(now - since_).count();
    std::int64_t due = from_ + static_cast<std::int64_t>(std::floor(elapsed * rate_ + 1e-6));
    if (due <= frame_) {
        return false;
    }
    const bool isLate = due - frame_ > mostSkipped;
    due = std::min(due, frame_ + mostSkipped);
    if (due <= out()) {
        if (isLate) {
            begin(due, now);
        }
        frame_ = due;
        return true;
    }
    if (frame_ < out()) { // its last frame is shown before the range begins anew
        frame_ = out();
        return true;
    }
    if (loops_) {
        begin(in_, now);
        return true;
    }
    playing_ = false;
    return false;
}

Playback::Clock::time_point Playback::nextDue() const
{
    const double seconds = static_cast<double>(frame_ + 1 - from_) / rate_;
    return since_ + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

} // namespace Qx::Program::Studio
