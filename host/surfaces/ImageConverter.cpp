#include "platform/ImageConverter.h"

#include "host/surfaces/FormatTable.h"
#include "host/surfaces/RowGeometry.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string_view>

namespace {

using Qx::Host::RowGeometry;
using Qx::Image::Surface;

/// Where in four components in memory Y0, Cb, Y1 and Cr lie.
using Places = std::array<std::uint8_t, 4>;

constexpr Places inOrder{0, 1, 2, 3};

/// The intermediate row of every conversion: Y0 Cb Y1 Cr in 16 bits; a code of fewer bits has the upper ones.
/// Reading loses nothing, so codes are rounded once, when they are written.
struct WideRow
{
    std::uint16_t* components;
    std::size_t pairs;
};

std::uint16_t load16(const std::byte* from)
{
    std::uint16_t value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

/// Rounded to the nearest code of that many bits, halves up, and clamped.
template <unsigned bits>
unsigned narrowed(std::uint16_t value)
{
    constexpr unsigned shift = 16 - bits;
    return std::min((value + (1U << (shift - 1))) >> shift, (1U << bits) - 1);
}

void readBytes(const std::byte* from, WideRow to, const Places& places)
{
    for (std::size_t i = 0; i < to.pairs * 4; i += 4) {
        for (std::size_t c = 0; c < 4; ++c) {
            to.components[i + c] =
                static_cast<std::uint16_t>(std::to_integer<unsigned>(from[i + places[c]]) << 8);
        }
    }
}

void writeBytes(WideRow from, std::byte* to, const Places& places)
{
    for (std::size_t i = 0; i < from.pairs * 4; i += 4) {
        for (std::size_t c = 0; c < 4; ++c) {
            to[i + places[c]] = static_cast<std::byte>(narrowed<8>(from.components[i + c]));
        }
    }
}

void readWords(const std::byte* from, WideRow to, const Places& places)
{
    for (std::size_t i = 0; i < to.pairs * 4; i += 4) {
        for (std::size_t c = 0; c < 4; ++c) {
            to.components[i + c] = load16(from + 2 * (i + places[c]));
        }
    }
}

void writeWords(WideRow from, std::byte* to, const Places& places)
{
    for (std::size_t i = 0; i < from.pairs * 4; i += 4) {
        for (std::size_t c = 0; c < 4; ++c) {
            std::memcpy(to + 2 * (i + places[c]), &from.components[i + c], 2);
        }
    }
}

// v210: component i of a row is field i % 3 of word i / 3, and every pair of components comes chroma first.

void readV210(const std::byte* from, WideRow to, const Places& /*places*/)
{
    for (std::size_t i = 0; i < to.pairs * 4; ++i) {
        std::uint32_t word;
        std::memcpy(&word, from + i / 3 * 4, sizeof word);
        to.components[i ^ 1] = static_cast<std::uint16_t>((word >> i % 3 * 10 & 0x3FF) << 6);
    }
}

void writeV210(WideRow from, std::byte* to, const Places& /*places*/)
{
    const std::size_t components = from.pairs * 4;
    const std::size_t words = (components + 11) / 12 * 4; // whole groups of six pixels
    for (std::size_t w = 0; w < words; ++w) {
        std::uint32_t word = 0;
        for (std::size_t i = 3 * w; i < std::min(3 * w + 3, components); ++i) {
            word |= narrowed<10>(from.components[i ^ 1]) << i % 3 * 10;
        }
        std::memcpy(to + w * 4, &word, sizeof word);
    }
}

// M101: blocks of eight pairs, the upper eight bits of each component and then a byte a pair with the lower
// two.

constexpr std::size_t matroxPairs = 8;
constexpr std::size_t matroxBytes = 40;

void readM101(const std::byte* from, WideRow to, const Places& /*places*/)
{
    for (std::size_t pair = 0; pair < to.pairs; ++pair) {
        const std::byte* block = from + pair / matroxPairs * matroxBytes;
        const std::size_t place = pair % matroxPairs;
        const auto lower = std::to_integer<unsigned>(block[matroxPairs * 4 + place]);
        for (std::size_t c = 0; c < 4; ++c) {
            const auto upper = std::to_integer<unsigned>(block[place * 4 + c]);
            to.components[pair * 4 + c] = static_cast<std::uint16_t>(upper << 8 | (lower >> 2 * c & 3) << 6);
        }
    }
}

void writeM101(WideRow from, std::byte* to, const Places& /*places*/)
{
    std::memset(to, 0, (from.pairs + matroxPairs - 1) / matroxPairs * matroxBytes);
    for (std::size_t pair = 0; pair < from.pairs; ++pair) {
        std::byte* block = to + pair / matroxPairs * matroxBytes;
        const std::size_t place = pair % matroxPairs;
        for (std::size_t c = 0; c < 4; ++c) {
            const unsigned code = narrowed<10>(from.components[pair * 4 + c]);
            block[place * 4 + c] = static_cast<std::byte>(code >> 2);
            block[matroxPairs * 4 + place] |= static_cast<std::byte>((code & 3) << 2 * c);
        }
    }
}

/// How a row of 4:2:2 is read and written.
struct Layout
{
    void (*read)(const std::byte* from, WideRow to, const Places& places);
    void (*write)(WideRow from, std::byte* to, const Places& places);
    Places places = inOrder;

    friend bool operator==(const Layout&, const Layout&) = default;
};

/// Where the table's order, "Cb Y0 Cr Y1", has Y0, Cb, Y1 and Cr.
Places placesIn(const char* order)
{
    const std::string_view text(order);
    Places places{};
    std::size_t c = 0;
    for (const std::string_view component : {"Y0", "Cb", "Y1", "Cr"}) {
        constexpr std::size_t wordLength = 3; // with the blank
        places[c++] = static_cast<std::uint8_t>(text.find(component) / wordLength);
    }
    return places;
}

std::optional<Layout> layoutOf(const Qx::Image::Core::Data& data)
{
    const Qx::Host::FormatInfo* info = Qx::Host::findFormat(data.format);
    if (info == nullptr || info->kind != Qx::Host::FormatKind::YCrCb ||
        info->planes != Qx::Host::Planes::One) {
        return std::nullopt;
    }
    const Qx::Host::RowLayout& rows = info->layout(data.bitsPerComponent);
    if (rows.blockBytes == 0) {
        return std::nullopt;
    }
    switch (rows.packing) {
    case Qx::Host::Packing::Samples:
        return rows.texels == iGPUImage::eARGB16 ? Layout{readWords, writeWords, placesIn(info->order)}
                                                 : Layout{readBytes, writeBytes, placesIn(info->order)};
    case Qx::Host::Packing::ThreeInWord:
        return Layout{readV210, writeV210};
    case Qx::Host::Packing::UpperThenLower:
        return Layout{readM101, writeM101};
    case Qx::Host::Packing::TwoTenTenTen:
        break; // of RGB alone
    }
    return std::nullopt;
}

/// Whether the rows of both descriptions hold the same bytes.
bool sameLayout(const Surface& from, const Surface& to)
{
    const std::optional<Layout> layout = layoutOf(from.getData());
    if (layout) {
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

/// The mapped rows of a surface's host image. Empty if the image is smaller than the description.
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
    const std::optional<Layout> read = layoutOf(from.getData());
    const std::optional<Layout> write = layoutOf(to.getData());
    const bool copies = sameLayout(from, to);
    const bool flip = from.isTopDown() != to.isTopDown();
    if (!from.getHostImage() || from.getWidth() != to.getWidth() || from.getHeight() != to.getHeight() ||
        (!copies && !(read && write)) || (flip && !isOnePlane(from))) {
        return false;
    }
    const std::size_t pairs = (std::size_t{from.getWidth()} + 1) / 2;
    const std::unique_ptr<std::uint16_t[]> wide(copies ? nullptr
                                                       : new (std::nothrow) std::uint16_t[pairs * 4]);
    Surface target = to;
    if (target.getHostImage() == from.getHostImage()) {
        target.setHostImage(nullptr); // copies of a surface share their pixels
    }
    if ((!copies && !wide) || (!target.getHostImage() && !target.allocateHost())) {
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
    for (std::size_t y = 0; y < rows; ++y) {
        const std::byte* inputRow = input.first + (flip ? rows - 1 - y : y) * input.pitch;
        std::byte* outputRow = output.first + y * output.pitch;
        if (copies) {
            std::memcpy(outputRow, inputRow, source->rowBytes);
        } else {
            read->read(inputRow, {wide.get(), pairs}, read->places);
            write->write({wide.get(), pairs}, outputRow, write->places);
        }
    }
    to = target;
    return true;
}
