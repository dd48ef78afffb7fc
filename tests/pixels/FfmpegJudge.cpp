#include "tests/pixels/FfmpegJudge.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>

namespace Qx::Pixels {

namespace {

struct Free
{
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
using Context = std::unique_ptr<AVCodecContext, Free>;
using Packet = std::unique_ptr<AVPacket, Free>;
using Frame = std::unique_ptr<AVFrame, Free>;

Context makeContext(const AVCodec* codec, unsigned width, unsigned height)
{
    Context context(codec != nullptr ? avcodec_alloc_context3(codec) : nullptr);
    if (context) {
        context->width = static_cast<int>(width);
        context->height = static_cast<int>(height);
        context->time_base = {1, 25};
        context->thread_count = 1;
    }
    return context;
}

void setExtradata(AVCodecContext& context, const std::vector<std::uint8_t>& extradata)
{
    context.extradata =
        static_cast<std::uint8_t*>(av_mallocz(extradata.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    std::memcpy(context.extradata, extradata.data(), extradata.size());
    context.extradata_size = static_cast<int>(extradata.size());
}

/// The picture of the one packet that there is; null when the decoder refuses it.
Frame decode(const Context& context, const AVCodec* codec, const std::vector<std::byte>& bytes)
{
    Packet packet(av_packet_alloc());
    Frame frame(av_frame_alloc());
    if (!context || avcodec_open2(context.get(), codec, nullptr) < 0 ||
        av_new_packet(packet.get(), static_cast<int>(bytes.size())) < 0)
        return {};
    std::memcpy(packet->data, bytes.data(), bytes.size());
    if (avcodec_send_packet(context.get(), packet.get()) < 0 ||
        avcodec_receive_frame(context.get(), frame.get()) < 0)
        return {};
    return frame;
}

std::vector<std::uint16_t> lineOf(const AVFrame& frame, std::size_t y, int component, std::size_t width)
{
    std::vector<std::uint16_t> samples(width);
    std::array<const std::uint8_t*, 4> data{};
    std::copy_n(frame.data, data.size(), data.begin());
    av_read_image_line2(samples.data(), data.data(), frame.linesize,
                        av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format)), 0, static_cast<int>(y),
                        component, static_cast<int>(width), 0, sizeof(std::uint16_t));
    return samples;
}

} // namespace

std::vector<std::vector<std::uint16_t>> samplesByFfmpeg(const std::string& pixelFormat, const Rows& rows,
                                                        int component, int width)
{
    const AVPixFmtDescriptor* description = av_pix_fmt_desc_get(av_get_pix_fmt(pixelFormat.c_str()));
    if (description == nullptr)
        return {};
    std::vector<std::vector<std::uint16_t>> samples;
    for (const auto& row : rows) {
        std::array<const std::uint8_t*, 4> data{reinterpret_cast<const std::uint8_t*>(row.data())};
        const std::array<int, 4> stride{static_cast<int>(row.size())};
        samples.emplace_back(static_cast<std::size_t>(width));
        av_read_image_line2(samples.back().data(), data.data(), stride.data(), description, 0, 0, component,
                            width, 0, sizeof(std::uint16_t));
    }
    return samples;
}

TenBitCodes decodedByFfmpeg(const std::string& decoder, const std::vector<std::byte>& frame, unsigned width,
                            unsigned height, const std::vector<std::uint8_t>& extradata)
{
    const AVCodec* codec = avcodec_find_decoder_by_name(decoder.c_str());
    const Context context = makeContext(codec, width, height);
    if (context && !extradata.empty())
        setExtradata(*context, extradata);
    const Frame picture = decode(context, codec, frame);
    TenBitCodes codes{width, {}};
    for (std::size_t y = 0; picture && y < height; ++y) {
        const auto luma = lineOf(*picture, y, 0, width);
        const auto cb = lineOf(*picture, y, 1, codes.pairs());
        const auto cr = lineOf(*picture, y, 2, codes.pairs());
        codes.rows.emplace_back();
        for (std::size_t pair = 0; pair < codes.pairs(); ++pair) {
            const std::size_t odd = std::min<std::size_t>(2 * pair + 1, width - 1);
            codes.rows.back().insert(codes.rows.back().end(),
                                     {luma[2 * pair], cb[pair], luma[odd], cr[pair]});
        }
    }
    return codes;
}

std::vector<std::byte> v210ByFfmpeg(const TenBitCodes& codes)
{
    const AVCodec* codec = avcodec_find_encoder_by_name("v210");
    const Context context = makeContext(codec, codes.width, codes.height());
    Frame frame(av_frame_alloc());
    Packet packet(av_packet_alloc());
    if (!context)
        return {};
    context->pix_fmt = AV_PIX_FMT_YUV422P10;
    frame->format = context->pix_fmt;
    frame->width = context->width;
    frame->height = context->height;
    if (avcodec_open2(context.get(), codec, nullptr) < 0 || av_frame_get_buffer(frame.get(), 0) < 0)
        return {};
    const auto put = [&](int plane, std::size_t x, std::size_t y, std::uint16_t value) {
        std::uint8_t* row = frame->data[plane] + y * static_cast<std::size_t>(frame->linesize[plane]);
        std::memcpy(row + 2 * x, &value, sizeof value);
    };
    for (std::size_t y = 0; y < codes.rows.size(); ++y) {
        for (std::size_t pair = 0; pair < codes.pairs(); ++pair) {
            const std::uint16_t* code = &codes.rows[y][4 * pair];
            put(0, 2 * pair, y, code[0]);
            put(1, pair, y, code[1]);
            put(0, 2 * pair + 1, y, code[2]); // rows have room for whole pairs
            put(2, pair, y, code[3]);
        }
    }
    if (avcodec_send_frame(context.get(), frame.get()) < 0 ||
        avcodec_receive_packet(context.get(), packet.get()) < 0)
        return {};
    const auto* bytes = reinterpret_cast<const std::byte*>(packet->data);
    return {bytes, bytes + packet->size};
}

std::vector<std::uint16_t> b64aByFfmpeg(const std::vector<std::byte>& frame, unsigned width, unsigned height)
{
    const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_RAWVIDEO);
    const Context context = makeContext(codec, width, height);
    if (context) {
        context->codec_tag = MKTAG('b', '6', '4', 'a');
        context->pix_fmt = AV_PIX_FMT_RGBA64BE;
    }
    const Frame picture = decode(context, codec, frame);
    std::vector<std::uint16_t> samples;
    for (unsigned y = 0; picture && y < height; ++y) {
        const std::uint8_t* row =
            picture->data[0] + std::size_t{y} * static_cast<std::size_t>(picture->linesize[0]);
        for (std::size_t i = 0; i < std::size_t{4} * width; ++i)
            samples.push_back(static_cast<std::uint16_t>(row[2 * i] << 8 | row[2 * i + 1]));
    }
    return samples;
}

std::vector<std::uint8_t> m101Extradata(unsigned depth, std::size_t pitch)
{
    std::vector<std::uint8_t> bytes(24);
    bytes[8] = static_cast<std::uint8_t>(depth);
    bytes[12] = 3;
    for (unsigned i = 0; i < 4; ++i)
        bytes[20 + i] = static_cast<std::uint8_t>(pitch >> (8 * i));
    return bytes;
}

} // namespace Qx::Pixels
