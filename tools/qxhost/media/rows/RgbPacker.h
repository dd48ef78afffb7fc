#pragma once

#include "tools/qxhost/media/Frame.h"
#include "tools/qxhost/media/Result.h"
#include "tools/qxhost/media/rows/FramePacker.h"

#include <cstddef>

namespace Qx::Media {

/// Writes a frame of RGB (or of a palette) as four components a pixel in memory order A R G B, in the
/// target's depth and range. Where these differ from the frame's, codes keep their level (Levels.h), and
/// alpha its share of the largest code; else they are unchanged. Frames without alpha become opaque. Rows
/// begin at rows, rows + pitch, ...
Status packRgb(const Frame& frame, const FramePacker::Target& target, void* rows, std::ptrdiff_t pitch);

} // namespace Qx::Media
