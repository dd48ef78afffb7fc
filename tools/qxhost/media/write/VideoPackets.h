#pragma once

#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/MediaTypes.h"
#include "tools/qxhost/media/Result.h"

#include <cstddef>
#include <functional>
#include <string>

namespace Qx::Media {

/// Makes the packets of a clip's video from frames.
class iVideoPackets
{
public:
    using Sink = std::function<Status(AVPacket& packet)>;

    virtual ~iVideoPackets() = default;

    virtual Status encode(const void* rows, std::ptrdiff_t pitch, const FrameTime& time,
                          const Sink& sink) = 0;
    /// Gives the packets still under way.
    virtual Status flush(const Sink& sink) = 0;

    /// What the packets are, as a file's header wants it, and the time base they count in.
    virtual AVCodecContext& context() const = 0;
    virtual std::string description() const = 0;
    /// Alpha was asked for and cannot be kept.
    virtual bool dropsAlpha() const = 0;
    /// Frames so far that were given later times, because the time base could not tell them from the one
    /// before.
    virtual std::int64_t movedFrames() const = 0;
};

} // namespace Qx::Media
