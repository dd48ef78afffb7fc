#pragma once

#include "tools/qxhost/media/Frame.h"
#include "tools/qxhost/media/MediaTypes.h"
#include "tools/qxhost/media/Result.h"

#include <cstddef>

namespace Qx::Media {

/// Writes a frame of RGB (or of a palette) as four components a pixel in memory order A R G B. Where depths
/// differ, codes of `range` keep their level (Levels.h), and alpha its share of the largest code; else they
/// are unchanged. Frames without alpha become opaque. Rows begin at rows, rows + pitch, ...
Status packRgb(const Frame& frame, Depth depth, Range range, void* rows, std::ptrdiff_t pitch);

} // namespace Qx::Media
