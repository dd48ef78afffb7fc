#include "tools/qxhost/media/rows/ComponentRows.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

namespace Qx::Media {

namespace {

static_assert(std::endian::native == std::endian::little,
              "AVPixFmtDescriptor offsets are read as little-endian");

constexpr std::uint16_t swapped(std::uint16_t value)
{
    return static_cast<std::uint16_t>(value >> 8 | value << 8);
}

/// How a strided component lies in memory: one sample every `step` bytes.
struct Stride
{
    int step;
    int shift;
    bool bigEndian;
    unsigned mask;
};

template <int step>
void gather8(const std::uint8_t* from, std::uint8_t* to, int count)
{
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        to[i] = from[i * step];
    }
}

template <int step>
void scatter8(const std::uint8_t* from, std::uint8_t* to, int count)
{
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        to[i * step] = from[i];
    }
}

void gather8(const std::uint8_t* from, std::uint8_t* to, int count, int step)
{
    switch (step) {
    case 1:
        std::memcpy(to, from, static_cast<std::size_t>(count));
        break;
    case 2:
        gather8<2>(from, to, count);
        break;
    case 3:
        gather8<3>(from, to, count);
        break;
    case 4:
        gather8<4>(from, to, count);
        break;
    default:
        for (std::ptrdiff_t i = 0; i < count; ++i) {
            to[i] = from[i * step];
        }
    }
}

void scatter8(const std::uint8_t* from, std::uint8_t* to, int count, int step)
{
    switch (step) {
    case 1:
        std::memcpy(to, from, static_cast<std::size_t>(count));
        break;
    case 2:
        scatter8<2>(from, to, count);
        break;
    case 3:
        scatter8<3>(from, to, count);
        break;
    case 4:
        scatter8<4>(from, to, count);
        break;
    default:
        for (std::ptrdiff_t i = 0; i < count; ++i) {
            to[i * step] = from[i];
        }
    }
}

// Decoders align rows to at least 2 bytes, but raw video may sit at any address: memcpy reads it without
// faults and costs nothing where the compiler knows the target.
std::uint16_t loadWord(const std::uint8_t* from)
{
    std::uint16_t value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

template <int step, bool bigEndian>
void gather16(const std::uint8_t* from, std::uint16_t* to, int count, int shift, unsigned mask)
{
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        const std::uint16_t word = loadWord(from + i * step);
        const std::uint16_t value = bigEndian ? swapped(word) : word;
        to[i] = static_cast<std::uint16_t>((static_cast<unsigned>(value) >> shift) & mask);
    }
}

template <bool bigEndian>
void gather16(const std::uint8_t* from, std::uint16_t* to, int count, const Stride& stride)
{
    switch (stride.step) {
    case 2:
        gather16<2, bigEndian>(from, to, count, stride.shift, stride.mask);
        break;
    case 4:
        gather16<4, bigEndian>(from, to, count, stride.shift, stride.mask);
        break;
    case 6:
        gather16<6, bigEndian>(from, to, count, stride.shift, stride.mask);
        break;
    case 8:
        gather16<8, bigEndian>(from, to, count, stride.shift, stride.mask);
        break;
    default:
        for (std::ptrdiff_t i = 0; i < count; ++i) {
            const std::uint16_t word = loadWord(from + i * stride.step);
            const unsigned value = bigEndian ? swapped(word) : word;
            to[i] = static_cast<std::uint16_t>((value >> stride.shift) & stride.mask);
        }
    }
}

template <int step, bool bigEndian>
void scatter16(const std::uint16_t* from, std::uint8_t* to, int count, int shift)
{
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        const auto value = static_cast<std::uint16_t>(from[i] << shift);
        const std::uint16_t word = bigEndian ? swapped(value) : value;
        std::memcpy(to + i * step, &word, sizeof word);
    }
}

