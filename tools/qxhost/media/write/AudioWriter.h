#pragma once

#include "tools/qxhost/media/AudioQueue.h"
#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/Result.h"
#include "tools/qxhost/media/write/AudioEncoder.h"
#include "tools/qxhost/media/write/FrameWriter.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Qx::Media {

/// The audio of a clip that is written: each track is copied, encoded anew, or left out.
class AudioWriter
{
public:
    /// Gets packets of the file, with their stream's index and time base.
    using Sink = std::function<int(AVPacket& packet)>;

    /// Which tracks may be copied.
    enum class Copies
    {
        allowed,
        none ///< the container has refused them
    };

    /// Decides what becomes of each track in this container, and opens the encoders. Fails if a track can
    /// neither be copied nor encoded, though the container holds audio.
    static Result<std::unique_ptr<AudioWriter>> plan(const AVOutputFormat& container,
                                                     const std::string& extension,
                                                     const OutputSettings& settings, Copies copies);

    /// Whether a track is copied without having been asked for, so that the container may yet refuse it.
    bool mayBeRefused() const;

    /// Adds the streams to a file, before its header.
    Status addStreams(AVFormatContext& output);

    /// The time of the first frame, from which the output counts, and that of the output's beginning, in the
    /// video's units.
    void begin(std::int64_t firstFrame, std::int64_t shift, Sink sink);

    /// Writes what is heard before that time of the output, in the video's units.
    Status writeUpTo(std::int64_t end);

    /// Writes the rest.
    Status finish(std::int64_t end);

    const std::vector<std::string>& warnings() const { return warnings_; }
    std::vector<std::string> warningsAtEnd() const;
    std::vector<WrittenAudio> tracks() const;

private:
    struct Track
    {
        AVStream* stream = nullptr; ///< null if it is left out
        bool isCopied = false;
        std::unique_ptr<AudioEncoder> encoder;
    };

    explicit AudioWriter(const OutputSettings& settings) : settings_(settings) {}

    Status planTrack(const AudioQueue::Track& from, const AVOutputFormat& container,
                     const std::string& extension, Copies copies);
    bool cut(AVPacket& packet, const AudioQueue::Track& track, std::int64_t begin) const;
    Status write(AVPacket& packet, AVRational timeBase, const AVStream& stream);
    Status take(AVPacket& packet, Track& track, const AudioQueue::Track& from);
    std::int64_t sampleOf(std::int64_t videoTime, const AudioEncoder& encoder) const;

    const OutputSettings settings_;
    std::vector<Track> tracks_;
    std::deque<AudioQueue::Packet> waiting_;
    std::vector<std::string> warnings_;
    Sink sink_;
    std::int64_t shift_ = 0; ///< subtracted from all times
    std::int64_t end_ = 0;   ///< of the frames so far
    bool isEnding_ = false;
    std::int64_t refused_ = 0; ///< damaged packets
};

} // namespace Qx::Media
