#include <QxFxResources/GPUColourConverter.h>
#include <QxFxResources/Manager.h>
#include <host/Host.h>
#include <image/TechniqueApplication.h>
#include <platform/GPUService.h>
#include <platform/OS.h>

#include <cstdio>

namespace {

/// One colour through "null.fx": what comes out must be what went in.
bool copyOnTheDevice()
{
    const Qx::Ptr<iHostImage> picture = OS().gpu().createHostImage({4, 2}, iGPUImage::eARGB8);
    if (!picture) {
        return false;
    }
    auto* bytes = static_cast<unsigned char*>(picture->map(iHostImage::Write));
    for (unsigned i = 0; i < 4 * 2 * 4; ++i) {
        bytes[i] = static_cast<unsigned char>(i * 7);
    }
    Qx::Image::Surface source = Qx::Image::makeWrapper(OS().gpu().uploadImage(picture, 0));
    Qx::Image::Surface copy = source.createDestARGBGPUSurface(iGPUImage::eARGB8);
    if (!Qx::Image::applyTechnique(source, copy, "Null", 4.0F, iGPUImage::eARGB8)) {
        return false;
    }
    const Qx::Ptr<iHostImage> back = copy.copyToHost().getHostImage();
    const auto* result = back ? static_cast<const unsigned char*>(back->map(iHostImage::Read)) : nullptr;
    for (unsigned i = 0; result != nullptr && i < 4 * 2 * 4; ++i) {
        if (result[i] != static_cast<unsigned char>(i * 7)) {
            return false;
        }
    }
    return result != nullptr;
}

} // namespace

int main(int argc, char** argv)
{
    Qx::Host::start({.argc = argc, .argv = argv, .device = nullptr, .quiet = true});
    const bool copied = copyOnTheDevice();
    const auto effects = Qx::FxResources::Manager::instance().effects().size();
    std::printf("%zu effects, copy %s\n", effects, copied ? "right" : "wrong");
    Qx::Host::stop();
    return copied && effects > 0 ? 0 : 1;
}
