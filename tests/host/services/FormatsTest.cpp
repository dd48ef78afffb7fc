#include "host/surfaces/FormatTable.h"
#include "host/surfaces/RowGeometry.h"

#include <gtest/gtest.h>
#include <limits>
#include <set>
#include <string>
#include <vector>

using namespace Qx::Image;
using Qx::Host::bitsPerPixelOf;
using Qx::Host::findFormat;
using Qx::Host::formatTable;
using Qx::Host::RowGeometry;
using Qx::Host::rowGeometryOf;

namespace {

Core::Data describe(Format format, unsigned short bits, std::uint32_t width, std::uint32_t height,
                    std::uint32_t pitch = 0)
{
    Core::Data data(width, height, format, bits, 0);
    data.rowPitch = pitch;
    return data;
}

struct Expected
{
    Format format;
    unsigned short bits;
    unsigned bitsPerPixel;
    std::uint64_t bytesOf1;  ///< what a row of 1 pixel needs
    std::uint64_t bytesOf7;  ///< of 7
    std::uint64_t bytesOf16; ///< of 16
    std::uint64_t rowsOf5;   ///< rows of a picture of 5 lines
    unsigned texelBytes;
};

std::string nameOf(const Expected& expected)
{
    return std::string(findFormat(expected.format)->name) + " at " + std::to_string(expected.bits) + " bits";
}

const std::vector<Expected>& expectations()
{
    static const std::vector<Expected> all = {
        {YUY2, 8, 16, 4, 16, 32, 5, 4},      {YUY2, 16, 32, 8, 32, 64, 5, 8},
        {YUYV, 8, 16, 4, 16, 32, 5, 4},      {YUYV, 16, 32, 8, 32, 64, 5, 8},
        {YVYU, 8, 16, 4, 16, 32, 5, 4},      {YVYU, 16, 32, 8, 32, 64, 5, 8},
        {UYVY, 8, 16, 4, 16, 32, 5, 4},      {UYVY, 16, 32, 8, 32, 64, 5, 8},
        {VYUY, 8, 16, 4, 16, 32, 5, 4},      {VYUY, 16, 32, 8, 32, 64, 5, 8},
        {Y216, 16, 32, 8, 32, 64, 5, 8},     {Y216, 10, 32, 8, 32, 64, 5, 8},
        {V216, 16, 32, 8, 32, 64, 5, 8},     {V210, 10, 20, 16, 32, 48, 5, 4},
        {M101, 8, 16, 4, 16, 32, 5, 4},      {M101, 10, 20, 40, 40, 40, 5, 4},
        {M102, 8, 16, 4, 16, 32, 5, 4},      {M102, 10, 20, 40, 40, 40, 5, 4},
        {YV12, 8, 12, 1, 7, 16, 11, 4},      {YV12, 16, 24, 2, 14, 32, 11, 8},
        {PlanarRGB, 8, 24, 1, 7, 16, 15, 4}, {PlanarRGB, 16, 48, 2, 14, 32, 15, 8},
        {ARGB, 8, 32, 4, 28, 64, 5, 4},      {ARGB, 16, 64, 8, 56, 128, 5, 8},
        {BGRA, 8, 32, 4, 28, 64, 5, 4},      {BGRA, 16, 64, 8, 56, 128, 5, 8},
        {RGBA, 8, 32, 4, 28, 64, 5, 4},      {RGBA, 16, 64, 8, 56, 128, 5, 8},
        {ABGR, 8, 32, 4, 28, 64, 5, 4},      {ABGR, 16, 64, 8, 56, 128, 5, 8},
        {BGRA32, 8, 32, 4, 28, 64, 5, 4},    {BGRA32, 16, 64, 8, 56, 128, 5, 8},
        {ARGB10, 10, 32, 4, 28, 64, 5, 4},   {ARGB10, 8, 32, 4, 28, 64, 5, 4},
        {ARGB10, 16, 64, 8, 56, 128, 5, 8},  {RGB24, 8, 24, 3, 21, 48, 5, 4},
        {RGB24, 16, 48, 6, 42, 96, 5, 8},    {BGR24, 8, 24, 3, 21, 48, 5, 4},
        {BGR24, 16, 48, 6, 42, 96, 5, 8},    {BGR3, 8, 24, 3, 21, 48, 5, 4},
        {BGR3, 16, 48, 6, 42, 96, 5, 8},     {B48R, 8, 24, 3, 21, 48, 5, 4},
        {B48R, 16, 48, 6, 42, 96, 5, 8},     {B64A, 16, 64, 8, 56, 128, 5, 8},
        {B64A, 8, 32, 4, 28, 64, 5, 4},
    };
    return all;
}

} // namespace

TEST(Formats, EveryOneOfTheTableIsExpectedHere)
{
    std::set<Format> expected;
    for (const Expected& e : expectations()) {
        expected.insert(e.format);
    }
    std::set<Format> known;
    for (const auto& info : formatTable()) {
        EXPECT_TRUE(known.insert(info.format).second) << info.name << " is there twice";
        EXPECT_TRUE(isRGB(info.format) != isYUV(info.format)) << info.name;
    }
    EXPECT_EQ(known, expected);
}

