#pragma once

#include "tools/qxhost/media/FfmpegVersions.h"
#include "tools/qxhost/media/files/OutputFile.h"
#include "tools/qxhost/media/write/AudioWriter.h"
#include "tools/qxhost/media/write/FrameWriter.h"
#include "tools/qxhost/media/write/VideoPackets.h"

#include <memory>
#include <string>
#include <vector>

namespace Qx::Media {

/// A clip in a container: video, encoded or stored as it is, and audio.
class ClipWriter final : public iFrameWriter
{
public:
    static Result<std::unique_ptr<iFrameWriter>>
    open(const std::filesystem::path& file, const std::string& extension, const OutputSettings& settings);

    /// The same for packets that were encoded elsewhere, with the same settings; `like` describes them. They
    /// are given to begin() and copy() instead of frames to write().
    static Result<std::unique_ptr<ClipWriter>> openForPackets(const std::filesystem::path& file,
                                                              const OutputSettings& settings,
                                                              const AVCodecParameters& like);

    /// Takes the time of the first frame.
    void begin(const FrameTime& first);

    /// Writes a packet whose times are in units of packetUnit().
    Status copy(AVPacket& packet);
    AVRational packetUnit() const { return video_->time_base; }

    /// The time of a frame in these units, from its time in units of settings.timeBase.
    std::int64_t packetTime(std::int64_t pts) const;
    std::int64_t packetDuration(std::int64_t duration) const;

    /// The least number of packets that a decoder reads before the first frame, by the encoder's word.
    int reordering() const { return encoder_->context().has_b_frames; }

    /// Writes the audio that is heard before that time of the input, in units of settings.timeBase.
    Status writeAudioUpTo(std::int64_t time);

    Status write(const void* rows, std::ptrdiff_t pitch, const FrameTime& time) override;
    Status writeDecoded(const Frame& frame, Range range) override;
    Status finish() override;
    const std::vector<std::string>& warnings() const override { return warnings_; }
    std::string description() const override;
    std::vector<WrittenAudio> audio() const override { return audio_->tracks(); }
    std::vector<std::filesystem::path> files() const override;

private:
    struct CloseOutput
    {
        void operator()(AVFormatContext* output) const
        {
            closeStream(*output);
            avformat_free_context(output);
        }
    };
    using OutputPtr = std::unique_ptr<AVFormatContext, CloseOutput>;

    static int closeStream(AVFormatContext& output);
    static int writeBytes(void* part, WrittenBytes bytes, int size);
    int openStream(const std::string& url);
    static Result<std::unique_ptr<iVideoPackets>> makePackets(const std::string& extension,
                                                              const AVOutputFormat& container,
                                                              const OutputSettings& settings,
                                                              bool& fixedRate);
    ClipWriter(OutputFile part, const OutputSettings& settings, std::unique_ptr<iVideoPackets> packets);
    static Result<std::unique_ptr<ClipWriter>> make(const std::filesystem::path& file,
                                                    const std::string& extension,
                                                    const OutputSettings& settings,
                                                    const AVCodecParameters* like);
    Status makeHeader(const AVOutputFormat& container);
    Status describeVideo();
    Status beginWithAudio(const AVOutputFormat& container);
    Status setOrientation(const AVOutputFormat& container);
    Status setBrightness();
    void warnAboutAlpha();
    FrameTime timeInClip(const FrameTime& time);
    Status writeVideo(AVPacket& packet);
    Status fileStatus(int error) const;
    Error refusal(const std::string& why) const;
    Status audioStatus(const Status& status) const;

    OutputFile part_;
    std::string pipeError_; // why standard output could not be written
    const OutputSettings settings_;
    std::unique_ptr<iVideoPackets> encoder_;
    OutputPtr output_;
    AVStream* video_ = nullptr;
    std::unique_ptr<AudioWriter> audio_;
    int audioError_ = 0; ///< of the last packet that it gave
    std::vector<std::string> warnings_;
    std::int64_t shift_ = 0; // subtracted from all times, in the source's time base
    std::string extension_;
    bool fixedRate_ = false;
    const AVCodecParameters* like_ = nullptr; // of packets that were encoded elsewhere; until the header
    bool copies_ = false;
    std::int64_t frames_ = 0;
    std::int64_t end_ = 0; // of the last frame, in the source's time base
    bool done_ = false;
};

} // namespace Qx::Media
