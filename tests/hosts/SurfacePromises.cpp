#include "Pixels.h"

#include <platform/GPUService.h>

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace Qx::HostTests {

namespace {

using Image::Surface;

/// A description in which attributes differ from their defaults.
void describeUnusually(Surface& surface)
{
    surface.setColourSpace(Image::ColourSpace::BT709);
    surface.setGamutScaling(Image::GamutScaling::Video);
    surface.setPolarity(Image::Polarity::LowerFieldFirst);
    surface.setTransparency(Image::TransparencyType::Premultiplied);
    surface.frame().frameNumber = 77;
    surface.signal().transferCharacteristics = 14;
}

void surfacesHaveDefaults(const Kit&)
{
    const Surface surface(6, 4, Image::ARGB, false, 8, 0, 0);
    EXPECT_EQ(surface.getBitsPerPixel(), 32) << "0 is derived from the format";
    EXPECT_EQ(surface.getRowPitch(), 24U) << "0 is derived from the width";
    EXPECT_TRUE(surface.isTopDown());
    EXPECT_FALSE(Surface(6, 4, Image::ARGB, true, 8, 0, 0).isTopDown());
    EXPECT_EQ(Surface(6, 4, Image::ARGB, false, 8, 0, 40).getRowPitch(), 40U);
    EXPECT_FALSE(surface.getGPUSurface());
    EXPECT_FALSE(surface.getHostImage());
}

void formatsHaveSizes(const Kit&)
{
    EXPECT_EQ(Surface(6, 4, Image::YUY2, false, 8, 0, 0).getRowPitch(), 12U);
    EXPECT_EQ(Surface(6, 4, Image::YUY2, false, 8, 0, 0).getBitsPerPixel(), 16);
    EXPECT_EQ(Surface(6, 4, Image::B64A, false, 16, 0, 0).getRowPitch(), 48U);
    EXPECT_EQ(Surface(4, 4, Image::RGB24, false, 8, 0, 0).getBitsPerPixel(), 24);
}

void initResets(const Kit& kit)
{
    Surface surface(6, 4, Image::ARGB, false, 8, 0, 0);
    describeUnusually(surface);
    ASSERT_TRUE(kit.services.allocateHost(surface));
    surface.init(2, 2, Image::ARGB, false, 8, 0, 0);
    EXPECT_FALSE(surface.getHostImage()) << "the pixels are released";
    EXPECT_TRUE(surface.getDescriptions() == Image::ImageDescriptions()) << "both records are reset";
}

void hostMemoryIsAllocated(const Kit& kit)
{
    Surface surface(6, 4, Image::ARGB, false, 8, 0, 0);
    ASSERT_TRUE(kit.services.allocateHost(surface));
    ASSERT_TRUE(surface.getHostImage());
    const Ptr<iHostImage> image = surface.getHostImage();
    EXPECT_GE(image->getPitch() * static_cast<std::size_t>(image->getSize().y), 24U * 4U)
        << "memory for the rows of the description";
    EXPECT_FALSE(surface.getGPUSurface());
}

void invalidDescriptionsAreRefused(const Kit& kit)
{
    Surface surface(0, 4, Image::ARGB, false, 8, 0, 0);
    EXPECT_FALSE(kit.services.allocateHost(surface)) << "no width";
    EXPECT_FALSE(surface.getHostImage()) << "the pixels are unchanged";
    Surface narrow(6, 4, Image::ARGB, false, 8, 0, 8);
    EXPECT_FALSE(kit.services.allocateHost(narrow)) << "rows that overlap";
}

/// Fills the rows and returns them.
std::vector<unsigned char> fillSurface(const Kit& kit, Surface& surface)
{
    if (!kit.services.allocateHost(surface) || !surface.getHostImage()) {
        ADD_FAILURE() << "allocateHost() fails";
        return {};
    }
    const auto bytes = pattern(std::size_t{surface.getRowPitch()} * surface.getHeight(), 3);
    void* const memory = surface.getHostImage()->map(iHostImage::Write);
    if (memory == nullptr) {
        ADD_FAILURE() << "map(Write) fails";
        return {};
    }
    std::memcpy(memory, bytes.data(), bytes.size());
    return bytes;
}

void expectRoundTrip(const Kit& kit, Surface surface)
{
    describeUnusually(surface);
    const std::vector<unsigned char> bytes = fillSurface(kit, surface);
    const Surface onGPU = kit.services.uploadToGPU(surface);
    ASSERT_TRUE(onGPU.getGPUSurface());
    EXPECT_TRUE(onGPU.getData() == surface.getData()) << "the same description";
    EXPECT_TRUE(onGPU.getDescriptions() == surface.getDescriptions()) << "the same description";
    const Surface back = kit.services.copyToHost(onGPU);
    ASSERT_TRUE(back.getHostImage());
    EXPECT_TRUE(back.getDescriptions() == surface.getDescriptions()) << "the same description";
    const auto* const memory = static_cast<const unsigned char*>(back.getHostImage()->map(iHostImage::Read));
    ASSERT_NE(memory, nullptr);
    EXPECT_TRUE(std::memcmp(memory, bytes.data(), bytes.size()) == 0) << "other bytes come back";
}

void surfacesSurviveTheRoundTrip(const Kit& kit)
{
    expectRoundTrip(kit, Surface(7, 5, Image::ARGB, false, 8, 0, 0));
}

void rowsAreCopiedAsTheyAre(const Kit& kit)
{
    if (kit.host.without.contains(Feature::Images)) {
        GTEST_SKIP() << "the host says that its images have no pixels";
    }
    expectRoundTrip(kit, Surface(8, 4, Image::YUY2, false, 8, 0, 0));
    expectRoundTrip(kit, Surface(8, 4, Image::YUY2, false, 8, 0, 64));
    expectRoundTrip(kit, Surface(6, 3, Image::B64A, true, 16, 0, 0));
}

void nothingIsUploadedFromNothing(const Kit& kit)
{
    const Surface surface(7, 5, Image::ARGB, false, 8, 0, 0);
    EXPECT_FALSE(kit.services.uploadToGPU(surface).getGPUSurface()) << "there is no host image";
    EXPECT_FALSE(kit.services.copyToHost(surface).getGPUSurface());
    EXPECT_FALSE(kit.services.copyToHost(surface).getHostImage()) << "there is no GPU image";
}

void copiesOfHostSurfacesShareTheirPixels(const Kit& kit)
{
    Surface surface(7, 5, Image::ARGB, false, 8, 0, 0);
    describeUnusually(surface);
    ASSERT_TRUE(kit.services.allocateHost(surface) && surface.getHostImage());
    const Surface copy = kit.services.copyToHost(surface);
    EXPECT_TRUE(copy.getHostImage() == surface.getHostImage()) << "copies share the pixels";
    EXPECT_TRUE(copy.getData() == surface.getData()) << "the same description";
    EXPECT_TRUE(copy.getDescriptions() == surface.getDescriptions()) << "the same description";
}

void targetsHaveTheirDepth(const Kit& kit)
{
    const Surface surface(8, 4, Image::ARGB, false, 8, 0, 0);
    for (const iGPUImage::eFormat format : {iGPUImage::eARGB8, iGPUImage::eARGB16, iGPUImage::eARGB10}) {
        const Surface made = kit.services.createDestARGBGPUSurface(surface, format);
        ASSERT_TRUE(made.getGPUSurface()) << "format " << format;
        EXPECT_EQ(made.getGPUSurface()->getFormat(), format);
    }
}

void targetsOfARGB(const Kit& kit)
{
    Surface surface(7, 5, Image::ARGB, true, 8, 0, 0);
    describeUnusually(surface);
    const Surface made = kit.services.createDestARGBGPUSurface(surface, iGPUImage::eARGB8);
    ASSERT_TRUE(made.getGPUSurface());
    EXPECT_EQ(made.getGPUSurface()->getSize(), (XY<int>{7, 5})) << "one texel per pixel";
    EXPECT_EQ(made.getGPUSurface()->getFormat(), iGPUImage::eARGB8);
    EXPECT_EQ(made.getWidth(), 7U);
    EXPECT_EQ(made.getHeight(), 5U);
    EXPECT_EQ(made.getDataFormat(), Image::ARGB);
    EXPECT_TRUE(made.isTopDown());
    EXPECT_TRUE(made.getDescriptions() == surface.getDescriptions()) << "the same descriptions";
}

void targetsOfYUY2(const Kit& kit)
{
    Surface surface(7, 4, Image::ARGB, false, 8, 0, 0);
    describeUnusually(surface);
    const Surface made = kit.services.createDestYUY2GPUSurface(surface, iGPUImage::eARGB8);
    ASSERT_TRUE(made.getGPUSurface());
    EXPECT_EQ(made.getGPUSurface()->getSize(), (XY<int>{4, 4}))
        << "one texel per pixel pair; an odd width adds a half-used texel";
    EXPECT_EQ(made.getDataFormat(), Image::YUY2);
    EXPECT_EQ(made.getWidth(), 7U);
    EXPECT_TRUE(made.getDescriptions() == surface.getDescriptions()) << "the same descriptions";
    EXPECT_FALSE(kit.services.createDestYUY2GPUSurface(surface, iGPUImage::eARGB10).getGPUSurface());
}

void wrappersDescribeTheirImage(const Kit& kit)
{
    const Ptr<iGPUImage> image = kit.services.os().gpu().createGPUImage({9, 3}, iGPUImage::eARGB8);
    ASSERT_TRUE(image);
    const Surface wrapped = kit.services.makeWrapper(image);
    EXPECT_TRUE(wrapped.getGPUSurface() == image);
    EXPECT_EQ(wrapped.getWidth(), 9U);
    EXPECT_EQ(wrapped.getHeight(), 3U);
    EXPECT_EQ(wrapped.getDataFormat(), Image::ARGB);
    EXPECT_EQ(wrapped.getBitsPerComponent(), 8);
    EXPECT_TRUE(wrapped.isTopDown());
    const Surface empty = kit.services.makeWrapper({});
    EXPECT_FALSE(empty.getGPUSurface());
    EXPECT_EQ(empty.getWidth(), 0U);
}

void wrappersKnowTheDepth(const Kit& kit)
{
    iGPUService& gpu = kit.services.os().gpu();
    const Surface ten = kit.services.makeWrapper(gpu.createGPUImage({4, 4}, iGPUImage::eARGB10));
    EXPECT_EQ(ten.getDataFormat(), Image::ARGB10);
    EXPECT_EQ(ten.getBitsPerComponent(), 10);
    const Surface sixteen = kit.services.makeWrapper(gpu.createGPUImage({4, 4}, iGPUImage::eARGB16));
    EXPECT_EQ(sixteen.getDataFormat(), Image::ARGB);
    EXPECT_EQ(sixteen.getBitsPerComponent(), 16);
}

void argbIsRGB(const Kit& kit)
{
    EXPECT_TRUE(kit.services.isRGB(Image::ARGB));
    EXPECT_FALSE(kit.services.isYUV(Image::ARGB));
    EXPECT_FALSE(kit.services.isRGB(Image::UnknownFormat));
    EXPECT_FALSE(kit.services.isYUV(Image::UnknownFormat));
}

void formatsAreRGBOrYUV(const Kit& kit)
{
    for (const Image::Format format :
         {Image::BGRA32, Image::ARGB10, Image::PlanarRGB, Image::BGRA, Image::RGBA, Image::ABGR, Image::RGB24,
          Image::BGR24, Image::BGR3, Image::B48R, Image::B64A}) {
        EXPECT_TRUE(kit.services.isRGB(format)) << "format " << format;
        EXPECT_FALSE(kit.services.isYUV(format)) << "format " << format;
    }
    for (const Image::Format format :
         {Image::YUY2, Image::YUYV, Image::YVYU, Image::UYVY, Image::VYUY, Image::YV12, Image::V210,
          Image::M101, Image::M102, Image::Y216, Image::V216}) {
        EXPECT_TRUE(kit.services.isYUV(format)) << "format " << format;
        EXPECT_FALSE(kit.services.isRGB(format)) << "format " << format;
    }
}

} // namespace

Promises surfacePromises()
{
    return {
        {"Formats", "OfARGBAreRGB", argbIsRGB, "platform/ImageFormat.h: isRGB() and isYUV()", {}},
        {"Formats", "AreRGBOrYUV", formatsAreRGBOrYUV, "platform/ImageFormat.h: isRGB() and isYUV()",
         Feature::Formats},
        {"Surfaces",
         "HaveDefaults",
         surfacesHaveDefaults,
         "platform/Surface.h: bitsPerPixel 0 is derived from the format, rowPitch 0 from the width",
         {}},
        {"Surfaces", "HaveSizesOfTheirFormat", formatsHaveSizes,
         "platform/Surface.h: bitsPerPixel 0 is derived from the format, rowPitch 0 from the width",
         Feature::Formats},
        {"Surfaces",
         "AreReset",
         initResets,
         "platform/Surface.h: init() releases the pixels and resets both records",
         {}},
        {"Surfaces",
         "AllocateTheirRows",
         hostMemoryIsAllocated,
         "platform/Surface.h: allocateHost() allocates memory for the rows of the description",
         {}},
        {"Surfaces", "RefuseInvalidDescriptions", invalidDescriptionsAreRefused,
         "platform/Surface.h: allocateHost() returns false if the description is invalid", Feature::Formats},
        {"Surfaces",
         "AreNotUploadedFromNothing",
         nothingIsUploadedFromNothing,
         "platform/Surface.h: no pixels if there is no host image",
         {}},
        {"Surfaces", "SurviveTheRoundTrip", surfacesSurviveTheRoundTrip,
         "platform/Surface.h: uploadToGPU() and copyToHost() keep bytes and description", Feature::Images},
        {"Surfaces", "KeepRowsAsTheyAre", rowsAreCopiedAsTheyAre,
         "platform/Surface.h: uploadToGPU() holds the rows as they are in memory, padding included",
         Feature::Formats},
        {"Surfaces",
         "HaveTargetsOfARGB",
         targetsOfARGB,
         "platform/Surface.h: createDestARGBGPUSurface()",
         {}},
        {"Surfaces",
         "HaveTargetsOfEachDepth",
         targetsHaveTheirDepth,
         "platform/Surface.h: createDestARGBGPUSurface(): a new GPU image of `format`",
         {}},
        {"Surfaces",
         "AreCopiedInHostMemory",
         copiesOfHostSurfacesShareTheirPixels,
         "platform/Surface.h: copyToHost(): a surface without a GPU image yields a copy of itself",
         {}},
        {"Surfaces", "HaveTargetsOfYUY2", targetsOfYUY2, "platform/Surface.h: createDestYUY2GPUSurface()",
         Feature::Formats},
        {"Surfaces",
         "WrapImages",
         wrappersDescribeTheirImage,
         "platform/Surface.h: makeWrapper(): its size, ARGB, top-down; empty yields empty",
         {}},
        {"Surfaces", "WrapImagesOfEachDepth", wrappersKnowTheDepth,
         "platform/Surface.h: makeWrapper(): ARGB10 for eARGB10, its depth", Feature::Formats},
    };
}

} // namespace Qx::HostTests
