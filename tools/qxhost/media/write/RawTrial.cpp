#include "tools/qxhost/media/write/RawTrial.h"

#include "tools/qxhost/media/filter/MessageCollector.h"

#include <algorithm>
#include <memory>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

namespace Qx::Media {

namespace {

constexpr int side = 64; // of the frame; a whole number of every format's groups

struct FreeOutput
{
    void operator()(AVFormatContext* context) const { avformat_free_context(context); }
};
struct FreeInput
{
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
/// A file in memory, which FFmpeg opens by a name.
class TrialFile
{
public:
    TrialFile() : descriptor_(memfd_create("qxhost", MFD_CLOEXEC)) {}
    ~TrialFile()
    {
        if (descriptor_ >= 0) {
            close(descriptor_);
        }
    }
    TrialFile(const TrialFile&) = delete;
    TrialFile& operator=(const TrialFile&) = delete;

    std::string url() const { return "file:/proc/self/fd/" + std::to_string(descriptor_); }

private:
    int descriptor_;
};

bool writeFrame(AVFormatContext& output, const AVCodecParameters& video)
{
    AVStream* const stream = avformat_new_stream(&output, nullptr);
    if (!stream || avcodec_parameters_copy(stream->codecpar, &video) < 0) {
        return false;
    }
    stream->codecpar->width = side;
    stream->codecpar->height = side;
    stream->time_base = {1, 25};
    stream->avg_frame_rate = {25, 1};
    const int bytes = av_image_get_buffer_size(static_cast<AVPixelFormat>(video.format), side, side, 1);
    const PacketPtr packet(av_packet_alloc());
    if (!packet || bytes <= 0 || av_new_packet(packet.get(), bytes) < 0) {
        return false;
    }
    std::fill_n(packet->data, bytes, std::uint8_t{0});
    packet->pts = packet->dts = 0;
    packet->flags |= AV_PKT_FLAG_KEY;
    if (avformat_write_header(&output, nullptr) < 0) {
        return false;
    }
    packet->duration = av_rescale_q(1, {1, 25}, stream->time_base);
    return av_write_frame(&output, packet.get()) >= 0 && av_write_trailer(&output) >= 0;
}

/// Returns false if the container does not take the frame.
bool isWritten(const TrialFile& file, const AVOutputFormat& container, const AVCodecParameters& video,
               int compliance)
{
    AVFormatContext* made = nullptr;
    if (avformat_alloc_output_context2(&made, &container, nullptr, file.url().c_str()) < 0) {
        return false;
    }
    const std::unique_ptr<AVFormatContext, FreeOutput> output(made);
    output->strict_std_compliance = compliance;
    if (openStream(output->pb, file.url(), AVIO_FLAG_WRITE) < 0) {
        return false;
    }
    const bool isTaken = writeFrame(*output, video);
    return avio_closep(&output->pb) >= 0 && isTaken;
}

/// What the video of the file is taken for; AV_PIX_FMT_NONE if it is not read.
AVPixelFormat takenFor(const TrialFile& file, const AVInputFormat& reader)
{
    AVFormatContext* opened = nullptr;
    if (avformat_open_input(&opened, file.url().c_str(), &reader, nullptr) < 0) {
        return AV_PIX_FMT_NONE;
    }
    const std::unique_ptr<AVFormatContext, FreeInput> input(opened);
    const bool isRead = avformat_find_stream_info(opened, nullptr) >= 0 && opened->nb_streams == 1;
    return isRead ? static_cast<AVPixelFormat>(opened->streams[0]->codecpar->format) : AV_PIX_FMT_NONE;
}

} // namespace

RawTrial tryRawFrames(const AVOutputFormat& container, const AVCodecParameters& video)
{
    constexpr int usual = FF_COMPLIANCE_UNOFFICIAL;
    const std::string_view name = container.name;
    const AVInputFormat* const reader = av_find_input_format(container.name);
    if (video.codec_id != AV_CODEC_ID_RAWVIDEO || reader == nullptr || name == "rawvideo") {
        return {usual, {}};
    }
    const MessageCollector silence;
    const auto meant = static_cast<AVPixelFormat>(video.format);
    AVPixelFormat taken = AV_PIX_FMT_NONE;
    for (const int compliance : {usual, FF_COMPLIANCE_NORMAL}) {
        const TrialFile file;
        taken = isWritten(file, container, video, compliance) ? takenFor(file, *reader) : meant;
        if (taken == meant) {
            return {compliance, {}};
        }
    }
    const char* const other = av_get_pix_fmt_name(taken);
    return {usual, "raw frames of " + std::string(av_get_pix_fmt_name(meant)) + " have no name in " +
                       container.name + ", whose readers " +
                       (other ? "take them for " + std::string(other) : "cannot read them") +
                       "; choose another --pixel-format, a --format that it holds ('qxhost formats'), or "
                       "another codec, such as ffv1 in .mkv"};
}

} // namespace Qx::Media