template <bool bigEndian>
void scatter16(const std::uint16_t* from, std::uint8_t* to, int count, const Stride& stride)
{
    switch (stride.step) {
    case 2:
        scatter16<2, bigEndian>(from, to, count, stride.shift);
        break;
    case 4:
        scatter16<4, bigEndian>(from, to, count, stride.shift);
        break;
    case 6:
        scatter16<6, bigEndian>(from, to, count, stride.shift);
        break;
    default:
        scatter16<8, bigEndian>(from, to, count, stride.shift);
    }
}

/// Three of four components at once, of pixels at any address. The compiler turns the loop into vector
/// shuffles, which GCC does only if samples are read one by one; after the last pixel's three the row may
/// end.
template <class Code>
void gatherColours(const std::uint8_t* from, const std::array<void*, 3>& to, int count)
{
    using Sample [[gnu::aligned(1), gnu::may_alias]] = Code;
    const auto* const pixels = reinterpret_cast<const Sample*>(from);
    auto* const __restrict red = static_cast<Code*>(to[0]);
    auto* const __restrict green = static_cast<Code*>(to[1]);
    auto* const __restrict blue = static_cast<Code*>(to[2]);
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        red[i] = pixels[4 * i];
        green[i] = pixels[4 * i + 1];
        blue[i] = pixels[4 * i + 2];
    }
}

/// The words R G B x of one pixel in the other order of bytes.
constexpr std::uint64_t swappedWords(std::uint64_t pixel)
{
    constexpr std::uint64_t lower = 0x00FF00FF00FF00FF;
    return (pixel & lower) << 8 | (pixel >> 8 & lower);
}

/// Pixels of four words become pixels of three. Each is stored with its fourth word, which the next replaces;
/// that of the last is neither read nor stored.
template <bool bigEndian>
void dropFourth(const std::uint16_t* from, std::uint8_t* to, int count)
{
    constexpr std::ptrdiff_t size = 6;
    std::uint64_t pixel = 0;
    const std::ptrdiff_t last = count - 1;
    for (std::ptrdiff_t i = 0; i < last; ++i) {
        std::memcpy(&pixel, from + i * 4, sizeof pixel);
        pixel = bigEndian ? swappedWords(pixel) : pixel;
        std::memcpy(to + i * size, &pixel, sizeof pixel);
    }
    if (last >= 0) {
        std::memcpy(&pixel, from + last * 4, size);
        pixel = bigEndian ? swappedWords(pixel) : pixel;
        std::memcpy(to + last * size, &pixel, size);
    }
}

bool isGreyFormat(const AVPixFmtDescriptor& desc)
{
    return desc.nb_components <= 2 && !(desc.flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL));
}

int componentIndex(int component, bool grey)
{
    return grey ? (component == 3 ? 1 : 0) : component;
}

} // namespace

std::string ComponentRows::unreadable(AVPixelFormat format)
{
    const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(format);
    if (!desc) {
        return "not known to this FFmpeg";
    }
    if (desc->flags & AV_PIX_FMT_FLAG_HWACCEL) {
        return "frames in a hardware decoder's memory";
    }
    if (desc->flags & AV_PIX_FMT_FLAG_BAYER) {
        return "a camera's raw mosaic, which needs developing first";
    }
    if (desc->flags & AV_PIX_FMT_FLAG_FLOAT) {
        return "floating-point samples, usually linear light, which needs grading first";
    }
    if (format == AV_PIX_FMT_XYZ12LE || format == AV_PIX_FMT_XYZ12BE) {
        return "CIE XYZ, which needs a display transform first";
    }
    if (format == AV_PIX_FMT_UYYVYY411) {
        return "a packed 4:1:1 order that is not handled";
    }
    for (int i = 0; i < desc->nb_components; ++i) {
        if (desc->comp[i].depth > 16) {
            return "samples of more than 16 bits";
        }
    }
    return {};
}

