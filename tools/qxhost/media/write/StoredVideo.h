#pragma once

#include "tools/qxhost/media/StoredLayout.h"
#include "tools/qxhost/media/write/FrameWriter.h"
#include "tools/qxhost/media/write/PacketTimes.h"
#include "tools/qxhost/media/write/StoredContainers.h"
#include "tools/qxhost/media/write/VideoPackets.h"

#include <memory>

namespace Qx::Media {

/// Packets that are the frames themselves, in the byte order and with the codec data that the container
/// wants.
class StoredVideo final : public iVideoPackets
{
public:
    /// settings.stored must be set, and the container must hold its format.
    static Result<std::unique_ptr<iVideoPackets>> make(const StoredContainer& container,
                                                       const OutputSettings& settings, AVRational timeBase);

    Status encode(const void* rows, std::ptrdiff_t pitch, const FrameTime& time, const Sink& sink) override;
    Status flush(const Sink& /*sink*/) override { return {}; }
    AVCodecContext& context() const override { return *context_; }
    std::string description() const override;
    bool dropsAlpha() const override { return false; }
    std::int64_t movedFrames() const override { return times_.moved(); }

private:
    StoredVideo(const StoredContainer& container, const StoredLayout& layout, PacketTimes times);
    bool describe(const OutputSettings& settings, AVRational timeBase);
    void tagColours(const OutputSettings& settings);
    bool setMatroxData(const OutputSettings& settings);

    const StoredContainer container_;
    const StoredLayout layout_;
    PacketTimes times_;
    CodecPtr context_;
};

} // namespace Qx::Media
