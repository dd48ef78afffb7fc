#include "tools/qxhost/media/write/ClipWriter.h"
#include "tools/qxhost/media/files/PartFiles.h"

#include "tools/qxhost/media/FfmpegVersions.h"
#include "tools/qxhost/media/files/Names.h"
#include "tools/qxhost/media/write/EncoderChoice.h"
#include "tools/qxhost/media/write/LostDescription.h"
#include "tools/qxhost/media/write/StoredVideo.h"
#include "tools/qxhost/media/write/VideoEncoder.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace Qx::Media {

namespace {

/// Whether frames of this container come at a fixed rate and have no times of their own.
bool hasFixedRate(const AVOutputFormat& container)
{
    // QuickTime's family times every sample, though FFmpeg's flags do not say so.
    static constexpr std::array<std::string_view, 7> timed{"mov", "mp4", "ipod", "3gp", "3g2", "psp", "f4v"};
    return !(container.flags & AVFMT_VARIABLE_FPS) &&
           std::find(timed.begin(), timed.end(), container.name) == timed.end();
}

/// Whether files of this kind hold a display matrix.
bool holdsOrientation(const AVOutputFormat& container)
{
    static constexpr std::array<std::string_view, 3> kinds{"mov", "mp4", "ipod"};
    return std::find(kinds.begin(), kinds.end(), container.name) != kinds.end();
}

/// Says how to keep it, or how to omit it without the warning.
std::string audioIsLeftOut(const std::string& codecs, const std::string& extension)
{
    const char* other = extension == "mov" ? ".mkv" : (extension == "mkv" ? ".mov" : ".mov or .mkv");
    return "audio (" + codecs + ") is left out: ." + extension + " cannot hold it; use " + other +
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

/// Codecs whose stream itself counts frames at a fixed rate.
bool hasFixedRate(AVCodecID codec)
{
    return codec == AV_CODEC_ID_MPEG1VIDEO || codec == AV_CODEC_ID_MPEG2VIDEO || codec == AV_CODEC_ID_MPEG4 ||
           codec == AV_CODEC_ID_DVVIDEO || codec == AV_CODEC_ID_THEORA;
}

AVRational timeBaseOf(const OutputSettings& settings, bool fixedRate)
{
    return fixedRate ? av_inv_q(toAv(settings.frameRate)) : toAv(settings.timeBase);
}

/// The containers that can hold them.
std::string cannotStore(const StoredLayout& layout, const std::string& extension, const std::string& what)
{
    std::string others;
    for (const std::string& each : containersOf(layout.format, layout.bits)) {
        if (each != extension) {
            others += (others.empty() ? "." : ", .") + each;
        }
    }
    return "a file of type ." + extension + " cannot hold " + layout.name + " frames " + what + "; " +
           (others.empty() ? "no container can, use .raw" : "use " + others + ", or .raw");
}

} // namespace

Result<std::unique_ptr<iFrameWriter>> ClipWriter::open(const std::filesystem::path& file,
                                                       const std::string& extension,
                                                       const OutputSettings& settings)
{
    // By the extension alone: the rest of the name may hold anything.
    const AVOutputFormat* container = av_guess_format(nullptr, ("name." + extension).c_str(), nullptr);
    if (!container || (container->flags & AVFMT_NOFILE) || container->video_codec == AV_CODEC_ID_NONE) {
        return Error{"cannot write " + quoted(file) + ": unknown extension ." + extension +
                     (extension == "raw" ? "; for frames as they are add --format NAME ('qxhost formats')"
                                         : " (try .png, .mov, .mkv, .mp4)")};
    }
    if (settings.frameRate.num <= 0 || settings.frameRate.den <= 0) {
        return Error{"cannot write " + quoted(file) + ": the frame rate is not known"};
    }
    bool fixedRate = false;
    auto packets = makePackets(extension, *container, settings, fixedRate);
    if (!packets) {
        return Error{"cannot write " + quoted(file) + ": " + packets.text()};
    }
    auto part = OutputFile::create(file, settings.force, settings.kept);
    if (!part) {
        return part.error();
    }
    std::unique_ptr<ClipWriter> writer(
        new ClipWriter(std::move(part.value()), settings, std::move(packets.value())));
    writer->fixedRate_ = fixedRate;
    if (settings.orientation && !holdsOrientation(*container)) {
        writer->warnings_.push_back(orientationIsLost(*settings.orientation));
    }
    const bool hasAudio = settings.audio && !settings.audio->tracks().empty();
    writer->extension_ = extension;
    std::vector<std::string> warnings = writer->warnings_;
    Status status = writer->begin(*container, hasAudio);
    if (!status && hasAudio) {
        std::string codecs;
        for (const AudioQueue::Track& track : settings.audio->tracks()) {
            codecs +=
                (codecs.empty() ? "" : ", ") + std::string(avcodec_get_name(track.parameters->codec_id));
        }
        status = writer->begin(*container, false);
        writer->warnings_ = std::move(warnings);
        writer->warnings_.push_back(audioIsLeftOut(codecs, extension));
    }
    if (!status) {
        return Error{status.text()};
    }
    return std::unique_ptr<iFrameWriter>(std::move(writer));
}

Result<std::unique_ptr<iVideoPackets>> ClipWriter::makePackets(const std::string& extension,
                                                               const AVOutputFormat& container,
                                                               const OutputSettings& settings,
                                                               bool& fixedRate)
{
    fixedRate = hasFixedRate(container);
    if (settings.stored) {
        const StoredLayout& layout = *settings.stored;
        const StoredContainer* way = findContainer(layout.format, layout.bits, extension);
        if (way == nullptr) {
            return Error{cannotStore(layout, extension, "as they are")};
        }
        if (way->evenWidths && settings.width % 2 != 0) {
            return Error{cannotStore(layout, extension,
                                     "of an odd width (" + std::to_string(settings.width) +
                                         " pixels) so that they can be read back")};
        }
        return StoredVideo::make(*way, settings, timeBaseOf(settings, fixedRate));
    }
    const auto codec = chooseClipEncoder(extension, container, settings);
    if (!codec) {
        return codec.error();
    }
    if (avformat_query_codec(&container, codec.value()->id, FF_COMPLIANCE_UNOFFICIAL) == 0) {
        return Error{"a file of type ." + extension + " cannot hold " + avcodec_get_name(codec.value()->id) +
                     " video"};
    }
    fixedRate = fixedRate || hasFixedRate(codec.value()->id);
    auto encoder = VideoEncoder::make(*codec.value(), settings, timeBaseOf(settings, fixedRate),
                                      (container.flags & AVFMT_GLOBALHEADER) != 0);
    if (!encoder) {
        return encoder.error();
    }
    return std::unique_ptr<iVideoPackets>(std::make_unique<VideoEncoder>(std::move(encoder.value())));
}

ClipWriter::ClipWriter(OutputFile part, const OutputSettings& settings,
                       std::unique_ptr<iVideoPackets> packets)
    : part_(std::move(part)), settings_(settings), encoder_(std::move(packets))
{
    warnAboutAlpha();
}

void ClipWriter::warnAboutAlpha()
{
    if (encoder_->dropsAlpha()) {
        warnings_.push_back("alpha is left out: " + encoder_->description() + " cannot hold it");
    }
}

void ClipWriter::addAudio(const AVOutputFormat& container)
{
    for (const AudioQueue::Track& track : settings_.audio->tracks()) {
        const AVCodecID codec = track.parameters->codec_id;
        AVStream* stream = avformat_query_codec(&container, codec, FF_COMPLIANCE_NORMAL) != 0
                               ? avformat_new_stream(output_.get(), nullptr)
                               : nullptr;
        if (stream && avcodec_parameters_copy(stream->codecpar, track.parameters.get()) >= 0) {
            stream->codecpar->codec_tag = 0; // the tag belongs to the source's container
            stream->time_base = {track.timeBaseNum, track.timeBaseDen};
            if (!track.language.empty()) {
                av_dict_set(&stream->metadata, "language", track.language.c_str(), 0);
            }
        } else {
            warnings_.push_back(audioIsLeftOut(avcodec_get_name(codec), extension_));
        }
        audioStreams_.push_back(stream);
    }
}

Status ClipWriter::setOrientation(const AVOutputFormat& container)
{
    if (!settings_.orientation || !holdsOrientation(container)) {
        return {};
    }
    if (!setDisplayMatrix(*video_, settings_.orientation->matrix)) {
        return Error{"out of memory"};
    }
    return {};
}

Status ClipWriter::setBrightness()
{
    const Brightness& brightness = settings_.colour.brightness;
    for (const auto& [type, content] :
         {std::pair(AV_PKT_DATA_MASTERING_DISPLAY_METADATA, &brightness.mastering),
          std::pair(AV_PKT_DATA_CONTENT_LIGHT_LEVEL, &brightness.content)}) {
        if (!content->empty() && !setSideData(*video_, type, *content)) {
            return Error{"out of memory"};
        }
    }
    return {};
}

Status ClipWriter::begin(const AVOutputFormat& container, bool withAudio)
{
    AVFormatContext* raw = nullptr;
    audioStreams_.clear();
    const std::string url = "file:" + part_.part().native();
    if (avformat_alloc_output_context2(&raw, &container, nullptr, url.c_str()) < 0) {
        return Error{"out of memory"};
    }
    output_.reset(raw);
    output_->strict_std_compliance = FF_COMPLIANCE_UNOFFICIAL;
    video_ = avformat_new_stream(output_.get(), nullptr);
    if (!video_ || avcodec_parameters_from_context(video_->codecpar, &encoder_->context()) < 0) {
        return Error{"out of memory"};
    }
    video_->time_base = encoder_->context().time_base;
    video_->avg_frame_rate = toAv(settings_.frameRate);
    video_->r_frame_rate = video_->avg_frame_rate;
    video_->sample_aspect_ratio = toAv(settings_.sampleAspect);
    video_->codecpar->field_order = encoder_->context().field_order;
    if (Status status = setOrientation(container); !status) {
        return status;
    }
    if (Status status = setBrightness(); !status) {
        return status;
    }
    if (!settings_.timeCode.empty()) {
        // From here QuickTime's family and MXF make a track of it, others a tag.
        av_dict_set(&output_->metadata, "timecode", settings_.timeCode.c_str(), 0);
    }
    if (withAudio) {
        addAudio(container);
    }
    takeFfmpegMessage();
    int error = [&] {
        const PartFiles::Guard guard;
        return openStream(output_->pb, url, AVIO_FLAG_WRITE);
    }();
    if (error >= 0) {
        AVDictionary* options = nullptr;
        av_dict_set(&options, "movflags", "+write_colr", 0); // colour tags; other containers ignore it
        error = avformat_write_header(output_.get(), &options);
        av_dict_free(&options);
    }
    return fileStatus(error);
}

Status ClipWriter::fileStatus(int error) const
{
    if (error >= 0 && output_->pb && output_->pb->error < 0) {
        error = output_->pb->error;
    }
    if (error >= 0) {
        return {};
    }
    return Error{"cannot write " + quoted(part_.file()) + ": " + errorText(error) + ffmpegHint()};
}

Status ClipWriter::write(const void* rows, std::ptrdiff_t pitch, const FrameTime& time)
{
    if (frames_ == 0 && (fixedRate_ || settings_.beginsAtZero)) {
        shift_ = time.pts; // a container that only counts frames begins with the first too
    }
    ++frames_;
    FrameTime shifted = time;
    shifted.pts = av_sat_sub64(shifted.pts, shift_);
    endMicroseconds_ = av_rescale_q(av_sat_add64(shifted.pts, shifted.duration), toAv(settings_.timeBase),
                                    av_get_time_base_q());
    Status status =
        encoder_->encode(rows, pitch, shifted, [this](AVPacket& packet) { return writeVideo(packet); });
    return status ? writeAudioUpTo(endMicroseconds_) : status;
}

Status ClipWriter::writeVideo(AVPacket& packet)
{
    packet.stream_index = video_->index;
    av_packet_rescale_ts(&packet, encoder_->context().time_base, video_->time_base);
    return fileStatus(av_interleaved_write_frame(output_.get(), &packet));
}

Status ClipWriter::writeAudioUpTo(std::int64_t endMicroseconds)
{
    if (!settings_.audio) {
        return {};
    }
    while (AudioQueue::Packet packet = settings_.audio->pop()) {
        waitingAudio_.push_back(std::move(packet));
    }
    while (!waitingAudio_.empty()) {
        AVPacket& packet = *waitingAudio_.front();
        const auto trackIndex = static_cast<std::size_t>(packet.stream_index);
        const AudioQueue::Track& track = settings_.audio->tracks()[trackIndex];
        const AVRational timeBase{track.timeBaseNum, track.timeBaseDen};
        const std::int64_t shift = av_rescale_q(shift_, toAv(settings_.timeBase), timeBase);
        const std::int64_t start = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
        const auto isBeyondEnd = [&](std::int64_t time) {
            return av_rescale_q(av_sat_sub64(time, shift), timeBase, av_get_time_base_q()) > endMicroseconds;
        };
        if (start != AV_NOPTS_VALUE && isBeyondEnd(av_sat_add64(start, 1))) {
            return {};
        }
        // Where it ends within a packet is known only at the end.
        const bool mayBeCut = settings_.cutsAudio && start != AV_NOPTS_VALUE;
        if (mayBeCut && !isEnding_ && isBeyondEnd(av_sat_add64(start, packet.duration))) {
            return {};
        }
        AVStream* stream = trackIndex < audioStreams_.size() ? audioStreams_[trackIndex] : nullptr;
        if (stream && (!mayBeCut || cutAudio(packet, track, shift))) {
            packet.pts = packet.pts != AV_NOPTS_VALUE ? av_sat_sub64(packet.pts, shift) : packet.pts;
            packet.dts = packet.dts != AV_NOPTS_VALUE ? av_sat_sub64(packet.dts, shift) : packet.dts;
            packet.stream_index = stream->index;
            packet.pos = -1;
            av_packet_rescale_ts(&packet, timeBase, stream->time_base);
            if (Status status = copyAudio(packet); !status) {
                return status;
            }
        }
        waitingAudio_.pop_front();
    }
    return {};
}

/// Leaves of a packet what is heard while the frames are shown. `begin` is the time of the first, in the
/// track's units. Returns false if that is nothing.
bool ClipWriter::cutAudio(AVPacket& packet, const AudioQueue::Track& track, std::int64_t begin) const
{
    const int sampleBytes = bytesOfPcmSample(*track.parameters);
    if (sampleBytes == 0 || track.parameters->sample_rate <= 0) {
        return packet.pts == AV_NOPTS_VALUE || packet.pts >= begin;
    }
    const AVRational timeBase{track.timeBaseNum, track.timeBaseDen};
    const AVRational perSample{1, track.parameters->sample_rate};
    const std::int64_t early = av_rescale_q(av_sat_sub64(begin, packet.pts), timeBase, perSample);
    const std::int64_t length = av_rescale_q(endMicroseconds_, av_get_time_base_q(), perSample);
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

Status ClipWriter::copyAudio(AVPacket& packet)
{
    const int error = av_interleaved_write_frame(output_.get(), &packet);
    if (error == AVERROR(EINVAL) || error == AVERROR_INVALIDDATA) {
        ++refusedAudio_; // a damaged packet of the source; the rest of the audio is kept
        return {};
    }
    return fileStatus(error);
}

Status ClipWriter::finish()
{
    if (frames_ == 0) {
        return Error{"cannot write " + quoted(part_.file()) + ": there was no frame to write"};
    }
    Status status = encoder_->flush([this](AVPacket& packet) { return writeVideo(packet); });
    isEnding_ = true;
    if (status) {
        status = writeAudioUpTo(endMicroseconds_);
    }
    if (!status) {
        return status;
    }
    int error = av_write_trailer(output_.get());
    if (Status written = fileStatus(error); !written) {
        return written;
    }
    error = avio_closep(&output_->pb);
    if (error < 0) {
        return fileStatus(error);
    }
    const auto lost = lostDescription(part_.part(), settings_, encoder_->context(), extension_);
    warnings_.insert(warnings_.end(), lost.begin(), lost.end());
    if (refusedAudio_ > 0) {
        warnings_.push_back(std::to_string(refusedAudio_) + " damaged audio packets are left out");
    }
    if (encoder_->movedFrames() > 0) {
        warnings_.push_back("the times of " + std::to_string(encoder_->movedFrames()) +
                            " frames are changed: this kind of file counts frames at a fixed rate");
    }
    status = part_.commit();
    done_ = static_cast<bool>(status);
    return status;
}

std::string ClipWriter::description() const
{
    return encoder_->description() + ", " + output_->oformat->name;
}

std::vector<std::filesystem::path> ClipWriter::files() const
{
    return done_ ? std::vector{part_.file()} : std::vector<std::filesystem::path>{};
}

} // namespace Qx::Media
