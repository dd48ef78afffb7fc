#include "tools/qxhost/media/filter/FilteredWriter.h"

#include "tools/qxhost/media/FfmpegVersions.h"
#include "tools/qxhost/media/filter/FilterGraph.h"
#include "tools/qxhost/media/rows/ComponentRows.h"
#include "tools/qxhost/media/rows/FloatPicture.h"
#include "tools/qxhost/media/rows/RgbPacker.h"

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace Qx::Media {

namespace {

AVPixelFormat planarFormat(const OutputSettings& settings)
{
    if (settings.floats) {
        return settings.alpha ? AV_PIX_FMT_GBRAPF32 : AV_PIX_FMT_GBRPF32;
    }
    if (settings.depth == Depth::bits8) {
        return settings.alpha ? AV_PIX_FMT_GBRAP : AV_PIX_FMT_GBRP;
    }
    return settings.alpha ? AV_PIX_FMT_GBRAP16 : AV_PIX_FMT_GBRP16;
}

/// Of frames on their way to the encoder.
FilterGraph::Form formOf(const OutputSettings& given)
{
    return {.width = given.width,
            .height = given.height,
            .format = planarFormat(given),
            .timeBase = given.timeBase,
            .frameRate = given.frameRate,
            .sampleAspect = given.sampleAspect,
            .matrix = given.colour.matrix,
            .range = given.rgbRange,
            .matrixTag = AVCOL_SPC_RGB};
}

class FilteredWriter final : public iFrameWriter
{
public:
    FilteredWriter(std::unique_ptr<FilterGraph> graph, std::unique_ptr<iFrameWriter> writer,
                   const OutputSettings& given, const OutputSettings& made)
        : graph_(std::move(graph)),
          writer_(std::move(writer)),
          given_(given),
          made_(made),
          components_(planarFormat(given))
    {
        warnings_ = graph_->notes();
        if (!given.timeCode.empty() && made.timeCode.empty()) {
            warnings_.push_back("time code " + given.timeCode +
                                " is left out: --after changes the frame rate");
        }
    }

    Status write(const void* rows, std::ptrdiff_t pitch, const FrameTime& time) override
    {
        FramePtr frame(av_frame_alloc());
        if (!frame) {
            return Error{"out of memory"};
        }
        frame->width = given_.width;
        frame->height = given_.height;
        frame->format = planarFormat(given_);
        if (av_frame_get_buffer(frame.get(), 0) < 0) {
            return Error{"out of memory for a frame"};
        }
        frame->pts = time.pts;
        setDuration(*frame, time.duration);
        frame->sample_aspect_ratio = toAv(given_.sampleAspect);
        frame->color_range = toAv(given_.rgbRange);
        frame->colorspace = AVCOL_SPC_RGB;
        setFieldOrder(*frame, time.fieldOrder);
        if (given_.floats) {
            planesFrom({rows, pitch, given_.width, given_.height}, *frame, false);
        } else if (given_.depth == Depth::bits8) {
            takeApart<std::uint8_t>(rows, pitch, *frame);
        } else {
            takeApart<std::uint16_t>(rows, pitch, *frame);
        }
        if (Status status = graph_->push(std::move(frame)); !status) {
            return status;
        }
        return writeMade();
    }

    Status finish() override
    {
        Status status = graph_->push(nullptr);
        if (status) {
            status = writeMade();
        }
        status = status ? writer_->finish() : status;
        warnings_.insert(warnings_.end(), writer_->warnings().begin(), writer_->warnings().end());
        return status;
    }

    const std::vector<std::string>& warnings() const override { return warnings_; }
    std::string description() const override { return writer_->description(); }
    std::vector<WrittenAudio> audio() const override { return writer_->audio(); }
    std::vector<std::filesystem::path> files() const override { return writer_->files(); }

private:
    /// From A R G B to planes.
    template <class Code>
    void takeApart(const void* rows, std::ptrdiff_t pitch, AVFrame& frame)
    {
        const auto width = static_cast<std::size_t>(given_.width);
        std::vector<Code> codes(width);
        for (int y = 0; y < given_.height; ++y) {
            const auto* row = reinterpret_cast<const Code*>(static_cast<const std::byte*>(rows) + y * pitch);
            for (int component = 0; component < (components_.hasAlpha() ? 4 : 3); ++component) {
                const std::size_t place = static_cast<std::size_t>(component + 1) % 4;
                for (std::size_t x = 0; x < width; ++x) {
                    codes[x] = row[4 * x + place];
                }
                components_.write(frame, component, y, 0, given_.width, codes.data());
            }
        }
    }

    Status writeMade()
    {
        for (;;) {
            auto made = graph_->pull();
            if (!made) {
                return Error{made.text()};
            }
            if (!made.value()) {
                return {};
            }
            const FrameTime time = made.value()->time;
            const std::shared_ptr<const AVFrame> picture(made.value()->frame.release(), FreeFrame());
            const std::size_t texel = made_.floats                  ? 4 * sizeof(float)
                                      : made_.depth == Depth::bits8 ? 4U
                                                                    : 8U;
            const std::size_t pitch = static_cast<std::size_t>(made_.width) * texel;
            rows_.resize(pitch * static_cast<std::size_t>(made_.height));
            Status status;
            if (made_.floats) {
                placeFloats(*picture, rows_.data(), static_cast<std::ptrdiff_t>(pitch));
            } else {
                const FramePacker::Target target{.depth = made_.depth, .range = made_.rgbRange};
                status = packRgb(Frame(picture, time, false, made_.rgbRange), target, rows_.data(),
                                 static_cast<std::ptrdiff_t>(pitch));
            }
            if (status) {
                status = writer_->write(rows_.data(), static_cast<std::ptrdiff_t>(pitch), time);
            }
            if (!status) {
                return status;
            }
        }
    }

    std::unique_ptr<FilterGraph> graph_;
    std::unique_ptr<iFrameWriter> writer_;
    OutputSettings given_;
    OutputSettings made_;
    ComponentRows components_;
    std::vector<std::byte> rows_;
    std::vector<std::string> warnings_;
};

} // namespace

bool filtersTakeFloats(const OutputSettings& settings, const std::string& text)
{
    OutputSettings ofFloats = settings;
    ofFloats.floats = true;
    return static_cast<bool>(FilterGraph::make(text, "--after", formOf(ofFloats), planarFormat(ofFloats)));
}

Result<std::unique_ptr<iFrameWriter>> openFilteredWriter(const std::filesystem::path& file,
                                                         OutputSettings& settings, const std::string& text,
                                                         const std::string& option)
{
    const OutputSettings given = settings;
    auto graph = FilterGraph::make(text, option, formOf(given), planarFormat(given));
    if (!graph) {
        return graph.error();
    }
    const FilterGraph::Form& form = graph.value()->form();
    settings.width = form.width;
    settings.height = form.height;
    settings.timeBase = form.timeBase;
    settings.sampleAspect = form.sampleAspect;
    if (form.frameRate.num > 0 && !(form.frameRate == given.frameRate)) {
        settings.frameRate = form.frameRate;
        settings.timeCode.clear(); // it counts at the rate before
        settings.expectedFrames = 0;
    }
    auto writer = openWriter(file, settings);
    if (!writer) {
        return writer.error();
    }
    return std::unique_ptr<iFrameWriter>(std::make_unique<FilteredWriter>(
        std::move(graph.value()), std::move(writer.value()), given, settings));
}

} // namespace Qx::Media
