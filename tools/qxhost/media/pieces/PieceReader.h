#pragma once

#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/Result.h"

#include <filesystem>
#include <memory>

namespace Qx::Media {

/// Reads the packets of a clip's video, in the order in which they are stored, without decoding them.
class PieceReader
{
public:
    /// Fails if there is no such file, or it is not a clip with video.
    static Result<std::unique_ptr<PieceReader>> open(const std::filesystem::path& file);

    /// Of the video, and the seconds of a unit of its times.
    const AVCodecParameters& parameters() const { return *stream_->codecpar; }
    AVRational timeBase() const { return stream_->time_base; }

    /// The next packet, with a time at which it is shown, and without side data; null at the end.
    Result<PacketPtr> next();

private:
    struct CloseInput
    {
        void operator()(AVFormatContext* input) const { avformat_close_input(&input); }
    };

    explicit PieceReader(std::filesystem::path file) : file_(std::move(file)) {}

    std::filesystem::path file_;
    SourceMessages messages_;
    std::unique_ptr<AVFormatContext, CloseInput> input_;
    AVStream* stream_ = nullptr;
};

} // namespace Qx::Media
