#include "tools/qxhost/media/write/ClipWriter.h"
#include "host/core/AsciiCase.h"
#include "tools/qxhost/media/files/PartFiles.h"

#include "tools/qxhost/media/FfmpegVersions.h"
#include "tools/qxhost/media/files/Names.h"
#include "tools/qxhost/media/write/EncoderChoice.h"
#include "tools/qxhost/media/write/LostDescription.h"
#include "tools/qxhost/media/write/RawTrial.h"
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

/// Of standard output as much is kept as shows what the container holds: its beginning with the first frames.
Result<OutputFile> partFor(const std::filesystem::path& file, const OutputSettings& settings)
{
    if (settings.standardOutput < 0) {
        return OutputFile::create(file, settings.force, settings.kept);
    }
    constexpr std::size_t beginning = std::size_t{1} << 20U;
    constexpr std::size_t bytesOfPixel = 8;
    constexpr std::size_t frames = 2;
    const std::size_t pixels =
        static_cast<std::size_t>(settings.width) * static_cast<std::size_t>(settings.height);
    return OutputFile::standardOutput(settings.standardOutput, beginning + pixels * bytesOfPixel * frames);
}

/// What the muxer is told.
std::string muxerFlags(const OutputSettings& settings)
{
    // Colour tags; containers other than QuickTime's ignore it. A pipe cannot be sought in: the index comes
    // in fragments.
    const std::string flags = "+write_colr";
    return settings.standardOutput < 0 ? flags : flags + "+frag_keyframe+empty_moov+default_base_moof";
}

} // namespace

/// Standard output is written without one of FFmpeg's protocols, which would not say why that fails.
int ClipWriter::writeBytes(void* writer, WrittenBytes bytes, int size)
{
    auto& self = *static_cast<ClipWriter*>(writer);
    const Status status = self.part_.write(bytes, static_cast<std::size_t>(size));
    if (!status) {
        self.pipeError_ = status.text();
        return AVERROR(EIO);
    }
    return size;
}

int ClipWriter::openStream(const std::string& url)
{
    if (!part_.isStandardOutput()) {
        const PartFiles::Guard guard;
        return Media::openStream(output_->pb, url, AVIO_FLAG_WRITE);
    }
    constexpr int bufferSize = 1 << 16;
    auto* buffer = static_cast<unsigned char*>(av_malloc(bufferSize));
    output_->pb =
        buffer ? avio_alloc_context(buffer, bufferSize, 1, this, nullptr, writeBytes, nullptr) : nullptr;
    if (!output_->pb) {
        av_free(buffer);
        return AVERROR(ENOMEM);
    }
    output_->flags |= AVFMT_FLAG_CUSTOM_IO;
    return 0;
}

/// Returns 0, or FFmpeg's error.
int ClipWriter::closeStream(AVFormatContext& output)
{
    if ((output.flags & AVFMT_FLAG_CUSTOM_IO) == 0) {
        return avio_closep(&output.pb);
    }
    if (!output.pb) {
        return 0;
    }
    avio_flush(output.pb);
    const int error = output.pb->error;
    av_freep(static_cast<void*>(&output.pb->buffer));
    avio_context_free(&output.pb);
    return error;
}

Result<std::unique_ptr<iFrameWriter>> ClipWriter::open(const std::filesystem::path& file,
                                                       const std::string& extension,
                                                       const OutputSettings& settings)
{
    auto writer = make(file, extension, settings, nullptr);
    if (!writer) {
        return writer.error();
    }
    return std::unique_ptr<iFrameWriter>(std::move(writer.value()));
}

Result<std::unique_ptr<ClipWriter>> ClipWriter::openForPackets(const std::filesystem::path& file,
                                                               const OutputSettings& settings,
                                                               const AVCodecParameters& like)
{
    const std::string extension = Host::asciiLower(file.extension().native());
    OutputFile::clearAbandoned(file);
    return make(file, extension.substr(std::min<std::size_t>(1, extension.size())), settings, &like);
}

