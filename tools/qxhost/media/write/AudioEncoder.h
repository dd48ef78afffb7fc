#pragma once

#include "tools/qxhost/media/AudioQueue.h"
#include "tools/qxhost/media/Ffmpeg.h"
#include "tools/qxhost/media/Result.h"
#include "tools/qxhost/media/write/EncoderOptions.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

struct AVAudioFifo;
struct SwrContext;

namespace Qx::Media {

/// Decodes a track and encodes it anew, from one time to another to the sample. Where the track has nothing,
/// or what cannot be decoded, it is silent.
///
/// Times are samples of the encoder's rate; 0 is the beginning of the output.
class AudioEncoder
{
public:
    using Sink = std::function<Status(AVPacket& packet)>;

    /// `rate`: of the samples written, or 0 for the track's own, or the nearest that the encoder has. Fails
    /// if the encoder cannot hold the track's channels or does not know an option.
    static Result<std::unique_ptr<AudioEncoder>> make(const AudioQueue::Track& track, const AVCodec& codec,
                                                      const EncoderOptions& options, int rate,
                                                      bool globalHeader);

    /// The parameters for the file's header. Packets are in units of samples.
    const AVCodecContext& context() const { return *encoder_; }

    /// Where the output begins: `origin` is the track's time of the output's beginning, in the track's units,
    /// `first` the first sample that is wanted. If `keepsEarlier`, so are those shortly before it. Packets go
    /// to `sink`.
    void begin(std::int64_t origin, std::int64_t first, bool keepsEarlier, Sink sink);

    /// Takes the next packet of the track, and writes what there is before the sample `end`, in whole packets
    /// of the encoder. A packet that cannot be decoded is counted.
    Status take(const AVPacket& packet, std::int64_t end);

    /// Writes what there is before this sample, and what the encoder still holds.
    Status finish(std::int64_t end);

    std::int64_t damagedPackets() const { return damaged_; }

private:
    struct FreeFifo
    {
        void operator()(AVAudioFifo* fifo) const;
    };
    struct FreeResampler
    {
        void operator()(SwrContext* resampler) const;
    };

    AudioEncoder() = default;
    Status openDecoder(const AudioQueue::Track& track);
    Status openEncoder(const AudioQueue::Track& track, const AVCodec& codec, const EncoderOptions& options,
                       int rate, bool globalHeader);
    Status chooseLayout(const AVCodec& codec);
    void decodeAll();
    void place(AVFrame& frame);
    bool prepareResampler(const AVFrame& frame);
    void resample(const std::uint8_t** samples, int count);
    void addSilence(std::int64_t count);
    void keep(std::uint8_t** samples, int count);
    void encodeWhole();
    void encode(int count);
    void drain();

    CodecPtr decoder_;
    CodecPtr encoder_;
    std::unique_ptr<SwrContext, FreeResampler> resampler_;
    std::unique_ptr<AVAudioFifo, FreeFifo> waiting_; ///< in the encoder's format, from written_ on
    FramePtr frame_;                                 ///< as decoded
    FramePtr like_;                                  ///< without samples: what the resampler is made for
    PacketPtr packet_;
    SourceMessages messages_;
    AVRational trackUnit_{1, 1};
    std::int64_t origin_ = 0;
    std::int64_t first_ = 0;
    bool keepsEarlier_ = false;
    std::optional<std::int64_t> next_; ///< expected, in samples of the decoder; empty before the first
    std::int64_t filled_ = 0;          ///< the sample that keep() gets next
    std::int64_t written_ = 0;         ///< the sample that the encoder gets next
    std::int64_t end_ = 0;             ///< nothing is written from this sample on
    std::int64_t damaged_ = 0;
    Sink sink_;
    Status status_; ///< of all that is encoded
};

} // namespace Qx::Media
