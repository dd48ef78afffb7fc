#pragma once

#include <cstdint>
#include <optional>

namespace Qx::Media {

/// The frame to go to.
struct SeekTarget
{
    /// Its number, from 0.
    std::int64_t frame = 0;
    /// If set, the first frame at or after this time is meant, whatever its number. In units of the stream's
    /// time base.
    std::optional<std::int64_t> pts;
};

/// The frame that comes next.
struct ClipPlace
{
    std::int64_t frame = 0; ///< its number, from 0; at the end, the number of frames
    std::int64_t pts = 0;   ///< when it is shown; undefined at the end
};

} // namespace Qx::Media
