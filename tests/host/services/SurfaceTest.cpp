#include "platform/Surface.h"
#include "host/surfaces/RowGeometry.h"
#include "tests/host/services/MemoryGPU.h"
#include "tests/host/services/Support.h"

#include <cstring>
#include <gtest/gtest.h>
#include <optional>
#include <random>

using namespace Qx::Image;
using Qx::Host::Test::contentsOf;
using Qx::Host::Test::logFile;
using Qx::Host::Test::MemoryGPU;
using Qx::Host::Test::MemoryImage;

namespace {

struct Case
{
    Format format;
    unsigned short bits;
};

constexpr Case everyFormat[] = {
    {YUY2, 8},  {YUY2, 16}, {YUYV, 8},      {YVYU, 8},       {UYVY, 8},  {UYVY, 16},  {VYUY, 8},
    {Y216, 16}, {V216, 16}, {V210, 10},     {M101, 8},       {M101, 10}, {M102, 8},   {M102, 10},
    {YV12, 8},  {YV12, 16}, {PlanarRGB, 8}, {PlanarRGB, 16}, {ARGB, 8},  {ARGB, 16},  {BGRA, 8},
    {RGBA, 8},  {ABGR, 8},  {BGRA32, 8},    {ARGB10, 8},     {RGB24, 8}, {RGB24, 16}, {BGR24, 8},
    {BGR3, 16}, {B48R, 16}, {B64A, 16},     {ARGB10, 10},
};

std::size_t sizeOf(const Surface& surface)
{
    const auto image = surface.getHostImage();
    return image->getPitch() * static_cast<std::size_t>(image->getSize().y);
}

unsigned char* bytesOf(const Surface& surface)
{
    return static_cast<unsigned char*>(surface.getHostImage()->map(iHostImage::Write));
}

void fillWithNoise(const Surface& surface)
{
    std::mt19937 random(7);
    for (std::size_t i = 0; i < sizeOf(surface); ++i) {
        bytesOf(surface)[i] = static_cast<unsigned char>(random());
    }
}

/// The GPU image of a surface, filled so that every byte tells its row and column.
Qx::Ptr<iGPUImage> countingImage(XY<int> size)
{
    Qx::Ptr<iGPUImage> image = MemoryGPU::instance().createGPUImage(size, iGPUImage::eARGB8);
    auto& bytes = static_cast<MemoryImage&>(*image).bytes;
    const auto pitch = static_cast<std::size_t>(size.x) * 4;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<std::byte>(16 * (i / pitch) + i % pitch);
    }
    return image;
}

} // namespace

TEST(Surface, EveryFormatSurvivesTheWayToTheGPUAndBackAtOddWidths)
{
    for (const Case& c : everyFormat) {
        for (const unsigned width : {1U, 2U, 3U, 5U, 7U, 13U, 47U, 49U, 1366U}) {
            SCOPED_TRACE(testing::Message()
                         << "format " << c.format << " bits " << c.bits << " width " << width);
            Surface surface(width, 5, c.format, false, c.bits, 0, 0);
            ASSERT_TRUE(surface.allocateHost());
            EXPECT_EQ(surface.getHostImage()->getPitch(), surface.getRowPitch());
            fillWithNoise(surface);
            const Surface uploaded = surface.uploadToGPU();
            ASSERT_TRUE(uploaded.getGPUSurface());
            EXPECT_FALSE(uploaded.getHostImage());
            EXPECT_EQ(uploaded.getData(), surface.getData());
            const Surface back = uploaded.copyToHost();
            ASSERT_TRUE(back.getHostImage());
            EXPECT_FALSE(back.getGPUSurface());
            EXPECT_EQ(back.getData(), surface.getData());
            ASSERT_EQ(sizeOf(back), sizeOf(surface));
            EXPECT_EQ(std::memcmp(bytesOf(back), bytesOf(surface), sizeOf(surface)), 0);
        }
    }
}

TEST(Surface, PaddingTravelsWithTheRows)
{
    Surface surface(6, 3, YUY2, false, 8, 0, 64);
    EXPECT_EQ(surface.getRowPitch(), 64U);
    ASSERT_TRUE(surface.allocateHost());
    fillWithNoise(surface);
    const Surface uploaded = surface.uploadToGPU();
    EXPECT_EQ(uploaded.getGPUSurface()->getSize(), (XY<int>{16, 3}));
    const Surface back = uploaded.copyToHost();
    EXPECT_EQ(back.getRowPitch(), 64U);
    EXPECT_EQ(std::memcmp(bytesOf(back), bytesOf(surface), 3 * 64), 0);
}

