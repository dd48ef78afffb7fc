#include "host/lifecycle/GPUConnection.h"

#include "host/core/Immortal.h"
#include "platform/GPUService.h"
#include "platform/Log.h"

namespace Qx::Host {

namespace {

/// No device is built in: every operation fails as it does on a machine without one.
class NoGPU final : public iGPUService
{
public:
    Ptr<iShaderEffect> loadEffectFile(const LightweightString<wchar_t>&, const Definitions&) override
    {
        return {};
    }
    EffectCompileResult compileEffectFile(const LightweightString<wchar_t>&, const Definitions&) override
    {
        return {{}, "no GPU service is built in"};
    }
    Ptr<iGPUComputeContext> createComputeContext(int) override { return {}; }
    Ptr<iGPUImage> createGPUImage(XY<int>, iGPUImage::eFormat) override { return {}; }
    Ptr<iHostImage> createHostImage(XY<int>, iGPUImage::eFormat) override { return {}; }
    Ptr<iGPUImage> uploadImage(Ptr<iHostImage>, int) override { return {}; }
    Ptr<iHostImage> downloadImage(Ptr<iGPUImage>) override { return {}; }
    Ptr<iHostImage3D> createHostImage3D(int) override { return {}; }
    Ptr<iGPUImage3D> upload3DImage(Ptr<iHostImage3D>) override { return {}; }
    Ptr<iFont> createFont(const LightweightString<wchar_t>&, int, int) override { return {}; }
};

} // namespace

iGPUService& connectedGPU()
{
    return immortal<NoGPU>();
}

void configureGPU(const char*) {}

void shutDownGPU() {}

} // namespace Qx::Host
