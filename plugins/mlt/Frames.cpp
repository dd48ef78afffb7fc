#include "plugins/mlt/Frames.h"

#include "host/surfaces/FormatTable.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace Qx::Mlt {

namespace {

using Media::Matrix;
using Program::FrameForm;
using Sample = std::uint16_t;

struct PlaneRows
{
    std::array<std::uint8_t*, 4> begin{};
    std::array<int, 4> stride{};
};

PlaneRows planesOf(const Image& image)
{
    mlt_image_s described{};
    mlt_image_set_values(&described, image.data, image.format, image.width, image.height);
    PlaneRows planes;
    std::copy(std::begin(described.planes), std::end(described.planes), planes.begin.begin());
    std::copy(std::begin(described.strides), std::end(described.strides), planes.stride.begin());
    return planes;
}

std::size_t packedRowBytes(const Image& image)
{
    const auto width = static_cast<std::size_t>(image.width);
    return image.format == mlt_image_yuv422 ? width * 2 : width * 4;
}

template <class T>
T* rowAt(T* first, std::ptrdiff_t pitch, int row)
{
    return first + pitch * row;
}

/// One row of planes to Y0 Cb Y1 Cr.
void interleave(const Sample* y, const Sample* cb, const Sample* cr, Sample* packed, int width)
{
    for (int pair = 0; pair < width / 2; ++pair) {
        packed[4 * pair] = y[2 * pair];
        packed[4 * pair + 1] = cb[pair];
        packed[4 * pair + 2] = y[2 * pair + 1];
        packed[4 * pair + 3] = cr[pair];
    }
}

void separate(const Sample* packed, Sample* y, Sample* cb, Sample* cr, int width)
{
    for (int pair = 0; pair < width / 2; ++pair) {
        y[2 * pair] = packed[4 * pair];
        cb[pair] = packed[4 * pair + 1];
        y[2 * pair + 1] = packed[4 * pair + 2];
        cr[pair] = packed[4 * pair + 3];
    }
}

struct Copying
{
    const Image& image;
    PlaneRows planes;
    std::uint8_t* rows;
    std::ptrdiff_t pitch;
    bool toImage;

    void row(int number) const
    {
        std::uint8_t* const packed = rowAt(rows, pitch, number);
        const auto plane = [&](std::size_t n) {
            return rowAt(planes.begin[n], static_cast<std::ptrdiff_t>(planes.stride[n]), number);
        };
        if (image.format == mlt_image_yuv422p16) {
            auto* const y = reinterpret_cast<Sample*>(plane(0));
            auto* const cb = reinterpret_cast<Sample*>(plane(1));
            auto* const cr = reinterpret_cast<Sample*>(plane(2));
            auto* const pairs = reinterpret_cast<Sample*>(packed);
            toImage ? separate(pairs, y, cb, cr, image.width) : interleave(y, cb, cr, pairs, image.width);
        } else if (toImage) {
            std::memcpy(plane(0), packed, packedRowBytes(image));
        } else {
            std::memcpy(packed, plane(0), packedRowBytes(image));
        }
    }
};

int copySlice(int /*id*/, int index, int jobs, void* cookie)
{
    const auto& copying = *static_cast<const Copying*>(cookie);
    int first = 0;
    const int count = mlt_slices_size_slice(jobs, index, copying.image.height, &first);
    for (int row = first; row < first + count; ++row) {
        copying.row(row);
    }
    return 0;
}

void copy(Copying copying)
{
    // A slice of fewer rows takes longer to hand over than to copy.
    constexpr int fewestRows = 64;
    const int jobs = std::clamp(copying.image.height / fewestRows, 1, mlt_slices_count_normal());
    mlt_slices_run_normal(jobs, copySlice, &copying);
}

Matrix matrixOf(int colourSpace, int width)
{
    switch (colourSpace) {
    case 601:
    case 170:
    case 470:
        return Matrix::bt601;
    case 709:
        return Matrix::bt709;
    case 2020:
    case 2021:
        return Matrix::bt2020;
    default:
        return Media::matrixForWidth(width);
    }
}

} // namespace

mlt_image_format workingFormat(mlt_image_format asked)
{
    switch (asked) {
    case mlt_image_rgb:
    case mlt_image_rgba:
    case mlt_image_movit:
    case mlt_image_opengl_texture:
        return mlt_image_rgba;
    case mlt_image_none:
    case mlt_image_yuv422:
    case mlt_image_yuv420p:
        return mlt_image_yuv422;
    default:
        return mlt_image_yuv422p16; // this and what later versions add is deep
    }
}

int imageOf(mlt_frame frame, mlt_image_format asked, int width, int height, bool writable, Image& image)
{
    image = {nullptr, workingFormat(asked), width, height};
    const int error =
        mlt_frame_get_image(frame, &image.data, &image.format, &image.width, &image.height, writable ? 1 : 0);
    const bool isHalfPaired = image.format != mlt_image_rgba && image.width % 2 != 0;
    if (error == 0 && image.data != nullptr && isHalfPaired && frame->convert_image != nullptr) {
        return frame->convert_image(frame, &image.data, &image.format, mlt_image_rgba);
    }
    return error;
}

std::optional<FrameForm> formOf(const Image& image, mlt_frame frame, mlt_profile profile)
{
    FrameForm form;
    form.width = static_cast<unsigned>(image.width);
    form.height = static_cast<unsigned>(image.height);
    if (image.format == mlt_image_rgba) {
        form.format = {Host::findFormat(Qx::Image::RGBA), 8};
        return form;
    }
    const bool isPaired = image.format == mlt_image_yuv422 || image.format == mlt_image_yuv422p16;
    if (!isPaired || image.width % 2 != 0) {
        return std::nullopt;
    }
    mlt_properties properties = MLT_FRAME_PROPERTIES(frame);
    const int stated = mlt_properties_get_int(properties, "colorspace");
    form.format = {Host::findFormat(Qx::Image::YUY2), image.format == mlt_image_yuv422 ? 8U : 16U};
    form.matrix = matrixOf(stated != 0 || profile == nullptr ? stated : profile->colorspace, image.width);
    form.range =
        mlt_properties_get_int(properties, "full_range") != 0 ? Media::Range::full : Media::Range::video;
    return form;
}

FrameForm resultForm(FrameForm form)
{
    form.range = form.format.isYCrCb() ? Media::Range::video : form.range;
    return form;
}

int colourSpaceOf(Matrix matrix)
{
    switch (matrix) {
    case Matrix::bt601:
        return 601;
    case Matrix::bt709:
        break;
    case Matrix::bt2020:
        return 2020;
    }
    return 709;
}

void copyFrom(const Image& image, void* rows, std::ptrdiff_t pitch)
{
    copy({image, planesOf(image), static_cast<std::uint8_t*>(rows), pitch, false});
}

void copyTo(const Image& image, const void* rows, std::ptrdiff_t pitch)
{
    // Copying serves both ways; here it only reads the rows.
    copy({image, planesOf(image), static_cast<std::uint8_t*>(const_cast<void*>(rows)), pitch, true});
}

} // namespace Qx::Mlt
