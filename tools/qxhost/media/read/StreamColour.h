#pragma once

#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/MediaTypes.h"

namespace Qx::Media {

/// Reads a frame's colour tags, or the stream's where it has none.
Colour colourOf(const AVFrame& frame, const AVCodecParameters& stream);

/// From the first frame, else from the stream.
Brightness brightnessOf(const AVFrame& frame, const AVStream& stream);

/// By the frame's own tags alone.
Colour colourOf(const AVFrame& frame);

} // namespace Qx::Media
