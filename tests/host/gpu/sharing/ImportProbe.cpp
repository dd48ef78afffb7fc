// The second process of a test: imports the image whose memory is the descriptor 3, and whose description is
// on standard input; prints the sum of its bytes, inverts the upper left texel's first byte by drawing, and
// returns.

#include "host/Host.h"
#include "host/gpu/DeviceSharing.h"
#include "host/gpu/GPUService.h"
#include "platform/GraphicPrimitives.h"

#include <cstdio>
#include <unistd.h>

namespace {

constexpr int descriptor = 3;

int importAndDraw(Qx::Host::GPUService& service)
{
    Qx::Host::ImageSharing sharing(service);
    Qx::Host::ExportedImage exported;
    if (std::fread(&exported, sizeof exported, 1, stdin) != 1) {
        return 2;
    }
    exported.descriptor = descriptor;
    const Qx::Ptr<iGPUImage> image = sharing.importImage(exported);
    ::close(descriptor);
    const Qx::Ptr<iHostImage> host = image ? service.downloadImage(image) : Qx::Ptr<iHostImage>();
    const auto* const bytes = host ? static_cast<const unsigned char*>(host->map(iHostImage::Read)) : nullptr;
    if (bytes == nullptr) {
        return 3;
    }
    unsigned long sum = 0;
    for (std::size_t i = 0; i < host->getPitch() * static_cast<std::size_t>(exported.size.y); ++i) {
        sum = sum * 31 + bytes[i];
    }
    RectDescription rectangle;
    rectangle.area = {0, 0, 1, 1};
    rectangle.colour = {1.0F, 0.0F, 1.0F, 0.0F};
    rectangle.colour2 = rectangle.colour;
    if (!image->getPrimitivesRenderer(1)->draw(rectangle, 1)) {
        return 4;
    }
    const auto given = sharing.giveImage(image, VK_IMAGE_LAYOUT_GENERAL);
    if (!given || !sharing.wait(*given)) {
        return 5;
    }
    std::printf("%lu\n", sum);
    return service.statistics().validationMessages == 0 ? 0 : 6;
}

} // namespace

int main(int argc, char** argv)
{
    Qx::Host::start({.argc = argc, .argv = argv, .device = nullptr, .quiet = false});
    const int result = importAndDraw(Qx::Host::gpuService());
    Qx::Host::stop();
    return result;
}
