#include "bench/Frames.h"

#include "host/gpu/GPUService.h"
#include "image/TechniqueApplication.h"
#include "platform/GPUService.h"
#include "platform/OS.h"

#include <cstdint>
#include <string>

namespace Qx::Bench {

using namespace Image;

namespace {

template <class Component>
void fillRamp(iHostImage& image)
{
    const XY<int> size = image.getSize();
    auto* const first = static_cast<std::byte*>(image.map(iHostImage::Write));
    constexpr unsigned step = sizeof(Component) == 1 ? 1 : 256;
    for (int y = 0; y < size.y; ++y) {
        auto* row = reinterpret_cast<Component*>(first + static_cast<std::size_t>(y) * image.getPitch());
        for (int x = 0; x < 4 * size.x; ++x) {
            row[x] = static_cast<Component>((16U + static_cast<unsigned>(x + 3 * y) % 219U) * step);
        }
    }
}

} // namespace

Surface makeVideoFrame(iGPUImage::eFormat depth, XY<int> size)
{
    const bool deep = depth == iGPUImage::eARGB16;
    Surface frame(static_cast<unsigned>(size.x), static_cast<unsigned>(size.y), deep ? Y216 : YUY2, false,
                  deep ? 16 : 8, 0, 0);
    frame.setColourSpace(ColourSpace::BT709);
    frame.setGamutScaling(GamutScaling::Video);
    if (frame.allocateHost()) {
        deep ? fillRamp<std::uint16_t>(*frame.getHostImage()) : fillRamp<std::uint8_t>(*frame.getHostImage());
    }
    return frame;
}

Surface makePicture(iGPUImage::eFormat depth, XY<int> size)
{
    Surface picture = makeWrapper(OS().gpu().createGPUImage(size, depth));
    picture.setGamutScaling(GamutScaling::Unscaled);
    return picture;
}

void finish()
{
    // One queue, in order: the last draw finishes last. Two texels cost nothing compared to a frame.
    static const Surface source = makeWrapper(OS().gpu().createGPUImage({2, 1}, iGPUImage::eARGB8));
    static Surface target = makeWrapper(OS().gpu().createGPUImage({2, 1}, iGPUImage::eARGB8));
    applyTechnique(source, target, "Null", 2.0F, iGPUImage::eARGB8);
    if (const Qx::Ptr<iHostImage> image = OS().gpu().downloadImage(target.getGPUSurface())) {
        image->map(iHostImage::Read);
    }
}

Host::DeviceDescription chosenDevice()
{
    for (const Host::DeviceDescription& device : Host::gpuService().listDevices()) {
        if (device.chosen) {
            return device;
        }
    }
    return {};
}

const char* deviceName()
{
    static const std::string name = [] {
        const Host::DeviceDescription device = chosenDevice();
        return device.name.empty()
                   ? std::string("no device")
                   : device.name + ", " + device.driver + (device.software ? " (a software device)" : "");
    }();
    return name.c_str();
}

} // namespace Qx::Bench
