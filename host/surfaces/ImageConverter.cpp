#include "platform/ImageConverter.h"

#include "host/surfaces/FormatTable.h"
#include "host/surfaces/RowGeometry.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

namespace {

using Qx::Host::RowGeometry;
using Qx::Image::Format;
using Qx::Image::Surface;

/// The layouts of 4:2:2 between which pixels are converted here.
enum class Layout
{
    Other,
    Packed8,  ///< Y0 Cb Y1 Cr, bytes
    Packed16, ///< Y0 Cb Y1 Cr, 16-bit words
    Words10,  ///< v210
};

Layout layoutOf(const Qx::Image::Core::Data& data)
{
    switch (data.format) {
    case Qx::Image::YUY2:
    case Qx::Image::YUYV:
        return data.bitsPerComponent > 8 ? Layout::Packed16 : Layout::Packed8;
    case Qx::Image::Y216:
    case Qx::Image::V216:
        return Layout::Packed16;
    case Qx::Image::V210:
        return Layout::Words10;
    default:
        return Layout::Other;
    }
}

std::uint16_t load16(const std::byte* from)
{
    std::uint16_t value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

void store(std::byte* to, std::size_t i, std::uint8_t value)
{
    to[i] = static_cast<std::byte>(value);
}

void store(std::byte* to, std::size_t i, std::uint16_t value)
{
    std::memcpy(to + 2 * i, &value, sizeof value);
}

/// To the nearest 8-bit code, halves up: 8 bits are the upper ones of any deeper code.
std::uint8_t from10To8(unsigned code)
{
    return static_cast<std::uint8_t>(std::min((code + 2) >> 2, 255U));
}

std::uint16_t from10To16(unsigned code)
{
    return static_cast<std::uint16_t>(code << 6);
}

/// Unpacks `pairs` pixel pairs of a v210 row. Component i of a row is field i % 3 of word i / 3, and every
/// pair of components comes chroma first.
template <class Sample, Sample convert(unsigned)>
void unpackV210(const std::byte* from, std::byte* to, std::size_t pairs)
{
    for (std::size_t i = 0; i < pairs * 4; ++i) {
        std::uint32_t word;
        std::memcpy(&word, from + i / 3 * 4, sizeof word);
        store(to, i ^ 1, convert(word >> i % 3 * 10 & 0x3FF));
    }
}

void widen(const std::byte* from, std::byte* to, std::size_t pairs)
{
    for (std::size_t i = 0; i < pairs * 4; ++i) {
        store(to, i, static_cast<std::uint16_t>(std::to_integer<unsigned>(from[i]) << 8));
    }
}

void narrow(const std::byte* from, std::byte* to, std::size_t pairs)
{
    for (std::size_t i = 0; i < pairs * 4; ++i) {
        store(to, i, static_cast<std::uint8_t>(std::min((load16(from + 2 * i) + 128U) >> 8, 255U)));
    }
}

using RowConversion = void (*)(const std::byte* from, std::byte* to, std::size_t pairs);

RowConversion conversionBetween(Layout from, Layout to)
{
    if (from == Layout::Words10 && to == Layout::Packed8) {
        return unpackV210<std::uint8_t, from10To8>;
    }
    if (from == Layout::Words10 && to == Layout::Packed16) {
        return unpackV210<std::uint16_t, from10To16>;
    }
    if (from == Layout::Packed8 && to == Layout::Packed16) {
        return widen;
    }
    if (from == Layout::Packed16 && to == Layout::Packed8) {
        return narrow;
    }
    return nullptr;
}

/// Whether the rows of both descriptions hold the same bytes.
bool sameLayout(const Surface& from, const Surface& to)
{
    const Layout layout = layoutOf(from.getData());
    if (layout != Layout::Other) {
        return layout == layoutOf(to.getData());
    }
    const auto* info = Qx::Host::findFormat(from.getDataFormat());
    return info != nullptr && from.getDataFormat() == to.getDataFormat() &&
           from.getBitsPerComponent() == to.getBitsPerComponent();
}

bool isOnePlane(const Surface& surface)
{
    const auto* info = Qx::Host::findFormat(surface.getDataFormat());
    return info != nullptr && info->planes == Qx::Host::Planes::One;
}

/// The rows of a surface in memory, as its host image has them. Empty when the image is smaller than the
/// description.
struct MappedRows
{
    std::byte* first = nullptr;
    std::size_t pitch = 0;

    MappedRows(const Surface& surface, const RowGeometry& geometry, iHostImage::eAccess access)
    {
        const Qx::Ptr<iHostImage> image = surface.getHostImage();
        const auto imageRows = static_cast<std::uint64_t>(image->getSize().y);
        pitch = image->getPitch();
        if (imageRows >= geometry.rows && pitch >= geometry.rowBytes) {
            first = static_cast<std::byte*>(image->map(access));
        }
    }
};

} // namespace

bool ImageConverter::convert(const Surface& from, Surface& to)
{
    const RowConversion convertRow = conversionBetween(layoutOf(from.getData()), layoutOf(to.getData()));
    const bool flip = from.isTopDown() != to.isTopDown();
    if (!from.getHostImage() || from.getWidth() != to.getWidth() || from.getHeight() != to.getHeight() ||
        (convertRow == nullptr && !sameLayout(from, to)) || (flip && !isOnePlane(from))) {
        return false;
    }
    Surface target = to;
    if (target.getHostImage() == from.getHostImage()) {
        target.setHostImage(nullptr); // copies of a surface share their pixels
    }
    if (!target.getHostImage() && !target.allocateHost()) {
        return false;
    }
    const std::optional<RowGeometry> source = Qx::Host::rowGeometryOf(from.getData());
    const std::optional<RowGeometry> wanted = Qx::Host::rowGeometryOf(target.getData());
    if (!source || !wanted) {
        return false;
    }
    const MappedRows input(from, *source, iHostImage::Read);
    const MappedRows output(target, *wanted, iHostImage::Write);
    if (input.first == nullptr || output.first == nullptr) {
        return false;
    }
    const std::size_t rows = wanted->rows;
    const std::size_t pairs = (std::size_t{from.getWidth()} + 1) / 2;
    for (std::size_t y = 0; y < rows; ++y) {
        const std::byte* inputRow = input.first + (flip ? rows - 1 - y : y) * input.pitch;
        std::byte* outputRow = output.first + y * output.pitch;
        if (convertRow != nullptr) {
            convertRow(inputRow, outputRow, pairs);
        } else {
            std::memcpy(outputRow, inputRow, source->rowBytes);
        }
    }
    to = target;
    return true;
}
