#include "platform/ImageConverter.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

using namespace Qx::Image;

namespace {

unsigned char* row(const Surface& surface, unsigned y)
{
    return static_cast<unsigned char*>(surface.getHostImage()->map(iHostImage::Write)) +
           std::size_t{y} * surface.getRowPitch();
}

/// The code of component i (Cb Y Cr Y ...) of a test row.
unsigned codeAt(unsigned i, unsigned y)
{
    return (i * 37 + y * 501) % 1024;
}

Surface v210Surface(unsigned width, unsigned height, bool bottomUp = false)
{
    Surface surface(width, height, V210, bottomUp, 10, 0, 0);
    EXPECT_TRUE(surface.allocateHost());
    for (unsigned y = 0; y < height; ++y) {
        for (unsigned word = 0; word < surface.getRowPitch() / 4; ++word) {
            const std::uint32_t packed =
                codeAt(3 * word, y) | codeAt(3 * word + 1, y) << 10 | codeAt(3 * word + 2, y) << 20;
            std::memcpy(row(surface, y) + std::size_t{4} * word, &packed, 4);
        }
    }
    return surface;
}

std::uint16_t word(const Surface& surface, unsigned y, unsigned i)
{
    std::uint16_t value;
    std::memcpy(&value, row(surface, y) + std::size_t{2} * i, 2);
    return value;
}

} // namespace

TEST(ImageConverter, V210To16BitsKeepsEveryCode)
{
    for (const unsigned width : {1U, 2U, 5U, 6U, 7U, 50U}) {
        const Surface from = v210Surface(width, 2);
        Surface to(width, 2, Y216, false, 16, 0, 0);
        ASSERT_TRUE(ImageConverter::convert(from, to));
        for (unsigned y = 0; y < 2; ++y) {
            for (unsigned i = 0; i < (width + 1) / 2 * 4; ++i) {
                ASSERT_EQ(word(to, y, i), codeAt(i ^ 1, y) * 64) << "width " << width << " component " << i;
            }
        }
    }
}

TEST(ImageConverter, V210To8BitsRoundsToTheNearestCode)
{
    const Surface from = v210Surface(512, 1); // its 1024 components hold every code
    Surface to(512, 1, YUY2, false, 8, 0, 0);
    ASSERT_TRUE(ImageConverter::convert(from, to));
    for (unsigned i = 0; i < 1024; ++i) {
        ASSERT_EQ(row(to, 0)[i], std::min(255U, (codeAt(i ^ 1, 0) + 2) / 4)) << i;
    }
}

TEST(ImageConverter, EightBitsComeBackFromSixteenAsTheyWere)
{
    Surface from(512, 1, YUY2, false, 8, 0, 0);
    ASSERT_TRUE(from.allocateHost());
    for (unsigned i = 0; i < 1024; ++i) {
        row(from, 0)[i] = static_cast<unsigned char>(i);
    }
    Surface deep(512, 1, Y216, false, 16, 0, 0);
    ASSERT_TRUE(ImageConverter::convert(from, deep));
    EXPECT_EQ(word(deep, 0, 235), 235 * 256) << "video white";
    Surface back(512, 1, YUY2, false, 8, 0, 0);
    ASSERT_TRUE(ImageConverter::convert(deep, back));
    EXPECT_EQ(std::memcmp(row(back, 0), row(from, 0), 1024), 0);
}

TEST(ImageConverter, SixteenBitsRoundToTen)
{
    Surface from(2, 1, Y216, false, 16, 0, 0);
    ASSERT_TRUE(from.allocateHost());
    const std::array<std::uint16_t, 4> codes{0x1260, 0x125F, 0xFFFF, 0xFFDF}; // Y0 Cb Y1 Cr
    std::memcpy(row(from, 0), codes.data(), sizeof codes);
    Surface to(2, 1, V210, false, 10, 0, 0);
    ASSERT_TRUE(ImageConverter::convert(from, to));
    std::array<std::uint32_t, 2> words{};
    std::memcpy(words.data(), row(to, 0), sizeof words);
    EXPECT_EQ(words[0], 0x49U | 0x4AU << 10 | 0x3FFU << 20);
    EXPECT_EQ(words[1], 0x3FFU);
}

TEST(ImageConverter, EveryOrderOf422ComesToEveryOther)
{
    const auto make = [](Format format) { return Surface(2, 1, format, false, 8, 0, 0); };
    Surface yuy2 = make(YUY2);
    ASSERT_TRUE(yuy2.allocateHost());
    std::copy_n("YbZr", 4, row(yuy2, 0));
    const auto text = [](const Surface& surface) {
        return std::string(reinterpret_cast<const char*>(row(surface, 0)), 4);
    };
    for (const auto& [format, wanted] : {std::pair{UYVY, "bYrZ"}, std::pair{YVYU, "YrZb"},
                                         std::pair{VYUY, "rZbY"}, std::pair{M101, "YbZr"}}) {
        Surface other = make(format);
        ASSERT_TRUE(ImageConverter::convert(yuy2, other));
        EXPECT_EQ(text(other), wanted);
        Surface back = make(YUYV);
        ASSERT_TRUE(ImageConverter::convert(other, back));
        EXPECT_EQ(text(back), "YbZr") << wanted;
    }
}

