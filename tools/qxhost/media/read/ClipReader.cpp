#include "tools/qxhost/media/read/ClipReader.h"
#include "host/files/SystemError.h"

#include "tools/qxhost/media/FfmpegVersions.h"
#include "tools/qxhost/media/files/Names.h"
#include "tools/qxhost/media/files/NumberedNames.h"
#include "tools/qxhost/media/read/AudioPreroll.h"
#include "tools/qxhost/media/read/ClipTimeCode.h"
#include "tools/qxhost/media/read/ClockJumps.h"
#include "tools/qxhost/media/read/EntrySearch.h"
#include "tools/qxhost/media/read/OpenedFiles.h"
#include "tools/qxhost/media/read/PictureDescription.h"
#include "tools/qxhost/media/read/Sequence.h"
#include "tools/qxhost/media/read/StreamColour.h"
#include "tools/qxhost/media/read/TiffSamples.h"
#include "tools/qxhost/media/rows/ComponentRows.h"
#include "tools/qxhost/media/rows/FloatPicture.h"
#include "tools/qxhost/media/rows/FramePacker.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <deque>
#include <map>
#include <optional>
#include <sys/stat.h>
#include <system_error>
#include <tuple>
#include <unistd.h>

namespace Qx::Media {

namespace {

namespace fs = std::filesystem;

// Problems that are described; the rest are only counted.
constexpr std::size_t problemsKept = 20;
// Decoding stops after this many damaged packets in a row.
constexpr int damageInARowAllowed = 500;
// Packets that are remembered: more than a decoder's threads and its order of frames hold back.
constexpr std::size_t packetsRemembered = 512;

/// A packet that the decoder has been given. It sends its messages about it here, from any of its threads.
struct FedPacket
{
    SourceMessages messages;
    std::int64_t pts = AV_NOPTS_VALUE;
    bool hasPts = false;   // of its own; else pts is the time of decoding
    bool isHidden = false; // shows no frame
    bool isKey = false;
    bool isUnmissed = false; // see isUnmissed()
    bool isTold = false;     // its damage is among the problems
};

struct CloseInput
{
    void operator()(AVFormatContext* input) const
    {
        AVIOContext* own = input->flags & AVFMT_FLAG_CUSTOM_IO ? input->pb : nullptr;
        avformat_close_input(&input);
        avio_closep(&own);
    }
};
using InputPtr = std::unique_ptr<AVFormatContext, CloseInput>;

std::string secondsText(double time)
{
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.3f s", time);
    return text.data();
}

std::string seconds(std::int64_t pts, AVRational timeBase)
{
    return secondsText(static_cast<double>(pts) * av_q2d(timeBase));
}

/// Empty, or why the name cannot be a clip. `exists` tells a file from what may be a number pattern.
std::string whyNotAFile(const fs::path& file, bool& exists)
{
    std::error_code error;
    const fs::file_status status = fs::status(file, error);
    exists = fs::exists(status);
    if (fs::is_directory(status)) {
        return "it is a directory";
    }
    if (!exists) {
        if (error && error != std::errc::no_such_file_or_directory) {
            return Host::systemProblem(error.value());
        }
        return av_filename_number_test(file.c_str()) ? std::string() : "there is no such file";
    }
    if (fs::is_regular_file(status) && fs::file_size(file, error) == 0 && !error) {
        return "the file is empty";
    }
    return {};
}

/// Adds the files behind a name that may be a number pattern.
Status addFilesOf(const fs::path& file, FileSet& files)
{
    if (std::error_code error; fs::exists(file, error)) {
        return addWithNamedFiles(file, files) ? Status()
                                              : Error{"cannot read " + quotedInput(file) +
                                                      ": it is a list of files that leads back to itself"};
    }
    if (const NumberedNames names(file); names.isPattern()) {
        for (const long number : names.existing()) {
            files.add(names.name(number));
        }
        return {};
    }
    // A number in a directory's name: FFmpeg looks for the first picture up to 4 and ends at a gap.
    constexpr int lastStart = 4;
    for (int number = 0;; ++number) {
        std::array<char, 4096> name{};
        std::error_code error;
        const bool found =
            av_get_frame_filename(name.data(), static_cast<int>(name.size()), file.c_str(), number) == 0 &&
            fs::exists(name.data(), error);
        if (found) {
            files.add(name.data());
        } else if (number >= lastStart) {
            return {};
        }
    }
}

/// Whether the demuxer does what an edit list of MOV or MP4 says (ISO/IEC 14496-12, 8.6.6).
enum class EditLists
{
    followed,
    ignored
};

/// Which pictures of a sequence, and how they are timed.
struct SequencePart
{
    long first = 0;
    std::optional<Rational> rate;
};

/// How FFmpeg reaches standard input: as a file if it is one, from its beginning.
std::string urlOfStandardInput()
{
    struct stat status = {};
    const bool isFile = ::fstat(STDIN_FILENO, &status) == 0 && S_ISREG(status.st_mode);
    return isFile && ::lseek(STDIN_FILENO, 0, SEEK_CUR) == 0 ? "file:/proc/self/fd/0" : "pipe:0";
}

/// `ofPipes` is what is said of a pipe that holds no clip.
Result<InputPtr> openInput(const fs::path& file, const std::optional<SequencePart>& part, OpenedFiles& opened,
                           EditLists editLists = EditLists::followed, const std::string& ofPipes = {})
{
    const bool isStandard = file == standardName;
    bool exists = isStandard;
    if (const std::string why = isStandard ? "" : whyNotAFile(file, exists); !why.empty()) {
        return Error{"cannot read " + quotedInput(file) + ": " + why};
    }
    AVFormatContext* raw = avformat_alloc_context();
    if (!raw) {
        return Error{"out of memory"};
    }
    const std::string url = isStandard ? urlOfStandardInput() : "file:" + file.string();
    if (exists) {
        // Opened here, so that a '%' or '*' in the name of a real file is no pattern.
        if (const int error = openStream(raw->pb, url, AVIO_FLAG_READ); error < 0) {
            avformat_free_context(raw);
            return Error{"cannot read " + quotedInput(file) + ": " + errorText(error)};
        }
        raw->flags |= AVFMT_FLAG_CUSTOM_IO;
    }
    AVIOContext* own = raw->pb;
    AVDictionary* options = nullptr;
    av_dict_set(&options, "protocol_whitelist", "file", 0);
    if (part) {
        av_dict_set_int(&options, "start_number", part->first, 0);
    }
    if (part && part->rate) {
        const std::string rate = std::to_string(part->rate->num) + "/" + std::to_string(part->rate->den);
        av_dict_set(&options, "framerate", rate.c_str(), 0);
    }
    opened.follow(*raw);
    if (editLists == EditLists::ignored) {
        av_dict_set(&options, "ignore_editlist", "1", 0);
    }
    takeFfmpegMessage();
    const int error = avformat_open_input(&raw, url.c_str(), nullptr, &options);
    av_dict_free(&options);
    if (error < 0) {
        const bool isPiped = own && (own->seekable & AVIO_SEEKABLE_NORMAL) == 0;
        const bool isEmpty = (isStandard || isPiped) && own && own->pos == 0;
        avio_closep(&own);
        const std::string why =
            isEmpty ? "it is empty; the program that should write it may have failed"
            : error == AVERROR_INVALIDDATA
                ? "it is not a clip or picture that can be read, or its beginning is damaged"
                : errorText(error);
        const std::string message = opened.take();
        return Error{"cannot read " + quotedInput(file) + ": " + why +
                     (isEmpty           ? ""
                      : message.empty() ? ffmpegHint()
                                        : ": " + message) +
                     (isPiped && !isEmpty ? ofPipes : "")};
    }
    opened.take(); // what the demuxer went on after
    return InputPtr(raw);
}

/// Empty where pictures are shown as they are stored.
std::optional<Orientation> orientationOf(const AVStream& stream, const AVFrame& first)
{
    const std::int32_t* data = displayMatrixOf(stream);
    const AVFrameSideData* ofFrame = av_frame_get_side_data(&first, AV_FRAME_DATA_DISPLAYMATRIX);
    if (!data && ofFrame && ofFrame->size >= sizeof Orientation::matrix) { // of a photograph's Exif
        data = reinterpret_cast<const std::int32_t*>(ofFrame->data);
    }
    if (!data) {
        return {};
    }
    Orientation found;
    std::memcpy(found.matrix.data(), data, sizeof found.matrix);
    constexpr std::int32_t one = 1 << 16;
    constexpr std::int32_t oneOfLast = 1 << 30; // the third column has another point
    if (found.matrix == std::array<std::int32_t, 9>{one, 0, 0, 0, one, 0, 0, 0, oneOfLast}) {
        return {};
    }
    const double counterClockwise = av_display_rotation_get(found.matrix.data());
    if (!std::isnan(counterClockwise)) {
        found.degrees = (static_cast<int>(std::lround(-counterClockwise)) % 360 + 360) % 360;
    }
    return found;
}

/// Of the demuxer's index, without the frames that are only there because others refer to them.
std::int64_t framesShown(AVStream& stream)
{
    std::int64_t shown = 0;
    for (int i = 0; i < avformat_index_get_entries_count(&stream); ++i) {
        shown += (avformat_index_get_entry(&stream, i)->flags & AVINDEX_DISCARD_FRAME) == 0 ? 1 : 0;
    }
    return shown;
}

/// Whether each packet of this stream shows one frame, and what is shown after a key frame needs nothing from
/// before it.
bool hasEntries(const AVCodecParameters& video, FieldOrder firstFrame)
{
    const AVCodecDescriptor* descriptor = avcodec_descriptor_get(video.codec_id);
    if (descriptor && (descriptor->props & AV_CODEC_PROP_INTRA_ONLY) != 0) {
        return true;
    }
    switch (video.codec_id) {
    case AV_CODEC_ID_H264: {
        // Packets of interlaced video may hold fields.
        const bool isProgressive =
            video.field_order == AV_FIELD_UNKNOWN || video.field_order == AV_FIELD_PROGRESSIVE;
        return isProgressive && firstFrame == FieldOrder::progressive;
    }
    case AV_CODEC_ID_HEVC:
    case AV_CODEC_ID_MPEG1VIDEO:
    case AV_CODEC_ID_MPEG2VIDEO:
    case AV_CODEC_ID_VP9:
    case AV_CODEC_ID_AV1:
    case AV_CODEC_ID_FFV1:
        return true;
    default: // VP8 and MPEG-4 have packets that show nothing
        return false;
    }
}

bool endsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

} // namespace

struct ClipReader::Impl
{
    explicit Impl(fs::path path) : file(std::move(path)) {}