Result<std::unique_ptr<ClipWriter>> ClipWriter::make(const std::filesystem::path& file,
                                                     const std::string& extension,
                                                     const OutputSettings& settings,
                                                     const AVCodecParameters* like)
{
    // By the extension alone: the rest of the name may hold anything.
    const AVOutputFormat* container = av_guess_format(nullptr, ("name." + extension).c_str(), nullptr);
    if (settings.standardOutput >= 0 && settings.container == "raw" && container == nullptr) {
        return Error{
            "cannot write standard output: raw frames have no format; add --format NAME ('qxhost formats')"};
    }
    if (!container || (container->flags & AVFMT_NOFILE) || container->video_codec == AV_CODEC_ID_NONE) {
        return Error{"cannot write " + quotedOutput(file) + ": unknown extension ." + extension +
                     (extension == "raw" ? "; for frames as they are add --format NAME ('qxhost formats')"
                                         : " (try .png, .mov, .mkv, .mp4)")};
    }
    if (settings.frameRate.num <= 0 || settings.frameRate.den <= 0) {
        return Error{"cannot write " + quotedOutput(file) + ": the frame rate is not known"};
    }
    bool fixedRate = false;
    auto packets = makePackets(extension, *container, settings, fixedRate);
    if (!packets) {
        return Error{"cannot write " + quotedOutput(file) + ": " + packets.text()};
    }
    auto part = partFor(file, settings);
    if (!part) {
        return part.error();
    }
    std::unique_ptr<ClipWriter> writer(
        new ClipWriter(std::move(part.value()), settings, std::move(packets.value())));
    writer->fixedRate_ = fixedRate;
    if (settings.orientation && !holdsOrientation(*container)) {
        writer->warnings_.push_back(orientationIsLost(*settings.orientation));
    }
    writer->extension_ = extension;
    writer->like_ = like;
    writer->copies_ = like != nullptr;
    const Status status = writer->beginWithAudio(*container);
    if (!status) {
        return Error{status.text()};
    }
    writer->like_ = nullptr;
    return writer;
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
    if (std::string idle = ditherIsIdle(encoder_->context(), settings_); !idle.empty()) {
        warnings_.push_back(std::move(idle));
    }
    if (std::string steps = highDynamicRangeSteps(encoder_->context(), settings_); !steps.empty()) {
        warnings_.push_back(std::move(steps));
    }
}

