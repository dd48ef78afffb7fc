#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace Qx::Program::Studio {

/// The place in the clip, and how it moves. Frames count from 0.
class Playback
{
public:
    using Clock = std::chrono::steady_clock;

    /// `rate`: frames a second; 0 for a still picture. `count` is empty while it is unknown.
    Playback(double rate, std::optional<std::int64_t> count) : rate_(rate), count_(count) {}

    std::int64_t frame() const { return frame_; }
    bool isPlaying() const { return playing_; }
    bool loops() const { return loops_; }
    std::int64_t in() const { return in_; }
    /// The last frame of the range; the clip's last, or the largest number while that is unknown.
    std::int64_t out() const;

    void setCount(std::optional<std::int64_t> count);
    void setLoop(bool loops) { loops_ = loops; }
    /// Sets the range; `out` is not before `in`.
    void setRange(std::int64_t in, std::int64_t out);
    void seek(std::int64_t frame, Clock::time_point now);
    /// Plays from the current frame on, or from the first of the range at its end.
    void play(Clock::time_point now);
    void pause() { playing_ = holds_ = false; }
    /// Pauses until resume(), unless something else is asked for meanwhile.
    void hold();
    void resume(Clock::time_point now);

    /// Moves to the frame that is due. Frames that could not be shown in time are left out, but a machine
    /// that is slower than the clip plays it slower. Returns whether the frame is another one.
    bool advance(Clock::time_point now);

    /// When the next frame is due.
    Clock::time_point nextDue() const;

private:
    std::int64_t limited(std::int64_t frame) const;
    void begin(std::int64_t frame, Clock::time_point now);

    double rate_;
    std::optional<std::int64_t> count_;
    std::int64_t frame_ = 0;
    std::int64_t in_ = 0;
    std::optional<std::int64_t> out_;
    bool playing_ = false;
    bool holds_ = false; ///< it plays again after resume()
    bool loops_ = true;
    std::int64_t from_ = 0; ///< the frame of since_
    Clock::time_point since_;
};

} // namespace Qx::Program::Studio
