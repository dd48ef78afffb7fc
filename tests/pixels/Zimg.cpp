#include "tests/pixels/Zimg.h"

#include <zimg.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

namespace Qx::Pixels {

namespace {

/// Three planes of one byte or one word a sample, rows aligned as zimg wants them.
class Planes
{
public:
    Planes(int width, int height, int depth, bool halfChroma)
        : bytes_(depth == 8 ? 1U : 2U), halfChroma_(halfChroma)
    {
        stride_ = (static_cast<std::size_t>(width) * bytes_ + alignment - 1) / alignment * alignment;
        for (auto& plane : planes_) {
            plane.reset(static_cast<std::byte*>(
                ::operator new[](stride_* static_cast<std::size_t>(height), std::align_val_t{alignment})));
        }
    }

    bool halfChroma() const { return halfChroma_; }

    void set(std::size_t plane, int x, int y, std::uint16_t code)
    {
        if (bytes_ == 1) {
            *place(plane, x, y) = static_cast<std::byte>(code);
        } else {
            std::memcpy(place(plane, x, y), &code, sizeof code);
        }
    }

    std::uint16_t get(std::size_t plane, int x, int y) const
    {
        if (bytes_ == 1)
            return std::to_integer<std::uint8_t>(*place(plane, x, y));
        std::uint16_t code = 0;
        std::memcpy(&code, place(plane, x, y), sizeof code);
        return code;
    }

    zimg_image_buffer_const source() const
    {
        zimg_image_buffer_const buffer{};
        buffer.version = ZIMG_API_VERSION;
        for (std::size_t i = 0; i < 3; ++i)
            buffer.plane[i] = {planes_[i].get(), static_cast<std::ptrdiff_t>(stride_), ZIMG_BUFFER_MAX};
        return buffer;
    }

    zimg_image_buffer target()
    {
        zimg_image_buffer buffer{};
        buffer.version = ZIMG_API_VERSION;
        for (std::size_t i = 0; i < 3; ++i)
            buffer.plane[i] = {planes_[i].get(), static_cast<std::ptrdiff_t>(stride_), ZIMG_BUFFER_MAX};
        return buffer;
    }

private:
    static constexpr std::size_t alignment = 64;
    struct Free
    {
        void operator()(std::byte* memory) const { ::operator delete[](memory, std::align_val_t{alignment}); }
    };

    std::byte* place(std::size_t plane, int x, int y) const
    {
        return planes_[plane].get() + static_cast<std::size_t>(y) * stride_ +
               static_cast<std::size_t>(x) * bytes_;
    }