bool ComponentRows::writable(AVPixelFormat format)
{
    const AVPixFmtDescriptor* desc = av_pix_fmt_desc_get(format);
    if (!desc || !unreadable(format).empty() || isGreyFormat(*desc) ||
        (desc->flags & (AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_BITSTREAM))) {
        return false;
    }
    for (int i = 0; i < desc->nb_components; ++i) {
        const AVComponentDescriptor& c = desc->comp[i];
        // Samples that share their bytes with others (rgb565, x2rgb10) would need merging.
        const bool byte = c.depth == 8 && c.shift == 0;
        const bool word =
            c.depth > 8 && c.step % 2 == 0 && c.step <= 8 && desc->comp[0].depth == c.depth &&
            !(desc->nb_components >= 3 && c.step == 4 && desc->comp[0].plane == desc->comp[2].plane);
        if (!byte && !word) {
            return false;
        }
    }
    return true;
}

ComponentRows::ComponentRows(AVPixelFormat format)
    : format_(format), desc_(av_pix_fmt_desc_get(format)), grey_(isGreyFormat(*desc_))
{
    rgb_ = (desc_->flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL)) != 0;
    alpha_ = (desc_->flags & AV_PIX_FMT_FLAG_ALPHA) != 0;
    bits_ = 8;
    for (int i = 0; i < desc_->nb_components; ++i) {
        bits_ = std::max(bits_, desc_->comp[i].depth);
    }
}

bool ComponentRows::isStrided(int component) const
{
    const AVComponentDescriptor& c = desc_->comp[component];
    const bool byteSized = bits_ == 8 ? c.shift == 0 && c.depth == 8 : c.shift + c.depth <= 16;
    return byteSized && !(desc_->flags & (AV_PIX_FMT_FLAG_BITSTREAM | AV_PIX_FMT_FLAG_PAL));
}

const void* ComponentRows::direct(const AVFrame& frame, int component, int row) const
{
    const int index = componentIndex(component, grey_);
    const AVComponentDescriptor& c = desc_->comp[index];
    const int size = wide() ? 2 : 1;
    const bool plain = isStrided(index) && c.step == size && c.shift == 0 &&
                       !(wide() && (desc_->flags & AV_PIX_FMT_FLAG_BE));
    if (!plain) {
        return nullptr;
    }
    const std::uint8_t* start =
        frame.data[c.plane] + static_cast<std::ptrdiff_t>(row) * frame.linesize[c.plane] + c.offset;
    return wide() && reinterpret_cast<std::uintptr_t>(start) % 2 != 0 ? nullptr : start;
}

void ComponentRows::read(const AVFrame& frame, int component, int row, int first, int count,
                         void* codes) const
{
    if (desc_->flags & AV_PIX_FMT_FLAG_PAL) {
        readPalette(frame, component, row, first, count, static_cast<std::uint8_t*>(codes));
        return;
    }
    const int index = componentIndex(component, grey_);
    if (!isStrided(index)) {
        readBits(frame, index, row, first, count, codes);
        return;
    }
    const AVComponentDescriptor& c = desc_->comp[index];
    const std::uint8_t* from = frame.data[c.plane] +
                               static_cast<std::ptrdiff_t>(row) * frame.linesize[c.plane] + c.offset +
                               static_cast<std::ptrdiff_t>(first) * c.step;
    if (!wide()) {
        gather8(from, static_cast<std::uint8_t*>(codes), count, c.step);
        return;
    }
    const Stride stride{c.step, c.shift, (desc_->flags & AV_PIX_FMT_FLAG_BE) != 0, (1U << c.depth) - 1};
    auto* to = static_cast<std::uint16_t*>(codes);
    stride.bigEndian ? gather16<true>(from, to, count, stride) : gather16<false>(from, to, count, stride);
}