    static Result<std::unique_ptr<Impl>> start(const fs::path& file, const Options& options);
    Status checkStandardInput() const;
    fs::path place() const;
    Status findStreams();
    Status openDecoder();
    Status describe(const AVFrame& first);
    std::int64_t announcedFrames() const;
    std::string whatChanged(const AVFrame& picture) const;
    bool isUnmissed(const AVPacket& from);
    void queueAudio(const AVPacket& packet);
    void problem(const std::string& text);
    void problemOf(long index, const std::string& text);
    void settle(long end);
    void noteReached(const AVPacket& from);
    void noteEndOfInput(int error);
    bool endsWithinFrame() const;
    void checkLength();
    std::string where(std::int64_t pts) const;
    FedPacket* fedPacket(long index);
    std::string takeMessage(FedPacket& of) const;
    std::string whereIs(long index);
    std::string pictureName(long index) const;
    std::string damageText(long index, const std::string& where, const std::string& message) const;

    /// What the packets read so far show.
    struct Passed
    {
        std::int64_t lost = 0;  // frames before the first that could be decoded
        std::int64_t shown = 0; // from that on
        std::optional<std::int64_t> latest;
    };

    std::optional<Passed> passedPackets() const;
    bool jumpByIndex(const SeekTarget& target, Passed& passed);
    bool jumpInSequence(const SeekTarget& target);
    std::optional<SequencePart> sequencePart() const;
    Status openRun(std::size_t index);
    bool isPipe() const;
    bool hasTimeCodeTrack() const;
    bool fillsBefore(const AVFrame* picture) const;
    Frame filling();
    std::shared_ptr<const AVFrame> blackLike(const AVFrame& picture);
    long numberOf(long index) const;
    std::optional<EntrySearch::Entry> searchEntry(const SeekTarget& target, const Passed& passed);
    void restartDecoder();
    bool dropFramesBefore(const SeekTarget& target, const std::optional<EntrySearch::Entry>& entry);
    void dropAudioBefore(std::int64_t pts);
    void readAudioUpTo(std::int64_t pts);
    Result<std::vector<ShownFrame>> readTimes();
    bool skipTo(const SeekTarget& target);
    bool dropPlacesBefore(const SeekTarget& target);
    int readPacket();

    /// Decodes on; null at the end, and after a failure that `failure` describes.
    FramePtr decode();
    bool feed();
    bool refusesSamples();
    FrameTime timeOf(const AVFrame& frame);
    void mendTime(AVFrame& picture);
    void noteMoved(std::int64_t told, std::int64_t given);
    std::vector<std::string> remarksOnTimes() const;
    Range rangeOf(const AVFrame& frame) const;
    long indexOf(const AVFrame& frame) const;
    long lastDecoded() const;
    void noteDecodeError(int error);
    void noteDamage(const AVFrame& frame, const FrameTime& time, bool damaged);

    const fs::path file;
    Options options;
    std::optional<Sequence> sequence;
    std::size_t run = 0;         // of the sequence, that is being read
    std::int64_t due = 0;        // of a sequence that is filled: the place of the next frame
    ClippedNumbers clipped;      // of frames of floats
    ClockJumps clock;            // of a stream whose clock may start anew
    std::int64_t moved = 0;      // frames whose times did not follow the frame before
    std::int64_t firstMoved = 0; // the time that the first of them came with
    std::string gap;             // the longest, if it is long
    std::int64_t longestGap = 0;
    std::shared_ptr<const AVFrame> filler; // what gaps are filled with
    std::deque<FedPacket> fed;             // the last ones; outlives the decoder
    OpenedFiles opened;                    // outlives the input
    InputPtr input;
    AVStream* stream = nullptr;
    CodecPtr decoder;
    PacketPtr packet{av_packet_alloc()};
    StreamInfo info;
    FramePtr pending;             // the next frame, decoded by open() or skipTo()
    std::deque<PacketPtr> held;   // packets that were read ahead
    std::optional<int> endOfHeld; // what reading them ended with
    std::string endMessage;
    std::shared_ptr<AudioQueue> audio;
    std::vector<int> trackOfStream;         // -1 for what is not queued
    std::vector<std::int64_t> audioReached; // by track, the latest end of a packet

