#pragma once

#include "tools/qxhost/media/read/ClipReader.h"

struct AVFrame;

namespace Qx::Media {

/// Fills in what a frame of a readable format says of the clip's pictures, but for their colours: size, field
/// order, pixel format, depths, alpha.
void describePicture(const AVFrame& frame, StreamInfo& info);

} // namespace Qx::Media
