#include "Clip.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

namespace {

std::string textOf(int error)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof text);
    return text;
}

} // namespace

std::unique_ptr<Clip> Clip::open(const std::string& file, std::string& failure)
{
    std::unique_ptr<Clip> clip(new Clip);
    int result = avformat_open_input(&clip->format_, file.c_str(), nullptr, nullptr);
    if (result == 0) {
        result = avformat_find_stream_info(clip->format_, nullptr);
    }
    const AVCodec* codec = nullptr;
    if (result >= 0) {
        result = av_find_best_stream(clip->format_, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
        clip->stream_ = result;
    }
    if (result >= 0) {
        clip->codec_ = avcodec_alloc_context3(codec);
        result = avcodec_parameters_to_context(clip->codec_, clip->format_->streams[clip->stream_]->codecpar);
    }
    if (result >= 0) {
        result = avcodec_open2(clip->codec_, codec, nullptr);
    }
    if (result < 0) {
        failure = file + ": " + textOf(result) + "; expected a clip that FFmpeg decodes";
        return nullptr;
    }
    if (clip->codec_->width < 2 || clip->codec_->width % 2 != 0 || clip->codec_->height < 1) {
        failure = file + ": the picture is " + std::to_string(clip->codec_->width) + " x " +
                  std::to_string(clip->codec_->height) + " pixels; expected an even width";
        return nullptr;
    }
    clip->packet_ = av_packet_alloc();
    clip->frame_ = av_frame_alloc();
    return clip;
}

Clip::~Clip()
{
    sws_freeContext(scaler_);
    av_frame_free(&frame_);
    av_packet_free(&packet_);
    avcodec_free_context(&codec_);
    avformat_close_input(&format_);
}

unsigned Clip::width() const
{
    return static_cast<unsigned>(codec_->width);
}

unsigned Clip::height() const
{
    return static_cast<unsigned>(codec_->height);
}

double Clip::framesPerSecond() const
{
    const AVRational rate = av_guess_frame_rate(format_, format_->streams[stream_], nullptr);
    return rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 25.0;
}

bool Clip::isBT709() const
{
    if (frame_->colorspace == AVCOL_SPC_UNSPECIFIED) {
        return codec_->width > 720;
    }
    return frame_->colorspace == AVCOL_SPC_BT709;
}

bool Clip::isFullRange() const
{
    return frame_->color_range == AVCOL_RANGE_JPEG;
}

/// Fetches the next frame from the decoder.
bool Clip::decode()
{
    for (;;) {
        const int result = avcodec_receive_frame(codec_, frame_);
        if (result != AVERROR(EAGAIN)) {
            return result == 0;
        }
        if (!ended_ && av_read_frame(format_, packet_) < 0) {
            ended_ = true;
            avcodec_send_packet(codec_, nullptr);
        }
        if (!ended_ && packet_->stream_index == stream_) {
            avcodec_send_packet(codec_, packet_); // a damaged packet gives no frame
        }
        av_packet_unref(packet_);
    }
}

bool Clip::read(unsigned char* rows, int pitch)
{
    // A clip whose pictures change their size ends where they do.
    if (!decode() || frame_->width != codec_->width || frame_->height != codec_->height) {
        return false;
    }
    // Rearranges the components, and interpolates chroma lines of 4:2:0: no colour is converted here.
    scaler_ = sws_getCachedContext(
        scaler_, frame_->width, frame_->height, static_cast<AVPixelFormat>(frame_->format), frame_->width,
        frame_->height, AV_PIX_FMT_YUYV422, SWS_BICUBIC | SWS_ACCURATE_RND, nullptr, nullptr, nullptr);
    if (scaler_ == nullptr) {
        return false;
    }
    unsigned char* const planes[4] = {rows, nullptr, nullptr, nullptr};
    const int pitches[4] = {pitch, 0, 0, 0};
    return sws_scale(scaler_, frame_->data, frame_->linesize, 0, frame_->height, planes, pitches) ==
           frame_->height;
}
