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

/// Throws Failure (input) if the input has no such frames, (usage) if the range ends before it begins.
FrameRange frameRange(const FrameRangeOptions& options, const Media::StreamInfo& info,
                      const std::filesystem::path& input);

/// The option that says where to begin, as it was given.
std::string startText(const FrameRangeOptions& options);

} // namespace Qx::Program
