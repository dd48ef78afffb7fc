#include "tools/qxhost/media/rows/FloatPicture.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

namespace Qx::Media {

namespace {

constexpr float largestOf16 = 65535;

float numberAt(const std::uint8_t* from, bool isSwapped)
{
    std::uint32_t bits = 0;
    std::memcpy(&bits, from, sizeof bits);
    return std::bit_cast<float>(isSwapped ? __builtin_bswap32(bits) : bits);
}

/// The nearest number of IEEE 754's binary16, of a number from 0 to 1.
float nearestHalf(float number)
{
    constexpr float leastNormal = 0x1p-14F;
    constexpr float leastStep = 0x1p-24F;
    if (number < leastNormal) {
        return std::nearbyint(number / leastStep) * leastStep;
    }
    constexpr std::uint32_t cut = 13; // digits that binary32 has more
    const auto bits = std::bit_cast<std::uint32_t>(number);
    const std::uint32_t odd = bits >> cut & 1U;
    return std::bit_cast<float>((bits + (1U << (cut - 1)) - 1 + odd) >> cut << cut);
}

template <class Code>
void scaleRow(const std::uint8_t* from, std::uint8_t* to, int width, float largestCode, bool asHalves)
{
    for (int x = 0; x < width; ++x) {
        Code code = 0;
        std::memcpy(&code, from + static_cast<std::size_t>(x) * sizeof code, sizeof code);
        const float exact = static_cast<float>(code) / largestCode;
        const float number = asHalves ? nearestHalf(exact) : exact;
        std::memcpy(to + static_cast<std::size_t>(x) * sizeof number, &number, sizeof number);
    }
}

} // namespace

AVPixelFormat codesOfFloats(AVPixelFormat format)
{
    switch (format) {
    case AV_PIX_FMT_GBRPF32LE:
    case AV_PIX_FMT_GBRPF32BE:
        return AV_PIX_FMT_GBRP16;
    case AV_PIX_FMT_GBRAPF32LE:
    case AV_PIX_FMT_GBRAPF32BE:
        return AV_PIX_FMT_GBRAP16;
    case AV_PIX_FMT_GRAYF32LE:
    case AV_PIX_FMT_GRAYF32BE:
        return AV_PIX_FMT_GRAY16;
    default:
        return AV_PIX_FMT_NONE;
    }
}

FramePtr codesFrom(const AVFrame& floats, ClippedNumbers& clipped)
{
    const auto format = static_cast<AVPixelFormat>(floats.format);
    const bool isSwapped = (av_pix_fmt_desc_get(format)->flags & AV_PIX_FMT_FLAG_BE) != 0;
    FramePtr codes(av_frame_alloc());
    if (!codes) {
        return nullptr;
    }
    codes->format = codesOfFloats(format);
    codes->width = floats.width;
    codes->height = floats.height;
    if (av_frame_get_buffer(codes.get(), 0) < 0 || av_frame_copy_props(codes.get(), &floats) < 0) {
        return nullptr;
    }
    codes->color_range = AVCOL_RANGE_JPEG;
    bool isClipped = false;
    for (int plane = 0; plane < av_pix_fmt_count_planes(format); ++plane) {
        for (int y = 0; y < floats.height; ++y) {
            const std::uint8_t* from = floats.data[plane] + std::ptrdiff_t{y} * floats.linesize[plane];
            auto* to = reinterpret_cast<std::uint16_t*>(codes->data[plane] +
                                                        std::ptrdiff_t{y} * codes->linesize[plane]);
            for (int x = 0; x < floats.width; ++x) {
                const float number = numberAt(from + std::ptrdiff_t{x} * 4, isSwapped);
                if (!(number >= 0 && number <= 1)) {
                    isClipped = true;
                    clipped.least = std::min(clipped.least, number);
                    clipped.greatest = std::max(clipped.greatest, number);
                }
                // What is no number is black.
                const float within = number > 0 ? std::min(number, 1.0F) : 0.0F;
                to[x] = static_cast<std::uint16_t>(std::lround(within * largestOf16));
            }
        }
    }
    clipped.pictures += isClipped ? 1 : 0;
    return codes;
}

void floatsFrom(const AVFrame& codes, AVFrame& floats, bool asHalves)
{
    const AVPixFmtDescriptor* format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(codes.format));
    const bool isWide = format->comp[0].depth > 8;
    const float largestCode = isWide ? largestOf16 : 255.0F;
    for (int plane = 0; plane < av_pix_fmt_count_planes(static_cast<AVPixelFormat>(codes.format)); ++plane) {
        for (int y = 0; y < codes.height; ++y) {
            const std::uint8_t* from = codes.data[plane] + std::ptrdiff_t{y} * codes.linesize[plane];
            std::uint8_t* to = floats.data[plane] + std::ptrdiff_t{y} * floats.linesize[plane];
            isWide ? scaleRow<std::uint16_t>(from, to, codes.width, largestCode, asHalves)
                   : scaleRow<std::uint8_t>(from, to, codes.width, largestCode, asHalves);
        }
    }
}

} // namespace Qx::Media
