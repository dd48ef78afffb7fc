#include "bench/peers/Participant.h"
#include "bench/peers/Workers.h"

#include <cstring>
#include <string>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

// The participant for swscale, with the flags for accuracy.

namespace Qx::Bench {
namespace {

struct FreeFrame
{
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
using Frame = std::unique_ptr<AVFrame, FreeFrame>;

struct FreeContext
{
    void operator()(SwsContext* context) const { sws_freeContext(context); }
};

/// Returns its format for such frames, or AV_PIX_FMT_NONE if it cannot write them.
AVPixelFormat formatOf(FrameLayout layout, unsigned depth, bool source)
{
    if (layout == FrameLayout::Colour) {
        return depth == 8 ? AV_PIX_FMT_RGBA : AV_PIX_FMT_RGBA64LE;
    }
    if (layout == FrameLayout::Video && depth == 16) {
        return source ? AV_PIX_FMT_Y210LE : AV_PIX_FMT_NONE; // ten bits at the top of sixteen
    }
    return layout == FrameLayout::Video ? AV_PIX_FMT_YUYV422 : AV_PIX_FMT_NONE;
}

int filterOf(ChromaFilter filter)
{
    switch (filter) {
    case ChromaFilter::Lanczos:
        return SWS_LANCZOS;
    case ChromaFilter::CatmullRom:
    case ChromaFilter::Mitchell:
        return SWS_BICUBIC;
    case ChromaFilter::Point:
    case ChromaFilter::None:
        break;
    }
    return SWS_POINT;
}

Frame makeFrame(AVPixelFormat format)
{
    Frame frame(av_frame_alloc());
    frame->width = frameWidth;
    frame->height = frameHeight;
    frame->format = format;
    return av_frame_get_buffer(frame.get(), 0) >= 0 ? std::move(frame) : nullptr;
}

class Conversion : public Job
{
public:
    Conversion(const Work& work, bool allThreads)
        : work_(work),
          source_(makeFrame(formatOf(sourceLayout(work.kind), work.depth, true))),
          target_(makeFrame(formatOf(resultLayout(work.kind), work.depth, false))),
          context_(sws_alloc_context())
    {
        if (!source_ || !target_ || !context_ || !configure(allThreads)) {
            context_.reset();
            return;
        }
        const std::vector<std::byte> frame = sourceFrame(work);
        const std::size_t row = rowBytes(sourceLayout(work.kind), work.depth);
        for (int y = 0; y < frameHeight; ++y) {
            std::memcpy(source_->data[0] + std::ptrdiff_t{y} * source_->linesize[0],
                        frame.data() + static_cast<std::size_t>(y) * row, row);
        }
    }

    int frames() override
    {
        return context_ && sws_scale_frame(context_.get(), target_.get(), source_.get()) >= 0 ? 1 : 0;
    }

    std::vector<std::byte> result() override
    {
        const std::size_t row = rowBytes(resultLayout(work_.kind), work_.depth);
        std::vector<std::byte> frame(row * static_cast<std::size_t>(frameHeight));
        for (int y = 0; y < frameHeight; ++y) {
            std::memcpy(frame.data() + static_cast<std::size_t>(y) * row,
                        target_->data[0] + std::ptrdiff_t{y} * target_->linesize[0], row);
        }
        return frame;
    }

private:
    bool configure(bool allThreads)
    {
        SwsContext* const context = context_.get();
        const auto set = [context](const char* name, std::int64_t value) {
            return av_opt_set_int(context, name, value, 0) >= 0;
        };
        const int flags = SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_FULL_CHR_H_INP | SWS_BITEXACT;
        bool good = set("srcw", frameWidth) && set("srch", frameHeight) && set("dstw", frameWidth) &&
                    set("dsth", frameHeight) && set("src_format", source_->format) &&
                    set("dst_format", target_->format) && set("sws_flags", flags | filterOf(work_.filter)) &&
                    set("threads", allThreads ? allCores() : 1);
        // B and C of the bicubic filter, and the lobes of the other.
        const double third = 1.0 / 3.0;
        if (work_.filter == ChromaFilter::CatmullRom || work_.filter == ChromaFilter::Mitchell) {
            const bool mitchell = work_.filter == ChromaFilter::Mitchell;
            good = good && av_opt_set_double(context, "param0", mitchell ? third : 0.0, 0) >= 0 &&
                   av_opt_set_double(context, "param1", mitchell ? third : 0.5, 0) >= 0;
        } else if (work_.filter == ChromaFilter::Lanczos) {
            good = good && av_opt_set_double(context, "param0", 3.0, 0) >= 0;
        }
        // Chroma is sited on the even pixel, in units of 1/256 of a pixel. The nearest one to the odd pixel
        // is that of its own pair only if it lies between both.
        const bool video = sourceLayout(work_.kind) == FrameLayout::Video;
        const int site = video && work_.filter == ChromaFilter::Point ? 128 : 0;
        good = good && set(video ? "src_h_chr_pos" : "dst_h_chr_pos", site);
        if (!good || sws_init_context(context, nullptr, nullptr) < 0) {
            return false;
        }
        const int* const matrix = sws_getCoefficients(SWS_CS_ITU709);
        constexpr int unity = 1 << 16;
        return sws_setColorspaceDetails(context, matrix, video ? 0 : 1, matrix, video ? 1 : 0, 0, unity,
                                        unity) >= 0;
    }

    Work work_;
    Frame source_;
    Frame target_;
    std::unique_ptr<SwsContext, FreeContext> context_;
};

} // namespace
} // namespace Qx::Bench

int main()
{
    using namespace Qx::Bench;
    const std::string version = std::to_string(LIBSWSCALE_VERSION_MAJOR) + '.' +
                                std::to_string(LIBSWSCALE_VERSION_MINOR) + '.' +
                                std::to_string(LIBSWSCALE_VERSION_MICRO);
    Participant participant{
        "swscale " + version, "processor", "the processor, " + std::to_string(allCores()) + " cores", {}};
    for (const Work& work : allWorks()) {
        const bool conversion = work.kind == WorkKind::Decode || work.kind == WorkKind::Encode;
        if (work.place != Place::Memory || !conversion ||
            formatOf(resultLayout(work.kind), work.depth, false) == AV_PIX_FMT_NONE) {
            continue;
        }
        for (const bool all : {true, false}) {
            participant.offers.push_back({work.key(), threadsText(all), "",
                                          [work, all] { return std::make_unique<Conversion>(work, all); }});
        }
    }
    return serve(participant);
}
