#include "Pixels.h"

#include <platform/GPUService.h>
#include <platform/GraphicPrimitives.h>

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace Qx::HostTests {

namespace {

constexpr std::array allFormats{iGPUImage::eARGB8, iGPUImage::eARGB16, iGPUImage::eARGB10};
constexpr std::array<XY<int>, 4> someSizes{{{1, 1}, {3, 2}, {17, 5}, {64, 33}}};

void gpuImagesAreAsAskedFor(const Kit& kit)
{
    for (const iGPUImage::eFormat format : allFormats) {
        for (const XY<int> size : someSizes) {
            const Ptr<iGPUImage> image = kit.services.os().gpu().createGPUImage(size, format);
            ASSERT_TRUE(image) << size.x << "x" << size.y << ", format " << format;
            EXPECT_EQ(image->getSize(), size);
            EXPECT_EQ(image->getFormat(), format);
            EXPECT_EQ(image->getBitsPerTexel(), format == iGPUImage::eARGB16 ? 64U : 32U);
        }
    }
}

void hostImagesAreAsAskedFor(const Kit& kit)
{
    for (const iGPUImage::eFormat format : allFormats) {
        for (const XY<int> size : someSizes) {
            const Ptr<iHostImage> image = kit.services.os().gpu().createHostImage(size, format);
            ASSERT_TRUE(image) << size.x << "x" << size.y << ", format " << format;
            EXPECT_EQ(image->getSize(), size);
            EXPECT_EQ(image->getFormat(), format);
            EXPECT_EQ(image->getPitch(), rowBytes(size, format)) << "rows have no padding";
        }
    }
}

void impossibleImagesAreRefused(const Kit& kit)
{
    iGPUService& gpu = kit.services.os().gpu();
    for (const XY<int> size : {XY<int>{0, 4}, XY<int>{4, 0}, XY<int>{-1, 4}, XY<int>{1'000'000, 1'000'000}}) {
        EXPECT_FALSE(gpu.createGPUImage(size, iGPUImage::eARGB8)) << size.x << "x" << size.y;
        EXPECT_FALSE(gpu.createHostImage(size, iGPUImage::eARGB8)) << size.x << "x" << size.y;
    }
}

void mappedMemoryStays(const Kit& kit)
{
    const Ptr<iHostImage> image = kit.services.os().gpu().createHostImage({5, 3}, iGPUImage::eARGB8);
    ASSERT_TRUE(image);
    void* const address = image->map(iHostImage::Write);
    ASSERT_NE(address, nullptr);
    fill(*image, 7);
    const Ptr<iGPUImage> uploaded = kit.services.os().gpu().uploadImage(image, 0);
    EXPECT_TRUE(uploaded);
    EXPECT_EQ(image->map(iHostImage::Read), address) << "the address is valid for the lifetime of the image";
    EXPECT_EQ(bytesOf(*image), pattern(image->getPitch() * 3, 7))
        << "an upload leaves the host image as it is";
}

void bytesSurviveTheRoundTrip(const Kit& kit)
{
    for (const iGPUImage::eFormat format : allFormats) {
        for (const XY<int> size : someSizes) {
            const Ptr<iHostImage> image = kit.services.os().gpu().createHostImage(size, format);
            ASSERT_TRUE(image && fill(*image, 11));
            const Ptr<iGPUImage> uploaded = kit.services.os().gpu().uploadImage(image, 0);
            ASSERT_TRUE(uploaded) << size.x << "x" << size.y << ", format " << format;
            EXPECT_EQ(uploaded->getSize(), size);
            EXPECT_EQ(uploaded->getFormat(), format);
            const Ptr<iHostImage> back = kit.services.os().gpu().downloadImage(uploaded);
            ASSERT_TRUE(back);
            EXPECT_EQ(back->getSize(), size);
            EXPECT_EQ(back->getFormat(), format);
            EXPECT_EQ(bytesOf(*back), bytesOf(*image)) << size.x << "x" << size.y << ", format " << format;
        }
    }
}

/// What is written after map() for writing must not reach what was uploaded before.
void mappingForWritingWaitsForUploads(const Kit& kit)
{
    iGPUService& gpu = kit.services.os().gpu();
    const XY<int> size{512, 512};
    const Ptr<iHostImage> image = gpu.createHostImage(size, iGPUImage::eARGB16);
    ASSERT_TRUE(image);
    std::vector<Ptr<iGPUImage>> uploads;
    for (unsigned i = 0; i < 8; ++i) {
        ASSERT_TRUE(fill(*image, i + 1));
        uploads.push_back(gpu.uploadImage(image, 0));
        ASSERT_TRUE(uploads.back());
    }
    for (unsigned i = 0; i < 8; ++i) {
        const Ptr<iHostImage> back = gpu.downloadImage(uploads[i]);
        ASSERT_TRUE(back);
        EXPECT_TRUE(bytesOf(*back) == pattern(rowBytes(size, iGPUImage::eARGB16) * 512, i + 1))
            << "upload " << i << " has bytes that were written after it";
    }
}

void uploadsAreImagesOfTheirOwn(const Kit& kit)
{
    iGPUService& gpu = kit.services.os().gpu();
    const Ptr<iHostImage> image = gpu.createHostImage({4, 4}, iGPUImage::eARGB8);
    ASSERT_TRUE(image && fill(*image, 1));
    const Ptr<iGPUImage> first = gpu.uploadImage(image, 0);
    const Ptr<iHostImage> back = gpu.downloadImage(first);
    ASSERT_TRUE(back);
    const std::vector<unsigned char> before = bytesOf(*back);
    ASSERT_TRUE(fill(*image, 2));
    const Ptr<iGPUImage> second = gpu.uploadImage(image, 0);
    ASSERT_TRUE(second);
    EXPECT_EQ(bytesOf(*back), before) << "a download is a copy";
    const Ptr<iHostImage> again = gpu.downloadImage(first);
    ASSERT_TRUE(again);
    EXPECT_EQ(bytesOf(*again), before);
}

/// A picture of one colour, drawn by the image's renderer.
Ptr<iGPUImage> colouredImage(const Kit& kit, XY<int> size, NormalisedRGB top, NormalisedRGB bottom)
{
    const Ptr<iGPUImage> image = kit.services.os().gpu().createGPUImage(size, iGPUImage::eARGB8);
    const Ptr<iGraphicPrimitivesRenderer> renderer =
        image ? image->getPrimitivesRenderer(1) : Ptr<iGraphicPrimitivesRenderer>();
    EXPECT_TRUE(renderer);
    RectDescription description;
    description.area = {0, 0, size.x, size.y};
    description.colour = top;
    description.colour2 = bottom;
    EXPECT_TRUE(renderer && renderer->draw(description, 1));
    return image;
}

void rectanglesHaveTheirColour(const Kit& kit)
{
    const NormalisedRGB colour{1.0F, 0.0F, 0.4F, 0.2F};
    const Ptr<iGPUImage> image = colouredImage(kit, {4, 3}, colour, colour);
    const std::vector<unsigned char> bytes = downloaded(kit, image);
    ASSERT_EQ(bytes.size(), 4U * 4U * 3U);
    expectTexel(bytes, 0, {51, 255, 0, 102}, "alpha, red, green, blue in memory");
    expectTexel(bytes, 11, {51, 255, 0, 102}, "the last texel");
}

void rectanglesEndWhereTheyShould(const Kit& kit)
{
    const Ptr<iGPUImage> image = colouredImage(kit, {4, 2}, {0, 0, 0, 1}, {0, 0, 0, 1});
    ASSERT_TRUE(image);
    RectDescription description;
    description.area = {1, 0, 3, 1};
    description.colour = description.colour2 = {1, 1, 1, 1};
    ASSERT_TRUE(image->getPrimitivesRenderer(1)->draw(description, 1));
    const std::vector<unsigned char> bytes = downloaded(kit, image);
    ASSERT_EQ(bytes.size(), 4U * 4U * 2U);
    expectTexel(bytes, 0, {255, 0, 0, 0}, "left of it");
    expectTexel(bytes, 1, {255, 255, 255, 255}, "x0 is inside");
    expectTexel(bytes, 2, {255, 255, 255, 255}, "inside");
    expectTexel(bytes, 3, {255, 0, 0, 0}, "x1 is outside");
    expectTexel(bytes, 5, {255, 0, 0, 0}, "y1 is outside");
}

void gradientsRunDown(const Kit& kit)
{
    const Ptr<iGPUImage> image = colouredImage(kit, {1, 64}, {0, 0, 0, 1}, {1, 1, 1, 1});
    const std::vector<unsigned char> bytes = downloaded(kit, image);
    ASSERT_EQ(bytes.size(), 4U * 64U);
    EXPECT_LT(bytes[1], 8) << "the top has the first colour";
    EXPECT_GT(bytes[63 * 4 + 1], 247) << "the bottom has the second colour";
}

void downloadsComeBeforeLaterDrawing(const Kit& kit)
{
    const Ptr<iGPUImage> image = colouredImage(kit, {256, 256}, {1, 1, 1, 1}, {1, 1, 1, 1});
    ASSERT_TRUE(image);
    const Ptr<iHostImage> before = kit.services.os().gpu().downloadImage(image);
    RectDescription black;
    black.area = {0, 0, 256, 256};
    black.colour = black.colour2 = {0, 0, 0, 1};
    ASSERT_TRUE(before && image->getPrimitivesRenderer(1)->draw(black, 1));
    const std::vector<unsigned char> bytes = bytesOf(*before);
    ASSERT_EQ(bytes.size(), 4U * 256U * 256U);
    expectTexel(bytes, 0, {255, 255, 255, 255}, "drawn after the download");
    expectTexel(bytes, 256 * 256 - 1, {255, 255, 255, 255}, "drawn after the download");
}

void computeContextsAreAsTheHostSays(const Kit& kit)
{
    const bool isThere = static_cast<bool>(kit.services.os().gpu().createComputeContext(0));
    EXPECT_EQ(isThere, !kit.host.without.contains(Feature::ComputeContexts))
        << "a host without compute contexts returns an empty pointer and names Feature::ComputeContexts";
}

} // namespace

Promises imagePromises()
{
    return {
        {"Images",
         "AreAsAskedFor",
         gpuImagesAreAsAskedFor,
         "platform/GPUImage.h: getSize(), getFormat(), getBitsPerTexel()",
         {}},
        {"HostImages",
         "AreAsAskedFor",
         hostImagesAreAsAskedFor,
         "platform/GPUImage.h: a row is the width in texels times the size of a texel",
         {}},
        {"Images", "AreRefusedIfImpossible", impossibleImagesAreRefused,
         "platform/GPUService.h: an empty pointer on failure: a size that the device does not support",
         Feature::Images},
        {"HostImages", "StayWhereTheyAre", mappedMemoryStays,
         "platform/GPUImage.h: the address of map() is valid for the lifetime of the image", Feature::Images},
        {"HostImages", "SurviveTheRoundTrip", bytesSurviveTheRoundTrip,
         "platform/GPUService.h: uploads and downloads copy the bytes", Feature::Images},
        {"HostImages", "WaitForUploadsIfMappedForWriting", mappingForWritingWaitsForUploads,
         "platform/GPUImage.h: Write blocks until the device has finished reading and writing",
         Feature::Images},
        {"HostImages", "AreCopied", uploadsAreImagesOfTheirOwn,
         "platform/GPUService.h: uploadImage() and downloadImage() create an image", Feature::Images},
        {"Primitives", "HaveTheirColour", rectanglesHaveTheirColour,
         "platform/GPUImage.h: a texel has components in memory order; a shader sees a, r, g, b",
         Feature::Primitives},
        {"Primitives", "EndWhereTheyShould", rectanglesEndWhereTheyShould,
         "platform/GraphicPrimitives.h: x1 and y1 are exclusive", Feature::Primitives},
        {"Primitives", "HaveGradients", gradientsRunDown, "platform/GraphicPrimitives.h: a vertical gradient",
         Feature::Primitives},
        {"HostImages", "HaveWhatWasDrawnBefore", downloadsComeBeforeLaterDrawing,
         "platform/GPUService.h: downloadImage() records a copy", Feature::Primitives},
        {"ComputeContext",
         "IsThereOrEmpty",
         computeContextsAreAsTheHostSays,
         "platform/GPUService.h: createComputeContext() returns an empty pointer on failure",
         {}},
    };
}

} // namespace Qx::HostTests
