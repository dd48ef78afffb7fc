// Images whose memory is passed on as a dma-buf. Drivers without it refuse; what the service does where a
// driver has it is tried on DmaBufLayer.cpp, under the validation layer.

#include "tests/host/gpu/layers/AddLayer.h"
#include "tests/host/gpu/sharing/Exchange.h"

#include <cstdlib>
#include <fcntl.h>

namespace Qx::GpuTests {

using Host::ExportedImage;
using Host::ImageSharing;
using Host::MemoryHandle;

namespace {

/// A test of the driver as it is.
using DmaBufTest = ExchangeTest;

/// A test with the layer, which offers what the parameter says.
class LayeredDmaBufTest : public ExchangeTest, public testing::WithParamInterface<const char*>
{
protected:
    void SetUp() override
    {
        addLayer("VK_LAYER_QX_test_dmabuf");
        offer(GetParam());
        ExchangeTest::SetUp();
        if (!drawsPacked()) {
            GTEST_SKIP() << "the driver below draws into no image that has rows in order";
        }
    }

    void TearDown() override
    {
        ExchangeTest::TearDown();
        removeLayer();
        ::unsetenv("QX_TEST_DMABUF");
    }

    static void offer(const char* what) { ::setenv("QX_TEST_DMABUF", what, 1); }

    ExportedImage exportedPicture(Qx::Ptr<iGPUImage>& image)
    {
        image = exportable(iGPUImage::eARGB8, noise(bytesOf(sharedSize, iGPUImage::eARGB8)),
                           MemoryHandle::DmaBuf);
        const auto exported = sharing().exportImage(image);
        EXPECT_TRUE(exported) << takeLog();
        return exported.value_or(ExportedImage());
    }
};

std::string nameOf(const testing::TestParamInfo<const char*>& info)
{
    return info.param;
}

} // namespace

TEST_F(DmaBufTest, IsRefusedByNameWhereTheDriverHasItNot)
{
    for (const iGPUImage::eFormat format : {iGPUImage::eARGB8, iGPUImage::eARGB16, iGPUImage::eARGB10}) {
        const bool exports = sharing().canExport(MemoryHandle::DmaBuf, format);
        takeLog();
        const Qx::Ptr<iGPUImage> image =
            sharing().createExportableImage(sharedSize, format, MemoryHandle::DmaBuf);
        const std::string log = takeLog();
        EXPECT_EQ(static_cast<bool>(image), exports);
        EXPECT_EQ(log.empty(), exports) << log;
        EXPECT_TRUE(exports || log.find("has no VK_EXT_external_memory_dma_buf") != std::string::npos ||
                    log.find("does not export images of this format as dma-buf") != std::string::npos)
            << log;
    }
    if (!sharing().canImport(MemoryHandle::DmaBuf, iGPUImage::eARGB8)) {
        ExportedImage other;
        other.handle = MemoryHandle::DmaBuf;
        other.size = sharedSize;
        EXPECT_NE(refusal(other).find("dma"), std::string::npos);
    }
}

TEST_F(DmaBufTest, PassesTexelsOnWhereTheDriverHasIt)
{
    if (const std::string why = reason(MemoryHandle::DmaBuf); !why.empty()) {
        GTEST_SKIP() << why;
    }
    passToAnotherDevice(iGPUImage::eARGB8, MemoryHandle::DmaBuf);
    passToAnotherProcess(MemoryHandle::DmaBuf);
}

INSTANTIATE_TEST_SUITE_P(Offered, LayeredDmaBufTest, testing::Values("modifiers", "rows"), nameOf);

TEST_P(LayeredDmaBufTest, AnotherDeviceOfTheProcessSeesTheSameTexels)
{
    for (const iGPUImage::eFormat format : {iGPUImage::eARGB8, iGPUImage::eARGB16}) {
        EXPECT_TRUE(sharing().canExport(MemoryHandle::DmaBuf, format));
        EXPECT_TRUE(sharing().canImport(MemoryHandle::DmaBuf, format));
        passToAnotherDevice(format, MemoryHandle::DmaBuf);
    }
}

TEST_P(LayeredDmaBufTest, AnotherProcessReadsTheImageAndDrawsIntoIt)
{
    passToAnotherProcess(MemoryHandle::DmaBuf);
}

TEST_P(LayeredDmaBufTest, ADeviceThatExportsNoneImportsAll)
{
    Qx::Ptr<iGPUImage> image;
    const ExportedImage exported = exportedPicture(image);
    const Closing closing(exported.descriptor);
    offer("import");
    GPUOptions options;
    options.validation = true;
    GPUService second(options);
    ASSERT_TRUE(second.start());
    EXPECT_FALSE(ImageSharing(second).canExport(MemoryHandle::DmaBuf, iGPUImage::eARGB8));
    EXPECT_TRUE(ImageSharing(second).canImport(MemoryHandle::DmaBuf, iGPUImage::eARGB8));
    takeLog();
    EXPECT_FALSE(
        ImageSharing(second).createExportableImage(sharedSize, iGPUImage::eARGB8, MemoryHandle::DmaBuf));
    EXPECT_NE(takeLog().find("does not export images of this format as dma-buf"), std::string::npos);
    {
        const Qx::Ptr<iGPUImage> imported = ImageSharing(second).importImage(exported);
        const std::size_t bytes = bytesOf(sharedSize, iGPUImage::eARGB8);
        EXPECT_EQ(contentOf(second, imported, bytes), noise(bytes)) << takeLog();
    }
    second.shutdown();
    EXPECT_EQ(second.statistics().validationMessages, 0U) << takeLog();
}

TEST_P(LayeredDmaBufTest, SaysWhereTheTexelsLie)
{
    Qx::Ptr<iGPUImage> image;
    const ExportedImage exported = exportedPicture(image);
    const Closing closing(exported.descriptor);
    EXPECT_EQ(exported.handle, MemoryHandle::DmaBuf);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&exported.layout.fourcc), 4), "AB24");
    EXPECT_EQ(exported.layout.modifier, 0U);
    EXPECT_GE(exported.layout.pitch, static_cast<std::uint64_t>(sharedSize.x) * 4);
    EXPECT_GE(exported.bytes,
              exported.layout.offset + exported.layout.pitch * static_cast<std::uint64_t>(sharedSize.y - 1));
}

