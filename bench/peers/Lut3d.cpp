#include "bench/peers/Participant.h"
#include "bench/peers/Workers.h"

#include <cstdlib>
#include <cstring>
#include <string>

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/frame.h>
}

// The participant for FFmpeg's filter lut3d.

namespace Qx::Bench {
namespace {

struct FreeGraph
{
    void operator()(AVFilterGraph* graph) const { avfilter_graph_free(&graph); }
};

struct FreeFrame
{
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};

class Looker : public Job
{
public:
    Looker(const Work& work, const std::string& lookFile, int threads)
        : work_(work), graph_(avfilter_graph_alloc()), frame_(av_frame_alloc()), result_(av_frame_alloc())
    {
        graph_->nb_threads = threads;
        works_ = makeGraph(lookFile) && makeFrame();
    }

    int frames() override
    {
        av_frame_unref(result_.get());
        // While we hold a reference, the filter cannot write in place.
        return works_ &&
                       av_buffersrc_add_frame_flags(source_, frame_.get(), AV_BUFFERSRC_FLAG_KEEP_REF) >= 0 &&
                       av_buffersink_get_frame(sink_, result_.get()) >= 0
                   ? 1
                   : 0;
    }

    std::vector<std::byte> result() override
    {
        const std::size_t row = rowBytes(FrameLayout::Colour, work_.depth);
        std::vector<std::byte> frame(frameBytes(FrameLayout::Colour, work_.depth));
        for (int y = 0; y < frameHeight && result_->data[0] != nullptr; ++y) {
            std::memcpy(frame.data() + static_cast<std::size_t>(y) * row,
                        result_->data[0] + std::ptrdiff_t{y} * result_->linesize[0], row);
        }
        return frame;
    }

private:
    AVPixelFormat format() const { return work_.depth == 8 ? AV_PIX_FMT_RGBA : AV_PIX_FMT_RGBA64LE; }

    bool makeGraph(const std::string& lookFile)
    {
        AVFilterContext* table = nullptr;
        const auto make = [this](AVFilterContext** context, const char* filter, const std::string& options) {
            return avfilter_graph_create_filter(context, avfilter_get_by_name(filter), filter,
                                                options.c_str(), nullptr, graph_.get()) >= 0;
        };
        const std::string input = "width=" + std::to_string(frameWidth) +
                                  ":height=" + std::to_string(frameHeight) +
                                  ":pix_fmt=" + std::to_string(format()) + ":time_base=1/25";
        return make(&source_, "buffer", input) &&
               make(&table, "lut3d", "interp=tetrahedral:file=" + lookFile) &&
               make(&sink_, "buffersink", "") && avfilter_link(source_, 0, table, 0) >= 0 &&
               avfilter_link(table, 0, sink_, 0) >= 0 && avfilter_graph_config(graph_.get(), nullptr) >= 0;
    }

    bool makeFrame()
    {
        frame_->width = frameWidth;
        frame_->height = frameHeight;
        frame_->format = format();
        if (av_frame_get_buffer(frame_.get(), 0) < 0) {
            return false;
        }
        const std::vector<std::byte> bytes = sourceFrame(work_);
        const std::size_t row = rowBytes(FrameLayout::Colour, work_.depth);
        for (int y = 0; y < frameHeight; ++y) {
            std::memcpy(frame_->data[0] + std::ptrdiff_t{y} * frame_->linesize[0],
                        bytes.data() + static_cast<std::size_t>(y) * row, row);
        }
        return true;
    }

    Work work_;
    std::unique_ptr<AVFilterGraph, FreeGraph> graph_;
    std::unique_ptr<AVFrame, FreeFrame> frame_;
    std::unique_ptr<AVFrame, FreeFrame> result_;
    AVFilterContext* source_ = nullptr;
    AVFilterContext* sink_ = nullptr;
    bool works_ = false;
};

} // namespace
} // namespace Qx::Bench

int main()
{
    using namespace Qx::Bench;
    Participant participant{std::string("FFmpeg ") + av_version_info() + " lut3d",
                            "processor",
                            "the processor, " + std::to_string(allCores()) + " cores",
                            {}};
    const char* const file = std::getenv(lookVariable);
    const std::string look = file != nullptr ? file : "";
    for (const Work& work : allWorks()) {
        if (work.kind != WorkKind::Look || work.place != Place::Memory) {
            continue;
        }
        for (const bool all : {true, false}) {
            participant.offers.push_back(
                {work.key(), threadsText(all), "less accurate: cuts off instead of rounding",
                 [work, all, look] { return std::make_unique<Looker>(work, look, all ? allCores() : 1); }});
        }
    }
    return serve(participant);
}
