#pragma once

#include "tools/qxhost/media/read/ClipReader.h"
#include "tools/qxhost/pipeline/options/FrameRangeOptions.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace Qx::Program {

/// The number of a frame in its clip, from its time, so that frames missing from the input leave a gap.
/// `counted`: its number by counting, which counts where the rate is unknown.
std::int64_t frameNumber(const Media::StreamInfo& info, std::int64_t pts, std::int64_t counted);

/// The frames that options mean in a certain input.
struct FrameRange
{
    std::optional<Media::SeekTarget> start; ///< empty: the input's first frame
    std::int64_t frames = 0;                ///< at most; 0: all
    std::optional<std::int64_t> endPts;     ///< no frame at or after that time
    std::optional<std::int64_t> duration;   ///< in the same units: no frame so long after the first, or later
    std::int64_t expected = 0;              ///< frames that there will be; 0 if that is unknown
};

/// Which of the frames that an input gives, one after the other, are within the range.
class RangeLimit
{
public:
    RangeLimit() = default;
    RangeLimit(const FrameRange& range, std::int64_t firstPts) : range_(range), reached_(firstPts) {}

    /// No more frames are wanted.
    bool isFull() const { return range_.frames != 0 && taken_ >= range_.frames; }

    /// Counts the next frame, or returns false if it is beyond the end.
    bool take(const Media::FrameTime& time);

    /// Frames so far, and the end of the last.
    std::int64_t taken() const { return taken_; }
    std::int64_t reached() const { return reached_; }

    /// If there are no more frames: whether the input has ended before the range.
    bool isUnreached() const { return range_.endPts && reached_ < *range_.endPts; }

private:
    FrameRange range_{};
    std::optional<std::int64_t> end_; ///< by the range's duration
    std::int64_t taken_ = 0;
    std::int64_t reached_ = 0;
};

/// Throws Failure (input) if the input has no such frames, (usage) if the range ends before it begins.
FrameRange frameRange(const FrameRangeOptions& options, const Media::StreamInfo& info,
                      const std::filesystem::path& input);

/// The option that says where to begin, as it was given.
std::string startText(const FrameRangeOptions& options);

} // namespace Qx::Program