TEST(Surface, InitFillsInWhatTheFormatSaysAndForgetsTheRest)
{
    Surface surface = makeWrapper(countingImage({4, 2}));
    surface.setColourSpace(ColourSpace::BT709);
    surface.init(1920, 1080, M101, true, 10, 0, 0);
    EXPECT_EQ(surface.getBitsPerPixel(), 20);
    EXPECT_EQ(surface.getRowPitch(), 4800U);
    EXPECT_FALSE(surface.isTopDown());
    EXPECT_FALSE(surface.getGPUSurface());
    EXPECT_EQ(surface.getDescriptions(), ImageDescriptions());
    surface.init(10, 10, YUY2, false, 8, 17, 100);
    EXPECT_EQ(surface.getBitsPerPixel(), 17) << "what is given is kept";
    EXPECT_EQ(surface.getRowPitch(), 100U);
    EXPECT_TRUE(surface.isTopDown());
}

TEST(Surface, MemoryThatMakesNoSenseIsRefused)
{
    Surface none;
    EXPECT_FALSE(none.allocateHost());
    Surface tooNarrow(100, 2, ARGB, false, 8, 0, 399);
    EXPECT_FALSE(tooNarrow.allocateHost());
    EXPECT_FALSE(tooNarrow.getHostImage());
    Surface huge(0xFFFFFFFFU, 0xFFFFFFFFU, ARGB, false, 8, 0, 0);
    EXPECT_FALSE(huge.allocateHost());
}

TEST(Surface, ExhaustedMemoryGivesSurfacesWithoutPixels)
{
    Surface surface(4, 4, ARGB, false, 8, 0, 0);
    ASSERT_TRUE(surface.allocateHost());
    const Surface onGPU = surface.uploadToGPU();
    MemoryGPU::instance().exhausted = true;
    EXPECT_FALSE(Surface(surface).allocateHost());
    EXPECT_FALSE(surface.uploadToGPU().getGPUSurface());
    EXPECT_FALSE(onGPU.copyToHost().getHostImage());
    EXPECT_FALSE(onGPU.createDestARGBGPUSurface(iGPUImage::eARGB8).getGPUSurface());
    EXPECT_FALSE(onGPU.createDestYUY2GPUSurface(iGPUImage::eARGB8).getGPUSurface());
    EXPECT_EQ(onGPU.createDestARGBGPUSurface(iGPUImage::eARGB8).getWidth(), 4U);
    MemoryGPU::instance().exhausted = false;
}

TEST(Surface, CopyingWithoutAGPUImageGivesACopy)
{
    Surface surface(4, 4, ARGB, false, 8, 0, 0);
    ASSERT_TRUE(surface.allocateHost());
    EXPECT_EQ(surface.copyToHost().getHostImage(), surface.getHostImage());
    EXPECT_FALSE(Surface().copyToHost().getHostImage());
}

TEST(Surface, CopyTakesOnlyTheRowsThatAreDescribed)
{
    Surface surface = makeWrapper(countingImage({4, 3}));
    surface.setDataFormat(RGB24); // 4 pixels are 12 of the 16 bytes
    surface.setBitsPerPixel(24);
    surface.setRowPitch(0);
    surface.setHeight(2);
    const Surface copy = surface.copyToHost();
    ASSERT_TRUE(copy.getHostImage());
    EXPECT_EQ(copy.getRowPitch(), 12U);
    EXPECT_EQ(copy.getHostImage()->getSize(), (XY<int>{3, 2}));
    for (unsigned y = 0; y < 2; ++y) {
        for (unsigned x = 0; x < 12; ++x) {
            EXPECT_EQ(bytesOf(copy)[12 * y + x], 16 * y + x);
        }
    }
}

