#pragma once

#include "Qx/HostAllocator.h"
#include "platform/GPUService.h"

#include <atomic>
#include <cstddef>
#include <vector>

namespace Qx::Host::Test {

/// A GPU image whose texels are plain memory.
class MemoryImage final : public iGPUImage
{
public:
    MemoryImage(XY<int> size, eFormat format);

    XY<int> getSize() const override { return size_; }
    eFormat getFormat() const override { return format_; }
    unsigned getBitsPerTexel() const override { return format_ == eARGB16 ? 64 : 32; }
    Ptr<iGraphicPrimitivesRenderer> getPrimitivesRenderer(int) override { return {}; }

    std::vector<std::byte> bytes;

private:
    XY<int> size_;
    eFormat format_;
};

/// A GPU for tests of the services: it keeps images and copies their bytes, and draws nothing.
class MemoryGPU final : public iGPUService
{
public:
    static MemoryGPU& instance();

    /// Allocation of the next images fails.
    std::atomic<bool> exhausted = false;

    Ptr<iShaderEffect> loadEffectFile(const LightweightString<wchar_t>&, const Definitions&) override;
    EffectCompileResult compileEffectFile(const LightweightString<wchar_t>&, const Definitions&) override;
    Ptr<iGPUComputeContext> createComputeContext(int) override;
    Ptr<iGPUImage> createGPUImage(XY<int> size, iGPUImage::eFormat format) override;
    Ptr<iHostImage> createHostImage(XY<int> size, iGPUImage::eFormat format) override;
    Ptr<iGPUImage> uploadImage(Ptr<iHostImage> image, int) override;
    Ptr<iHostImage> downloadImage(Ptr<iGPUImage> image) override;
    Ptr<iHostImage3D> createHostImage3D(int) override;
    Ptr<iGPUImage3D> upload3DImage(Ptr<iHostImage3D>) override;
    Ptr<iFont> createFont(const LightweightString<wchar_t>&, int, int) override;
};

} // namespace Qx::Host::Test