TEST(ImageConverter, SixteenBitsRoundToEight)
{
    Surface from(2, 1, Y216, false, 16, 0, 0);
    ASSERT_TRUE(from.allocateHost());
    const std::array<std::uint16_t, 4> codes{0x1280, 0x127F, 0xFFFF, 0xFF7F};
    std::memcpy(row(from, 0), codes.data(), sizeof codes);
    Surface to(2, 1, YUY2, false, 8, 0, 0);
    ASSERT_TRUE(ImageConverter::convert(from, to));
    EXPECT_EQ(row(to, 0)[0], 0x13);
    EXPECT_EQ(row(to, 0)[1], 0x12);
    EXPECT_EQ(row(to, 0)[2], 0xFF);
    EXPECT_EQ(row(to, 0)[3], 0xFF);
}

TEST(ImageConverter, TheTopLineStaysOnTop)
{
    const Surface from = v210Surface(6, 3, true);
    Surface to(6, 3, Y216, false, 16, 0, 0);
    ASSERT_TRUE(ImageConverter::convert(from, to));
    for (unsigned y = 0; y < 3; ++y) {
        EXPECT_EQ(word(to, y, 0), codeAt(1, 2 - y) * 64) << y;
    }
}

TEST(ImageConverter, AFormatCopiesToItselfAcrossDifferentPitches)
{
    Surface from(3, 2, RGB24, false, 8, 0, 32);
    ASSERT_TRUE(from.allocateHost());
    for (unsigned i = 0; i < 9; ++i) {
        row(from, 0)[i] = static_cast<unsigned char>(i + 1);
        row(from, 1)[i] = static_cast<unsigned char>(i + 101);
    }
    Surface to(3, 2, RGB24, false, 8, 0, 0);
    ASSERT_TRUE(ImageConverter::convert(from, to));
    EXPECT_EQ(to.getRowPitch(), 12U);
    EXPECT_EQ(row(to, 0)[8], 9);
    EXPECT_EQ(row(to, 1)[0], 101);
}

TEST(ImageConverter, WhatIsNotSupportedLeavesTheTargetAlone)
{
    const Surface from = v210Surface(6, 2);
    Surface rgb(6, 2, ARGB, false, 8, 0, 0);
    EXPECT_FALSE(ImageConverter::convert(from, rgb));
    EXPECT_FALSE(rgb.getHostImage());
    Surface otherSize(4, 2, YUY2, false, 8, 0, 0);
    EXPECT_FALSE(ImageConverter::convert(from, otherSize));
    EXPECT_FALSE(otherSize.getHostImage());
    Surface yuy2(6, 2, YUY2, false, 8, 0, 0);
    EXPECT_FALSE(ImageConverter::convert(Surface(6, 2, V210, false, 10, 0, 0), yuy2)) << "no pixels";
    EXPECT_FALSE(yuy2.getHostImage());
    Surface planar(6, 2, YV12, false, 8, 0, 0);
    EXPECT_FALSE(ImageConverter::convert(from, planar));
    Surface twelveBits(6, 2, M101, false, 12, 0, 0);
    EXPECT_FALSE(ImageConverter::convert(from, twelveBits)) << "no such depth";
}

TEST(ImageConverter, ADescriptionThatIsLargerThanItsImageIsRefused)
{
    Surface from = v210Surface(6, 2);
    from.setHeight(3);
    Surface to(6, 3, YUY2, false, 8, 0, 0);
    EXPECT_FALSE(ImageConverter::convert(from, to));
    Surface wide = v210Surface(6, 2);
    wide.setWidth(600);
    wide.setRowPitch(0);
    Surface wideTarget(600, 2, YUY2, false, 8, 0, 0);
    EXPECT_FALSE(ImageConverter::convert(wide, wideTarget));
}

TEST(ImageConverter, ACopyThatSharesThePixelsGetsItsOwn)
{
    Surface from(2, 3, YUY2, false, 8, 0, 0);
    ASSERT_TRUE(from.allocateHost());
    for (unsigned y = 0; y < 3; ++y) {
        std::fill_n(row(from, y), 4, static_cast<unsigned char>(y));
    }
    Surface flipped = from;
    flipped.setTopDown(false);
    ASSERT_TRUE(ImageConverter::convert(from, flipped));
    for (unsigned y = 0; y < 3; ++y) {
        EXPECT_EQ(*row(from, y), y);
        EXPECT_EQ(*row(flipped, y), 2 - y);
    }
}