TEST(Formats, UnknownCodesAreOfNoKind)
{
    EXPECT_FALSE(isRGB(UnknownFormat));
    EXPECT_FALSE(isYUV(UnknownFormat));
    EXPECT_FALSE(isYUV(static_cast<Format>(36)));
    EXPECT_TRUE(isRGB(PlanarRGB));
    EXPECT_TRUE(isRGB(ARGB10));
    EXPECT_TRUE(isYUV(YV12));
    EXPECT_TRUE(isYUV(V210));
}

TEST(Formats, RowsHaveTheBytesOfTheirLayoutAtEveryWidth)
{
    for (const Expected& e : expectations()) {
        SCOPED_TRACE(nameOf(e));
        EXPECT_EQ(bitsPerPixelOf(describe(e.format, e.bits, 16, 5)), e.bitsPerPixel);
        const struct
        {
            std::uint32_t width;
            std::uint64_t bytes;
        } rows[] = {{1, e.bytesOf1}, {7, e.bytesOf7}, {16, e.bytesOf16}};
        for (const auto& row : rows) {
            const auto geometry = rowGeometryOf(describe(e.format, e.bits, row.width, 5));
            ASSERT_TRUE(geometry);
            EXPECT_EQ(geometry->rowBytes, row.bytes) << "width " << row.width;
            EXPECT_EQ(geometry->rows, e.rowsOf5);
            EXPECT_GE(geometry->pitch, geometry->rowBytes);
            EXPECT_EQ(geometry->pitch % e.texelBytes, 0U) << "width " << row.width;
            const std::uint64_t slack = e.format == V210 ? 128 : e.texelBytes;
            EXPECT_LT(geometry->pitch, geometry->rowBytes + slack) << "width " << row.width;
            EXPECT_EQ(geometry->imageSize(), (XY<int>{static_cast<int>(geometry->pitch / e.texelBytes),
                                                      static_cast<int>(e.rowsOf5)}));
        }
    }
}

TEST(Formats, OnlyA10BitWordIsA10BitImage)
{
    for (const Expected& e : expectations()) {
        const auto geometry = rowGeometryOf(describe(e.format, e.bits, 16, 5));
        EXPECT_EQ(geometry->texels == iGPUImage::eARGB10, e.format == ARGB10 && e.bits == 10) << nameOf(e);
    }
}

TEST(Formats, V210RowsAreFilledUpTo48Pixels)
{
    EXPECT_EQ(rowGeometryOf(describe(V210, 10, 1920, 1080))->pitch, 5120U);
    EXPECT_EQ(rowGeometryOf(describe(V210, 10, 1280, 720))->pitch, 3456U);
    EXPECT_EQ(rowGeometryOf(describe(V210, 10, 1, 1))->pitch, 128U);
}

TEST(Formats, APitchIsKeptWhenARowFitsAndRoundedUpToWholeTexels)
{
    EXPECT_EQ(rowGeometryOf(describe(YUY2, 8, 1920, 1080, 4096))->pitch, 4096U);
    EXPECT_EQ(rowGeometryOf(describe(RGB24, 8, 5, 2, 15))->pitch, 16U);
    EXPECT_FALSE(rowGeometryOf(describe(RGB24, 8, 5, 2, 14)));
    EXPECT_EQ(Qx::Host::rowGeometryAtAnyPitch(describe(RGB24, 8, 5, 2, 14))->pitch, 16U);
}

TEST(Formats, DescriptionsWithoutSenseHaveNoGeometry)
{
    EXPECT_FALSE(rowGeometryOf(describe(YUY2, 8, 0, 5)));
    EXPECT_FALSE(rowGeometryOf(describe(YUY2, 8, 5, 0)));
    EXPECT_FALSE(rowGeometryOf(describe(UnknownFormat, 8, 5, 5)));
    EXPECT_FALSE(rowGeometryOf(describe(M101, 16, 5, 5)));
}

TEST(Formats, AnUnknownFormatIsAsWideAsItsBitsPerPixel)
{
    Core::Data data = describe(static_cast<Format>(0x12345678), 8, 5, 2);
    data.bitsPerPixel = 12;
    const auto geometry = rowGeometryOf(data);
    ASSERT_TRUE(geometry);
    EXPECT_EQ(geometry->rowBytes, 8U);
    EXPECT_EQ(geometry->pitch, 8U);
}

TEST(Formats, NoSizeOverflows)
{
    constexpr auto largest = std::numeric_limits<std::uint32_t>::max();
    for (const Expected& e : expectations()) {
        SCOPED_TRACE(nameOf(e));
        EXPECT_FALSE(rowGeometryOf(describe(e.format, e.bits, largest, largest)));
        EXPECT_FALSE(rowGeometryOf(describe(e.format, e.bits, 16, largest))) << "more rows than an image has";
        // Where a row of that many pixels is possible at all, it is counted right.
        if (const auto wide = rowGeometryOf(describe(e.format, e.bits, largest, 1))) {
            EXPECT_GE(wide->rowBytes * 8, std::uint64_t{largest} * 8);
        }
    }
    EXPECT_FALSE(rowGeometryOf(describe(ARGB, 8, largest, 1))) << "wider than an image can be";
    EXPECT_FALSE(rowGeometryOf(describe(ARGB, 16, 0x7FFFFFFF, 0x7FFFFFFF))) << "beyond the address space";
}