/// A container may refuse a codec only when it is written.
Status ClipWriter::beginWithAudio(const AVOutputFormat& container)
{
    using Copies = AudioWriter::Copies;
    Status status;
    for (const Copies copies : {Copies::allowed, Copies::none}) {
        auto plan = AudioWriter::plan(container, extension_, settings_, copies);
        if (!plan) {
            return Error{"cannot write " + part_.name() + ": " + plan.text()};
        }
        audio_ = std::move(plan.value());
        status = makeHeader(container);
        if (status || !audio_->mayBeRefused()) {
            break;
        }
    }
    warnings_.insert(warnings_.end(), audio_->warnings().begin(), audio_->warnings().end());
    return status;
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

/// The video as the encoder describes it. Packets that come from a file are in the form of its own headers.
Status ClipWriter::describeVideo()
{
    AVCodecParameters& video = *video_->codecpar;
    if (avcodec_parameters_from_context(&video, &encoder_->context()) < 0) {
        return Error{"out of memory"};
    }
    if (!like_) {
        const RawTrial trial = settings_.stored ? RawTrial() : tryRawFrames(*output_->oformat, video);
        output_->strict_std_compliance = trial.compliance;
        return trial.why.empty() ? Status()
                                 : Status(Error{"cannot write " + part_.name() + ": " + trial.why});
    }
    if (like_->codec_id != video.codec_id || like_->width != video.width || like_->height != video.height) {
        return Error{"cannot write " + quoted(part_.file()) + ": its pieces are " +
                     avcodec_get_name(like_->codec_id) + " of " + std::to_string(like_->width) + "x" +
                     std::to_string(like_->height) + ", which is not what these settings make"};
    }
    if (video.extradata_size > 0 && like_->extradata_size > 0) {
        auto* copy = static_cast<std::uint8_t*>(
            av_mallocz(static_cast<std::size_t>(like_->extradata_size) + AV_INPUT_BUFFER_PADDING_SIZE));
        if (!copy) {
            return Error{"out of memory"};
        }
        std::copy_n(like_->extradata, like_->extradata_size, copy);
        av_freep(&video.extradata);
        video.extradata = copy;
        video.extradata_size = like_->extradata_size;
    }
    return {};
}

Status ClipWriter::makeHeader(const AVOutputFormat& container)
{
    AVFormatContext* raw = nullptr;
    const std::string url = "file:" + part_.part().native();
    if (avformat_alloc_output_context2(&raw, &container, nullptr, url.c_str()) < 0) {
        return Error{"out of memory"};
    }
    output_.reset(raw);
    output_->strict_std_compliance = FF_COMPLIANCE_UNOFFICIAL;
    video_ = avformat_new_stream(output_.get(), nullptr);
    if (!video_) {
        return Error{"out of memory"};
    }
    if (Status status = describeVideo(); !status) {
        return status;
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
    if (Status status = audio_->addStreams(*output_); !status) {
        return status;
    }
    takeFfmpegMessage();
    int error = openStream(url);
    if (error >= 0) {
        AVDictionary* options = nullptr;
        av_dict_set(&options, "movflags", muxerFlags(settings_).c_str(), 0);
        error = avformat_write_header(output_.get(), &options);
        av_dict_free(&options);
        const std::string why = error < 0 && output_->pb->error >= 0 ? ffmpegHint() : "";
        if (!why.empty() && pipeError_.empty()) {
            return refusal(why); // the number beside it is one of files, which are not at fault
        }
    }
    return fileStatus(error);
}

/// The muxer refuses what it is given; `why` is empty or FFmpeg's message, as ffmpegHint() has it.
Error ClipWriter::refusal(const std::string& why) const
{
    return {"cannot write " + part_.name() + ": " + output_->oformat->name + " does not take such frames" +
            why + "; choose another --codec or --pixel-format, or another kind of file (.mov, .mkv)"};
}

Status ClipWriter::fileStatus(int error) const
{
    constexpr int withoutNumber = -1; // FFmpeg's for "no", which reads as EPERM
    const bool isFiles = !output_->pb || output_->pb->error < 0 || !pipeError_.empty();
    if (error == withoutNumber && !isFiles) {
        return refusal(ffmpegHint());
    }
    if (error >= 0 && output_->pb && output_->pb->error < 0) {
        error = output_->pb->error;
    }
    if (error >= 0) {
        return {};
    }
    if (!pipeError_.empty()) {
        return Error{pipeError_};
    }
    return Error{"cannot write " + part_.name() + ": " + errorText(error) + ffmpegHint()};
}

void ClipWriter::begin(const FrameTime& first)
{
    // A container that only counts frames begins with the first too.
    shift_ = fixedRate_ || settings_.beginsAtZero ? first.pts : 0;
    if (settings_.origin && !fixedRate_) {
        shift_ = *settings_.origin;
    }
    audio_->begin(first.pts, shift_, [this](AVPacket& packet) {
        audioError_ = av_interleaved_write_frame(output_.get(), &packet);
        return audioError_;
    });
}

std::int64_t ClipWriter::packetTime(std::int64_t pts) const
{
    const AVRational unit = encoder_->context().time_base;
    return av_rescale_q(av_rescale_q(av_sat_sub64(pts, shift_), toAv(settings_.timeBase), unit), unit,
                        video_->time_base);
}

std::int64_t ClipWriter::packetDuration(std::int64_t duration) const
{
    const AVRational unit = encoder_->context().time_base;
    return av_rescale_q(av_rescale_q(duration, toAv(settings_.timeBase), unit), unit, video_->time_base);
}

Status ClipWriter::copy(AVPacket& packet)
{
    ++frames_;
    packet.stream_index = video_->index;
    packet.pos = -1;
    return fileStatus(av_interleaved_write_frame(output_.get(), &packet));
}

Status ClipWriter::writeAudioUpTo(std::int64_t time)
{
    end_ = av_sat_sub64(time, shift_);
    return audioStatus(audio_->writeUpTo(end_));
}

/// The next frame's.
FrameTime ClipWriter::timeInClip(const FrameTime& time)
{
    if (frames_ == 0) {
        begin(time);
    }
    ++frames_;
    FrameTime shifted = time;
    shifted.pts = av_sat_sub64(shifted.pts, shift_);
    end_ = av_sat_add64(shifted.pts, shifted.duration);
    return shifted;
}

Status ClipWriter::write(const void* rows, std::ptrdiff_t pitch, const FrameTime& time)
{
    Status status = encoder_->encode(rows, pitch, timeInClip(time),
                                     [this](AVPacket& packet) { return writeVideo(packet); });
    return status ? audioStatus(audio_->writeUpTo(end_)) : status;
}

Status ClipWriter::writeDecoded(const Frame& frame, Range range)
{
    Status status = encoder_->encodeDecoded(frame, range, timeInClip(frame.time()),
                                            [this](AVPacket& packet) { return writeVideo(packet); });
    return status ? audioStatus(audio_->writeUpTo(end_)) : status;
}

Status ClipWriter::audioStatus(const Status& status) const
{
    if (!status && audioError_ < 0) {
        return fileStatus(audioError_); // which may be that of a frame that was held back until now
    }
    return status ? Status() : Error{"cannot write " + part_.name() + ": " + status.text()};
}

Status ClipWriter::writeVideo(AVPacket& packet)
{
    packet.stream_index = video_->index;
    av_packet_rescale_ts(&packet, encoder_->context().time_base, video_->time_base);
    return fileStatus(av_interleaved_write_frame(output_.get(), &packet));
}

Status ClipWriter::finish()
{
    if (frames_ == 0) {
        return Error{"cannot write " + part_.name() + ": there was no frame to write"};
    }
    Status status =
        copies_ ? Status() : encoder_->flush([this](AVPacket& packet) { return writeVideo(packet); });
    if (status) {
        status = audioStatus(audio_->finish(end_));
    }
    if (!status) {
        return status;
    }
    int error = av_write_trailer(output_.get());
    if (Status written = fileStatus(error); !written) {
        return written;
    }
    error = closeStream(*output_);
    if (error < 0) {
        return fileStatus(error);
    }
    const auto lost = lostDescription(part_.readable(), settings_, encoder_->context(), extension_);
    warnings_.insert(warnings_.end(), lost.begin(), lost.end());
    for (const std::string& warning : audio_->warningsAtEnd()) {
        warnings_.push_back(warning);
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
    return done_ && !part_.isStandardOutput() ? std::vector{part_.file()}
                                              : std::vector<std::filesystem::path>{};
}

} // namespace Qx::Media
