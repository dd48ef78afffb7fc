#include "bench/peers/Participant.h"
#include "bench/peers/Workers.h"

#include <cstring>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
}

// The participant for FFmpeg's v210 codec. Its 4:2:2 is in planes of ten bits; ours is packed, ten bits at
// the top of sixteen: as many samples, in less memory.

namespace Qx::Bench {
namespace {

struct FreeFrame
{
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};

struct FreePacket
{
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

struct FreeContext
{
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};

using Frame = std::unique_ptr<AVFrame, FreeFrame>;
using Packet = std::unique_ptr<AVPacket, FreePacket>;
using Context = std::unique_ptr<AVCodecContext, FreeContext>;

Context open(const AVCodec* codec, int threads)
{
    Context context(avcodec_alloc_context3(codec));
    if (codec == nullptr || !context) {
        return nullptr;
    }
    context->width = frameWidth;
    context->height = frameHeight;
    context->pix_fmt = AV_PIX_FMT_YUV422P10;
    context->time_base = {1, 25};
    context->thread_count = threads;
    context->thread_type = FF_THREAD_SLICE;
    return avcodec_open2(context.get(), codec, nullptr) >= 0 ? std::move(context) : nullptr;
}

/// Returns the position in planes of a component of packed 4:2:2.
std::uint16_t& sampleOf(const AVFrame& frame, int y, int component)
{
    const int pair = component / 4;
    const int place = component % 4;
    const int plane = place == 1 ? 1 : place == 3 ? 2 : 0;
    const int x = plane != 0 ? pair : 2 * pair + place / 2;
    return reinterpret_cast<std::uint16_t*>(frame.data[plane] + std::ptrdiff_t{y} * frame.linesize[plane])[x];
}

constexpr int componentsInRow = 2 * frameWidth;
constexpr unsigned spareBits = 6; // ten bits at the top of sixteen

class Decoder : public Job
{
public:
    explicit Decoder(int threads)
        : context_(open(avcodec_find_decoder(AV_CODEC_ID_V210), threads)),
          packet_(av_packet_alloc()),
          frame_(av_frame_alloc())
    {
        const std::vector<std::byte> bytes = sourceFrame({WorkKind::FromV210, 16});
        if (av_new_packet(packet_.get(), static_cast<int>(bytes.size())) >= 0) {
            std::memcpy(packet_->data, bytes.data(), bytes.size());
        }
    }

    int frames() override
    {
        return context_ && avcodec_send_packet(context_.get(), packet_.get()) >= 0 &&
                       avcodec_receive_frame(context_.get(), frame_.get()) >= 0
                   ? 1
                   : 0;
    }

    std::vector<std::byte> result() override
    {
        std::vector<std::byte> bytes(frameBytes(FrameLayout::Video, 16));
        std::size_t at = 0;
        for (int y = 0; y < frameHeight; ++y) {
            for (int i = 0; i < componentsInRow; ++i, at += 2) {
                const auto word = static_cast<std::uint16_t>(sampleOf(*frame_, y, i) << spareBits);
                std::memcpy(bytes.data() + at, &word, sizeof word);
            }
        }
        return bytes;
    }

private:
    Context context_;
    Packet packet_;
    Frame frame_;
};

class Encoder : public Job
{
public:
    explicit Encoder(int threads)
        : context_(open(avcodec_find_encoder(AV_CODEC_ID_V210), threads)),
          packet_(av_packet_alloc()),
          frame_(av_frame_alloc())
    {
        frame_->width = frameWidth;
        frame_->height = frameHeight;
        frame_->format = AV_PIX_FMT_YUV422P10;
        if (av_frame_get_buffer(frame_.get(), 0) < 0) {
            context_.reset();
            return;
        }
        const std::vector<std::byte> bytes = sourceFrame({WorkKind::ToV210, 16});
        std::size_t at = 0;
        for (int y = 0; y < frameHeight; ++y) {
            for (int i = 0; i < componentsInRow; ++i, at += 2) {
                std::uint16_t word = 0;
                std::memcpy(&word, bytes.data() + at, sizeof word);
                sampleOf(*frame_, y, i) = static_cast<std::uint16_t>(word >> spareBits);
            }
        }
    }

    int frames() override
    {
        return context_ && avcodec_send_frame(context_.get(), frame_.get()) >= 0 &&
                       avcodec_receive_packet(context_.get(), packet_.get()) >= 0
                   ? 1
                   : 0;
    }

    std::vector<std::byte> result() override
    {
        const auto* const data = reinterpret_cast<const std::byte*>(packet_->data);
        return {data, data + packet_->size};
    }

private:
    Context context_;
    Packet packet_;
    Frame frame_;
};

} // namespace
} // namespace Qx::Bench

int main()
{
    using namespace Qx::Bench;
    Participant participant{std::string("FFmpeg ") + av_version_info() + " v210",
                            "processor",
                            "the processor, " + std::to_string(allCores()) + " cores",
                            {}};
    constexpr const char* remark = "4:2:2 in planes of ten bits";
    const Work decoding{WorkKind::FromV210, 16, ChromaFilter::None, Place::Memory};
    const Work encoding{WorkKind::ToV210, 16, ChromaFilter::None, Place::Memory};
    for (const bool all : {true, false}) {
        const int threads = all ? allCores() : 1;
        participant.offers.push_back({decoding.key(), threadsText(all), remark,
                                      [threads] { return std::make_unique<Decoder>(threads); }});
        participant.offers.push_back({encoding.key(), threadsText(all), remark,
                                      [threads] { return std::make_unique<Encoder>(threads); }});
    }
    return serve(participant);
}