    std::size_t bytes_;
    bool halfChroma_;
    std::size_t stride_ = 0;
    std::array<std::unique_ptr<std::byte[], Free>, 3> planes_;
};

zimg_image_format describe(const Picture& picture, Range range, Matrix matrix, bool rgb, bool halfChroma)
{
    zimg_image_format format;
    zimg_image_format_default(&format, ZIMG_API_VERSION);
    format.width = static_cast<unsigned>(picture.width);
    format.height = static_cast<unsigned>(picture.height);
    format.pixel_type = picture.depth == 8 ? ZIMG_PIXEL_BYTE : ZIMG_PIXEL_WORD;
    format.depth = static_cast<unsigned>(picture.depth);
    format.pixel_range = range == Range::Full ? ZIMG_RANGE_FULL : ZIMG_RANGE_LIMITED;
    format.color_family = rgb ? ZIMG_COLOR_RGB : ZIMG_COLOR_YUV;
    format.matrix_coefficients = rgb                        ? ZIMG_MATRIX_RGB
                                 : matrix == Matrix::Bt601  ? ZIMG_MATRIX_170M
                                 : matrix == Matrix::Bt2020 ? ZIMG_MATRIX_2020_NCL
                                                            : ZIMG_MATRIX_709;
    format.subsample_w = halfChroma ? 1 : 0;
    format.chroma_location = ZIMG_CHROMA_LEFT;
    return format;
}

/// The planes of the picture: R, G, B, or Y, Cb, Cr with as much chroma as they are said to have.
void fill(Planes& planes, const Picture& picture)
{
    for (int y = 0; y < picture.height; ++y) {
        for (int x = 0; x < picture.width; ++x) {
            if (picture.layout == Layout::Rgb) {
                for (int i = 0; i < 3; ++i)
                    planes.set(static_cast<std::size_t>(i), x, y, picture.at(x, y, i));
                continue;
            }
            planes.set(0, x, y, picture.at(x / 2, y, x % 2 == 0 ? 0 : 2));
            if (!planes.halfChroma() || x % 2 == 0) {
                planes.set(1, planes.halfChroma() ? x / 2 : x, y, picture.at(x / 2, y, 1));
                planes.set(2, planes.halfChroma() ? x / 2 : x, y, picture.at(x / 2, y, 3));
            }
        }
    }
}

Picture gather(const Planes& planes, const Picture& like, Layout layout)
{
    Picture picture = Picture::blank(like.name, layout, like.width, like.height, like.depth);
    for (int y = 0; y < picture.height; ++y) {
        for (int texel = 0; texel < picture.texels(); ++texel) {
            if (layout == Layout::Rgb) {
                for (int i = 0; i < 3; ++i)
                    picture.at(texel, y, i) = planes.get(static_cast<std::size_t>(i), texel, y);
                picture.at(texel, y, 3) = picture.maxCode();
                continue;
            }
            const int chroma = planes.halfChroma() ? texel : 2 * texel;
            picture.at(texel, y, 0) = planes.get(0, 2 * texel, y);
            picture.at(texel, y, 1) = planes.get(1, chroma, y);
            picture.at(texel, y, 2) = planes.get(0, 2 * texel + 1, y);
            picture.at(texel, y, 3) = planes.get(2, chroma, y);
        }
    }
    return picture;
}

zimg_graph_builder_params filterOf(Filter filter)
{
    zimg_graph_builder_params params;
    zimg_graph_builder_params_default(&params, ZIMG_API_VERSION);
    params.dither_type = ZIMG_DITHER_NONE;
    params.resample_filter_uv = filter == Filter::Lanczos ? ZIMG_RESIZE_LANCZOS : ZIMG_RESIZE_BICUBIC;
    params.filter_param_a_uv = filter == Filter::Lanczos ? 3.0 : filter == Filter::Mitchell ? 1.0 / 3.0 : 0.0;
    params.filter_param_b_uv = filter == Filter::Mitchell ? 1.0 / 3.0 : 0.5;
    return params;
}

bool process(const zimg_image_format& from, const zimg_image_format& to,
             const zimg_graph_builder_params& params, const Planes& in, Planes& out)
{
    const std::unique_ptr<zimg_filter_graph, decltype(&zimg_filter_graph_free)> graph(
        zimg_filter_graph_build(&from, &to, &params), &zimg_filter_graph_free);
    std::size_t scratchBytes = 0;
    if (!graph || zimg_filter_graph_get_tmp_size(graph.get(), &scratchBytes) != ZIMG_ERROR_SUCCESS)
        return false;

    const auto inBuffer = in.source();
    const auto outBuffer = out.target();
    const std::unique_ptr<void, decltype(&std::free)> scratch(
        std::aligned_alloc(64, (scratchBytes + 63) / 64 * 64), &std::free);
    return zimg_filter_graph_process(graph.get(), &inBuffer, &outBuffer, scratch.get(), nullptr, nullptr,
                                     nullptr, nullptr) == ZIMG_ERROR_SUCCESS;
}

} // namespace

Picture convertByZimg(const Conversion& conversion, const Picture& source)
{
    const bool decode = conversion.direction == Direction::Decode;
    const bool halfChroma = conversion.filter != Filter::Point;
    const auto from = describe(source, conversion.source, conversion.matrix, !decode, decode && halfChroma);
    const auto to = describe(source, conversion.target, conversion.matrix, decode, !decode && halfChroma);
    const auto params = filterOf(conversion.filter);

    Planes in(source.width, source.height, source.depth, decode && halfChroma);
    Planes out(source.width, source.height, source.depth, !decode && halfChroma);
    fill(in, source);
    if (!process(from, to, params, in, out))
        return {};
    return gather(out, source, decode ? Layout::Rgb : Layout::Packed422);
}

Picture coloursByZimg(const Picture& source, Transfer transfer)
{
    auto from = describe(source, Range::Full, Matrix::Bt2020, true, false);
    auto to = from;
    from.color_primaries = ZIMG_PRIMARIES_BT2020;
    from.transfer_characteristics = transfer == Transfer::Pq ? ZIMG_TRANSFER_ST2084 : ZIMG_TRANSFER_ARIB_B67;
    to.color_primaries = ZIMG_PRIMARIES_BT709;
    to.transfer_characteristics = ZIMG_TRANSFER_BT709;
    zimg_graph_builder_params params;
    zimg_graph_builder_params_default(&params, ZIMG_API_VERSION);
    params.dither_type = ZIMG_DITHER_NONE;
    params.nominal_peak_luminance = 100;
    params.allow_approximate_gamma = 0;
    Planes in(source.width, source.height, source.depth, false);
    Planes out(source.width, source.height, source.depth, false);
    fill(in, source);
    return process(from, to, params, in, out) ? gather(out, source, Layout::Rgb) : Picture{};
}

} // namespace Qx::Pixels