TEST(Surface, ADescriptionBeyondTheImageIsCutFilledWithZerosAndLogged)
{
    Surface surface = makeWrapper(countingImage({2, 2}));
    surface.setWidth(4);
    surface.setHeight(3);
    surface.setRowPitch(16);
    const std::size_t before = contentsOf(logFile()).size();
    const Surface copy = surface.copyToHost();
    ASSERT_TRUE(copy.getHostImage());
    ASSERT_EQ(copy.getHostImage()->getSize(), (XY<int>{4, 3}));
    for (unsigned y = 0; y < 3; ++y) {
        for (unsigned x = 0; x < 16; ++x) {
            const bool inImage = x < 8 && y < 2;
            EXPECT_EQ(bytesOf(copy)[16 * y + x], inImage ? 8 * y * 2 + x : 0U) << x << ' ' << y;
        }
    }
    EXPECT_NE(contentsOf(logFile()).substr(before).find("copyToHost"), std::string::npos);
}

TEST(Surface, PaddingThatTheImageLacksIsNothingToComplainAbout)
{
    Surface surface = makeWrapper(countingImage({2, 2}));
    surface.setRowPitch(32);
    const std::size_t before = contentsOf(logFile()).size();
    const Surface copy = surface.copyToHost();
    EXPECT_EQ(copy.getRowPitch(), 32U);
    EXPECT_EQ(bytesOf(copy)[32 + 7], 16 + 7 - 8 + 0 * 8 + 8);
    EXPECT_EQ(bytesOf(copy)[8], 0);
    EXPECT_EQ(contentsOf(logFile()).size(), before);
}

TEST(Surface, AWrapperDescribesItsImage)
{
    const struct
    {
        iGPUImage::eFormat texels;
        Format format;
        unsigned bits;
        unsigned bitsPerPixel;
    } cases[] = {{iGPUImage::eARGB8, ARGB, 8, 32},
                 {iGPUImage::eARGB16, ARGB, 16, 64},
                 {iGPUImage::eARGB10, ARGB10, 10, 32}};
    for (const auto& c : cases) {
        const auto image = MemoryGPU::instance().createGPUImage({5, 3}, c.texels);
        const Surface wrapper = makeWrapper(image);
        EXPECT_EQ(wrapper.getGPUSurface(), image);
        EXPECT_EQ(wrapper.getWidth(), 5U);
        EXPECT_EQ(wrapper.getHeight(), 3U);
        EXPECT_EQ(wrapper.getDataFormat(), c.format);
        EXPECT_EQ(wrapper.getBitsPerComponent(), c.bits);
        EXPECT_EQ(wrapper.getBitsPerPixel(), c.bitsPerPixel);
        EXPECT_EQ(wrapper.getRowPitch(), 5 * c.bitsPerPixel / 8);
        EXPECT_TRUE(wrapper.isTopDown());
    }
    EXPECT_EQ(makeWrapper(nullptr).getData(), Core::Data());
}

TEST(Surface, DestinationsKeepSizeAndDescriptions)
{
    Surface source(7, 3, UYVY, true, 8, 0, 0);
    source.setColourSpace(ColourSpace::BT709);
    source.frame().frameNumber = 12;
    const Surface rgb = source.createDestARGBGPUSurface(iGPUImage::eARGB16);
    ASSERT_TRUE(rgb.getGPUSurface());
    EXPECT_EQ(rgb.getGPUSurface()->getSize(), (XY<int>{7, 3}));
    EXPECT_EQ(rgb.getDataFormat(), ARGB);
    EXPECT_EQ(rgb.getBitsPerPixel(), 64);
    EXPECT_EQ(rgb.getRowPitch(), 56U);
    EXPECT_EQ(rgb.getDescriptions(), source.getDescriptions());
    EXPECT_TRUE(rgb.isTopDown());
    const Surface yuv = source.createDestYUY2GPUSurface(iGPUImage::eARGB8);
    ASSERT_TRUE(yuv.getGPUSurface());
    EXPECT_EQ(yuv.getGPUSurface()->getSize(), (XY<int>{4, 3})) << "the last texel is half used";
    EXPECT_EQ(yuv.getDataFormat(), YUY2);
    EXPECT_EQ(yuv.getBitsPerPixel(), 16);
    EXPECT_EQ(yuv.getRowPitch(), 16U);
    EXPECT_EQ(yuv.getDescriptions(), source.getDescriptions());
    EXPECT_FALSE(source.createDestYUY2GPUSurface(iGPUImage::eARGB10).getGPUSurface());
}
