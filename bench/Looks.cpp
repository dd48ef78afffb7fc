#include "bench/Fixture.h"
#include "lut/LUTManager.h"
#include "platform/FileManager.h"
#include "platform/GPUService.h"
#include "platform/OS.h"
#include "platform/Settings.h"
#include "platform/Text.h"

#include <OpenColorIO/OpenColorIO.h>
#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/frame.h>
}

// A look of 33 points an edge over a frame of scattered colours: the effect on the device alone and with
// every frame uploaded and read back, and beside it what others make of the same frames in memory with the
// same interpolation, on every core.

namespace Qx::Bench {
namespace {

namespace OCIO = OCIO_NAMESPACE;
using benchmark::State;

std::size_t bytesOf(iGPUImage::eFormat depth)
{
    return static_cast<std::size_t>(frameSize.x) * static_cast<std::size_t>(frameSize.y) *
           (depth == iGPUImage::eARGB8 ? 4 : 8);
}

/// Random bytes are random codes at either depth.
void scatter(std::byte* bytes, std::size_t count)
{
    std::mt19937 random(1);
    for (std::size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<std::byte>(random() & 255U);
    }
}

/// The look's file, made on first use and gone with the process.
const std::filesystem::path& lookFile()
{
    struct File
    {
        std::filesystem::path path;

        File()
        {
            std::string name = std::filesystem::temp_directory_path() / "qx-bench-XXXXXX.cube";
            const int descriptor = ::mkstemps(name.data(), 5);
            if (descriptor < 0) {
                return;
            }
            ::close(descriptor);
            path = name;
            std::ofstream text(path);
            text << "LUT_3D_SIZE 33\n";
            constexpr int points = 33;
            for (int i = 0; i < points * points * points; ++i) {
                const double r = i % points / 32.0;
                const double g = i / points % points / 32.0;
                const double b = i / points / points / 32.0;
                text << fmt::format("{:.6f} {:.6f} {:.6f}\n", std::sqrt(r) * 0.9, g * g * 0.8 + 0.1 * b,
                                    0.5 * (b + r * g));
            }
        }
        ~File()
        {
            std::error_code ignored;
            std::filesystem::remove(path, ignored);
        }
    };
    static const File file;
    return file.path;
}

/// The effect with its table.
class Look
{
public:
    Look()
        : effect_(OS().gpu().loadEffectFile(joinPaths(getShadersDir(), L"LUT.fx"), {})),
          table_(LUTManager::instance().load(fromUTF8(lookFile().c_str())))
    {
    }

