#include "tools/qxhost/media/write/AudioWriter.h"

#include "tools/qxhost/media/write/AudioChoice.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace Qx::Media {

namespace {

constexpr const char* copyWord = "copy";

/// Says how to keep it, or how to omit it without the warning.
std::string audioIsLeftOut(const std::string& codec, const std::string& extension)
{
    const char* other = extension == "mov" ? ".mkv" : (extension == "mkv" ? ".mov" : ".mov or .mkv");
    return "audio (" + codec + ") is left out: ." + extension + " cannot hold it; use " + other +
           ", or --no-audio";
}

/// Of all channels; 0 if it is not PCM.
int bytesOfPcmSample(const AVCodecParameters& audio)
{
    const std::string_view codec = avcodec_get_name(audio.codec_id);
    constexpr int bitsOfByte = 8;
    const int bits = av_get_exact_bits_per_sample(audio.codec_id);
    return codec.starts_with("pcm_") && bits % bitsOfByte == 0
               ? bits / bitsOfByte * audio.ch_layout.nb_channels
               : 0;
}

} // namespace

Result<std::unique_ptr<AudioWriter>> AudioWriter::plan(const AVOutputFormat& container,
                                                       const std::string& extension,
                                                       const OutputSettings& settings, Copies copies)
{
    std::unique_ptr<AudioWriter> made(new AudioWriter(settings));
    if (!settings.audio) {
        return made;
    }
    int number = 0;
    for (const AudioQueue::Track& from : settings.audio->tracks()) {
        ++number;
        if (Status status = made->planTrack(from, container, extension, copies); !status) {
            return Error{
                "audio track " + std::to_string(number) + " (" + avcodec_get_name(from.parameters->codec_id) +
                "): " + status.text() +
                "; choose another --audio-codec or kind of file, or leave the audio out with --no-audio"};
        }
    }
    return made;
}

Status AudioWriter::planTrack(const AudioQueue::Track& from, const AVOutputFormat& container,
                              const std::string& extension, Copies copies)
{
    Track& track = tracks_.emplace_back();
    const AVCodecID codec = from.parameters->codec_id;
    const std::string& wanted = settings_.audioCodec;
    const bool canCopy = copies == Copies::allowed && suitsAudio(container, codec);
    if (wanted == copyWord || (wanted.empty() && canCopy && settings_.audioOptions.empty())) {
        track.isCopied = true;
        const bool refuses = copies == Copies::none || !holdsAudio(container, codec);
        return refuses ? Status(Error{"it cannot be copied: ." + extension + " does not hold it"}) : Status();
    }
    if (!holdsAnyAudio(container) || !avcodec_find_decoder(codec)) {
        warnings_.push_back(audioIsLeftOut(avcodec_get_name(codec), extension));
        return {};
    }
    const auto encoder = wanted.empty() ? chooseAudioEncoder(container, *from.parameters)
                                        : encoderNamed(wanted, AVMEDIA_TYPE_AUDIO);
    if (!encoder) {
        return Error{encoder.text()};
    }
    const AVCodecID made = encoder.value()->id;
    if (!holdsAudio(container, made)) {
        return Error{"." + extension + " cannot hold " + avcodec_get_name(made) + " audio"};
    }
    auto opened = AudioEncoder::make(from, *encoder.value(), settings_.audioOptions,
                                     onlySampleRate(container), (container.flags & AVFMT_GLOBALHEADER) != 0);
    if (!opened) {
        return Error{opened.text()};
    }
    track.encoder = std::move(opened.value());
    return {};
}

bool AudioWriter::mayBeRefused() const
{
    return settings_.audioCodec.empty() &&
           std::any_of(tracks_.begin(), tracks_.end(), [](const Track& track) { return track.isCopied; });
}

