#include "tests/pixels/ClipReference.h"

#include <zimg.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace Qx::Pixels {

namespace {

using Plane = std::vector<double>;

double largestCode(int bits)
{
    return std::ldexp(1.0, bits) - 1;
}

double step(int bits)
{
    return std::ldexp(1.0, bits - 8);
}

/// Black and white of luma and RGB (ITU-T H.273, 8.3; BT.709-6, 3.4), and the codes from one end of a colour
/// difference to the other.
struct Scale
{
    double black;
    double white;
    double chroma;
};

Scale scaleOf(Range range, int bits)
{
    if (range == Range::Full) {
        return {0, largestCode(bits), largestCode(bits)};
    }
    return {16 * step(bits), 235 * step(bits), 224 * step(bits)};
}

/// Keys' cubic with a = -1/2.
double kernel(double x)
{
    x = std::abs(x);
    if (x < 1) {
        return 1.5 * x * x * x - 2.5 * x * x + 1;
    }
    return x < 2 ? -0.5 * x * x * x + 2.5 * x * x - 4 * x + 2 : 0;
}

/// A row or column of samples at a position between them.
template <class At>
double interpolated(const At& at, int count, double position)
{
    const int base = static_cast<int>(std::floor(position));
    double sum = 0;
    for (int tap = base - 1; tap <= base + 2; ++tap) {
        sum += kernel(position - tap) * at(std::clamp(tap, 0, count - 1));
    }
    return sum;
}

/// A chroma plane at every pixel.
Plane atEveryPixel(const PlanarFrame& frame, const std::vector<std::uint16_t>& samples)
{
    const int columns = frame.chromaWidth();
    const int rows = frame.chromaHeight();
    const auto sample = [&](int x, int y) {
        return static_cast<double>(samples[static_cast<std::size_t>(y * columns + x)]);
    };
    Plane down(static_cast<std::size_t>(columns * frame.height));
    for (int y = 0; y < frame.height; ++y) {
        for (int x = 0; x < columns; ++x) {
            const double position = frame.halfHeight ? (y - 0.5) / 2 : y;
            down[static_cast<std::size_t>(y * columns + x)] =
                interpolated([&](int row) { return sample(x, row); }, rows, position);
        }
    }
    Plane all(static_cast<std::size_t>(frame.width * frame.height));
    for (int y = 0; y < frame.height; ++y) {
        for (int x = 0; x < frame.width; ++x) {
            all[static_cast<std::size_t>(y * frame.width + x)] =
                interpolated([&](int column) { return down[static_cast<std::size_t>(y * columns + column)]; },
                             columns, x / 2.0);
        }
    }
    return all;
}

void readPlane(std::vector<std::uint16_t>& plane, std::size_t count, int bits,
               const std::vector<std::uint8_t>& bytes, std::size_t& at)
{
    plane.assign(count, 0);
    for (std::uint16_t& code : plane) {
        const auto byte = [&] { return at < bytes.size() ? bytes[at++] : std::uint8_t{0}; };
        code = byte();
        if (bits > 8) {
            code = static_cast<std::uint16_t>(code | byte() << 8);
        }
    }
}

struct FreeMemory
{
    void operator()(void* memory) const { std::free(memory); }
};
using Memory = std::unique_ptr<void, FreeMemory>;

constexpr std::size_t zimgAlignment = 64;

Memory allocate(std::size_t size)
{
    return Memory(std::aligned_alloc(zimgAlignment, (size + zimgAlignment) / zimgAlignment * zimgAlignment));
}

std::ptrdiff_t alignedRow(int samples, std::size_t size)
{
    const std::size_t bytes = static_cast<std::size_t>(samples) * size;
    return static_cast<std::ptrdiff_t>((bytes + zimgAlignment - 1) / zimgAlignment * zimgAlignment);
}

} // namespace

PlanarFrame planarFrame(PlanarFrame form, const std::vector<std::uint8_t>& bytes)
{
    const auto chroma = static_cast<std::size_t>(form.chromaWidth() * form.chromaHeight());
    std::size_t at = 0;
    readPlane(form.y, static_cast<std::size_t>(form.width * form.height), form.bits, bytes, at);
    readPlane(form.cb, chroma, form.bits, bytes, at);
    readPlane(form.cr, chroma, form.bits, bytes, at);
    return form;
}

std::vector<double> exactRgb(const PlanarFrame& frame, Range target, int bits)
{
    const double kr = frame.matrix == Matrix::Bt709 ? 0.2126 : 0.299;
    const double kb = frame.matrix == Matrix::Bt709 ? 0.0722 : 0.114;
    const Scale from = scaleOf(frame.range, frame.bits);
    const Scale to = scaleOf(target, bits);
    const double zero = std::ldexp(1.0, frame.bits - 1);
    const Plane cb = atEveryPixel(frame, frame.cb);
    const Plane cr = atEveryPixel(frame, frame.cr);
    std::vector<double> rgb;
    rgb.reserve(frame.y.size() * 3);
    for (std::size_t i = 0; i < frame.y.size(); ++i) {
        const double luma = (frame.y[i] - from.black) / (from.white - from.black);
        const double r = luma + 2 * (1 - kr) * (cr[i] - zero) / from.chroma;
        const double b = luma + 2 * (1 - kb) * (cb[i] - zero) / from.chroma;
        const double g = (luma - kr * r - kb * b) / (1 - kr - kb);
        for (const double level : {r, g, b}) {
            rgb.push_back(std::clamp(to.black + level * (to.white - to.black), 0.0, largestCode(bits)));
        }
    }
    return rgb;
}