TEST_P(LayeredDmaBufTest, WhatCannotBeImportedIsRefusedByName)
{
    Qx::Ptr<iGPUImage> image;
    const ExportedImage exported = exportedPicture(image);
    const Closing closing(exported.descriptor);
    ExportedImage bad = exported;
    bad.descriptor = 9999;
    EXPECT_NE(refusal(bad).find("descriptor 9999 is not open"), std::string::npos);
    bad = exported;
    bad.layout.modifier = 0x0100000000000001;
    EXPECT_NE(refusal(bad).find("DRM format modifier 72057594037927937"), std::string::npos);
    bad = exported;
    bad.handle = static_cast<MemoryHandle>(7);
    EXPECT_NE(refusal(bad).find("kind of descriptor is 7"), std::string::npos);
    const Closing nothing(bad.descriptor = ::open("/dev/null", O_RDWR | O_CLOEXEC));
    bad.handle = MemoryHandle::DmaBuf;
    EXPECT_NE(refusal(bad).find("the memory has 0 bytes"), std::string::npos);
    bad = exported;
    bad.layout.pitch += 64;
    EXPECT_NE(refusal(bad).find("bytes apart; the device needs byte"), std::string::npos);
    bad = exported;
    bad.driver[0] ^= 1U; // of no matter for a dma-buf
    EXPECT_TRUE(sharing().importImage(bad)) << takeLog();
    EXPECT_TRUE(sharing().takeImage(image, VK_IMAGE_LAYOUT_GENERAL, {}));
}

} // namespace Qx::GpuTests
