#include "host/Host.h"
#include "platform/GPUService.h"
#include "platform/OS.h"
#include "platform/Surface.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <random>

using namespace Qx::Image;

namespace {

std::size_t sizeOf(const Surface& surface)
{
    return surface.getHostImage()->getPitch() * static_cast<std::size_t>(surface.getHostImage()->getSize().y);
}

unsigned char* bytesOf(const Surface& surface, iHostImage::eAccess access)
{
    return static_cast<unsigned char*>(surface.getHostImage()->map(access));
}

void roundTrip(Format format, unsigned short bits)
{
    SCOPED_TRACE(testing::Message() << "format " << format << " bits " << bits);
    Surface surface(1365, 7, format, false, bits, 0, 0);
    ASSERT_TRUE(surface.allocateHost());
    std::mt19937 random(format);
    for (std::size_t i = 0; i < sizeOf(surface); ++i) {
        bytesOf(surface, iHostImage::Write)[i] = static_cast<unsigned char>(random());
    }
    const Surface back = surface.uploadToGPU().copyToHost();
    ASSERT_TRUE(back.getHostImage());
    ASSERT_EQ(sizeOf(back), sizeOf(surface));
    EXPECT_EQ(
        std::memcmp(bytesOf(back, iHostImage::Read), bytesOf(surface, iHostImage::Read), sizeOf(surface)), 0);
}

} // namespace

TEST(HostOnADevice, SurfacesKeepTheirBytesAndOutliveTheDevice)
{
    ::setenv("QX_LOG_FILE", "0", 1);
    ::setenv("QX_CACHE", "0", 1);
    Qx::Host::start({.quiet = true});
    for (const Format format : {YUY2, V210, M101, YV12, BGR24, ARGB, ARGB10}) {
        roundTrip(format, format == V210 || format == M101 || format == ARGB10 ? 10 : 8);
    }
    roundTrip(YUY2, 16);
    roundTrip(B48R, 16);
    roundTrip(B64A, 16);

    Surface kept(64, 4, ARGB, false, 8, 0, 0);
    ASSERT_TRUE(kept.allocateHost());
    Surface onDevice = kept.uploadToGPU();
    ASSERT_TRUE(onDevice.getGPUSurface());
    Qx::Host::stop();
    EXPECT_FALSE(OS().gpu().createGPUImage({4, 4}, iGPUImage::eARGB8));
    EXPECT_FALSE(onDevice.copyToHost().getHostImage());
    EXPECT_FALSE(kept.uploadToGPU().getGPUSurface());
}