std::vector<double> zimgRgb(const PlanarFrame& frame, Range target, int bits)
{
    zimg_image_format in;
    zimg_image_format_default(&in, ZIMG_API_VERSION);
    in.width = static_cast<unsigned>(frame.width);
    in.height = static_cast<unsigned>(frame.height);
    in.pixel_type = frame.bits > 8 ? ZIMG_PIXEL_WORD : ZIMG_PIXEL_BYTE;
    in.depth = static_cast<unsigned>(frame.bits);
    in.subsample_w = 1;
    in.subsample_h = frame.halfHeight ? 1 : 0;
    in.color_family = ZIMG_COLOR_YUV;
    in.matrix_coefficients = frame.matrix == Matrix::Bt709 ? ZIMG_MATRIX_709 : ZIMG_MATRIX_170M;
    in.pixel_range = frame.range == Range::Full ? ZIMG_RANGE_FULL : ZIMG_RANGE_LIMITED;
    in.chroma_location = ZIMG_CHROMA_LEFT;
    zimg_image_format out = in;
    out.pixel_type = ZIMG_PIXEL_FLOAT;
    out.depth = 32;
    out.subsample_w = out.subsample_h = 0;
    out.color_family = ZIMG_COLOR_RGB;
    out.matrix_coefficients = ZIMG_MATRIX_RGB;
    out.pixel_range = ZIMG_RANGE_FULL;
    zimg_graph_builder_params params;
    zimg_graph_builder_params_default(&params, ZIMG_API_VERSION);
    params.resample_filter = params.resample_filter_uv = ZIMG_RESIZE_BICUBIC;
    params.filter_param_a = params.filter_param_a_uv = 0.0;
    params.filter_param_b = params.filter_param_b_uv = 0.5;
    const std::unique_ptr<zimg_filter_graph, void (*)(zimg_filter_graph*)> graph(
        zimg_filter_graph_build(&in, &out, &params), zimg_filter_graph_free);
    std::size_t scratchSize = 0;
    if (!graph || zimg_filter_graph_get_tmp_size(graph.get(), &scratchSize) != ZIMG_ERROR_SUCCESS) {
        return {};
    }
    const Memory scratch = allocate(scratchSize);
    zimg_image_buffer_const source{};
    zimg_image_buffer result{};
    source.version = result.version = ZIMG_API_VERSION;
    std::array<Memory, 6> planes;
    const std::array<const std::vector<std::uint16_t>*, 3> samples{&frame.y, &frame.cb, &frame.cr};
    const std::size_t size = frame.bits > 8 ? 2 : 1;
    const std::ptrdiff_t outRow = alignedRow(frame.width, sizeof(float));
    for (std::size_t plane = 0; plane < 3; ++plane) {
        const int columns = plane == 0 ? frame.width : frame.chromaWidth();
        const int rows = plane == 0 ? frame.height : frame.chromaHeight();
        const std::ptrdiff_t row = alignedRow(columns, size);
        planes[plane] = allocate(static_cast<std::size_t>(row * rows));
        for (int y = 0; y < rows; ++y) {
            for (int x = 0; x < columns; ++x) {
                const std::uint16_t code = (*samples[plane])[static_cast<std::size_t>(y * columns + x)];
                std::memcpy(static_cast<std::byte*>(planes[plane].get()) + y * row +
                                x * static_cast<std::ptrdiff_t>(size),
                            &code, size); // little-endian
            }
        }
        planes[plane + 3] = allocate(static_cast<std::size_t>(outRow * frame.height));
        source.plane[plane] = {planes[plane].get(), row, ZIMG_BUFFER_MAX};
        result.plane[plane] = {planes[plane + 3].get(), outRow, ZIMG_BUFFER_MAX};
    }
    if (zimg_filter_graph_process(graph.get(), &source, &result, scratch.get(), nullptr, nullptr, nullptr,
                                  nullptr) != ZIMG_ERROR_SUCCESS) {
        return {};
    }
    const Scale to = scaleOf(target, bits);
    std::vector<double> rgb;
    rgb.reserve(frame.y.size() * 3);
    for (int y = 0; y < frame.height; ++y) {
        for (int x = 0; x < frame.width; ++x) {
            for (std::size_t plane = 3; plane < 6; ++plane) {
                float level = 0;
                std::memcpy(&level,
                            static_cast<const std::byte*>(planes[plane].get()) + y * outRow +
                                x * static_cast<std::ptrdiff_t>(sizeof level),
                            sizeof level);
                rgb.push_back(std::clamp(to.black + level * (to.white - to.black), 0.0, largestCode(bits)));
            }
        }
    }
    return rgb;
}

double exactLevel(unsigned code, int from, int to, Range range, bool chroma)
{
    const double ratio =
        range == Range::Video ? std::ldexp(1.0, to - from) : largestCode(to) / largestCode(from);
    const double zero = chroma ? std::ldexp(1.0, from - 1) : 0.0;
    const double newZero = chroma ? std::ldexp(1.0, to - 1) : 0.0;
    return std::clamp(newZero + (code - zero) * ratio, 0.0, largestCode(to));
}

} // namespace Qx::Pixels
