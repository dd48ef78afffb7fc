#include "tests/host/gpu/GpuFixture.h"

#include <cstring>

namespace Qx::GpuTests {

namespace {

class TransferTest : public GpuTest
{
};

const std::vector<XY<int>> sizes{{1, 1},  {2, 1},   {1, 2},    {3, 5},     {7, 3},
                                 {31, 1}, {64, 64}, {129, 77}, {1920, 17}, {1920, 1080}};
const std::vector<iGPUImage::eFormat> formats{iGPUImage::eARGB8, iGPUImage::eARGB16, iGPUImage::eARGB10};

} // namespace

TEST_F(TransferTest, UploadAndDownloadKeepEveryByteAtEverySizeAndFormat)
{
    for (const iGPUImage::eFormat format : formats) {
        for (const XY<int> size : sizes) {
            const Bytes bytes = noise(bytesOf(size, format), static_cast<std::uint32_t>(size.x));
            const Qx::Ptr<iGPUImage> image = upload(size, format, bytes);
            ASSERT_TRUE(image) << size.x << "x" << size.y << " format " << format;
            EXPECT_EQ(image->getSize(), size);
            EXPECT_EQ(image->getFormat(), format);
            EXPECT_EQ(download(image), bytes) << size.x << "x" << size.y << " format " << format;
        }
    }
}

TEST_F(TransferTest, AHostImageHasRowsWithoutPadding)
{
    EXPECT_EQ(gpu().createHostImage({7, 3}, iGPUImage::eARGB8)->getPitch(), 28U);
    EXPECT_EQ(gpu().createHostImage({7, 3}, iGPUImage::eARGB16)->getPitch(), 56U);
    EXPECT_EQ(gpu().createHostImage({7, 3}, iGPUImage::eARGB10)->getPitch(), 28U);
}

TEST_F(TransferTest, AHostImageIsNotRewrittenBeforeItsUploadIsRead)
{
    const XY<int> size{640, 480};
    const Qx::Ptr<iHostImage> host = gpu().createHostImage(size, iGPUImage::eARGB8);
    std::vector<Qx::Ptr<iGPUImage>> images;
    for (int i = 0; i < 8; ++i) {
        void* memory = host->map(iHostImage::Write);
        ASSERT_NE(memory, nullptr);
        std::memset(memory, 10 + i, bytesOf(size, iGPUImage::eARGB8));
        images.push_back(gpu().uploadImage(host, 0));
        ASSERT_TRUE(images.back());
    }
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(download(images[static_cast<std::size_t>(i)]),
                  Bytes(bytesOf(size, iGPUImage::eARGB8), static_cast<std::uint8_t>(10 + i)));
    }
}

TEST_F(TransferTest, DownloadsOfOneImageAreCopiesOfTheirOwn)
{
    const XY<int> size{33, 21};
    const Bytes bytes = noise(bytesOf(size, iGPUImage::eARGB8));
    const Qx::Ptr<iGPUImage> image = upload(size, iGPUImage::eARGB8, bytes);
    const Qx::Ptr<iHostImage> first = gpu().downloadImage(image);
    const Qx::Ptr<iHostImage> second = gpu().downloadImage(image);
    std::memset(first->map(iHostImage::Write), 0, bytes.size());
    EXPECT_EQ(std::memcmp(second->map(iHostImage::Read), bytes.data(), bytes.size()), 0);
}

TEST_F(TransferTest, AnImageSurvivesTheReleaseOfTheHostImageItCameFrom)
{
    const XY<int> size{200, 100};
    const Bytes bytes = noise(bytesOf(size, iGPUImage::eARGB16));
    const Qx::Ptr<iGPUImage> image =
        upload(size, iGPUImage::eARGB16, bytes); // the host image is released here
    const Qx::Ptr<iGPUImage> other = upload(size, iGPUImage::eARGB16, noise(bytes.size(), 7));
    EXPECT_EQ(download(image), bytes);
}

