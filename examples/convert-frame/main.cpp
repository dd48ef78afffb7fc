// A frame of 4:2:2 in memory becomes RGB, through the library and its reference host.

#include <QxFxResources/GPUColourConverter.h>
#include <host/Host.h>
#include <host/gpu/GPUService.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace Qx::Image;

constexpr unsigned frameWidth = 1920;
constexpr unsigned frameHeight = 1080;

/// A frame as a decoder of BT.709 gives it: Y0 Cb Y1 Cr, 8 bits, video range.
std::vector<unsigned char> decodedFrame()
{
    std::vector<unsigned char> bytes;
    for (unsigned pair = 0; pair < frameWidth / 2 * frameHeight; ++pair) {
        bytes.insert(bytes.end(), {180, 128, 180, 128}); // grey of 75 %
    }
    return bytes;
}

/// A R G B with 8 bits each; empty if the device has no memory for it.
std::optional<Surface> toRGB(const std::vector<unsigned char>& frame)
{
    Surface surface(frameWidth, frameHeight, YUY2, false, 8, 0, 0);
    surface.setColourSpace(ColourSpace::BT709);
    surface.setGamutScaling(GamutScaling::Video);
    if (!surface.allocateHost()) {
        return std::nullopt;
    }
    const Qx::Ptr<iHostImage> image = surface.getHostImage();
    auto* rows = static_cast<unsigned char*>(image->map(iHostImage::Write)); // waits for the device
    if (rows == nullptr) {
        return std::nullopt;
    }
    const std::size_t rowBytes = std::size_t{frameWidth} * 2;
    for (std::size_t y = 0; y < frameHeight; ++y) { // a host's rows may be padded
        std::copy_n(&frame[y * rowBytes], rowBytes, rows + y * image->getPitch());
    }
    // Nothing waits for the device until the result is mapped.
    Surface onGpu = surface.uploadToGPU();
    const Surface rgb = ColourConversion::convertToRGBA(onGpu, iGPUImage::eARGB8).copyToHost();
    return rgb.getHostImage() ? std::optional(rgb) : std::nullopt;
}

} // namespace

int main(int argc, char** argv)
{
    Qx::Host::start({.argc = argc, .argv = argv, .device = nullptr, .quiet = true});
    int exitCode = 1;
    if (const std::optional<Surface> rgb = toRGB(decodedFrame())) {
        const auto* argb = static_cast<const unsigned char*>(rgb->getHostImage()->map(iHostImage::Read));
        if (argb != nullptr) {
            std::printf("%u x %u, first pixel %d %d %d %d\n", rgb->getWidth(), rgb->getHeight(), argb[0],
                        argb[1], argb[2], argb[3]);
            exitCode = 0;
        }
    } else {
        const std::string reason = Qx::Host::gpuService().failure(); // empty if there is a device
        std::fprintf(stderr, "the frame could not be converted: %s\n",
                     reason.empty() ? "the host's log says why" : reason.c_str());
    }
    Qx::Host::stop(); // before anything of the library is destroyed
    return exitCode;
}
