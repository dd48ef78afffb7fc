#include "tests/pixels/Rearrangements.h"

#include "QxFxResources/GPUColourConverter.h"
#include "image/TechniqueApplication.h"
#include "platform/GPUService.h"
#include "platform/OS.h"
#include "tests/pixels/Gpu.h"

namespace Qx::Pixels {

using namespace Image;

namespace {

/// A GPU surface for rows of this kind.
Surface gpuFrame(const FrameSpec& spec)
{
    const std::size_t texel = spec.depth == 16 ? 8 : 4;
    const XY<int> size{static_cast<int>((rowBytesOf(spec) + texel - 1) / texel + spec.padding),
                       static_cast<int>(rowsOf(spec))};
    Surface frame(spec.width, spec.height, spec.format, false, static_cast<unsigned short>(spec.depth), 0,
                  static_cast<unsigned short>(static_cast<std::size_t>(size.x) * texel));
    frame.setGPUSurface(OS().gpu().createGPUImage(size, gpuFormatFor(spec.depth == 16 ? 16 : 8)));
    return frame;
}

} // namespace

iGPUImage::eFormat gpuFormatFor(unsigned depth)
{
    return depth == 16 ? iGPUImage::eARGB16 : depth == 10 ? iGPUImage::eARGB10 : iGPUImage::eARGB8;
}

const char* techniqueTo(Format format)
{
    switch (format) {
    case BGRA:
    case BGRA32:
    case VYUY:
        return "ReverseComponentOrder";
    case RGBA:
        return "ARGBtoRGBA";
    case ABGR:
        return "ABGRtoARGB";
    case RGB24:
    case BGR24:
        return "ARGBtoBGR";
    case BGR3:
    case B48R:
        return "ARGBtoRGB";
    case B64A:
        return "ARGBtoBGRA";
    case PlanarRGB:
        return "ARGBtoRGBPlanar";
    case UYVY:
        return "UYVYtoYUYV";
    case YVYU:
        return "YVYUtoYUYV";
    case YV12:
        return "YUYVtoYV12";
    case V210:
        return "YUYVtoV210";
    default:
        return "";
    }
}

Surface through(const char* technique, const Surface& source, const FrameSpec& target)
{
    Surface result = gpuFrame(target);
    const Qx::Ptr<iShaderEffect> effect = getShader(L"null.fx");
    if (!applyTechnique(effect, source, result, technique, static_cast<float>(target.width)))
        return {};
    return result;
}

Rows rowsAs(const FrameSpec& target, const Surface& source)
{
    return rowsIn(through(techniqueTo(target.format), source, target).copyToHost(), target);
}

Rows rowsAsM101(const Surface& source)
{
    const FrameSpec spec{M101, 10, source.getWidth(), source.getHeight()};
    const Surface packed = gpuFrame(spec);
    const Qx::Ptr<iShaderEffect> effect = getShader(L"ColourConvert.fx");
    if (!effect || !effect->setTechnique("PackMatrox10Bit"))
        return {};
    effect->setFloat("pSourceImageTotalWidthInDWORDs", static_cast<float>(spec.width) * 0.5F);
    Qx::Vector<iShaderEffect::Source> inputs;
    inputs.emplace_back("gSourceImage", source.getGPUSurface());
    effect->render(packed.getGPUSurface(), inputs);
    return rowsIn(packed.copyToHost(), spec);
}

Rows rowsAsYUY2(const char* technique, const Surface& frame, unsigned depth)
{
    const FrameSpec spec{YUY2, depth, frame.getWidth(), frame.getHeight()};
    return rowsIn(through(technique, frame.uploadToGPU(), spec).copyToHost(), spec);
}

std::optional<Picture> convertToTenBits(const Conversion& conversion, const Picture& source)
{
    Surface from = upload(source);
    from.setGamutScaling(static_cast<GamutScaling>(conversion.source));
    Surface video = from.createDestYUY2GPUSurface(iGPUImage::eARGB16);
    video.setGamutScaling(static_cast<GamutScaling>(conversion.target));
    video.setColourSpace(static_cast<ColourSpace>(conversion.matrix));
    if (!ColourConversion::convertRGBToYCrCb422(from, video, static_cast<Image::Filter>(conversion.filter)))
        return std::nullopt;
    const unsigned width = from.getWidth();
    const unsigned height = from.getHeight();
    const Surface packed = through("YUYVtoV210", video, {V210, 10, width, height});
    const Surface unpacked = through("V210toYUYV", packed, {YUY2, 16, width, height});
    std::optional<Picture> picture = download(unpacked, Layout::Packed422, source.name);
    if (picture) {
        picture->depth = 10;
        for (std::uint16_t& code : picture->codes)
            code = static_cast<std::uint16_t>(code >> 6);
    }
    return picture;
}

} // namespace Qx::Pixels