TEST_F(TransferTest, ACopyOnTheDeviceHasEveryByteAndFitsSizeAndFormat)
{
    const XY<int> size{129, 77};
    for (const iGPUImage::eFormat format : formats) {
        const Bytes bytes = noise(bytesOf(size, format), 5);
        const Qx::Ptr<iGPUImage> source = upload(size, format, bytes);
        const Qx::Ptr<iGPUImage> target = gpu().createGPUImage(size, format);
        EXPECT_TRUE(gpu().copyImage(source, target));
        EXPECT_EQ(download(target), bytes) << format;
        EXPECT_EQ(download(source), bytes) << format;
        EXPECT_FALSE(gpu().copyImage(source, source));
        EXPECT_FALSE(gpu().copyImage(source, gpu().createGPUImage({129, 76}, format)));
        EXPECT_FALSE(gpu().copyImage(source, {}));
        EXPECT_FALSE(gpu().copyImage({}, target));
    }
    EXPECT_FALSE(gpu().copyImage(gpu().createGPUImage(size, iGPUImage::eARGB8),
                                 gpu().createGPUImage(size, iGPUImage::eARGB16)));
}

TEST_F(TransferTest, ASteadyStateMakesNoNewImages)
{
    const XY<int> size{640, 360};
    const Bytes bytes = noise(bytesOf(size, iGPUImage::eARGB8));
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(download(upload(size, iGPUImage::eARGB8, bytes)), bytes);
    }
    const Host::GPUStatistics before = gpu().statistics();
    for (int i = 0; i < 50; ++i) {
        ASSERT_EQ(download(upload(size, iGPUImage::eARGB8, bytes)), bytes);
    }
    const Host::GPUStatistics after = gpu().statistics();
    EXPECT_EQ(after.imagesCreated, before.imagesCreated);
    EXPECT_EQ(after.hostImagesCreated, before.hostImagesCreated);
    EXPECT_EQ(after.memoryAllocations, before.memoryAllocations);
    EXPECT_EQ(after.liveImageBytes, 0U);
    EXPECT_EQ(after.liveHostBytes, 0U);
}

TEST_F(TransferTest, WaitingHandsInWhatIsWorthASubmission)
{
    const auto drawGradient = [](const Qx::Ptr<iGPUImage>& image) {
        RectDescription gradient;
        gradient.area = {0, 0, image->getSize().x, image->getSize().y};
        gradient.colour = {1, 0, 0, 1};
        ASSERT_TRUE(image->getPrimitivesRenderer(1)->draw(gradient, 1));
    };
    const Qx::Ptr<iGPUImage> first = gpu().createGPUImage({2048, 2048}, iGPUImage::eARGB16);
    const Qx::Ptr<iGPUImage> second = gpu().createGPUImage({512, 512}, iGPUImage::eARGB16);
    const std::uint64_t before = gpu().statistics().batchesSubmitted;
    drawGradient(first);
    const Qx::Ptr<iHostImage> host = gpu().downloadImage(first);
    drawGradient(second); // not submitted while the device is busy with the first
    ASSERT_NE(host->map(iHostImage::Read), nullptr);
    // The two drawings, and a copy between them if the host has no part in the image's memory.
    EXPECT_EQ(gpu().statistics().batchesSubmitted, before + (sharesMemory() ? 2 : 3));
}

TEST_F(TransferTest, ManySmallImagesShareAllocationsOfDeviceMemory)
{
    std::vector<Qx::Ptr<iGPUImage>> images;
    for (int i = 0; i < 500; ++i) {
        images.push_back(gpu().createGPUImage({16, 16}, iGPUImage::eARGB8));
        ASSERT_TRUE(images.back());
    }
    EXPECT_LT(gpu().statistics().memoryAllocations, 100U);
}

