#pragma once

#include <Qx/HostAllocator.h>
#include <platform/GPUService.h>

#include <cstddef>
#include <memory>
#include <vector>

/// The "GPU" of this host is the processor: images are memory, and an effect is a function in C++.

using Texels = std::vector<unsigned char>; ///< A R G B, without padding

class HostPicture final : public iHostImage
{
public:
    HostPicture(XY<int> size, iGPUImage::eFormat format, std::shared_ptr<Texels> texels = {});

    XY<int> getSize() const override { return size_; }
    iGPUImage::eFormat getFormat() const override { return format_; }
    std::size_t getPitch() const override;
    void* map(eAccess) override { return texels_->data(); } // nothing runs beside us: no waiting
    const std::shared_ptr<Texels>& texels() const { return texels_; }

private:
    XY<int> size_;
    iGPUImage::eFormat format_;
    std::shared_ptr<Texels> texels_;
};

class GpuPicture final : public iGPUImage
{
public:
    GpuPicture(XY<int> size, eFormat format, const Texels* from = nullptr);

    XY<int> getSize() const override { return size_; }
    eFormat getFormat() const override { return format_; }
    unsigned getBitsPerTexel() const override { return format_ == eARGB16 ? 64 : 32; }
    Qx::Ptr<iGraphicPrimitivesRenderer> getPrimitivesRenderer(int) override { return {}; } // no text here
    const std::shared_ptr<Texels>& texels() const { return texels_; }

private:
    XY<int> size_;
    eFormat format_;
    std::shared_ptr<Texels> texels_;
};

/// The one effect of this host, with the technique "Negative" for 8 bits.
class Negative final : public iShaderEffect
{
public:
    bool setTechnique(const LightweightString<char>& name) override { return name == "Negative"; }
    Qx::Vector<LightweightString<char>> getTechniqueNames() const override;
    Qx::Ptr<iShaderParam> getParam(const char*) override { return {}; } // "_Width" and "_Height" are offered
    bool render(Qx::Ptr<iGPUImage> target, const Qx::Vector<Source>& sources) override;
};
