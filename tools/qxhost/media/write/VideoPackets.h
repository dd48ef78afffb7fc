#pragma once

#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/Frame.h"
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
    /// The same with a frame as it was decoded; see iFrameWriter::writeDecoded().
    virtual Status encodeDecoded(const Frame& /*frame*/, Range /*range*/, const FrameTime& /*time*/,
                                 const Sink& /*sink*/)
    {
        return Error{"these packets are not made of decoded frames"};
    }
    /// Flushes the packets still in the encoder.
    virtual Status flush(const Sink& sink) = 0;

    /// The codec parameters for the file's header, and the packets' time base.
    virtual AVCodecContext& context() const = 0;
    virtual std::string description() const = 0;
    /// Whether alpha was requested and is dropped.
    virtual bool dropsAlpha() const = 0;
    /// Number of frames so far whose times were moved later, because the time base could not distinguish them
    /// from the one before.
    virtual std::int64_t movedFrames() const = 0;
};

} // namespace Qx::Media
