#pragma once

#include <algorithm>
#include <chrono>

namespace Qx::Program::Studio {

/// When the scopes of a window are counted again: as often as it wants, but in at most a quarter of the time,
/// so that pictures do not wait for them.
class ScopePace
{
public:
    using Clock = std::chrono::steady_clock;

    /// `rate`: times a second.
    explicit ScopePace(double rate = 10) : rate_(rate) {}

    /// Until then nothing is counted; the first time at once.
    Clock::time_point due() const { return due_; }

    /// They were counted from one moment to another.
    void counted(Clock::time_point from, Clock::time_point to)
    {
        constexpr int share = 4;
        const auto period =
            std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(1 / rate_));
        due_ = from + std::max(period, share * (to - from));
    }

private:
    double rate_;
    Clock::time_point due_;
};

} // namespace Qx::Program::Studio
