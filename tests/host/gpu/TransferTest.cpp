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

} // namespace Qx::GpuTests
