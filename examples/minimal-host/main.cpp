// The library on a host of its own: a picture through the technique "Negative" of the effect "negative.fx".

#include "Host.h"

#include <QxFxResources/Manager.h>
#include <image/TechniqueApplication.h>
#include <platform/OS.h>
#include <platform/Surface.h>

#include <cstdio>

int main()
{
    using namespace Qx::Image;
    int exitCode = 1;
    {
        Surface picture(2, 1, ARGB, false, 8, 0, 0);
        if (picture.allocateHost()) {
            auto* argb = static_cast<unsigned char*>(picture.getHostImage()->map(iHostImage::Write));
            for (int i = 0; i < 8; ++i) {
                argb[i] = static_cast<unsigned char>(10 * i);
            }
        }
        const Surface onGpu = picture.uploadToGPU();
        Surface drawn = onGpu.createDestARGBGPUSurface(iGPUImage::eARGB8);
        if (applyTechnique(getShader(L"negative.fx"), onGpu, drawn, "Negative", 2.0F)) {
            const Surface back = drawn.copyToHost();
            const auto* argb = static_cast<const unsigned char*>(back.getHostImage()->map(iHostImage::Read));
            std::printf("%zu effect, first pixel %d %d %d %d\n",
                        static_cast<std::size_t>(Qx::FxResources::Manager::instance().effects().size()),
                        argb[0], argb[1], argb[2], argb[3]);
            exitCode = 0;
        }
    } // images go before the host
    stopHost();
    return exitCode;
}
