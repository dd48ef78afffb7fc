// Images whose memory is passed on as an opaque file descriptor, to another device of this process and to
// another process.

#include "tests/host/gpu/sharing/Application.h"
#include "tests/host/gpu/sharing/Exchange.h"

namespace Qx::GpuTests {

using Host::ExportedImage;
using Host::ImageSharing;
using Host::MemoryHandle;

/// A test of a device that exports memory. On others only the refusal is tested.
using MemorySharingTest = ExchangeTest;

TEST_F(MemorySharingTest, AnotherDeviceOfTheProcessSeesTheSameTexels)
{
    if (const std::string why = reason(MemoryHandle::Opaque); !why.empty()) {
        GTEST_SKIP() << why;
    }
    for (const iGPUImage::eFormat format : {iGPUImage::eARGB8, iGPUImage::eARGB16, iGPUImage::eARGB10}) {
        EXPECT_TRUE(sharing().canExport(MemoryHandle::Opaque, format));
        EXPECT_TRUE(sharing().canImport(MemoryHandle::Opaque, format));
        passToAnotherDevice(format, MemoryHandle::Opaque);
    }
}

TEST_F(MemorySharingTest, AnotherProcessReadsTheImageAndDrawsIntoIt)
{
    if (const std::string why = reason(MemoryHandle::Opaque); !why.empty()) {
        GTEST_SKIP() << why;
    }
    passToAnotherProcess(MemoryHandle::Opaque);
}

TEST_F(MemorySharingTest, WhatCannotBeImportedIsRefusedByName)
{
    if (const std::string why = reason(MemoryHandle::Opaque); !why.empty()) {
        GTEST_SKIP() << why;
    }
    const Qx::Ptr<iGPUImage> image =
        exportable(iGPUImage::eARGB8, noise(bytesOf(sharedSize, iGPUImage::eARGB8)), MemoryHandle::Opaque);
    const auto exported = sharing().exportImage(image);
    ASSERT_TRUE(exported);
    const Closing closing(exported->descriptor);
    ExportedImage bad = *exported;
    bad.descriptor = 9999;
    EXPECT_NE(refusal(bad).find("descriptor 9999 is not open"), std::string::npos);
    bad = *exported;
    bad.driver[0] ^= 1U;
    EXPECT_NE(refusal(bad).find("another device or driver"), std::string::npos);
    bad = *exported;
    bad.bytes = 16;
    EXPECT_NE(refusal(bad).find("the memory has 16 bytes"), std::string::npos);
    bad = *exported;
    bad.size = {-1, 4};
    EXPECT_NE(refusal(bad).find("-1 x 4"), std::string::npos);
    takeLog();
    EXPECT_FALSE(sharing().exportImage(upload({4, 4}, iGPUImage::eARGB8, noise(64))));
    EXPECT_NE(takeLog().find("not created by createExportableImage()"), std::string::npos);
}

TEST_F(MemorySharingTest, ADeviceWithoutTheExtensionSaysSo)
{
    Application::Ways ways;
    ways.withExtensions = false;
    const Application application(ways);
    GPUOptions options;
    options.sharedDevice = std::make_shared<const Host::ApplicationDevice>(application.shared());
    GPUService service(options);
    ASSERT_TRUE(service.start()) << service.failure();
    takeLog();
    EXPECT_FALSE(ImageSharing(service).canExport(MemoryHandle::Opaque, iGPUImage::eARGB8));
    EXPECT_FALSE(ImageSharing(service).canImport(MemoryHandle::Opaque, iGPUImage::eARGB8));
    EXPECT_EQ(takeLog(), "");
    EXPECT_FALSE(ImageSharing(service).createExportableImage(sharedSize, iGPUImage::eARGB8));
    EXPECT_NE(takeLog().find("VK_KHR_external_memory_fd"), std::string::npos);
    service.shutdown();
}

} // namespace Qx::GpuTests
