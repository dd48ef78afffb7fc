#include "bench/peers/Participant.h"
#include "bench/peers/Workers.h"

#include <zimg.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <string>

// The participant for zimg, which works on planes. "packed" converts the frame's rows to planes and back in
// zimg's own callbacks, a row at a time, in loops that the compiler vectorises; "planes" omits this, which is
// less work.

namespace Qx::Bench {
namespace {

struct FreeMemory
{
    void operator()(std::byte* memory) const { std::free(memory); }
};
using Memory = std::unique_ptr<std::byte[], FreeMemory>;

constexpr std::size_t alignment = 64;

Memory allocate(std::size_t bytes)
{
    return Memory(static_cast<std::byte*>(
        std::aligned_alloc(alignment, (bytes + alignment - 1) / alignment * alignment + alignment)));
}

zimg_image_format describe(const Work& work, bool colour, unsigned rows)
{
    zimg_image_format format;
    zimg_image_format_default(&format, ZIMG_API_VERSION);
    format.width = frameWidth;
    format.height = rows;
    format.pixel_type = work.depth == 8 ? ZIMG_PIXEL_BYTE : ZIMG_PIXEL_WORD;
    format.depth = work.depth;
    format.pixel_range = colour ? ZIMG_RANGE_FULL : ZIMG_RANGE_LIMITED;
    format.color_family = colour ? ZIMG_COLOR_RGB : ZIMG_COLOR_YUV;
    format.matrix_coefficients = colour ? ZIMG_MATRIX_RGB : ZIMG_MATRIX_709;
    format.subsample_w = colour ? 0 : 1;
    // The nearest chroma to the odd pixel is that of its own pair only if chroma lies between both.
    const bool repeated = work.kind == WorkKind::Decode && work.filter == ChromaFilter::Point;
    format.chroma_location = repeated ? ZIMG_CHROMA_CENTER : ZIMG_CHROMA_LEFT;
    return format;
}

zimg_graph_builder_params paramsFor(ChromaFilter filter)
{
    zimg_graph_builder_params params;
    zimg_graph_builder_params_default(&params, ZIMG_API_VERSION);
    params.dither_type = ZIMG_DITHER_NONE;
    params.cpu_type = ZIMG_CPU_AUTO_64B;
    params.resample_filter_uv = filter == ChromaFilter::Point     ? ZIMG_RESIZE_POINT
                                : filter == ChromaFilter::Lanczos ? ZIMG_RESIZE_LANCZOS
                                                                  : ZIMG_RESIZE_BICUBIC;
    const bool mitchell = filter == ChromaFilter::Mitchell;
    params.filter_param_a_uv = filter == ChromaFilter::Lanczos ? 3.0 : mitchell ? 1.0 / 3.0 : 0.0;
    params.filter_param_b_uv = mitchell ? 1.0 / 3.0 : 0.5;
    return params;
}

/// Rows of three planes.
struct Planes
{
    Memory memory;
    std::array<std::size_t, 3> begin{};
    std::ptrdiff_t stride = 0;

    /// Rows are as long as those of a full plane in every one; `rows` of 0 is nothing.
    void make(std::size_t rowBytes, std::size_t rows)
    {
        stride = static_cast<std::ptrdiff_t>((rowBytes + alignment - 1) / alignment * alignment);
        memory = allocate(static_cast<std::size_t>(stride) * rows * 3);
        for (std::size_t i = 0; i < 3; ++i) {
            begin.at(i) = i * static_cast<std::size_t>(stride) * rows;
        }
    }