    bool draw(const Qx::Ptr<iGPUImage>& source, const Qx::Ptr<iGPUImage>& target) const
    {
        if (!effect_ || !table_ || !source || !target) {
            return false;
        }
        Qx::Vector<iShaderEffect::Source> sources;
        sources.emplace_back("Input", source);
        sources.emplace_back("LUT", table_);
        return effect_->render(target, sources);
    }

private:
    Qx::Ptr<iShaderEffect> effect_;
    Qx::Ptr<iGPUImage3D> table_;
};

Qx::Ptr<iHostImage> scatteredImage(iGPUImage::eFormat depth)
{
    Qx::Ptr<iHostImage> image = OS().gpu().createHostImage(frameSize, depth);
    if (image) {
        scatter(static_cast<std::byte*>(image->map(iHostImage::Write)), bytesOf(depth));
    }
    return image;
}

void onDevice(State& state, iGPUImage::eFormat depth)
{
    const Look look;
    const Qx::Ptr<iGPUImage> source = OS().gpu().uploadImage(scatteredImage(depth), 0);
    const Image::Surface target = makePicture(depth);
    measureOnDevice(state, target, [&] { return look.draw(source, target.getGPUSurface()); });
}

void thereAndBack(State& state, iGPUImage::eFormat depth)
{
    const Look look;
    const Qx::Ptr<iHostImage> frame = scatteredImage(depth);
    measureThereAndBack(state, [&] {
        const Qx::Ptr<iGPUImage> target = OS().gpu().createGPUImage(frameSize, depth);
        return look.draw(OS().gpu().uploadImage(frame, 0), target) ? OS().gpu().downloadImage(target)
                                                                   : Qx::Ptr<iHostImage>();
    });
}

void throughColourIO(State& state, iGPUImage::eFormat depth)
{
    const bool deep = depth == iGPUImage::eARGB16;
    const OCIO::BitDepth bits = deep ? OCIO::BIT_DEPTH_UINT16 : OCIO::BIT_DEPTH_UINT8;
    const auto transform = OCIO::FileTransform::Create();
    transform->setSrc(lookFile().c_str());
    transform->setInterpolation(OCIO::INTERP_TETRAHEDRAL);
    const OCIO::ConstCPUProcessorRcPtr processor =
        OCIO::Config::CreateRaw()->getProcessor(transform)->getOptimizedCPUProcessor(
            bits, bits, OCIO::OPTIMIZATION_DEFAULT);

    std::vector<std::byte> source(bytesOf(depth));
    std::vector<std::byte> target(source.size());
    scatter(source.data(), source.size());
    const std::ptrdiff_t component = deep ? 2 : 1;
    const std::ptrdiff_t row = frameSize.x * 4 * component;
    const int workers = static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
    const auto rows = [&](int first, int end) {
        const auto view = [&](std::vector<std::byte>& bytes) {
            return OCIO::PackedImageDesc(bytes.data() + first * row, frameSize.x, end - first,
                                         OCIO::CHANNEL_ORDERING_RGBA, bits, component, 4 * component, row);
        };
        const OCIO::PackedImageDesc from = view(source);
        OCIO::PackedImageDesc to = view(target);
        processor->apply(from, to);
    };
    for (auto _ : state) {
        std::vector<std::jthread> threads;
        for (int i = 0; i < workers; ++i) {
            threads.emplace_back(rows, frameSize.y * i / workers, frameSize.y * (i + 1) / workers);
        }
    }
    state.counters["fps"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

struct FreeGraph
{
    void operator()(AVFilterGraph* graph) const { avfilter_graph_free(&graph); }
};

struct FreeFrame
{
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};

void throughFilter(State& state, iGPUImage::eFormat depth)
{
    const AVPixelFormat format = depth == iGPUImage::eARGB16 ? AV_PIX_FMT_RGBA64LE : AV_PIX_FMT_RGBA;
    const std::unique_ptr<AVFilterGraph, FreeGraph> graph(avfilter_graph_alloc());
    AVFilterContext* source = nullptr;
    AVFilterContext* table = nullptr;
    AVFilterContext* sink = nullptr;
    const auto make = [&](AVFilterContext** context, const char* filter, const std::string& options) {
        return avfilter_graph_create_filter(context, avfilter_get_by_name(filter), filter, options.c_str(),
                                            nullptr, graph.get()) >= 0;
    };
    if (!make(&source, "buffer",
              fmt::format("width={}:height={}:pix_fmt={}:time_base=1/25", frameSize.x, frameSize.y,
                          static_cast<int>(format))) ||
        !make(&table, "lut3d", "interp=tetrahedral:file=" + lookFile().string()) ||
        !make(&sink, "buffersink", "") || avfilter_link(source, 0, table, 0) < 0 ||
        avfilter_link(table, 0, sink, 0) < 0 || avfilter_graph_config(graph.get(), nullptr) < 0) {
        state.SkipWithError("the filter cannot be set up");
        return;
    }
    const std::unique_ptr<AVFrame, FreeFrame> frame(av_frame_alloc());
    frame->width = frameSize.x;
    frame->height = frameSize.y;
    frame->format = format;
    if (av_frame_get_buffer(frame.get(), 0) < 0) {
        state.SkipWithError("no memory for a frame");
        return;
    }
    scatter(reinterpret_cast<std::byte*>(frame->data[0]),
            static_cast<std::size_t>(frame->linesize[0]) * static_cast<std::size_t>(frameSize.y));
    const std::unique_ptr<AVFrame, FreeFrame> result(av_frame_alloc());
    for (auto _ : state) {
        // With a reference of ours kept, the filter cannot write in place.
        if (av_buffersrc_add_frame_flags(source, frame.get(), AV_BUFFERSRC_FLAG_KEEP_REF) < 0 ||
            av_buffersink_get_frame(sink, result.get()) < 0) {
            state.SkipWithError("no frame came out");
            return;
        }
        av_frame_unref(result.get());
    }
    state.counters["fps"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

} // namespace

void registerLooks()
{
    for (const iGPUImage::eFormat depth : {iGPUImage::eARGB8, iGPUImage::eARGB16}) {
        const auto add = [&](const std::string& name, void (*run)(State&, iGPUImage::eFormat)) {
            benchmark::RegisterBenchmark((name + ", " + depthName(depth) + " bits").c_str(), run, depth)
                ->UseRealTime()
                ->Unit(benchmark::kMillisecond);
        };
        add("look of 33 points", onDevice);
        add("upload, look of 33 points, read back", thereAndBack);
        add("look of 33 points, OpenColorIO in memory", throughColourIO);
        add("look of 33 points, FFmpeg's lut3d in memory", throughFilter);
    }
}

} // namespace Qx::Bench