Status AudioWriter::addStreams(AVFormatContext& output)
{
    for (std::size_t i = 0; i < tracks_.size(); ++i) {
        Track& track = tracks_[i];
        const AudioQueue::Track& from = settings_.audio->tracks()[i];
        track.stream = nullptr;
        if (!track.isCopied && !track.encoder) {
            continue;
        }
        AVStream* stream = avformat_new_stream(&output, nullptr);
        const bool isMade =
            stream &&
            (track.encoder ? avcodec_parameters_from_context(stream->codecpar, &track.encoder->context()) >= 0
                           : avcodec_parameters_copy(stream->codecpar, from.parameters.get()) >= 0);
        if (!isMade) {
            return Error{"out of memory"};
        }
        stream->codecpar->codec_tag = 0; // the tag belongs to the source's container
        stream->time_base = track.encoder ? track.encoder->context().time_base
                                          : AVRational{from.timeBaseNum, from.timeBaseDen};
        if (!from.language.empty()) {
            av_dict_set(&stream->metadata, "language", from.language.c_str(), 0);
        }
        track.stream = stream;
    }
    return {};
}

std::int64_t AudioWriter::sampleOf(std::int64_t videoTime, const AudioEncoder& encoder) const
{
    return av_rescale_q(videoTime, toAv(settings_.timeBase), encoder.context().time_base);
}

void AudioWriter::begin(std::int64_t firstFrame, std::int64_t shift, Sink sink)
{
    shift_ = shift;
    sink_ = std::move(sink);
    for (std::size_t i = 0; i < tracks_.size(); ++i) {
        Track& track = tracks_[i];
        if (!track.encoder) {
            continue;
        }
        const AudioQueue::Track& from = settings_.audio->tracks()[i];
        const std::int64_t origin =
            av_rescale_q(shift, toAv(settings_.timeBase), {from.timeBaseNum, from.timeBaseDen});
        track.encoder->begin(origin, sampleOf(av_sat_sub64(firstFrame, shift), *track.encoder),
                             !settings_.cutsAudio, [this, &track](AVPacket& packet) {
                                 return write(packet, track.encoder->context().time_base, *track.stream);
                             });
    }
}

Status AudioWriter::writeUpTo(std::int64_t end)
{
    end_ = end;
    if (!settings_.audio) {
        return {};
    }
    while (AudioQueue::Packet packet = settings_.audio->pop()) {
        waiting_.push_back(std::move(packet));
    }
    const AVRational videoUnit = toAv(settings_.timeBase);
    while (!waiting_.empty()) {
        AVPacket& packet = *waiting_.front();
        const auto index = static_cast<std::size_t>(packet.stream_index);
        const AudioQueue::Track& from = settings_.audio->tracks()[index];
        const AVRational unit{from.timeBaseNum, from.timeBaseDen};
        const std::int64_t start = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
        const std::int64_t endOfFrames = av_sat_add64(end_, shift_);
        const auto isBeyondEnd = [&](std::int64_t time) {
            return av_compare_ts(time, unit, endOfFrames, videoUnit) > 0;
        };
        if (start != AV_NOPTS_VALUE && isBeyondEnd(av_sat_add64(start, 1))) {
            return {};
        }
        Track& track = tracks_[index];
        // Where it ends within a packet is known only at the end.
        const bool mayBeCut = track.isCopied && settings_.cutsAudio && start != AV_NOPTS_VALUE;
        if (mayBeCut && !isEnding_ && isBeyondEnd(av_sat_add64(start, packet.duration))) {
            return {};
        }
        if (track.stream) {
            if (Status status = take(packet, track, from); !status) {
                return status;
            }
        }
        waiting_.pop_front();
    }
    return {};
}

Status AudioWriter::take(AVPacket& packet, Track& track, const AudioQueue::Track& from)
{
    if (track.encoder) {
        return track.encoder->take(packet, sampleOf(end_, *track.encoder));
    }
    const AVRational unit{from.timeBaseNum, from.timeBaseDen};
    const std::int64_t shift = av_rescale_q(shift_, toAv(settings_.timeBase), unit);
    const bool hasTime = packet.pts != AV_NOPTS_VALUE || packet.dts != AV_NOPTS_VALUE;
    if (settings_.cutsAudio && hasTime && !cut(packet, from, shift)) {
        return {};
    }
    packet.pts = packet.pts != AV_NOPTS_VALUE ? av_sat_sub64(packet.pts, shift) : packet.pts;
    packet.dts = packet.dts != AV_NOPTS_VALUE ? av_sat_sub64(packet.dts, shift) : packet.dts;
    return write(packet, unit, *track.stream);
}

