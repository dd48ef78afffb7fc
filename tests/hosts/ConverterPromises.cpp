#include "Promise.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

namespace Qx::HostTests {

namespace {

using Image::Surface;

/// A surface of one row with these bytes.
Surface rowOf(const Kit& kit, unsigned width, Image::Format format, unsigned short bits,
              const std::vector<unsigned char>& bytes)
{
    Surface surface(width, 1, format, false, bits, 0, 0);
    EXPECT_TRUE(kit.services.allocateHost(surface));
    void* const memory = surface.getHostImage() ? surface.getHostImage()->map(iHostImage::Write) : nullptr;
    EXPECT_NE(memory, nullptr);
    if (memory != nullptr) {
        std::memcpy(memory, bytes.data(), bytes.size());
    }
    return surface;
}

std::vector<unsigned char> words(std::initializer_list<std::uint16_t> codes)
{
    std::vector<unsigned char> bytes(codes.size() * 2);
    std::memcpy(bytes.data(), codes.begin(), bytes.size());
    return bytes;
}

/// The first bytes of the row that a conversion makes; none if it fails.
std::vector<unsigned char> convertedRow(const Kit& kit, const Surface& from, Image::Format format,
                                        unsigned short bits, std::size_t bytes)
{
    Surface to(from.getWidth(), 1, format, false, bits, 0, 0);
    EXPECT_TRUE(kit.services.convertImage(from, to));
    const void* const memory = to.getHostImage() ? to.getHostImage()->map(iHostImage::Read) : nullptr;
    EXPECT_NE(memory, nullptr) << "memory is allocated for the result";
    if (memory == nullptr) {
        return {};
    }
    const auto* const first = static_cast<const unsigned char*>(memory);
    return {first, first + bytes};
}

using Bytes = std::vector<unsigned char>;

void componentsAreReordered(const Kit& kit)
{
    const Bytes yuy2{10, 20, 30, 40}; // Y0 Cb Y1 Cr
    const Surface from = rowOf(kit, 2, Image::YUY2, 8, yuy2);
    EXPECT_EQ(convertedRow(kit, from, Image::UYVY, 8, 4), Bytes({20, 10, 40, 30}));
    EXPECT_EQ(convertedRow(kit, from, Image::YVYU, 8, 4), Bytes({10, 40, 30, 20}));
    EXPECT_EQ(convertedRow(kit, from, Image::VYUY, 8, 4), Bytes({40, 30, 20, 10}));
    EXPECT_EQ(convertedRow(kit, from, Image::YUY2, 8, 4), yuy2) << "to itself";
}

void moreBitsAreExact(const Kit& kit)
{
    const Surface from = rowOf(kit, 2, Image::YUY2, 8, {16, 128, 235, 255});
    EXPECT_EQ(convertedRow(kit, from, Image::Y216, 16, 8), words({0x1000, 0x8000, 0xEB00, 0xFF00}))
        << "the code becomes the most significant bits";
}

void fewerBitsAreRounded(const Kit& kit)
{
    const Surface from = rowOf(kit, 2, Image::Y216, 16, words({0x107F, 0x1080, 0xFFFF, 0x0000}));
    EXPECT_EQ(convertedRow(kit, from, Image::YUY2, 8, 4), Bytes({0x10, 0x11, 0xFF, 0x00}))
        << "to nearest, halves up, clamped to the largest code";
}

void tenBitWordsArePacked(const Kit& kit)
{
    Bytes sixPixels;
    for (const int code : {4, 8, 12, 16, 20, 24, 28, 32, 36, 40, 44, 48}) { // of ten bits
        const Bytes word = words({static_cast<std::uint16_t>(code * 64)});
        sixPixels.insert(sixPixels.end(), word.begin(), word.end());
    }
    const Surface from = rowOf(kit, 6, Image::Y216, 16, sixPixels); // Y0 Cb Y1 Cr of pairs
    const Bytes row = convertedRow(kit, from, Image::V210, 10, 16);
    ASSERT_EQ(row.size(), 16U);
    std::array<std::uint32_t, 4> packed{};
    std::memcpy(packed.data(), row.data(), 16);
    EXPECT_EQ(packed[0], 8U | 4U << 10U | 16U << 20U) << "Cb Y Cr";
    EXPECT_EQ(packed[1], 12U | 24U << 10U | 20U << 20U) << "Y Cb Y";
}

void otherPairsAreRefused(const Kit& kit)
{
    const Surface from = rowOf(kit, 2, Image::ARGB, 8, {1, 2, 3, 4, 5, 6, 7, 8});
    Surface to(2, 1, Image::YUY2, false, 8, 0, 0);
    EXPECT_FALSE(kit.services.convertImage(from, to));
    EXPECT_FALSE(to.getHostImage()) << "`to` is unchanged";
}

void missingPixelsAreRefused(const Kit& kit)
{
    const Surface from(2, 1, Image::YUY2, false, 8, 0, 0);
    Surface to(2, 1, Image::UYVY, false, 8, 0, 0);
    EXPECT_FALSE(kit.services.convertImage(from, to));
}

} // namespace

Promises converterPromises()
{
    return {
        {"ImageConverter", "ReordersComponents", componentsAreReordered,
         "platform/ImageConverter.h: every kind of packed 4:2:2 to every other kind", Feature::Conversions},
        {"ImageConverter", "IsExactToMoreBits", moreBitsAreExact,
         "platform/ImageConverter.h: a conversion to more bits is exact", Feature::Conversions},
        {"ImageConverter", "RoundsToFewerBits", fewerBitsAreRounded,
         "platform/ImageConverter.h: rounds to nearest, halves up, clamped to the largest code",
         Feature::Conversions},
        {"ImageConverter", "PacksTenBits", tenBitWordsArePacked,
         "platform/ImageFormat.h: 6 pixels of 10-bit 4:2:2 in 16 bytes", Feature::Conversions},
        {"ImageConverter", "RefusesOtherPairs", otherPairsAreRefused,
         "platform/ImageConverter.h: false if the pair is not supported; `to` is then unchanged",
         Feature::Conversions},
        {"ImageConverter", "RefusesMissingPixels", missingPixelsAreRefused,
         "platform/ImageConverter.h: converts the pixels of `from`", Feature::Conversions},
    };
}

} // namespace Qx::HostTests
