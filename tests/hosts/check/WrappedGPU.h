#pragma once

#include "tests/hosts/check/WrappedOS.h"

#include <platform/GPUService.h>

namespace Qx::HostTests {

/// The process's GPU service, of which a test replaces functions.
class WrappedGPU : public iGPUService
{
public:
    virtual ~WrappedGPU() = default;
    Ptr<iShaderEffect> loadEffectFile(const LightweightString<wchar_t>& path,
                                      const Definitions& definitions) override
    {
        return OS().gpu().loadEffectFile(path, definitions);
    }
    EffectCompileResult compileEffectFile(const LightweightString<wchar_t>& path,
                                          const Definitions& definitions) override
    {
        return OS().gpu().compileEffectFile(path, definitions);
    }
    Ptr<iGPUComputeContext> createComputeContext(int kind) override
    {
        return OS().gpu().createComputeContext(kind);
    }
    Ptr<iGPUImage> createGPUImage(XY<int> size, iGPUImage::eFormat format) override
    {
        return OS().gpu().createGPUImage(size, format);
    }
    Ptr<iHostImage> createHostImage(XY<int> size, iGPUImage::eFormat format) override
    {
        return OS().gpu().createHostImage(size, format);
    }
    Ptr<iGPUImage> uploadImage(Ptr<iHostImage> image, int options) override
    {
        return OS().gpu().uploadImage(image, options);
    }
    Ptr<iHostImage> downloadImage(Ptr<iGPUImage> image) override { return OS().gpu().downloadImage(image); }
    Ptr<iHostImage3D> createHostImage3D(int size) override { return OS().gpu().createHostImage3D(size); }
    Ptr<iGPUImage3D> upload3DImage(Ptr<iHostImage3D> image) override
    {
        return OS().gpu().upload3DImage(image);
    }
    Ptr<iFont> createFont(const LightweightString<wchar_t>& typeface, int size, int style) override
    {
        return OS().gpu().createFont(typeface, size, style);
    }
};

template <class GPU>
class OSWithGPU final : public WrappedOS
{
public:
    iGPUService& gpu() override { return gpu_; }

private:
    GPU gpu_;
};

template <class GPU>
std::unique_ptr<Services> withGPU(HostUnderTest& host)
{
    return servicesOf<OSWithGPU<GPU>>(host);
}

} // namespace Qx::HostTests
