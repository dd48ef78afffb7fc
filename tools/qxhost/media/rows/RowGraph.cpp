#include "tools/qxhost/media/rows/RowGraph.h"

#include "tools/qxhost/media/Matrices.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string>

namespace Qx::Media {

namespace {

// Vector loads and stores of zimg on x86-64.
constexpr std::size_t alignment = 64;

zimg_image_format toZimg(const PlanarFormat& format)
{
    zimg_image_format out;
    zimg_image_format_default(&out, ZIMG_API_VERSION);
    out.width = format.width;
    out.height = format.height;
    out.pixel_type = format.bits > 8 ? ZIMG_PIXEL_WORD : ZIMG_PIXEL_BYTE;
    out.depth = static_cast<unsigned>(format.bits);
    out.subsample_w = static_cast<unsigned>(format.shiftX);
    out.subsample_h = static_cast<unsigned>(format.shiftY);
    out.color_family = format.rgb ? ZIMG_COLOR_RGB : ZIMG_COLOR_YUV;
    out.pixel_range = format.range == Range::full ? ZIMG_RANGE_FULL : ZIMG_RANGE_LIMITED;
    out.field_parity = format.parity;
    out.chroma_location = format.chromaLocation;
    return out;
}

// From YCbCr to YCbCr both sides get the same label, so that zimg changes no matrix.
void setMatrices(const PlanarFormat& from, const PlanarFormat& to, zimg_image_format& in,
                 zimg_image_format& out)
{
    const auto matrix = [](const PlanarFormat& format) {
        return format.rgb ? ZIMG_MATRIX_RGB
                          : static_cast<zimg_matrix_coefficients_e>(infoOf(format.matrix).tags.front());
    };
    in.matrix_coefficients = matrix(from);
    out.matrix_coefficients = from.rgb == to.rgb ? in.matrix_coefficients : matrix(to);
}

std::string zimgText()
{
    std::array<char, 256> text{};
    zimg_get_last_error(text.data(), text.size());
    return text.data();
}

struct Callback
{
    const RowGraph::Rows& rows;
    const RowGraph::Window& window;

    static int call(void* user, unsigned row, unsigned left, unsigned right)
    {
        const auto& self = *static_cast<Callback*>(user);
        self.rows(self.window, row, left, right);
        return 0;
    }
};

} // namespace

void RowGraph::FreeBytes::operator()(std::byte* bytes) const
{
    std::free(bytes);
}

RowGraph::Bytes RowGraph::allocate(std::size_t size)
{
    const std::size_t rounded = (std::max<std::size_t>(size, 1) + alignment - 1) / alignment * alignment;
    return Bytes(static_cast<std::byte*>(std::aligned_alloc(alignment, rounded)));
}

Result<RowGraph> RowGraph::make(const PlanarFormat& from, const PlanarFormat& to)
{
    zimg_image_format in = toZimg(from);
    zimg_image_format out = toZimg(to);
    setMatrices(from, to, in, out);
    zimg_graph_builder_params params;
    zimg_graph_builder_params_default(&params, ZIMG_API_VERSION);
    params.resample_filter = ZIMG_RESIZE_BICUBIC;
    params.resample_filter_uv = ZIMG_RESIZE_BICUBIC;
    params.filter_param_a = params.filter_param_a_uv = 0.0;
    params.filter_param_b = params.filter_param_b_uv = 0.5;

    params.dither_type = to.dither ? ZIMG_DITHER_ERROR_DIFFUSION : ZIMG_DITHER_NONE;

    RowGraph result;
    result.graph_.reset(zimg_filter_graph_build(&in, &out, &params));
    if (!result.graph_) {
        return Error{"zimg cannot convert the pixel format: " + zimgText()};
    }
    std::size_t scratch = 0;
    unsigned linesIn = 0;
    unsigned linesOut = 0;
    if (zimg_filter_graph_get_tmp_size(result.graph_.get(), &scratch) != ZIMG_ERROR_SUCCESS ||
        zimg_filter_graph_get_input_buffering(result.graph_.get(), &linesIn) != ZIMG_ERROR_SUCCESS ||
        zimg_filter_graph_get_output_buffering(result.graph_.get(), &linesOut) != ZIMG_ERROR_SUCCESS) {
        return Error{"zimg cannot convert the pixel format: " + zimgText()};
    }
    result.scratch_ = allocate(scratch);
    if (!result.scratch_ || !result.makeWindow(from, linesIn, result.in_) ||
        !result.makeWindow(to, linesOut, result.out_)) {
        return Error{"out of memory while converting the pixel format"};
    }
    return result;
}

bool RowGraph::makeWindow(const PlanarFormat& format, unsigned lines, Window& window)
{
    for (std::size_t plane = 0; plane < window.rings_.size(); ++plane) {
        const int shiftX = plane == 0 ? 0 : format.shiftX;
        const int shiftY = plane == 0 ? 0 : format.shiftY;
        const unsigned height = format.height >> shiftY;
        const std::size_t bytes =
            static_cast<std::size_t>(format.width >> shiftX) * (format.bits > 8 ? 2 : 1);
        const std::size_t stride = (bytes + alignment - 1) / alignment * alignment;
        // A power of two of rows, or the whole plane.
        const unsigned mask =
            lines == ZIMG_BUFFER_MAX ? ZIMG_BUFFER_MAX : zimg_select_buffer_mask(lines) >> shiftY;
        const std::size_t rows = mask == ZIMG_BUFFER_MAX || mask >= height ? height : mask + std::size_t{1};
        Bytes memory = allocate(stride * rows);
        if (!memory) {
            return false;
        }
        window.rings_[plane] = {memory.get(), static_cast<std::ptrdiff_t>(stride),
                                rows == height ? ZIMG_BUFFER_MAX : mask};
        memory_.push_back(std::move(memory));
    }
    return true;
}

Status RowGraph::run(const Rows& fill, const Rows& take)
{
    zimg_image_buffer_const source{};
    zimg_image_buffer target{};
    source.version = target.version = ZIMG_API_VERSION;
    for (std::size_t plane = 0; plane < in_.rings_.size(); ++plane) {
        source.plane[plane] = {in_.rings_[plane].start, in_.rings_[plane].stride, in_.rings_[plane].mask};
        target.plane[plane] = {out_.rings_[plane].start, out_.rings_[plane].stride, out_.rings_[plane].mask};
    }
    Callback filling{fill, in_};
    Callback taking{take, out_};
    if (zimg_filter_graph_process(graph_.get(), &source, &target, scratch_.get(), Callback::call, &filling,
                                  Callback::call, &taking) != ZIMG_ERROR_SUCCESS) {
        return Error{"zimg could not convert the picture: " + zimgText()};
    }
    return {};
}

} // namespace Qx::Media
