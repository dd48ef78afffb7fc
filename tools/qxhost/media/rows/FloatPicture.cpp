#include "tools/qxhost/media/rows/FloatPicture.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
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

/// The nearest number of IEEE 754's binary16; the largest, not infinity, of one beyond these.
float nearestHalf(float number)
{
    constexpr float leastNormal = 0x1p-14F;
    constexpr float leastStep = 0x1p-24F;
    constexpr float largest = 65504;
    if (!(std::abs(number) < largest)) {
        return std::copysign(largest, number);
    }
    if (std::abs(number) < leastNormal) {
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

std::string clippedText(const ClippedNumbers& clipped)
{
    if (clipped.pictures == 0) {
        return {};
    }
    std::array<char, 128> span{};
    std::snprintf(span.data(), span.size(), "from %g to %g", static_cast<double>(clipped.least),
                  static_cast<double>(clipped.greatest));
    return std::to_string(clipped.pictures) + (clipped.pictures == 1 ? " frame has" : " frames have") +
           " values beyond 0 and 1 (" + span.data() + "), which are clipped";
}

bool isOfFloats(const AVFrame& picture)
{
    return codesOfFloats(static_cast<AVPixelFormat>(picture.format)) != AV_PIX_FMT_NONE;
}

namespace {

/// Grey as red, green and blue that are alike, which share its memory. Null if memory lacks.
FramePtr inRgb(const AVFrame& grey)
{
    FramePtr rgb(av_frame_clone(&grey));
    if (!rgb) {
        return nullptr;
    }
    rgb->format = grey.format == AV_PIX_FMT_GRAYF32BE ? AV_PIX_FMT_GBRPF32BE : AV_PIX_FMT_GBRPF32LE;
    for (std::size_t plane = 1; plane < 3; ++plane) {
        // A reference each, so that nobody takes a plane for the only one there and writes on it.
        rgb->buf[plane] = av_buffer_ref(rgb->buf[0]);
        if (rgb->buf[plane] == nullptr) {
            return nullptr;
        }
        rgb->data[plane] = rgb->data[0];
        rgb->linesize[plane] = rgb->linesize[0];
    }
    return rgb;
}

/// A number as a code, as far as one holds it. Returns whether it does.
bool takeCode(float number, std::uint16_t& code, ClippedNumbers& clipped)
{
    const bool isHeld = number >= 0 && number <= 1;
    if (!isHeld) {
        clipped.least = std::min(clipped.least, number);
        clipped.greatest = std::max(clipped.greatest, number);
    }
    // What is no number is black.
    const float within = number > 0 ? std::min(number, 1.0F) : 0.0F;
    code = static_cast<std::uint16_t>(std::lround(within * largestOf16));
    return isHeld;
}

void freeFloats(void* /*opaque*/, std::uint8_t* data)
{
    FramePtr frame(reinterpret_cast<AVFrame*>(data));
}

/// Has the picture of codes hold a reference to that of floats. Returns false if memory lacks.
bool keepFloats(const AVFrame& floats, AVFrame& codes)
{
    FramePtr kept(av_frame_clone(&floats));
    if (!kept) {
        return false;
    }
    av_buffer_unref(&codes.opaque_ref);
    codes.opaque_ref = av_buffer_create(reinterpret_cast<std::uint8_t*>(kept.get()), sizeof(AVFrame),
                                        freeFloats, nullptr, AV_BUFFER_FLAG_READONLY);
    if (codes.opaque_ref != nullptr) {
        static_cast<void>(kept.release()); // the buffer has it
    }
    return codes.opaque_ref != nullptr;
}

/// The place of a component in a pixel of A R G B, of the planes of FFmpeg's RGB: green, blue, red, alpha.
constexpr std::array<std::size_t, 4> placeOfPlane{2, 3, 1, 0};

} // namespace

const AVFrame* floatsOf(const AVFrame& codes)
{
    const auto* floats = codes.opaque_ref != nullptr && codes.opaque_ref->size == sizeof(AVFrame)
                             ? reinterpret_cast<const AVFrame*>(codes.opaque_ref->data)
                             : nullptr;
    const bool isTheirs = floats != nullptr &&
                          codesOfFloats(static_cast<AVPixelFormat>(floats->format)) == codes.format &&
                          floats->width == codes.width && floats->height == codes.height;
    return isTheirs ? floats : nullptr;
}

bool hasFloatPlanes(const AVFrame& picture)
{
    return floatsOf(picture) != nullptr || isOfFloats(picture) || picture.format == AV_PIX_FMT_GBRP16 ||
           picture.format == AV_PIX_FMT_GBRAP16;
}

void forgetFloats(AVFrame& codes)
{
    av_buffer_unref(&codes.opaque_ref);
}

void placeFloats(const AVFrame& codes, void* rows, std::ptrdiff_t pitch)
{
    const AVFrame* floats = isOfFloats(codes) ? &codes : floatsOf(codes);
    const AVFrame& from = floats != nullptr ? *floats : codes;
    const AVPixFmtDescriptor& format = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(from.format));
    const bool isSwapped = floats != nullptr && (format.flags & AV_PIX_FMT_FLAG_BE) != 0;
    const int planes = av_pix_fmt_count_planes(static_cast<AVPixelFormat>(from.format));
    for (int y = 0; y < from.height; ++y) {
        auto* row = reinterpret_cast<float*>(static_cast<std::byte*>(rows) + y * pitch);
        for (std::size_t plane = 0; plane < placeOfPlane.size(); ++plane) {
            const bool isThere = plane < static_cast<std::size_t>(planes);
            const std::uint8_t* line =
                isThere ? from.data[plane] + std::ptrdiff_t{y} * from.linesize[plane] : nullptr;
            for (int x = 0; x < from.width; ++x) {
                float number = 1;
                if (isThere && floats != nullptr) {
                    number = numberAt(line + std::ptrdiff_t{x} * 4, isSwapped);
                } else if (isThere) {
                    std::uint16_t code = 0;
                    std::memcpy(&code, line + std::ptrdiff_t{x} * 2, sizeof code);
                    number = static_cast<float>(code) / largestOf16;
                }
                row[4 * static_cast<std::size_t>(x) + placeOfPlane.at(plane)] =
                    std::isnan(number) ? 0.0F : number;
            }
        }
    }
}

void codesFrom(const FloatRows& from, void* rows, std::ptrdiff_t pitch, ClippedNumbers& clipped)
{
    bool isHeld = true;
    for (int y = 0; y < from.height; ++y) {
        const auto* numbers =
            reinterpret_cast<const float*>(static_cast<const std::byte*>(from.rows) + y * from.pitch);
        auto* codes = reinterpret_cast<std::uint16_t*>(static_cast<std::byte*>(rows) + y * pitch);
        for (std::size_t i = 0; i < 4 * static_cast<std::size_t>(from.width); ++i) {
            isHeld = takeCode(numbers[i], codes[i], clipped) && isHeld;
        }
    }
    clipped.pictures += isHeld ? 0 : 1;
}

void planesFrom(const FloatRows& from, AVFrame& floats, bool asHalves)
{
    const int planes = av_pix_fmt_count_planes(static_cast<AVPixelFormat>(floats.format));
    for (int y = 0; y < from.height; ++y) {
        const auto* numbers =
            reinterpret_cast<const float*>(static_cast<const std::byte*>(from.rows) + y * from.pitch);
        for (int plane = 0; plane < planes; ++plane) {
            auto* line =
                reinterpret_cast<float*>(floats.data[plane] + std::ptrdiff_t{y} * floats.linesize[plane]);
            const std::size_t place = placeOfPlane.at(static_cast<std::size_t>(plane));
            for (int x = 0; x < from.width; ++x) {
                const float number = numbers[4 * static_cast<std::size_t>(x) + place];
                line[x] = asHalves ? nearestHalf(number) : number;
            }
        }
    }
}

FramePtr codesFrom(const AVFrame& floats, ClippedNumbers& clipped, bool keepsFloats)
{
    const auto format = static_cast<AVPixelFormat>(floats.format);
    if (av_pix_fmt_count_planes(format) == 1) {
        const FramePtr rgb = inRgb(floats);
        return rgb ? codesFrom(*rgb, clipped, keepsFloats) : nullptr;
    }
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
    if (keepsFloats && !keepFloats(floats, *codes)) {
        return nullptr;
    }
    bool isClipped = false;
    for (int plane = 0; plane < av_pix_fmt_count_planes(format); ++plane) {
        for (int y = 0; y < floats.height; ++y) {
            const std::uint8_t* from = floats.data[plane] + std::ptrdiff_t{y} * floats.linesize[plane];
            auto* to = reinterpret_cast<std::uint16_t*>(codes->data[plane] +
                                                        std::ptrdiff_t{y} * codes->linesize[plane]);
            for (int x = 0; x < floats.width; ++x) {
                const float number = numberAt(from + std::ptrdiff_t{x} * 4, isSwapped);
                isClipped = !takeCode(number, to[x], clipped) || isClipped;
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
