#pragma once

#include "tools/qxhost/media/Ffmpeg.h"

#include <string>

namespace Qx::Media {

/// How a video is to be written into a container.
struct RawTrial
{
    int compliance = FF_COMPLIANCE_UNOFFICIAL; ///< strict_std_compliance of the muxer
    std::string why;                           ///< it cannot be; empty if it can
};

/// Raw frames are written in the way in which the container's readers take them for what they are: FFmpeg
/// gives some pixel formats their names in MOV only if it is strict. Frames that have no name in it, which
/// FFmpeg writes all the same, are refused. Everything else is written as usual, and it is for the muxer to
/// refuse it. A small frame is written and read in memory for this.
RawTrial tryRawFrames(const AVOutputFormat& container, const AVCodecParameters& video);

} // namespace Qx::Media
