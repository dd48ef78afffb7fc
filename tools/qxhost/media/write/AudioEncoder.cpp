#include "tools/qxhost/media/write/AudioEncoder.h"

#include "tools/qxhost/media/FfmpegVersions.h"

extern "C" {
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

namespace Qx::Media {

namespace {

/// Samples are handed on in pieces of at most so many, and given so to encoders that take any number.
constexpr int samplesAtOnce = 1024;

bool isFloat(AVSampleFormat format)
{
    const AVSampleFormat packed = av_get_packed_sample_fmt(format);
    return packed == AV_SAMPLE_FMT_FLT || packed == AV_SAMPLE_FMT_DBL;
}

/// Of those that the encoder takes, the one that loses nothing, or least, and is not larger than it must be.
AVSampleFormat chooseFormat(const AVCodec& codec, AVSampleFormat source)
{
    const std::span<const AVSampleFormat> taken = sampleFormatsOf(codec);
    if (taken.empty() || source == AV_SAMPLE_FMT_NONE) {
        return taken.empty() ? source : taken.front();
    }
    const auto cost = [&](AVSampleFormat format) {
        constexpr int lossOfByte = 16;
        constexpr int lossOfKind = 4;
        const int missing = av_get_bytes_per_sample(source) - av_get_bytes_per_sample(format);
        return (missing > 0 ? missing * lossOfByte : -missing) +
               (isFloat(format) != isFloat(source) ? lossOfKind : 0);
    };
    return *std::min_element(taken.begin(), taken.end(),
                             [&](AVSampleFormat a, AVSampleFormat b) { return cost(a) < cost(b); });
}

/// The lowest rate that loses nothing, or the highest.
int chooseRate(const AVCodec& codec, int source)
{
    const std::span<const int> taken = sampleRatesOf(codec);
    int best = 0;
    for (const int rate : taken) {
        const bool isBetter = best < source ? rate > best : rate >= source && rate < best;
        best = best == 0 || isBetter ? rate : best;
    }
    return best == 0 ? source : best;
}

std::string layoutName(const AVChannelLayout& layout)
{
    std::array<char, 128> name{};
    av_channel_layout_describe(&layout, name.data(), name.size());
    return name.data();
}

/// Bits a second, where the encoder's default is for speech or does not grow with the channels; 0: its own.
std::int64_t defaultBitRate(const AVCodec& codec, int channels)
{
    constexpr std::int64_t aacOfChannel = 96'000;
    constexpr std::int64_t opusOfChannel = 64'000;
    constexpr std::int64_t mp2OfChannel = 96'000;
    switch (codec.id) {
    case AV_CODEC_ID_AAC:
        return aacOfChannel * channels;
    case AV_CODEC_ID_OPUS:
        return opusOfChannel * channels;
    case AV_CODEC_ID_MP2:
    case AV_CODEC_ID_MP3:
        return mp2OfChannel * channels;
    default:
        return 0;
    }
}

/// Rows of samples in a format, for one call.
class SampleRows
{
public:
    SampleRows(int channels, int count, AVSampleFormat format)
    {
        if (av_samples_alloc_array_and_samples(&rows_, nullptr, channels, count, format, 0) < 0) {
            rows_ = nullptr;
        }
    }
    ~SampleRows()
    {
        if (rows_ != nullptr) {
            av_freep(static_cast<void*>(&rows_[0]));
            av_freep(static_cast<void*>(&rows_));
        }
    }
    SampleRows(const SampleRows&) = delete;
    SampleRows& operator=(const SampleRows&) = delete;

    std::uint8_t** get() const { return rows_; }

private:
    std::uint8_t** rows_ = nullptr;
};

} // namespace

void AudioEncoder::FreeFifo::operator()(AVAudioFifo* fifo) const
{
    av_audio_fifo_free(fifo);
}

void AudioEncoder::FreeResampler::operator()(SwrContext* resampler) const
{
    swr_free(&resampler);
}

Result<std::unique_ptr<AudioEncoder>> AudioEncoder::make(const AudioQueue::Track& track, const AVCodec& codec,
                                                         const EncoderOptions& options, int rate,
                                                         bool globalHeader)
{
    std::unique_ptr<AudioEncoder> made(new AudioEncoder());
    made->frame_.reset(av_frame_alloc());
    made->packet_.reset(av_packet_alloc());
    if (!made->frame_ || !made->packet_) {
        return Error{"out of memory"};
    }
    if (Status status = made->openDecoder(track); !status) {
        return Error{status.text()};
    }
    if (Status status = made->openEncoder(track, codec, options, rate, globalHeader); !status) {
        return Error{status.text()};
    }
    const AVCodecContext& encoder = made->context();
    made->waiting_.reset(
        av_audio_fifo_alloc(encoder.sample_fmt, encoder.ch_layout.nb_channels, samplesAtOnce));
    if (!made->waiting_) {
        return Error{"out of memory"};
    }
    return made;
}

Status AudioEncoder::openDecoder(const AudioQueue::Track& track)
{
    trackUnit_ = {track.timeBaseNum, track.timeBaseDen};
    const AVCodec* codec = avcodec_find_decoder(track.parameters->codec_id);
    if (!codec) {
        return Error{std::string("this FFmpeg cannot decode ") +
                     avcodec_get_name(track.parameters->codec_id)};
    }
    decoder_.reset(avcodec_alloc_context3(codec));
    if (!decoder_ || avcodec_parameters_to_context(decoder_.get(), track.parameters.get()) < 0) {
        return Error{"out of memory"};
    }
    decoder_->pkt_timebase = trackUnit_;
    decoder_->opaque = &messages_;
    decoder_->thread_count = 1;
    if (const int error = avcodec_open2(decoder_.get(), codec, nullptr); error < 0) {
        return Error{std::string("decoder ") + codec->name + " cannot be used: " + errorText(error)};
    }
    return {};
}

Status AudioEncoder::openEncoder(const AudioQueue::Track& track, const AVCodec& codec,
                                 const EncoderOptions& options, int rate, bool globalHeader)
{
    encoder_.reset(avcodec_alloc_context3(&codec));
    if (!encoder_ || av_channel_layout_copy(&encoder_->ch_layout, &track.parameters->ch_layout) < 0) {
        return Error{"out of memory"};
    }
    if (Status status = chooseLayout(codec); !status) {
        return status;
    }
    const int sourceRate = track.parameters->sample_rate;
    encoder_->sample_rate = rate != 0 ? rate : chooseRate(codec, sourceRate);
    encoder_->sample_fmt = chooseFormat(codec, static_cast<AVSampleFormat>(track.parameters->format));
    encoder_->time_base = {1, encoder_->sample_rate};
    encoder_->bit_rate = defaultBitRate(codec, encoder_->ch_layout.nb_channels);
    encoder_->thread_count = 1;
    // Of 24 bits in samples of 32.
    encoder_->bits_per_raw_sample = track.parameters->bits_per_raw_sample;
    if (globalHeader) {
        encoder_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    if (Status status = applyOptions(*encoder_, options); !status) {
        return status;
    }
    encoder_->time_base = {1, encoder_->sample_rate}; // an option may have set another rate
    takeFfmpegMessage();
    if (const int error = avcodec_open2(encoder_.get(), &codec, nullptr); error < 0) {
        return Error{"encoder " + std::string(codec.name) + " cannot be used for " +
                     std::to_string(encoder_->sample_rate) + " Hz, " + layoutName(encoder_->ch_layout) +
                     ": " + errorText(error) + ffmpegHint()};
    }
    return {};
}

/// The track's own layout, or the encoder's of as many channels.
Status AudioEncoder::chooseLayout(const AVCodec& codec)
{
    AVChannelLayout& layout = encoder_->ch_layout;
    if (layout.order == AV_CHANNEL_ORDER_UNSPEC) {
        av_channel_layout_default(&layout, layout.nb_channels);
    }
    const std::span<const AVChannelLayout> taken = channelLayoutsOf(codec);
    const auto isSame = [&](const AVChannelLayout& each) {
        return av_channel_layout_compare(&each, &layout) == 0;
    };
    if (taken.empty() || std::any_of(taken.begin(), taken.end(), isSame)) {
        return {};
    }
    for (const AVChannelLayout& each : taken) {
        if (each.nb_channels == layout.nb_channels) {
            return av_channel_layout_copy(&layout, &each) < 0 ? Status(Error{"out of memory"}) : Status();
        }
    }
    std::string names;
    for (const AVChannelLayout& each : taken) {
        names += (names.empty() ? "" : ", ") + layoutName(each);
    }
    return Error{"encoder " + std::string(codec.name) + " cannot hold the channels " + layoutName(layout) +
                 "; it takes " + names};
}

void AudioEncoder::begin(std::int64_t origin, std::int64_t first, bool keepsEarlier, Sink sink)
{
    origin_ = origin;
    first_ = first;
    filled_ = first;
    written_ = first;
    keepsEarlier_ = keepsEarlier;
    sink_ = std::move(sink);
}

Status AudioEncoder::take(const AVPacket& packet, std::int64_t end)
{
    end_ = end;
    if (avcodec_send_packet(decoder_.get(), &packet) < 0) {
        ++damaged_; // the rest of the audio is kept
    } else {
        decodeAll();
    }
    encodeWhole();
    return status_;
}

void AudioEncoder::decodeAll()
{
    for (;;) {
        const int error = avcodec_receive_frame(decoder_.get(), frame_.get());
        if (error == AVERROR(EAGAIN) || error == AVERROR_EOF) {
            return;
        }
        if (error < 0) {
            ++damaged_;
            continue;
        }
        place(*frame_);
        av_frame_unref(frame_.get());
    }
}

/// Brings the samples of a decoded frame to their place in time.
void AudioEncoder::place(AVFrame& frame)
{
    if (frame.nb_samples <= 0 || frame.sample_rate <= 0 || !prepareResampler(frame)) {
        return;
    }
    const AVRational perSample{1, frame.sample_rate};
    std::int64_t at = next_.value_or(0);
    if (frame.best_effort_timestamp != AV_NOPTS_VALUE) {
        at = av_rescale_q(av_sat_sub64(frame.best_effort_timestamp, origin_), trackUnit_, perSample);
    }
    int skipped = 0;
    if (!next_) {
        const std::int64_t start = av_rescale_q(at, perSample, encoder_->time_base);
        const std::int64_t longestLead = static_cast<std::int64_t>(encoder_->sample_rate) * 10;
        if (keepsEarlier_ && start < first_ && start > first_ - longestLead) {
            first_ = start;
            written_ = start;
        }
        filled_ = std::min(start, first_);
        addSilence(av_sat_sub64(start, filled_));
        next_ = at;
    } else {
        // Containers round times; what is off by more is a gap, or is there twice.
        const std::int64_t tolerance = frame.sample_rate / 100;
        const std::int64_t gap = av_sat_sub64(at, *next_);
        if (gap > tolerance) {
            resample(nullptr, 0);
            addSilence(av_rescale_q(gap, perSample, encoder_->time_base));
            *next_ = at;
        } else if (gap < -tolerance) {
            skipped = static_cast<int>(std::min<std::int64_t>(-gap, frame.nb_samples));
        }
    }
    *next_ = av_sat_add64(*next_, frame.nb_samples - skipped);
    if (skipped == frame.nb_samples) {
        return;
    }
    const auto format = static_cast<AVSampleFormat>(frame.format);
    const bool isPlanar = av_sample_fmt_is_planar(format) != 0;
    const int channels = frame.ch_layout.nb_channels;
    const int step = av_get_bytes_per_sample(format) * (isPlanar ? 1 : channels);
    std::vector<const std::uint8_t*> rows;
    for (int i = 0; i < (isPlanar ? channels : 1); ++i) {
        rows.push_back(frame.extended_data[i] + static_cast<std::ptrdiff_t>(skipped) * step);
    }
    resample(rows.data(), frame.nb_samples - skipped);
}

/// False if frames like this one cannot be converted.
bool AudioEncoder::prepareResampler(const AVFrame& frame)
{
    if (like_ && like_->format == frame.format && like_->sample_rate == frame.sample_rate &&
        av_channel_layout_compare(&like_->ch_layout, &frame.ch_layout) == 0) {
        return resampler_ != nullptr;
    }
    if (resampler_) {
        resample(nullptr, 0);
        resampler_.reset();
        next_ = next_ ? std::optional(av_rescale(*next_, frame.sample_rate, like_->sample_rate)) : next_;
    }
    like_.reset(av_frame_alloc());
    AVChannelLayout layout{};
    if (!like_ || av_channel_layout_copy(&like_->ch_layout, &frame.ch_layout) < 0 ||
        av_channel_layout_copy(&layout, &frame.ch_layout) < 0) {
        return false;
    }
    like_->format = frame.format;
    like_->sample_rate = frame.sample_rate;
    if (layout.order == AV_CHANNEL_ORDER_UNSPEC) {
        // As the encoder has them, where it has as many.
        if (layout.nb_channels == encoder_->ch_layout.nb_channels) {
            av_channel_layout_copy(&layout, &encoder_->ch_layout);
        } else {
            av_channel_layout_default(&layout, layout.nb_channels);
        }
    }
    SwrContext* made = nullptr;
    const int error =
        swr_alloc_set_opts2(&made, &encoder_->ch_layout, encoder_->sample_fmt, encoder_->sample_rate, &layout,
                            static_cast<AVSampleFormat>(frame.format), frame.sample_rate, 0, nullptr);
    resampler_.reset(made);
    av_channel_layout_uninit(&layout);
    if (error < 0 || swr_init(resampler_.get()) < 0) {
        resampler_.reset();
        ++damaged_;
    }
    return resampler_ != nullptr;
}

/// Null for what the resampler still holds.
void AudioEncoder::resample(const std::uint8_t** samples, int count)
{
    if (!resampler_) {
        return;
    }
    const int room = swr_get_out_samples(resampler_.get(), count);
    const SampleRows rows(encoder_->ch_layout.nb_channels, std::max(room, 1), encoder_->sample_fmt);
    if (room <= 0 || !rows.get()) {
        return;
    }
    const int made = swr_convert(resampler_.get(), rows.get(), room, samples, count);
    if (made > 0) {
        keep(rows.get(), made);
    }
    if (samples == nullptr) {
        swr_init(resampler_.get()); // what comes next has nothing before it
    }
}

void AudioEncoder::addSilence(std::int64_t count)
{
    const int channels = encoder_->ch_layout.nb_channels;
    const SampleRows rows(channels, samplesAtOnce, encoder_->sample_fmt);
    if (!rows.get()) {
        return;
    }
    av_samples_set_silence(rows.get(), 0, samplesAtOnce, channels, encoder_->sample_fmt);
    for (; count > 0; count -= samplesAtOnce) {
        keep(rows.get(), static_cast<int>(std::min<std::int64_t>(count, samplesAtOnce)));
    }
}

/// All but what is before the first sample that is wanted.
void AudioEncoder::keep(std::uint8_t** samples, int count)
{
    const std::int64_t early = std::clamp<std::int64_t>(first_ - filled_, 0, count);
    filled_ += count;
    const bool isPlanar = av_sample_fmt_is_planar(encoder_->sample_fmt) != 0;
    const int channels = encoder_->ch_layout.nb_channels;
    const int step = av_get_bytes_per_sample(encoder_->sample_fmt) * (isPlanar ? 1 : channels);
    std::vector<void*> rows;
    for (int i = 0; i < (isPlanar ? channels : 1); ++i) {
        rows.push_back(samples[i] + early * step);
    }
    if (count > early) {
        av_audio_fifo_write(waiting_.get(), rows.data(), static_cast<int>(count - early));
    }
    encodeWhole(); // a long silence is not kept whole
}

void AudioEncoder::encodeWhole()
{
    const int size = encoder_->frame_size > 0 ? encoder_->frame_size : samplesAtOnce;
    while (status_ && av_audio_fifo_size(waiting_.get()) >= size && written_ + size <= end_) {
        encode(size);
    }
}

Status AudioEncoder::finish(std::int64_t end)
{
    end_ = end;
    if (avcodec_send_packet(decoder_.get(), nullptr) >= 0) {
        decodeAll();
    }
    resample(nullptr, 0);
    encodeWhole();
    const std::int64_t rest =
        std::min<std::int64_t>(av_audio_fifo_size(waiting_.get()), av_sat_sub64(end, written_));
    if (status_ && rest > 0) {
        encode(static_cast<int>(rest));
    }
    if (status_) {
        avcodec_send_frame(encoder_.get(), nullptr);
        drain();
    }
    return status_;
}

void AudioEncoder::encode(int count)
{
    const FramePtr frame(av_frame_alloc());
    if (!frame || av_channel_layout_copy(&frame->ch_layout, &encoder_->ch_layout) < 0) {
        status_ = Error{"out of memory"};
        return;
    }
    frame->nb_samples = count;
    frame->format = encoder_->sample_fmt;
    frame->sample_rate = encoder_->sample_rate;
    if (av_frame_get_buffer(frame.get(), 0) < 0 ||
        av_audio_fifo_read(waiting_.get(), reinterpret_cast<void**>(frame->extended_data), count) < count) {
        status_ = Error{"out of memory"};
        return;
    }
    frame->pts = written_;
    written_ += count;
    takeFfmpegMessage();
    if (const int error = avcodec_send_frame(encoder_.get(), frame.get()); error < 0) {
        status_ = Error{"encoder " + std::string(encoder_->codec->name) + " failed: " + errorText(error) +
                        ffmpegHint()};
        return;
    }
    drain();
}

void AudioEncoder::drain()
{
    while (status_) {
        const int error = avcodec_receive_packet(encoder_.get(), packet_.get());
        if (error == AVERROR(EAGAIN) || error == AVERROR_EOF) {
            return;
        }
        if (error < 0) {
            status_ = Error{"encoder " + std::string(encoder_->codec->name) + " failed: " + errorText(error) +
                            ffmpegHint()};
            return;
        }
        status_ = sink_(*packet_);
        av_packet_unref(packet_.get());
    }
}

} // namespace Qx::Media