    template <class Component>
    Component* row(std::size_t plane, std::size_t y) const
    {
        return reinterpret_cast<Component*>(memory.get() + begin.at(plane) +
                                            static_cast<std::size_t>(stride) * y);
    }
};

template <class Component>
void unpackVideo(const Component* __restrict from, Component* __restrict y, Component* __restrict cb,
                 Component* __restrict cr, int pairs)
{
    for (int i = 0; i < pairs; ++i) {
        y[2 * i] = from[4 * i];
        cb[i] = from[4 * i + 1];
        y[2 * i + 1] = from[4 * i + 2];
        cr[i] = from[4 * i + 3];
    }
}

template <class Component>
void packVideo(Component* __restrict to, const Component* __restrict y, const Component* __restrict cb,
               const Component* __restrict cr, int pairs)
{
    for (int i = 0; i < pairs; ++i) {
        to[4 * i] = y[2 * i];
        to[4 * i + 1] = cb[i];
        to[4 * i + 2] = y[2 * i + 1];
        to[4 * i + 3] = cr[i];
    }
}

template <class Component>
void unpackColour(const Component* __restrict from, Component* __restrict r, Component* __restrict g,
                  Component* __restrict b, int pixels)
{
    for (int i = 0; i < pixels; ++i) {
        r[i] = from[4 * i];
        g[i] = from[4 * i + 1];
        b[i] = from[4 * i + 2];
    }
}

template <class Component>
void packColour(Component* __restrict to, const Component* __restrict r, const Component* __restrict g,
                const Component* __restrict b, int pixels)
{
    for (int i = 0; i < pixels; ++i) {
        to[4 * i] = r[i];
        to[4 * i + 1] = g[i];
        to[4 * i + 2] = b[i];
        to[4 * i + 3] = static_cast<Component>(~0U);
    }
}

/// Converts consecutive rows of the frame with their own graph. Nothing is filtered vertically, so parts are
/// independent.
template <class Component>
class Part
{
public:
    Part(const Work& work, bool packed, int first, int end)
        : decode_(work.kind == WorkKind::Decode), packed_(packed), first_(first), rows_(end - first)
    {
        const auto from = describe(work, !decode_, static_cast<unsigned>(rows_));
        const auto to = describe(work, decode_, static_cast<unsigned>(rows_));
        const auto params = paramsFor(work.filter);
        graph_.reset(zimg_filter_graph_build(&from, &to, &params));
        if (!graph_) {
            return;
        }
        std::size_t scratch = 0;
        zimg_filter_graph_get_tmp_size(graph_.get(), &scratch);
        scratch_ = allocate(scratch);
        unsigned inRows = 0;
        unsigned outRows = 0;
        zimg_filter_graph_get_input_buffering(graph_.get(), &inRows);
        zimg_filter_graph_get_output_buffering(graph_.get(), &outRows);
        // When packed, only as many rows of planes as the graph has in flight, which stay in the cache.
        inMask_ = packed ? zimg_select_buffer_mask(inRows) : ZIMG_BUFFER_MAX;
        outMask_ = packed ? zimg_select_buffer_mask(outRows) : ZIMG_BUFFER_MAX;
        constexpr std::size_t row = sizeof(Component) * static_cast<std::size_t>(frameWidth);
        in_.make(row, rowsOf(inMask_));
        out_.make(row, rowsOf(outMask_));
    }

    bool works() const { return graph_ != nullptr; }

    void unpackAll(const std::byte* source)
    {
        source_ = source;
        for (unsigned y = 0; y < static_cast<unsigned>(rows_); ++y) {
            unpackRow(y, y);
        }
    }

    void packAll(std::byte* target)
    {
        target_ = target;
        for (unsigned y = 0; y < static_cast<unsigned>(rows_); ++y) {
            packRow(y, y);
        }
    }

    bool process(const std::byte* source, std::byte* target)
    {
        source_ = source;
        target_ = target;
        zimg_image_buffer_const in{};
        zimg_image_buffer out{};
        in.version = ZIMG_API_VERSION;
        out.version = ZIMG_API_VERSION;
        for (std::size_t i = 0; i < 3; ++i) {
            in.plane[i] = {in_.template row<std::byte>(i, 0), in_.stride, inMask_};
            out.plane[i] = {out_.template row<std::byte>(i, 0), out_.stride, outMask_};
        }
        const auto unpack = [](void* self, unsigned y, unsigned, unsigned) {
            auto* const part = static_cast<Part*>(self);
            part->unpackRow(y, y & part->inMask_);
            return 0;
        };
        const auto pack = [](void* self, unsigned y, unsigned, unsigned) {
            auto* const part = static_cast<Part*>(self);
            part->packRow(y, y & part->outMask_);
            return 0;
        };
        return zimg_filter_graph_process(graph_.get(), &in, &out, scratch_.get(),
                                         packed_ ? static_cast<zimg_filter_graph_callback>(unpack) : nullptr,
                                         this,
                                         packed_ ? static_cast<zimg_filter_graph_callback>(pack) : nullptr,
                                         this) == ZIMG_ERROR_SUCCESS;
    }

private:
    struct FreeGraph
    {
        void operator()(zimg_filter_graph* graph) const { zimg_filter_graph_free(graph); }
    };

    std::size_t rowsOf(unsigned mask) const
    {
        return mask == ZIMG_BUFFER_MAX ? static_cast<std::size_t>(rows_) : mask + std::size_t{1};
    }

