#include "tests/host/services/MemoryGPU.h"

#include "host/lifecycle/GPUConnection.h"

#include <cstring>

namespace Qx::Host {

iGPUService& connectedGPU()
{
    return Test::MemoryGPU::instance();
}

void configureGPU(const StartOptions&) {}

void shutDownGPU() {}

namespace Test {

namespace {

std::size_t pitchOf(XY<int> size, iGPUImage::eFormat format)
{
    return static_cast<std::size_t>(size.x) * (format == iGPUImage::eARGB16 ? 8 : 4);
}

/// Fresh memory holds something, so that what nobody wrote is seen.
constexpr auto leftover = std::byte{0xAB};

class MemoryHostImage final : public iHostImage
{
public:
    MemoryHostImage(XY<int> size, iGPUImage::eFormat format)
        : bytes(pitchOf(size, format) * static_cast<std::size_t>(size.y), leftover),
          size_(size),
          format_(format)
    {
    }

    XY<int> getSize() const override { return size_; }
    iGPUImage::eFormat getFormat() const override { return format_; }
    std::size_t getPitch() const override { return pitchOf(size_, format_); }
    void* map(eAccess) override { return bytes.data(); }

    std::vector<std::byte> bytes;

private:
    XY<int> size_;
    iGPUImage::eFormat format_;
};

bool isPossible(XY<int> size)
{
    return size.x > 0 && size.y > 0 && size.x <= 16384 && size.y <= 65536;
}

} // namespace

MemoryImage::MemoryImage(XY<int> size, eFormat format)
    : bytes(pitchOf(size, format) * static_cast<std::size_t>(size.y), leftover), size_(size), format_(format)
{
}

MemoryGPU& MemoryGPU::instance()
{
    static MemoryGPU& gpu = *new MemoryGPU;
    return gpu;
}

Ptr<iShaderEffect> MemoryGPU::loadEffectFile(const LightweightString<wchar_t>&, const Definitions&)
{
    return {};
}

EffectCompileResult MemoryGPU::compileEffectFile(const LightweightString<wchar_t>&, const Definitions&)
{
    return {};
}

Ptr<iGPUComputeContext> MemoryGPU::createComputeContext(int)
{
    return {};
}

Ptr<iGPUImage> MemoryGPU::createGPUImage(XY<int> size, iGPUImage::eFormat format)
{
    return exhausted || !isPossible(size) ? Ptr<iGPUImage>() : makePtr<MemoryImage>(size, format);
}

Ptr<iHostImage> MemoryGPU::createHostImage(XY<int> size, iGPUImage::eFormat format)
{
    return exhausted || !isPossible(size) ? Ptr<iHostImage>() : makePtr<MemoryHostImage>(size, format);
}

Ptr<iGPUImage> MemoryGPU::uploadImage(Ptr<iHostImage> image, int)
{
    Ptr<iGPUImage> result = createGPUImage(image->getSize(), image->getFormat());
    if (result) {
        auto& bytes = static_cast<MemoryImage&>(*result).bytes;
        std::memcpy(bytes.data(), image->map(iHostImage::Read), bytes.size());
    }
    return result;
}

Ptr<iHostImage> MemoryGPU::downloadImage(Ptr<iGPUImage> image)
{
    Ptr<iHostImage> result = createHostImage(image->getSize(), image->getFormat());
    if (result) {
        const auto& bytes = static_cast<MemoryImage&>(*image).bytes;
        std::memcpy(result->map(iHostImage::Write), bytes.data(), bytes.size());
    }
    return result;
}

Ptr<iHostImage3D> MemoryGPU::createHostImage3D(int)
{
    return {};
}

Ptr<iGPUImage3D> MemoryGPU::upload3DImage(Ptr<iHostImage3D>)
{
    return {};
}

Ptr<iFont> MemoryGPU::createFont(const LightweightString<wchar_t>&, int, int)
{
    return {};
}

} // namespace Test

} // namespace Qx::Host
