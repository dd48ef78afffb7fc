#include "QxFxResources/ColourConversionDetail.h"
#include "QxFxResources/GPUColourConverter.h"
#include "image/TechniqueApplication.h"
#include "platform/GPUService.h"
#include "platform/OS.h"

namespace Qx::Image::ColourConversion {

namespace {

constexpr const char* sourceWidthParameter = "pSourceImageTotalWidthInDWORDs";

float widthOf(const Qx::Ptr<iGPUImage>& image)
{
    return image ? static_cast<float>(image->getSize().x) : 0.0F;
}

void renderFrom(const Surface& source, float right, iShaderEffect& effect, const Qx::Ptr<iGPUImage>& target)
{
    Qx::Vector<iShaderEffect::Source> inputs;
    inputs.emplace_back("gSourceImage", source.getGPUSurface()).texCoords = {0.0F, 0.0F, right, 1.0F};
    effect.render(target, inputs);
}

} // namespace

bool unpackDvs10BitFormat(const Surface& source, Surface& dest) noexcept
{
    const CriticalSectionScope inside(gpuLock());
    const Qx::Ptr<iShaderEffect> effect = getShader(colourConvertEffect);
    if (!effect || !effect->setTechnique("UnpackDvs10Bit_BaseOnly")) {
        return false;
    }
    effect->setFloat(sourceWidthParameter, widthOf(source.getGPUSurface()));
    renderFrom(source, 1.0F, *effect, dest.getGPUSurface());
    dest.setDescriptions(source.getDescriptions());
    return true;
}

bool unpackMatrox10BitFormat(const Surface& source, Surface& dest) noexcept
{
    const CriticalSectionScope inside(gpuLock());
    const Qx::Ptr<iShaderEffect> effect = getShader(colourConvertEffect);
    if (!effect) {
        return false;
    }
    const bool upperBitsOnly = dest.getBitsPerComponent() == 8;
    if (!upperBitsOnly) {
        QX_CONVERTER_ASSERT(dest.getBitsPerComponent() == 16, "dest.getBitsPerComponent() == 16", 674);
    }
    if (!effect->setTechnique(upperBitsOnly ? "UnpackMatrox10Bit_BaseOnly" : "UnpackMatrox10Bit")) {
        return false;
    }
    const Qx::Ptr<iGPUImage> target = dest.getGPUSurface();
    effect->setFloat(sourceWidthParameter, widthOf(source.getGPUSurface()));
    renderFrom(source, widthOf(target), *effect,
               target); // in texels: the shader addresses words by output column

    const unsigned bitsPerTexel = target ? target->getBitsPerTexel() : 0;
    dest.setDataFormat(YUY2);
    dest.setBitsPerComponent(static_cast<std::uint16_t>(bitsPerTexel / 4));
    dest.setBitsPerPixel(static_cast<std::uint16_t>(bitsPerTexel / 2));
    dest.setRowPitch(static_cast<std::uint32_t>(std::uint64_t{dest.getWidth()} * dest.getBitsPerPixel() / 8));
    dest.setDescriptions(source.getDescriptions());
    return true;
}

bool packMatrox10BitFormat(const Surface& source, Surface& dest) noexcept
{
    const CriticalSectionScope inside(gpuLock());
    return packMatrox(getShader(colourConvertEffect), source, dest);
}

bool packMatrox(const Qx::Ptr<iShaderEffect>& convert, const Surface& source, Surface& dest) noexcept
{
    if (!convert || !convert->setTechnique("PackMatrox10Bit")) {
        return false;
    }
    const unsigned width = source.getWidth();
    const unsigned height = source.getHeight();
    const XY<int> packedSize{static_cast<int>(std::uint64_t{width} * 10 / 16), static_cast<int>(height)};
    const Qx::Ptr<iGPUImage> packed = OS().gpu().createGPUImage(packedSize, iGPUImage::eARGB8);
    convert->setFloat(sourceWidthParameter, static_cast<float>(width) * 0.5F);
    convert->setFloat("DestImageWidth", widthOf(packed));
    renderFrom(source, 1.0F, *convert, packed);

    const ImageDescriptions descriptions = source.getDescriptions();
    dest.init(width, height, M101, false, 10, 20, 0);
    dest.setGPUSurface(packed);
    dest.setDescriptions(descriptions);
    return true;
}

} // namespace Qx::Image::ColourConversion
