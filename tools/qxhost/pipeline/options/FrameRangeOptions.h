#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace Qx::Program {

/// Which frames of the input are converted. The options that say the same in different ways exclude each
/// other.
struct FrameRangeOptions
{
    using Time = std::chrono::microseconds;

    std::int64_t start = 0;        ///< frames to skip at the beginning
    std::optional<Time> startTime; ///< or the time, from the first frame, at which to begin
    std::string in;                ///< or the time code of the frame to begin with
    std::int64_t frames = 0;       ///< frames to convert at most; 0: all
    std::optional<Time> duration;  ///< or how long what is converted lasts at most
    std::string out;               ///< or the time code of the last frame

    bool skips() const { return start > 0 || startTime || !in.empty(); }
    bool ends() const { return frames > 0 || duration || !out.empty(); }
};

} // namespace Qx::Program
