#pragma once

#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/MediaTypes.h"

namespace Qx::Media {

/// Reads a frame's colour tags (falling back on the stream's) into what the reader promises.
Colour colourOf(const AVFrame& frame, const AVCodecParameters& stream);

} // namespace Qx::Media