/// Leaves of a packet what is heard while the frames are shown. `begin` is the time of the first, in the
/// track's units. Returns false if that is nothing.
bool AudioWriter::cut(AVPacket& packet, const AudioQueue::Track& track, std::int64_t begin) const
{
    const int sampleBytes = bytesOfPcmSample(*track.parameters);
    if (sampleBytes == 0 || track.parameters->sample_rate <= 0) {
        return packet.pts == AV_NOPTS_VALUE || packet.pts >= begin;
    }
    const AVRational timeBase{track.timeBaseNum, track.timeBaseDen};
    const AVRational perSample{1, track.parameters->sample_rate};
    const std::int64_t early = av_rescale_q(av_sat_sub64(begin, packet.pts), timeBase, perSample);
    const std::int64_t length = av_rescale_q(end_, toAv(settings_.timeBase), perSample);
    const std::int64_t first = std::max<std::int64_t>(early, 0);
    const std::int64_t samples = packet.size / sampleBytes;
    const std::int64_t last = isEnding_ ? std::min(samples, av_sat_add64(early, length)) : samples;
    if (first >= last) {
        return false;
    }
    const std::int64_t skipped = av_rescale_q(first, perSample, timeBase);
    packet.data += first * sampleBytes;
    packet.size = static_cast<int>((last - first) * sampleBytes);
    packet.pts = av_sat_add64(packet.pts, skipped);
    packet.dts = packet.dts != AV_NOPTS_VALUE ? av_sat_add64(packet.dts, skipped) : packet.dts;
    packet.duration = av_rescale_q(last - first, perSample, timeBase);
    return true;
}

Status AudioWriter::write(AVPacket& packet, AVRational timeBase, const AVStream& stream)
{
    packet.stream_index = stream.index;
    packet.pos = -1;
    av_packet_rescale_ts(&packet, timeBase, stream.time_base);
    const int error = sink_(packet);
    if (error == AVERROR(EINVAL) || error == AVERROR_INVALIDDATA) {
        ++refused_; // a damaged packet of the source; the rest of the audio is kept
        return {};
    }
    return error < 0 ? Status(Error{errorText(error)}) : Status();
}

Status AudioWriter::finish(std::int64_t end)
{
    isEnding_ = true;
    Status status = writeUpTo(end);
    for (const Track& track : tracks_) {
        if (status && track.encoder) {
            status = track.encoder->finish(sampleOf(end, *track.encoder));
        }
    }
    return status;
}

std::vector<std::string> AudioWriter::warningsAtEnd() const
{
    std::int64_t damaged = 0;
    for (const Track& track : tracks_) {
        damaged += track.encoder ? track.encoder->damagedPackets() : 0;
    }
    std::vector<std::string> lines;
    if (refused_ > 0) {
        lines.push_back(std::to_string(refused_) + " damaged audio packets are left out");
    }
    if (damaged > 0) {
        lines.push_back(std::to_string(damaged) + " damaged audio packets are replaced by silence");
    }
    return lines;
}

std::vector<WrittenAudio> AudioWriter::tracks() const
{
    std::vector<WrittenAudio> written;
    for (std::size_t i = 0; i < tracks_.size(); ++i) {
        const Track& track = tracks_[i];
        const std::string codec = avcodec_get_name(settings_.audio->tracks()[i].parameters->codec_id);
        const std::string made = track.encoder ? avcodec_get_name(track.encoder->context().codec_id) : codec;
        written.push_back({codec, track.stream ? made : "", track.isCopied});
    }
    return written;
}

} // namespace Qx::Media