void ComponentRows::readColours(const AVFrame& frame, int row, int first, int count,
                                const std::array<void*, 3>& codes) const
{
    const std::uint8_t* from = frame.data[0] + static_cast<std::ptrdiff_t>(row) * frame.linesize[0] +
                               static_cast<std::ptrdiff_t>(first) * (wide() ? 8 : 4);
    wide() ? gatherColours<std::uint16_t>(from, codes, count)
           : gatherColours<std::uint8_t>(from, codes, count);
}

void ComponentRows::readPalette(const AVFrame& frame, int component, int row, int first, int count,
                                std::uint8_t* codes) const
{
    // A palette entry is a native-endian 0xAARRGGBB word.
    static constexpr std::array<int, 4> shifts{16, 8, 0, 24};
    std::array<std::uint8_t, 256> table{};
    for (std::size_t i = 0; i < table.size(); ++i) {
        std::uint32_t entry;
        std::memcpy(&entry, frame.data[1] + i * 4, sizeof entry);
        table[i] = static_cast<std::uint8_t>(entry >> shifts[static_cast<std::size_t>(component)]);
    }
    const std::uint8_t* from = frame.data[0] + static_cast<std::ptrdiff_t>(row) * frame.linesize[0] + first;
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        codes[i] = table[from[i]];
    }
}

void ComponentRows::readBits(const AVFrame& frame, int component, int row, int first, int count,
                             void* codes) const
{
    std::array<const std::uint8_t*, 4> planes{frame.data[0], frame.data[1], frame.data[2], frame.data[3]};
    constexpr int chunk = 256;
    std::array<std::uint16_t, chunk> words{};
    const unsigned largest = (1U << desc_->comp[component].depth) - 1;
    const unsigned wanted = (1U << bits_) - 1;
    const bool whiteIsZero = format_ == AV_PIX_FMT_MONOWHITE;
    for (int done = 0; done < count; done += chunk) {
        const int part = std::min(chunk, count - done);
        av_read_image_line2(words.data(), planes.data(), frame.linesize, desc_, first + done, row, component,
                            part, 0, 2);
        for (int i = 0; i < part; ++i) {
            const unsigned word = whiteIsZero ? largest - words[static_cast<std::size_t>(i)]
                                              : words[static_cast<std::size_t>(i)];
            const unsigned code = (word * wanted + largest / 2) / largest;
            if (wide()) {
                static_cast<std::uint16_t*>(codes)[done + i] = static_cast<std::uint16_t>(code);
            } else {
                static_cast<std::uint8_t*>(codes)[done + i] = static_cast<std::uint8_t>(code);
            }
        }
    }
}

void ComponentRows::write(AVFrame& frame, int component, int row, int first, int count,
                          const void* codes) const
{
    const AVComponentDescriptor& c = desc_->comp[component];
    std::uint8_t* to = frame.data[c.plane] + static_cast<std::ptrdiff_t>(row) * frame.linesize[c.plane] +
                       c.offset + static_cast<std::ptrdiff_t>(first) * c.step;
    if (!wide()) {
        scatter8(static_cast<const std::uint8_t*>(codes), to, count, c.step);
        return;
    }
    const Stride stride{c.step, c.shift, (desc_->flags & AV_PIX_FMT_FLAG_BE) != 0, 0};
    const auto* from = static_cast<const std::uint16_t*>(codes);
    stride.bigEndian ? scatter16<true>(from, to, count, stride) : scatter16<false>(from, to, count, stride);
}

bool ComponentRows::writePixelsOfFour(AVFrame& frame, int row, int count, const std::uint16_t* pixels) const
{
    std::uint8_t* to = frame.data[0] + static_cast<std::ptrdiff_t>(row) * frame.linesize[0];
    switch (format_) {
    case AV_PIX_FMT_RGB48BE:
        dropFourth<true>(pixels, to, count);
        return true;
    case AV_PIX_FMT_RGB48LE:
        dropFourth<false>(pixels, to, count);
        return true;
    default:
        return false;
    }
}

} // namespace Qx::Media