    bool inputEnded = false;
    bool ended = false;
    double reached = 0;   // seconds: the latest end of a packet of any stream
    bool stopped = false; // reading, before the end; a problem says why
    int damageInARow = 0;
    long packetsFed = 0;
    std::int64_t packetsBefore = 0; // decoded by a reader that this one replaces
    long settled = 0;               // packets before this one were needed for the frames given
    std::map<long, std::vector<std::string>> ahead; // problems of packets that no frame given has needed
    std::int64_t lastPos = -1;                      // in the input, of the last packet of the video
    std::int64_t posStep = 0;                       // from the one before it
    std::int64_t lastFedPts = AV_NOPTS_VALUE;
    std::int64_t lastKeyPts = AV_NOPTS_VALUE;
    std::int64_t entryPts = AV_NOPTS_VALUE; // of the key frame that decoding was entered at, until the next
    bool hasEntered = false;
    std::optional<std::int64_t> lastPts;
    std::int64_t lastDuration = 0;
    std::int64_t pendingPts = 0; // of the frame that skipTo() found
    std::int64_t framesGiven = 0;
    std::int64_t problemCount = 0;
    std::vector<std::string> problems;
    std::string failure;
};

ClipReader::ClipReader(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
ClipReader::~ClipReader() = default;

Result<std::unique_ptr<ClipReader>> ClipReader::open(const fs::path& file, const Options& options)
{
    auto impl = Impl::start(file, options);
    if (!impl) {
        return impl.error();
    }
    if (const Status status = impl.value()->describe(*impl.value()->pending); !status) {
        return Error{status.text()};
    }
    return std::unique_ptr<ClipReader>(new ClipReader(std::move(impl.value())));
}

/// Opens the file and decodes the first frame, which is not described yet.
Result<std::unique_ptr<ClipReader::Impl>> ClipReader::Impl::start(const fs::path& file,
                                                                  const Options& options)
{
    captureFfmpegLog();
    auto impl = std::make_unique<Impl>(file);
    impl->options = options;
    if (const Status status = impl->checkStandardInput(); !status) {
        return Error{status.text()};
    }
    if (const Status status = addFilesOf(impl->place(), *impl->opened.files()); !status) {
        return Error{status.text()};
    }
    auto sequence = sequenceOf(file, options.startNumber, options.missing);
    if (!sequence) {
        return sequence.error();
    }
    impl->sequence = sequence.value();
    auto input =
        openInput(file, impl->sequencePart(), impl->opened, EditLists::followed, options.ofPipesWithoutClip);
    if (!input) {
        return input.error();
    }
    impl->input = std::move(input.value());
    // What FFmpeg takes raw frames for has no pictures that can be decoded.
    const std::string ofPipe = impl->isPipe() ? options.ofPipesWithoutClip : "";
    if (const Status status = impl->findStreams(); !status) {
        return Error{status.text() + ofPipe};
    }
    if (const Status status = impl->openDecoder(); !status) {
        return Error{status.text()};
    }
    impl->pending = impl->decode();
    if (!impl->pending) {
        impl->settle(impl->packetsFed + 1);
        if (!impl->failure.empty()) {
            return Error{impl->failure};
        }
        const bool needsSeeking =
            impl->isPipe() &&
            std::string_view(impl->input->iformat->name).find("mp4") != std::string_view::npos;
        const std::string why =
            needsSeeking ? ": MOV and MP4 are read from a pipe only in fragments, or with their index first "
                           "(ffmpeg -movflags +faststart); NUT and Matroska always are"
            : impl->problems.empty() ? ofPipe
                                     : ": " + impl->problems.front() + ofPipe;
        return Error{quotedInput(file) + " holds no frame that can be decoded" + why};
    }
    return impl;
}

Status ClipReader::Impl::checkStandardInput() const
{
    if (file != standardName) {
        return {};
    }
    if (!options.mayBeStandardInput) {
        return Error{"cannot read \"-\": standard input cannot be used here"};
    }
    if (::isatty(STDIN_FILENO) == 1) {
        return Error{
            "cannot read standard input: it is a terminal; send it a clip, as in 'ffmpeg ... -f nut - | "
            "qxhost convert - ...'"};
    }
    return {};
}

/// The file, or what standard input is.
fs::path ClipReader::Impl::place() const
{
    return file == standardName ? "/proc/self/fd/0" : file;
}

/// It can be read once only: standard input, or a pipe that has a name.
bool ClipReader::Impl::isPipe() const
{
    return input->pb == nullptr ? file == standardName : (input->pb->seekable & AVIO_SEEKABLE_NORMAL) == 0;
}

std::optional<SequencePart> ClipReader::Impl::sequencePart() const
{
    return sequence ? std::optional(SequencePart{sequence->runs()[run].first, options.sequenceRate})
                    : std::nullopt;
}

/// Goes on with another run of a sequence, at its beginning.
Status ClipReader::Impl::openRun(std::size_t index)
{
    run = index;
    auto next = openInput(file, sequencePart(), opened);
    if (!next) {
        return Error{next.text()};
    }
    input = std::move(next.value());
    stream = input->streams[0];
    return {};
}

Status ClipReader::Impl::findStreams()
{
    const bool hasHeader = (input->ctx_flags & AVFMTCTX_NOHEADER) == 0;
    if (options.isBrief && hasHeader) {
        constexpr std::int64_t leastProbed = 32;
        input->probesize = leastProbed; // decodes one packet rather than those that tell the order of frames
    }
    if (const int error = avformat_find_stream_info(input.get(), nullptr); error < 0) {
        return Error{"cannot read " + quotedInput(file) + ": " + errorText(error) + ffmpegHint()};
    }
    const int best = av_find_best_stream(input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (best < 0 || (input->streams[best]->disposition & AV_DISPOSITION_ATTACHED_PIC)) {
        return Error{quotedInput(file) + " has no video stream" +
                     (best < 0 ? "" : " (only a cover picture beside its audio)")};
    }
    stream = input->streams[best];
    trackOfStream.assign(input->nb_streams, -1);
    std::vector<AudioQueue::Track> tracks;
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        AVStream& other = *input->streams[i];
        const bool isAudio = other.codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
        info.hasAudio = info.hasAudio || isAudio;
        if (isAudio && options.keepAudio) {
            trackOfStream[i] = static_cast<int>(tracks.size());
            std::shared_ptr<AVCodecParameters> copy(avcodec_parameters_alloc(), FreeParameters());
            if (!copy || avcodec_parameters_copy(copy.get(), other.codecpar) < 0) {
                return Error{"out of memory"};
            }
            const AVDictionaryEntry* language = av_dict_get(other.metadata, "language", nullptr, 0);
            tracks.push_back(
                {std::move(copy), other.time_base.num, other.time_base.den, language ? language->value : ""});
        } else if (&other != stream && stream->duration != AV_NOPTS_VALUE) {
            // Where only the file as a whole has a duration, the end of any stream may be its end.
            other.discard = AVDISCARD_ALL;
        }
    }
    audioReached.assign(tracks.size(), INT64_MIN);
    audio = std::make_shared<AudioQueue>(std::move(tracks));
    return {};
}

Status ClipReader::Impl::openDecoder()
{
    const AVCodecParameters& parameters = *stream->codecpar;
    if (parameters.width > largestSide || parameters.height > largestSide) {
        return Error{quotedInput(file) + " is " + std::to_string(parameters.width) + "x" +
                     std::to_string(parameters.height) + " pixels; the largest that is read is " +
                     std::to_string(largestSide) + " each way"};
    }
    const AVCodec* codec = avcodec_find_decoder(parameters.codec_id);
    if (!codec) {
        return Error{quotedInput(file) + " holds video of a kind that this FFmpeg cannot decode: " +
                     avcodec_get_name(parameters.codec_id)};
    }
    decoder.reset(avcodec_alloc_context3(codec));
    if (!decoder || avcodec_parameters_to_context(decoder.get(), &parameters) < 0) {
        return Error{"out of memory"};
    }
    decoder->pkt_timebase = stream->time_base;
    decoder->opaque = &fed.emplace_back().messages; // until there is a packet
    numberFrames(*decoder);
    decoder->thread_count = options.threads;
    decoder->thread_type = FF_THREAD_FRAME | FF_THREAD_SLICE;
    decoder->max_pixels = static_cast<std::int64_t>(largestSide) * largestSide;
    if (const int error = avcodec_open2(decoder.get(), codec, nullptr); error < 0) {
        return Error{"cannot decode " + quotedInput(file) + " (" + codec->name + "): " + errorText(error) +
                     " " + fed.back().messages.take()};
    }
    return {};
}

/// QuickTime's, whose content lies beside the frames.
bool ClipReader::Impl::hasTimeCodeTrack() const
{
    const AVStream* const* begin = input->streams;
    return std::any_of(begin, begin + input->nb_streams, [](const AVStream* each) {
        return each->codecpar->codec_tag == MKTAG('t', 'm', 'c', 'd');
    });
}

Status ClipReader::Impl::describe(const AVFrame& first)
{
    const auto format = static_cast<AVPixelFormat>(first.format);
    const char* name = av_get_pix_fmt_name(format);
    info.pixelFormat = name ? name : "unknown";
    if (const std::string why = ComponentRows::unreadable(format); !why.empty()) {
        return Error{"the pixel format of " + quotedInput(file) + ", " + info.pixelFormat +
                     ", is not supported: " + why};
    }
    if (first.width > largestSide || first.height > largestSide) {
        return Error{quotedInput(file) + " has frames of " + std::to_string(first.width) + "x" +
                     std::to_string(first.height) + " pixels; the largest that is read is " +
                     std::to_string(largestSide) + " each way"};
    }
    info.codec = decoder->codec->name;
    info.container = input->iformat->name;
    info.isStill = endsWith(info.container, "_pipe");
    info.streamIndex = stream->index;
    info.timeBase = fromAv(stream->time_base);
    info.firstPts = first.best_effort_timestamp != AV_NOPTS_VALUE ? first.best_effort_timestamp : 0;
    info.frameRate = info.isStill ? Rational{} : fromAv(av_guess_frame_rate(input.get(), stream, nullptr));
    info.sampleAspect =
        fromAv(av_guess_sample_aspect_ratio(input.get(), stream, const_cast<AVFrame*>(&first)));
    describePicture(first, info);
    info.hasFloats = floatsOf(first) != nullptr;
    info.colour = colourOf(first, *stream->codecpar);
    info.colour.brightness = brightnessOf(first, *stream);
    info.orientation = orientationOf(*stream, first);
    info.timeCode = timeCodeOf(*input, *stream, first);
    if (info.timeCode.empty() && isPipe() && hasTimeCodeTrack()) {
        info.remarks.push_back(quotedInput(file) +
                               ": its time code cannot be read from a pipe, and is left out");
    }
    if (info.isStill) {
        info.frameCount = 1;
        return {};
    }
    if (stream->duration != AV_NOPTS_VALUE && stream->duration > 0) {
        info.duration = static_cast<double>(stream->duration) * av_q2d(stream->time_base);
    } else if (input->duration != AV_NOPTS_VALUE && input->duration > 0) {
        info.duration = static_cast<double>(input->duration) / AV_TIME_BASE;
    }
    if (sequence) {
        info.frameCountIsExact = true;
        info.frameCount = sequence->last() - sequence->first() + 1;
        info.firstPts = sequence->isFilled() ? 0 : info.firstPts;
        info.firstNumber = sequence->first() + info.firstPts; // the first may be damaged
        info.remarks = remarksOn(file, *sequence);
        info.duration = static_cast<double>(info.frameCount) / std::max(info.frameRate.toDouble(), 1e-9);
        return {};
    }
    const std::int64_t announced = announcedFrames();
    info.frameCountIsExact = announced > 0;
    info.frameCount =
        info.frameCountIsExact
            ? announced
            : static_cast<std::int64_t>(std::llround(info.duration * info.frameRate.toDouble()));
    return {};
}

/// The number of frames to come by the file's own word; 0 if it does not say.
std::int64_t ClipReader::Impl::announcedFrames() const
{
    const std::int64_t stored = stream->nb_frames;
    const int entries = avformat_index_get_entries_count(stream);
    const std::int64_t shown = framesShown(*stream);
    if (stored <= 0 || shown == 0 || shown == stored || isPipe()) {
        return stored;
    }
    if (info.container == "avi") {
        // It counts the frames left out because they repeat the one before. The index has times alone for
        // them.
        const std::int64_t last = avformat_index_get_entry(stream, entries - 1)->timestamp;
        return last + 1 == stored ? shown : stored;
    }
    if (info.container.find("mp4") == std::string::npos) {
        return stored;
    }
    // An edit list chooses what of the stored is shown, and how often. Tables that are damaged also lead to
    // fewer entries: without the list, sound ones have one for each stored frame.
    OpenedFiles openedAgain; // outlives `whole`
    const auto whole = openInput(file, {}, openedAgain, EditLists::ignored);
    const bool isSound = whole && static_cast<unsigned>(stream->index) < whole.value()->nb_streams &&
                         framesShown(*whole.value()->streams[stream->index]) == stored;
    return isSound ? shown : stored;
}

/// Whether nobody misses anything if the packet cannot be decoded: hidden, and before the last key frame in
/// order of presentation, so that no later frame refers to it, or before the one that decoding was entered
/// at. What it refers to itself may be cut away.
bool ClipReader::Impl::isUnmissed(const AVPacket& from)
{
    if ((from.flags & AV_PKT_FLAG_KEY) != 0) {
        lastKeyPts = from.pts;
        entryPts = from.pts == entryPts ? entryPts : AV_NOPTS_VALUE; // what is before it has come
    }
    if (entryPts != AV_NOPTS_VALUE && from.pts != AV_NOPTS_VALUE && from.pts < entryPts) {
        return true;
    }
    return (from.flags & AV_PKT_FLAG_DISCARD) != 0 && from.pts != AV_NOPTS_VALUE &&
           lastKeyPts != AV_NOPTS_VALUE && from.pts < lastKeyPts;
}

std::string ClipReader::Impl::where(std::int64_t pts) const
{
    return pts == AV_NOPTS_VALUE ? "frame " + std::to_string(framesGiven + 1)
                                 : seconds(pts, stream->time_base);
}

void ClipReader::Impl::problem(const std::string& text)
{
    ++problemCount;
    if (problems.size() < problemsKept) {
        problems.push_back(text);
    }
}

/// A problem of a packet, by its number. The decoder reads ahead: it counts once a frame has needed the
/// packet.
void ClipReader::Impl::problemOf(long index, const std::string& text)
{
    if (index < settled) {
        problem(text);
    } else {
        ahead[index].push_back(text);
    }
}

/// Counts what is known of the packets before `end`.
void ClipReader::Impl::settle(long end)
{
    for (long index = settled; index < std::min(end, packetsFed); ++index) {
        FedPacket* const packetOf = fedPacket(index);
        const std::string message = packetOf ? takeMessage(*packetOf) : std::string();
        if (!message.empty() && !packetOf->isUnmissed && !packetOf->isTold) {
            packetOf->isTold = true;
            ahead[index].push_back(damageText(index, whereIs(index), message));
        }
    }
    settled = std::max(settled, end);
    while (!ahead.empty() && ahead.begin()->first < settled) {
        for (const std::string& text : ahead.begin()->second) {
            problem(text);
        }
        ahead.erase(ahead.begin());
    }
}

/// Null if it is not remembered.
FedPacket* ClipReader::Impl::fedPacket(long index)
{
    const long first = packetsFed - static_cast<long>(fed.size());
    return index >= first && index < packetsFed ? &fed[static_cast<std::size_t>(index - first)] : nullptr;
}

/// The decoder's last message of the packet; empty if it says no more than where decoding was entered.
std::string ClipReader::Impl::takeMessage(FedPacket& of) const
{
    std::string message = of.messages.take();
    // H.264 lets go of frames from before the key frame, which the decoder has never had.
    const bool isOfEntry = hasEntered && message.find("mmco: unref short failure") != std::string::npos;
    return isOfEntry ? std::string() : message;
}

std::string ClipReader::Impl::whereIs(long index)
{
    const FedPacket* const packetOf = fedPacket(index);
    return packetOf && packetOf->pts != AV_NOPTS_VALUE ? seconds(packetOf->pts, stream->time_base)
                                                       : "frame " + std::to_string(index + 1);
}

/// Of a packet of a numbered sequence, or of the one that would come next.
long ClipReader::Impl::numberOf(long index) const
{
    const long first = packetsFed - static_cast<long>(fed.size());
    if (index >= first && index < packetsFed) {
        const FedPacket& packetOf = fed[static_cast<std::size_t>(index - first)];
        return sequence->first() + static_cast<long>(std::max<std::int64_t>(packetOf.pts, 0));
    }
    return sequence->first() + static_cast<long>(lastFedPts == AV_NOPTS_VALUE ? 0 : lastFedPts + 1);
}

/// Of a numbered sequence: its number and its file.
std::string ClipReader::Impl::pictureName(long index) const
{
    const long number = numberOf(index);
    return "picture " + std::to_string(number) + " (" + quoted(NumberedNames(file).name(number)) + ")";
}

/// Of damage that the decoder has gone on after.
std::string ClipReader::Impl::damageText(long index, const std::string& where,
                                         const std::string& message) const
{
    const std::string what = sequence ? pictureName(index) + " is damaged and was"
                                      : quotedInput(file) + ": damage near " + where + ",";
    return what + " patched by the decoder" + (message.empty() ? "" : ": " + message);
}

/// The packet that a frame was decoded from.
long ClipReader::Impl::indexOf(const AVFrame& frame) const
{
    const std::optional<std::int64_t> number = packetNumber(frame);
    return number && *number < packetsFed ? static_cast<long>(*number) : packetsFed - 1;
}

/// The last packet whose result the decoder may have returned. Threads work on those after it.
long ClipReader::Impl::lastDecoded() const
{
    const bool inThreads = (decoder->active_thread_type & FF_THREAD_FRAME) != 0 && !inputEnded;
    return std::max(packetsFed - (inThreads ? decoder->thread_count : 1), 0L);
}

void ClipReader::Impl::noteDecodeError(int error)
{
    // It is of the oldest packet that the decoder has complained about; some decoders do not.
    const long last = lastDecoded();
    long index = std::min(settled, last);
    std::string message;
    for (; index < last && message.empty(); ++index) {
        message = fedPacket(index) ? fedPacket(index)->messages.take() : std::string();
        if (!message.empty()) {
            break;
        }
    }
    FedPacket* const packetOf = fedPacket(index);
    if (packetOf && message.empty()) {
        message = packetOf->messages.take();
    }
    if (!packetOf || !packetOf->isUnmissed) {
        const std::string what = sequence
                                     ? pictureName(index) + " is damaged: "
                                     : quotedInput(file) + ": damaged video near " + whereIs(index) + ": ";
        problemOf(index, what + (message.empty() ? errorText(error) : message));
    }
    if (packetOf) {
        packetOf->isTold = true;
    }
    if (++damageInARow > damageInARowAllowed) {
        failure =
            quotedInput(file) + ": nothing but damaged video since " + whereIs(index) + "; decoding stops";
    }
}

/// Counts the damage of everything that the frame needed.
void ClipReader::Impl::noteDamage(const AVFrame& frame, const FrameTime& time, bool damaged)
{
    const long index = indexOf(frame);
    FedPacket* const packetOf = fedPacket(index);
    const std::string message = packetOf ? takeMessage(*packetOf) : std::string();
    const bool isTold = packetOf && packetOf->isTold;
    if ((damaged || (!message.empty() && !packetOf->isUnmissed)) && !isTold) {
        ahead[index].push_back(damageText(index, seconds(time.pts, stream->time_base), message));
        if (packetOf) {
            packetOf->isTold = true;
        }
    }
    settle(std::max(settled, index + 1));
}

void ClipReader::Impl::noteReached(const AVPacket& from)
{
    if (from.stream_index == stream->index && from.pos > lastPos) {
        posStep = lastPos >= 0 ? from.pos - lastPos : 0;
        lastPos = from.pos;
    }
    const std::int64_t begin = from.pts != AV_NOPTS_VALUE ? from.pts : from.dts;
    if (begin != AV_NOPTS_VALUE) {
        const AVRational unit = input->streams[from.stream_index]->time_base;
        reached = std::max(reached, static_cast<double>(begin + from.duration) * av_q2d(unit));
    }
}

/// FFmpeg's reader of Y4M, whose frames are all as large, leaves out a part of one unsaid.
bool ClipReader::Impl::endsWithinFrame() const
{
    constexpr std::int64_t shortestMark = 6; // "FRAME" and the line's end
    if (info.container != "yuv4mpegpipe" || lastPos < 0 || !input->pb) {
        return false;
    }
    const int size = av_image_get_buffer_size(static_cast<AVPixelFormat>(stream->codecpar->format),
                                              info.width, info.height, 1);
    return avio_tell(input->pb) > lastPos + (posStep > 0 ? posStep : shortestMark + size);
}

void ClipReader::Impl::noteEndOfInput(int error)
{
    const std::string message = endOfHeld ? std::exchange(endMessage, {}) : opened.take();
    const bool reachedLast = sequence && numberOf(packetsFed) > sequence->last();
    if (reachedLast && sequence->hasGap()) {
        const fs::path missing = NumberedNames(file).name(sequence->last() + 1);
        problemOf(packetsFed, "picture " + std::to_string(sequence->last() + 1) + " is missing (" +
                                  quoted(missing) + "); the sequence ends there");
        stopped = true;
        return;
    }
    if (sequence && !reachedLast) {
        problemOf(packetsFed,
                  pictureName(packetsFed) +
                      (error == AVERROR_EOF ? " is empty" : " cannot be read: " + errorText(error)) +
                      "; the sequence ends there");
        stopped = true;
        return;
    }
    if (error == AVERROR_EOF && endsWithinFrame()) {
        problemOf(packetsFed, quotedInput(file) + " ends within a frame, after " + where(lastFedPts) +
                                  "; it is damaged or cut short");
        stopped = true;
        return;
    }
    if (error != AVERROR_EOF || !message.empty()) {
        problemOf(packetsFed,
                  "reading " + quotedInput(file) + " stops after " + where(lastFedPts) + ": " +
                      (message.empty() ? errorText(error) : message + "; the file is damaged or cut short"));
        stopped = true;
    }
}

void ClipReader::Impl::checkLength()
{
    // Only a duration that the file itself states can be missed, not one worked out from what is there.
    if (stopped || info.isStill || info.frameCountIsExact || stream->duration != AV_NOPTS_VALUE ||
        input->duration <= 0 || input->duration_estimation_method != AVFMT_DURATION_FROM_STREAM) {
        return;
    }
    constexpr double framesOfTolerance = 3;
    constexpr double leastTolerance = 0.1;
    const double rate = info.frameRate.toDouble();
    const double tolerance = std::max(leastTolerance, rate > 0 ? framesOfTolerance / rate : 1.0);
    if (reached < info.duration - tolerance) {
        problem(quotedInput(file) + " ends at " + secondsText(reached) + " of " + secondsText(info.duration) +
                "; the file is cut short");
    }
}

void ClipReader::Impl::queueAudio(const AVPacket& from)
{
    const int track = trackOfStream[static_cast<std::size_t>(from.stream_index)];
    if (track < 0) {
        return;
    }
    if (const std::int64_t pts = from.pts != AV_NOPTS_VALUE ? from.pts : from.dts; pts != AV_NOPTS_VALUE) {
        std::int64_t& latest = audioReached[static_cast<std::size_t>(track)];
        latest = std::max(latest, av_sat_add64(pts, from.duration));
    }
    PacketPtr copy(av_packet_clone(&from));
    if (copy) {
        copy->stream_index = track;
        audio->push(std::move(copy));
    }
}

/// The next packet of the input, first those that are held.
int ClipReader::Impl::readPacket()
{
    if (!held.empty()) {
        av_packet_move_ref(packet.get(), held.front().get());
        held.pop_front();
        return 0;
    }
    if (endOfHeld) {
        return *endOfHeld;
    }
    int error = av_read_frame(input.get(), packet.get());
    // FFmpeg may take a run for longer than it is, and fail behind it.
    while (error < 0 && sequence && run + 1 < sequence->runs().size() &&
           numberOf(packetsFed) > sequence->runs()[run].last) {
        if (!openRun(run + 1)) {
            return error; // what is missing is noticed
        }
        error = av_read_frame(input.get(), packet.get());
    }
    if (error >= 0 && (input->iformat->flags & AVFMT_TS_DISCONT) != 0) {
        const AVStream& of = *input->streams[packet->stream_index];
        const AVMediaType type = of.codecpar->codec_type;
        if (type == AVMEDIA_TYPE_VIDEO || type == AVMEDIA_TYPE_AUDIO) {
            clock.follow(*packet, of.time_base);
        }
    }
    if (error >= 0 && sequence) {
        const std::int64_t before = sequence->runs()[run].first - sequence->first();
        packet->pts += before;
        packet->dts += before;
    }
    return error;
}

/// Whether the packet is a picture that FFmpeg does not read, or takes for another. Says so then.
bool ClipReader::Impl::refusesSamples()
{
    if (decoder->codec_id != AV_CODEC_ID_TIFF) {
        return false;
    }
    const std::string samples =
        unreadableSamples({packet->data, static_cast<std::size_t>(std::max(packet->size, 0))});
    if (samples.empty()) {
        return false;
    }
    const std::string why = " holds " + samples +
                            ", and TIFF is read with whole numbers of up to 16 bits; make OpenEXR of it, as "
                            "with 'oiiotool IN.tif -d float -o OUT.exr'";
    if (sequence) {
        problemOf(packetsFed, pictureName(packetsFed) + why + "; the sequence ends there");
        stopped = true;
    } else {
        failure = quotedInput(file) + why;
    }
    return true;
}

bool ClipReader::Impl::feed()
{
    while (!inputEnded) {
        const int error = readPacket();
        if (error < 0) {
            inputEnded = true;
            noteEndOfInput(error);
            break;
        }
        opened.take(); // what the demuxer went on after
        noteReached(*packet);
        const bool isVideo = packet->stream_index == stream->index;
        if (!isVideo) {
            if (static_cast<std::size_t>(packet->stream_index) < trackOfStream.size()) {
                queueAudio(*packet);
            }
            av_packet_unref(packet.get());
            continue;
        }
        if (refusesSamples()) {
            av_packet_unref(packet.get());
            inputEnded = true;
            break;
        }
        FedPacket& packetOf = fed.emplace_back();
        if (fed.size() > packetsRemembered) {
            fed.pop_front();
        }
        lastFedPts = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
        packetOf.pts = lastFedPts;
        packetOf.hasPts = packet->pts != AV_NOPTS_VALUE;
        packetOf.isHidden = (packet->flags & AV_PKT_FLAG_DISCARD) != 0;
        packetOf.isKey = (packet->flags & AV_PKT_FLAG_KEY) != 0;
        packetOf.isUnmissed = isUnmissed(*packet);
        if (packet->flags & AV_PKT_FLAG_CORRUPT) {
            problemOf(packetsFed,
                      quotedInput(file) + ": the file is damaged or cut short near " + where(lastFedPts));
        }
        // The decoder hands this to the thread that it gives the packet to.
        decoder->opaque = &packetOf.messages;
        numberPacket(*decoder, *packet, packetsFed);
        ++packetsFed;
        const int sent = avcodec_send_packet(decoder.get(), packet.get());
        av_packet_unref(packet.get());
        if (sent < 0) {
            noteDecodeError(sent);
            if (!failure.empty()) {
                return false;
            }
            continue;
        }
        return true;
    }
    // This too may return the error of an earlier packet, after which other frames follow.
    const int flushed = avcodec_send_packet(decoder.get(), nullptr);
    if (flushed < 0 && flushed != AVERROR_EOF) {
        noteDecodeError(flushed);
    }
    return flushed != AVERROR_EOF;
}

FramePtr ClipReader::Impl::decode()
{
    FramePtr frame(av_frame_alloc());
    while (frame && failure.empty()) {
        const int error = avcodec_receive_frame(decoder.get(), frame.get());
        if (error >= 0) {
            damageInARow = 0;
            if (codesOfFloats(static_cast<AVPixelFormat>(frame->format)) != AV_PIX_FMT_NONE) {
                frame = codesFrom(*frame, clipped, options.keepsFloats);
                failure = frame ? "" : "out of memory for a frame";
            }
            return frame;
        }
        if (error == AVERROR_EOF) {
            return nullptr;
        }
        if (error != AVERROR(EAGAIN)) {
            noteDecodeError(error);
            continue;
        }
        if (!feed()) {
            return nullptr;
        }
    }
    return nullptr;
}

/// Empty, or what this picture has that cannot follow the first one's ("size changes from ... to ...").
std::string ClipReader::Impl::whatChanged(const AVFrame& picture) const
{
    if (picture.width != info.width || picture.height != info.height) {
        return "size changes from " + std::to_string(info.width) + "x" + std::to_string(info.height) +
               " to " + std::to_string(picture.width) + "x" + std::to_string(picture.height);
    }
    const auto format = static_cast<AVPixelFormat>(picture.format);
    if (info.colour.fromRgb && av_pix_fmt_desc_get(format)) {
        // RGB is kept as RGB, in the full range: YCbCr cannot follow it.
        const ComponentRows components(format);
        if (!components.isRgb() && !components.isGrey()) {
            return "pixel format changes from " + info.pixelFormat + " to " + av_get_pix_fmt_name(format);
        }
    }
    return {};
}

FrameTime ClipReader::Impl::timeOf(const AVFrame& frame)
{
    FrameTime time;
    time.fieldOrder = fieldOrderOf(frame);
    time.duration = durationOf(frame);
    if (time.duration == 0 && info.frameRate.num > 0) {
        time.duration = av_rescale_q(1, av_inv_q(toAv(info.frameRate)), stream->time_base);
    }
    // A file may hold any time, even the largest.
    const std::int64_t next = lastPts ? av_sat_add64(*lastPts, std::max<std::int64_t>(lastDuration, 1)) : 0;
    time.pts = frame.best_effort_timestamp != AV_NOPTS_VALUE ? frame.best_effort_timestamp : next;
    if (lastPts && time.pts <= *lastPts) {
        time.pts = next;
    }
    lastPts = time.pts;
    lastDuration = time.duration;
    return time;
}

/// A frame that comes long after the one before it, and after the next one too, has a wrong time: it gets the
/// one that is due. What follows it would come as late otherwise.
void ClipReader::Impl::mendTime(AVFrame& picture)
{
    constexpr int longGap = 10; // seconds
    const std::int64_t told = picture.best_effort_timestamp;
    if (sequence || info.isStill || !lastPts || told == AV_NOPTS_VALUE) {
        return;
    }
    const std::int64_t due = av_sat_add64(*lastPts, std::max<std::int64_t>(lastDuration, 1));
    const std::int64_t late = av_sat_sub64(told, due);
    if (late <= av_rescale_q(longGap, {1, 1}, stream->time_base)) {
        return;
    }
    pending = decode();
    const std::int64_t next = pending ? pending->best_effort_timestamp : AV_NOPTS_VALUE;
    if (next != AV_NOPTS_VALUE && next > *lastPts && next < told) {
        picture.best_effort_timestamp = due;
        noteMoved(told, due);
    } else if (late > longestGap) {
        longestGap = late;
        gap = "there is no frame between " + seconds(due, stream->time_base) + " and " +
              seconds(told, stream->time_base);
    }
}

/// A frame came with one time, and is given with another.
void ClipReader::Impl::noteMoved(std::int64_t told, std::int64_t given)
{
    if (told != AV_NOPTS_VALUE && told != given) {
        firstMoved = moved == 0 ? told : firstMoved;
        ++moved;
    }
}

std::vector<std::string> ClipReader::Impl::remarksOnTimes() const
{
    const std::string name = quotedInput(file) + ": ";
    std::vector<std::string> remarks;
    if (clock.count() > 0) {
        remarks.push_back(name + "its clock jumps " +
                          (clock.count() == 1 ? "once" : std::to_string(clock.count()) + " times") +
                          ", as where streams are joined; what follows a jump is put right after what is "
                          "before it");
    }
    if (moved > 0) {
        const std::string first = seconds(firstMoved, stream->time_base);
        remarks.push_back(name +
                          (moved == 1 ? "the time of one frame, " + first + ", does not follow"
                                      : "the times of " + std::to_string(moved) + " frames, the first " +
                                            first + ", do not follow") +
                          " that of the frame before; " + (moved == 1 ? "it is" : "each of them is") +
                          " shown right after that frame");
    }
    if (!gap.empty()) {
        remarks.push_back(name + gap + "; the frame before is shown as long");
    }
    return remarks;
}

/// A clip may change its range: each frame's own tag holds.
Range ClipReader::Impl::rangeOf(const AVFrame& frame) const
{
    const Colour own = colourOf(frame); // the stream's tags may be of frames to come
    const Colour& colour = own.rangeGuessed ? info.colour : own;
    return colour.fromRgb ? colour.rgbRange : colour.range;
}

/// The packets that the decoder was given until its first frame; empty if their frames cannot be counted.
std::optional<ClipReader::Impl::Passed> ClipReader::Impl::passedPackets() const
{
    const bool remembersAll = static_cast<long>(fed.size()) > packetsFed; // one stands for none
    if (!remembersAll || pending->pts == AV_NOPTS_VALUE || pending->pts != pending->best_effort_timestamp) {
        return {};
    }
    Passed passed;
    for (std::size_t i = 1; i < fed.size(); ++i) {
        const FedPacket& each = fed[i];
        if (!each.hasPts) {
            return {};
        }
        if (!each.isHidden) {
            ++(each.pts < pending->pts ? passed.lost : passed.shown);
            passed.latest = std::max(passed.latest.value_or(each.pts), each.pts);
        }
    }
    return passed;
}

/// MOV and MP4 list their packets: goes to a key frame before the last of those that are stored before the
/// target, since the last one may be shown after it, and audio needs what is before it. Returns false if the
/// place in the input is lost.
bool ClipReader::Impl::jumpByIndex(const SeekTarget& target, Passed& passed)
{
    if (info.container.find("mp4") == std::string::npos || stream->nb_frames <= 0) {
        return true;
    }
    const int count = avformat_index_get_entries_count(stream);
    const auto entryAt = [this](int i) { return avformat_index_get_entry(stream, i); };
    int last = -1;
    std::int64_t shown = -passed.lost;
    for (int i = 0; i < count; ++i) {
        const AVIndexEntry& entry = *entryAt(i);
        if ((entry.flags & AVINDEX_KEYFRAME) != 0) {
            if (target.pts ? entry.timestamp > *target.pts : shown > target.frame) {
                break;
            }
            last = i;
        }
        shown += (entry.flags & AVINDEX_DISCARD_FRAME) == 0 ? 1 : 0;
    }
    const std::int64_t preroll =
        audio->tracks().empty() ? 0 : av_rescale_q(1, audioPreroll, stream->time_base);
    int beforeLast = last - 1;
    while (beforeLast >= 0 && ((entryAt(beforeLast)->flags & AVINDEX_KEYFRAME) == 0 ||
                               entryAt(last)->timestamp - entryAt(beforeLast)->timestamp < preroll)) {
        --beforeLast;
    }
    if (beforeLast < packetsFed) {
        return true; // reading on leads there
    }
    if (av_seek_frame(input.get(), stream->index, entryAt(beforeLast)->timestamp, AVSEEK_FLAG_BACKWARD) < 0) {
        return false;
    }
    bool isVideo = false;
    while (!isVideo) {
        if (av_read_frame(input.get(), packet.get()) < 0) {
            return false;
        }
        isVideo = packet->stream_index == stream->index;
        held.emplace_back(av_packet_alloc());
        av_packet_move_ref(held.back().get(), packet.get());
    }
    // Which one it is, whatever was asked for.
    const AVPacket& first = *held.back();
    shown = -passed.lost;
    for (int i = 0; i < avformat_index_get_entries_count(stream); ++i) {
        const AVIndexEntry& entry = *entryAt(i);
        if (entry.timestamp == first.dts && entry.pos == first.pos) {
            passed.shown = shown;
            passed.latest.reset();
            return true;
        }
        shown += (entry.flags & AVINDEX_DISCARD_FRAME) == 0 ? 1 : 0;
    }
    return false;
}

/// Returns false if the place in the input is lost.
bool ClipReader::Impl::jumpInSequence(const SeekTarget& target)
{
    const std::int64_t wanted = target.pts ? av_sat_sub64(*target.pts, info.firstPts) : target.frame;
    const long farthest = sequence->last() - sequence->first();
    const long number = sequence->first() + static_cast<long>(std::clamp<std::int64_t>(wanted, 0, farthest));
    const std::size_t wantedRun = sequence->runAt(number);
    const Sequence::Run& entered = sequence->runs()[wantedRun];
    const long entry = std::min(number, entered.last); // of a gap, the picture before it
    if (entry <= numberOf(packetsFed)) {
        return true;
    }
    const bool isOpen = wantedRun == run || static_cast<bool>(openRun(wantedRun));
    if (!isOpen ||
        av_seek_frame(input.get(), stream->index, entry - entered.first, AVSEEK_FLAG_BACKWARD) < 0) {
        return false;
    }
    restartDecoder();
    framesGiven = entry - sequence->first();
    lastFedPts = framesGiven - 1;
    return true;
}

/// The packets are kept, and decoded next.
std::optional<EntrySearch::Entry> ClipReader::Impl::searchEntry(const SeekTarget& target,
                                                                const Passed& passed)
{
    EntrySearch search(target, stream->time_base, passed.shown, passed.latest);
    for (bool isSearching = true; isSearching;) {
        if (const int error = readPacket(); error < 0) {
            endOfHeld = error;
            endMessage = opened.take();
            search.endOfStream();
            break;
        }
        opened.take(); // what the demuxer went on after
        noteReached(*packet);
        const auto index = static_cast<std::size_t>(packet->stream_index);
        const bool isVideo = packet->stream_index == stream->index;
        if (!isVideo && (index >= trackOfStream.size() || trackOfStream[index] < 0)) {
            av_packet_unref(packet.get());
            continue;
        }
        PacketPtr moved(av_packet_alloc());
        av_packet_move_ref(moved.get(), packet.get());
        isSearching = isVideo ? search.addVideo(std::move(moved))
                              : search.addOther(std::move(moved), input->streams[index]->time_base);
    }
    held = search.takePackets();
    return search.entry();
}

/// So that it begins with the next packet.
void ClipReader::Impl::restartDecoder()
{
    avcodec_flush_buffers(decoder.get());
    pending.reset();
    inputEnded = false;
    ahead.clear();
    settled = packetsFed;
    damageInARow = 0;
    lastPts.reset();
}

/// Frames count from the entry, or from framesGiven without one. Returns false if the entry is none: its
/// frame does not come out.
bool ClipReader::Impl::dropFramesBefore(const SeekTarget& target,
                                        const std::optional<EntrySearch::Entry>& entry)
{
    if (entry) {
        framesGiven = entry->frame;
    }
    bool isEntered = !entry || entry->isHidden;
    for (;; pending = nullptr) {
        if (!pending) {
            pending = decode();
        }
        if (!pending) {
            return isEntered;
        }
        if (!isEntered) {
            if (pending->pts == AV_NOPTS_VALUE || pending->pts > entry->pts) {
                return false;
            }
            isEntered = pending->pts == entry->pts;
            if (!isEntered) {
                continue; // it needs what is before the key frame
            }
        }
        const auto before = std::make_pair(lastPts, lastDuration);
        const FrameTime time = timeOf(*pending);
        if (target.pts ? time.pts >= *target.pts : framesGiven >= target.frame) {
            std::tie(lastPts, lastDuration) = before; // next() gives it
            pendingPts = time.pts;
            dropAudioBefore(time.pts);
            return true;
        }
        dropAudioBefore(time.pts);
        ++framesGiven;
        if (sequence) {
            filler = std::shared_ptr<const AVFrame>(pending.release(), FreeFrame());
        }
    }
}

/// Whether a gap comes before this picture, or before the end if it is null.
bool ClipReader::Impl::fillsBefore(const AVFrame* picture) const
{
    if (!sequence || !sequence->isFilled() || !failure.empty()) {
        return false;
    }
    return picture ? picture->best_effort_timestamp > due
                   : !stopped && due <= sequence->last() - sequence->first();
}

/// Null if memory lacks.
std::shared_ptr<const AVFrame> ClipReader::Impl::blackLike(const AVFrame& picture)
{
    FramePtr black(av_frame_alloc());
    if (!black) {
        return nullptr;
    }
    black->format = picture.format;
    black->width = picture.width;
    black->height = picture.height;
    std::array<std::ptrdiff_t, AV_NUM_DATA_POINTERS> pitches{};
    if (av_frame_get_buffer(black.get(), 0) < 0 || av_frame_copy_props(black.get(), &picture) < 0) {
        return nullptr;
    }
    forgetFloats(*black);
    std::copy_n(std::begin(black->linesize), pitches.size(), pitches.begin());
    const AVColorRange range = toAv(rangeOf(picture));
    if (av_image_fill_black(black->data, pitches.data(), static_cast<AVPixelFormat>(black->format), range,
                            black->width, black->height) < 0) {
        return nullptr;
    }
    return {black.release(), FreeFrame()};
}

/// A frame for a picture that a sequence lacks; empty, with a failure, if memory lacks.
Frame ClipReader::Impl::filling()
{
    std::shared_ptr<const AVFrame> shown = filler;
    if (sequence->fillsWithBlack() || !shown) {
        const AVFrame* like = pending ? pending.get() : filler.get();
        FramePtr copy(sequence->fillsWithBlack() ? nullptr : av_frame_clone(like));
        shown = copy ? std::shared_ptr<const AVFrame>(copy.release(), FreeFrame()) : blackLike(*like);
    }
    if (!shown) {
        failure = "out of memory for a frame in place of a missing picture";
        return {};
    }
    FrameTime time;
    time.pts = due;
    time.duration = 1;
    time.fieldOrder = info.fieldOrder;
    lastPts = time.pts;
    lastDuration = time.duration;
    ++due;
    ++framesGiven;
    return Frame(shown, time, false, rangeOf(*shown));
}

void ClipReader::Impl::dropAudioBefore(std::int64_t pts)
{
    audio->remove([&](const AudioQueue::Packet& each) {
        const AudioQueue::Track& track = audio->tracks()[static_cast<std::size_t>(each->stream_index)];
        return isPastAudio(*each, {track.timeBaseNum, track.timeBaseDen}, pts, stream->time_base);
    });
}

/// Audio may be stored after the video that it belongs to, at most by as much as here.
void ClipReader::Impl::readAudioUpTo(std::int64_t pts)
{
    if (audioReached.empty()) {
        return;
    }
    constexpr int longestDelay = 10; // seconds
    const std::int64_t farthest = av_sat_add64(pts, av_rescale_q(longestDelay, {1, 1}, stream->time_base));
    const auto isMissing = [&] {
        for (std::size_t i = 0; i < audioReached.size(); ++i) {
            const AudioQueue::Track& track = audio->tracks()[i];
            if (audioReached[i] == INT64_MIN ||
                av_compare_ts(audioReached[i], {track.timeBaseNum, track.timeBaseDen}, pts,
                              stream->time_base) < 0) {
                return true;
            }
        }
        return false;
    };
    bool isFar = false;
    while (!isFar && !inputEnded && isMissing()) {
        inputEnded = readPacket() < 0;
        if (inputEnded) {
            break; // what is wrong behind the frames that are wanted does not count
        }
        if (packet->stream_index == stream->index) {
            isFar = packet->dts != AV_NOPTS_VALUE && packet->dts > farthest;
        } else if (static_cast<std::size_t>(packet->stream_index) < trackOfStream.size()) {
            queueAudio(*packet);
        }
        av_packet_unref(packet.get());
    }
    ended = true;
}

Result<std::vector<ShownFrame>> ClipReader::Impl::readTimes()
{
    ended = true;
    std::vector<ShownFrame> frames;
    if (sequence || info.isStill) {
        const std::int64_t count = sequence ? sequence->last() - sequence->first() + 1 : 1;
        for (std::int64_t i = 0; i < count; ++i) {
            frames.push_back({info.firstPts + i, true});
        }
        return frames;
    }
    const Error noTimes{quoted(file) + " has frames without a time of their own"};
    if (!passedPackets()) {
        return noTimes;
    }
    for (std::size_t i = 1; i < fed.size(); ++i) {
        if (!fed[i].isHidden) {
            frames.push_back({fed[i].pts, fed[i].isKey});
        }
    }
    for (; !inputEnded && readPacket() >= 0; av_packet_unref(packet.get())) {
        if (packet->stream_index != stream->index || (packet->flags & AV_PKT_FLAG_DISCARD) != 0) {
            continue;
        }
        if (packet->pts == AV_NOPTS_VALUE) {
            return noTimes;
        }
        frames.push_back({packet->pts, (packet->flags & AV_PKT_FLAG_KEY) != 0});
    }
    std::erase_if(frames, [this](const ShownFrame& each) { return each.pts < info.firstPts; });
    std::sort(frames.begin(), frames.end(),
              [](const ShownFrame& a, const ShownFrame& b) { return a.pts < b.pts; });
    const auto twice =
        std::adjacent_find(frames.begin(), frames.end(),
                           [](const ShownFrame& a, const ShownFrame& b) { return a.pts == b.pts; });
    if (twice != frames.end()) {
        return Error{quoted(file) + " has two frames at " + seconds(twice->pts, stream->time_base)};
    }
    return frames;
}

/// Returns false if it got lost: the input must be opened again, and its frames decoded from the start.
/// Of a sequence that is filled. What is put in counts too: a frame's place is its time. Returns false if the
/// picture that is held there is not known.
bool ClipReader::Impl::dropPlacesBefore(const SeekTarget& target)
{
    due = target.pts.value_or(target.frame);
    const bool isThere = dropFramesBefore({.frame = due, .pts = due}, {});
    framesGiven = due;
    pendingPts = due;
    const bool isInGap = !pending || pending->best_effort_timestamp > due;
    return isThere && (!isInGap || filler || sequence->fillsWithBlack());
}

bool ClipReader::Impl::skipTo(const SeekTarget& target)
{
    if (sequence) {
        if (!sequence->isFilled()) {
            return jumpInSequence(target) && dropFramesBefore(target, {});
        }
        return jumpInSequence(target) && dropPlacesBefore(target);
    }
    if (isPipe()) {
        return dropFramesBefore(target, {});
    }
    std::optional<EntrySearch::Entry> entry;
    std::optional<Passed> passed = passedPackets();
    if (passed && !info.isStill && hasEntries(*stream->codecpar, info.fieldOrder)) {
        if (!jumpByIndex(target, *passed)) {
            return false;
        }
        const bool hasJumped = !held.empty();
        entry = searchEntry(target, *passed);
        if (entry) {
            restartDecoder();
            entryPts = entry->pts;
            hasEntered = true;
        } else if (hasJumped) {
            return false;
        }
    }
    return dropFramesBefore(target, entry);
}

ClipPlace ClipReader::skipTo(const SeekTarget& target)
{
    if (!impl_->skipTo(target)) {
        auto again = Impl::start(impl_->file, impl_->options);
        if (!again) {
            impl_->failure = again.text();
            impl_->ended = true;
            return {impl_->framesGiven, 0};
        }
        again.value()->info = impl_->info;
        again.value()->packetsBefore = packetsDecoded();
        impl_ = std::move(again.value());
        const bool isFilled = impl_->sequence && impl_->sequence->isFilled();
        isFilled ? impl_->dropPlacesBefore(target) : impl_->dropFramesBefore(target, {});
    }
    return {impl_->framesGiven, impl_->pendingPts};
}

std::int64_t ClipReader::packetsDecoded() const
{
    return impl_->packetsBefore + impl_->packetsFed;
}

ClipReader::Next ClipReader::next(Frame& frame)
{
    Impl& self = *impl_;
    if (self.ended) {
        return self.failure.empty() ? Next::end : Next::failed;
    }
    FramePtr picture = self.pending ? std::move(self.pending) : self.decode();
    if (const std::string change = picture ? self.whatChanged(*picture) : ""; !change.empty()) {
        self.failure = quotedInput(self.file) + ": the picture's " + change +
                       (self.sequence ? " at " + self.pictureName(self.indexOf(*picture))
                                      : " near " + self.where(picture->best_effort_timestamp)) +
                       ", which is not supported; " + (self.sequence ? "rename" : "cut off") +
                       " what follows to convert it by itself";
        picture = nullptr;
    }
    if (self.fillsBefore(picture.get())) {
        self.pending = std::move(picture);
        frame = self.filling();
        return self.failure.empty() ? Next::frame : Next::failed;
    }
    if (!picture) {
        self.ended = true;
        self.settle(self.packetsFed + 1);
        if (self.failure.empty() && self.info.frameCountIsExact && self.framesGiven < self.info.frameCount) {
            self.problem(quotedInput(self.file) + " announces " + std::to_string(self.info.frameCount) +
                         " frames, of which " + std::to_string(self.framesGiven) + " could be read");
        }
        if (self.failure.empty()) {
            self.checkLength();
        }
        return self.failure.empty() ? Next::end : Next::failed;
    }
    const bool damaged = picture->decode_error_flags != 0 || (picture->flags & AV_FRAME_FLAG_CORRUPT) != 0;
    self.mendTime(*picture);
    const FrameTime time = self.timeOf(*picture);
    self.noteMoved(picture->best_effort_timestamp, time.pts);
    ++self.framesGiven;
    self.noteDamage(*picture, time, damaged);
    const Range range = self.rangeOf(*picture);
    const std::shared_ptr<const AVFrame> shared(picture.release(), FreeFrame());
    if (self.sequence && self.sequence->isFilled()) {
        self.filler = shared;
        self.due = time.pts + 1;
    }
    frame = Frame(shared, time, damaged, range);
    return Next::frame;
}

void ClipReader::readAudioUpTo(std::int64_t pts)
{
    impl_->readAudioUpTo(pts);
}

Result<std::vector<ShownFrame>> ClipReader::readTimes()
{
    return impl_->readTimes();
}

bool ClipReader::isSequence(const fs::path& file)
{
    return isPatternOfPictures(file);
}

const StreamInfo& ClipReader::info() const
{
    return impl_->info;
}

ClipDescription ClipReader::description() const
{
    return describeStreams(*impl_->input);
}

std::shared_ptr<FileSet> ClipReader::files() const
{
    return impl_->opened.files();
}

const std::string& ClipReader::failure() const
{
    return impl_->failure;
}

std::int64_t ClipReader::problemCount() const
{
    return impl_->problemCount;
}

const std::vector<std::string>& ClipReader::problems() const
{
    return impl_->problems;
}

std::vector<std::string> ClipReader::remarksOnTimes() const
{
    return impl_->remarksOnTimes();
}

std::vector<std::string> ClipReader::remarks() const
{
    std::vector<std::string> remarks = impl_->remarksOnTimes();
    if (const std::string text = clippedText(impl_->clipped); !text.empty()) {
        remarks.push_back(quotedInput(impl_->file) + ": " + text);
    }
    return remarks;
}

std::shared_ptr<AudioQueue> ClipReader::audio() const
{
    return impl_->audio;
}

} // namespace Qx::Media