TEST_F(TransferTest, SizesThatCannotBeAreRefused)
{
    for (const XY<int> size : {XY<int>{0, 4}, XY<int>{4, 0}, XY<int>{-1, 4}, XY<int>{4, -8},
                               XY<int>{1 << 20, 1}, XY<int>{1, 1 << 20}, XY<int>{0x7fffffff, 0x7fffffff}}) {
        EXPECT_FALSE(gpu().createGPUImage(size, iGPUImage::eARGB8)) << size.x << "x" << size.y;
        EXPECT_FALSE(gpu().createHostImage(size, iGPUImage::eARGB8)) << size.x << "x" << size.y;
    }
    EXPECT_FALSE(gpu().createGPUImage({4, 4}, static_cast<iGPUImage::eFormat>(77)));
    EXPECT_FALSE(gpu().createHostImage({4, 4}, static_cast<iGPUImage::eFormat>(77)));
}

TEST_F(TransferTest, NothingIsMadeOfNothing)
{
    EXPECT_FALSE(gpu().uploadImage({}, 0));
    EXPECT_FALSE(gpu().downloadImage({}));
    EXPECT_FALSE(gpu().upload3DImage({}));
    EXPECT_FALSE(gpu().createComputeContext(1));
    EXPECT_TRUE(gpu().createComputeContext(0));
    EXPECT_FALSE(gpu().createGPUImage({4, 4}, iGPUImage::eARGB8)->getPrimitivesRenderer(2));
}

TEST_F(TransferTest, TablesHaveAtLeastTwoEntriesAnEdgeAndFitTheDevice)
{
    EXPECT_FALSE(gpu().createHostImage3D(1));
    EXPECT_FALSE(gpu().createHostImage3D(-5));
    EXPECT_FALSE(gpu().createHostImage3D(1 << 20));
    const Qx::Ptr<iHostImage3D> table = gpu().createHostImage3D(17);
    ASSERT_TRUE(table);
    EXPECT_EQ(table->getSize(), 17);
    const Qx::Ptr<iGPUImage3D> onDevice = gpu().upload3DImage(table);
    ASSERT_TRUE(onDevice);
    EXPECT_EQ(onDevice->getSize(), 17);
}

namespace {

class BoundedTest : public GpuTest
{
protected:
    static constexpr std::uint64_t bound = 1U << 20;
    BoundedTest() : GpuTest(options()) {}

    static GPUOptions options()
    {
        GPUOptions options;
        options.inFlightBytes = bound;
        options.poolBytes = bound;
        return options;
    }
};

} // namespace

TEST_F(BoundedTest, WorkInFlightStaysWithinItsBound)
{
    const XY<int> size{256, 256};
    const Qx::Ptr<iHostImage> host = gpu().createHostImage(size, iGPUImage::eARGB8);
    for (int i = 0; i < 40; ++i) {
        ASSERT_TRUE(gpu().downloadImage(gpu().uploadImage(host, 0)));
        EXPECT_LE(gpu().statistics().inFlightBytes, bound);
    }
    EXPECT_EQ(gpu().statistics().inFlightLimit, bound);
}

TEST_F(BoundedTest, AnImageLargerThanTheBoundStillGoesThrough)
{
    const XY<int> size{1024, 1024};
    const Bytes bytes = noise(bytesOf(size, iGPUImage::eARGB8));
    EXPECT_EQ(download(upload(size, iGPUImage::eARGB8, bytes)), bytes);
}

TEST_F(BoundedTest, ReleasedImagesAreKeptUpToTheBoundOfThePool)
{
    for (int i = 0; i < 24; ++i) {
        const Qx::Ptr<iGPUImage> image =
            upload({256, 200 + i}, iGPUImage::eARGB8, noise(bytesOf({256, 200 + i}, iGPUImage::eARGB8)));
        ASSERT_FALSE(download(image).empty());
    }
    ASSERT_TRUE(gpu().createGPUImage({1, 1}, iGPUImage::eARGB8));
    ASSERT_TRUE(gpu().createHostImage({1, 1}, iGPUImage::eARGB8));
    EXPECT_LE(gpu().statistics().idleImageBytes, bound + 4);
    EXPECT_LE(gpu().statistics().idleHostBytes, bound + 4096);
    gpu().trim();
    EXPECT_EQ(gpu().statistics().idleImageBytes, 0U);
}

} // namespace Qx::GpuTests