    template <class Bytes>
    auto* frameRow(Bytes* frame, unsigned y, bool colour) const
    {
        const std::size_t row =
            rowBytes(colour ? FrameLayout::Colour : FrameLayout::Video, 8 * sizeof(Component));
        using Pointer = std::conditional_t<std::is_const_v<Bytes>, const Component, Component>;
        return reinterpret_cast<Pointer*>(frame + row * (static_cast<std::size_t>(first_) + y));
    }

    void unpackRow(unsigned y, unsigned place)
    {
        Component* const one = in_.template row<Component>(0, place);
        Component* const two = in_.template row<Component>(1, place);
        Component* const three = in_.template row<Component>(2, place);
        if (decode_) {
            unpackVideo(frameRow(source_, y, false), one, two, three, frameWidth / 2);
        } else {
            unpackColour(frameRow(source_, y, true), one, two, three, frameWidth);
        }
    }

    void packRow(unsigned y, unsigned place)
    {
        const Component* const one = out_.template row<Component>(0, place);
        const Component* const two = out_.template row<Component>(1, place);
        const Component* const three = out_.template row<Component>(2, place);
        if (decode_) {
            packColour(frameRow(target_, y, true), one, two, three, frameWidth);
        } else {
            packVideo(frameRow(target_, y, false), one, two, three, frameWidth / 2);
        }
    }

    bool decode_;
    bool packed_;
    int first_;
    int rows_;
    std::unique_ptr<zimg_filter_graph, FreeGraph> graph_;
    Memory scratch_;
    Planes in_;
    Planes out_;
    unsigned inMask_ = 0;
    unsigned outMask_ = 0;
    const std::byte* source_ = nullptr;
    std::byte* target_ = nullptr;
};

template <class Component>
class Conversion : public Job
{
public:
    Conversion(const Work& work, bool packed, int threads)
        : packed_(packed),
          source_(sourceFrame(work)),
          target_(frameBytes(resultLayout(work.kind), work.depth)),
          workers_(threads, [this](int i) {
              done_.at(static_cast<std::size_t>(i)) =
                  parts_.at(static_cast<std::size_t>(i))->process(source_.data(), target_.data());
          })
    {
        for (int i = 0; i < threads; ++i) {
            parts_.push_back(std::make_unique<Part<Component>>(work, packed, frameHeight * i / threads,
                                                               frameHeight * (i + 1) / threads));
            works_ = works_ && parts_.back()->works();
            if (works_ && !packed) {
                parts_.back()->unpackAll(source_.data());
            }
        }
        done_.resize(parts_.size());
    }

    int frames() override
    {
        if (!works_) {
            return 0;
        }
        workers_.run();
        return std::find(done_.begin(), done_.end(), 0) == done_.end() ? 1 : 0;
    }

    std::vector<std::byte> result() override
    {
        for (const auto& part : parts_) {
            if (!packed_) {
                part->packAll(target_.data());
            }
        }
        return target_;
    }

private:
    bool packed_;
    bool works_ = true;
    std::vector<std::byte> source_;
    std::vector<std::byte> target_;
    std::vector<std::unique_ptr<Part<Component>>> parts_;
    std::vector<char> done_;
    Workers workers_;
};

std::unique_ptr<Job> makeJob(const Work& work, bool packed, int threads)
{
    if (work.depth == 8) {
        return std::make_unique<Conversion<std::uint8_t>>(work, packed, threads);
    }
    return std::make_unique<Conversion<std::uint16_t>>(work, packed, threads);
}

void offer(Participant& participant, const Work& work, bool packed, bool all)
{
    const std::string remark = packed ? "" : "between planes: packing left out";
    participant.offers.push_back(
        {work.key(), std::string(threadsText(all)) + (packed ? "" : ", planes"), remark,
         [work, packed, all] { return makeJob(work, packed, all ? allCores() : 1); }});
}

} // namespace
} // namespace Qx::Bench

int main()
{
    using namespace Qx::Bench;
    unsigned major = 0;
    unsigned minor = 0;
    unsigned micro = 0;
    zimg_get_version_info(&major, &minor, &micro);
    const std::string version =
        std::to_string(major) + '.' + std::to_string(minor) + '.' + std::to_string(micro);
    Participant participant{
        "zimg " + version, "processor", "the processor, " + std::to_string(allCores()) + " cores", {}};
    for (const Work& work : allWorks()) {
        if (work.place == Place::Memory && (work.kind == WorkKind::Decode || work.kind == WorkKind::Encode)) {
            offer(participant, work, true, false);
            offer(participant, work, true, true);
            offer(participant, work, false, true);
        }
    }
    return serve(participant);
}
