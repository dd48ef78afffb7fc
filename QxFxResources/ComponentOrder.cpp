#include "QxFxResources/ColourConversionDetail.h"
#include "QxFxResources/GPUColourConverter.h"
#include "image/TechniqueApplication.h"
#include "platform/GPUService.h"
#include "platform/GraphicPrimitives.h"
#include "platform/OS.h"

namespace Qx::Image::ColourConversion {

namespace {

/// Returns the technique that reorders a source, or "". Asserts what the request must satisfy.
const char* reorderingTechnique(const Surface& source, Format destFormat)
{
    switch (source.getDataFormat()) {
    case YV12:
        QX_CONVERTER_ASSERT(destFormat == YUY2, "destFormat == YUY2", 210);
        return "YV12toYUYV";
    case YVYU:
        QX_CONVERTER_ASSERT(destFormat == YUY2, "destFormat == YUY2", 215);
        return "YVYUtoYUYV";
    case VYUY:
        QX_CONVERTER_ASSERT(destFormat == YUY2, "destFormat == YUY2", 220);
        return "ReverseComponentOrder";
    case UYVY:
        QX_CONVERTER_ASSERT(destFormat == YUY2, "destFormat == YUY2", 225);
        return "UYVYtoYUYV";
    case V210:
        QX_CONVERTER_ASSERT(false, "false", 230); // unsupported by contract, but converted all the same
        return "V210toYUYV";
    case YUY2:
    case YUYV:
        return destFormat == UYVY ? "UYVYtoYUYV" : ""; // the swap is its own inverse
    default:
        return "";
    }
}

/// Relabels YUY2; the bytes are unchanged.
void renameYUY2(const Surface& source, Format destFormat, Surface& result)
{
    switch (destFormat) {
    case YUY2:
        return;
    case M101:
    case M102:
        QX_CONVERTER_ASSERT(source.getBitsPerComponent() == 8, "source.getBitsPerComponent() == 8", 252);
        return;
    case Y216:
        QX_CONVERTER_ASSERT(source.getBitsPerComponent() == 16, "source.getBitsPerComponent() == 16", 257);
        result.setDataFormat(Y216);
        return;
    case V216:
        QX_CONVERTER_ASSERT(source.getBitsPerComponent() == 16, "source.getBitsPerComponent() == 16", 263);
        result.setDataFormat(V216);
        return;
    default:
        QX_CONVERTER_ASSERT(destFormat == YUY2, "destFormat == YUY2", 267);
    }
}

/// `null` is empty if the effect is still to be taken.
Surface reordered(const DefaultEffect* null, const Surface& source, Format destFormat,
                  iGPUImage::eFormat gpuFormat, const char* technique)
{
    const unsigned pairs = source.getWidth() / 2;
    if (pairs == 0) {
        return source;
    }
    const XY<int> size{static_cast<int>(pairs), static_cast<int>(source.getHeight())};
    Surface result = makeWrapper(OS().gpu().createGPUImage(size, gpuFormat));
    const std::uint32_t pitch = result.getRowPitch();
    const float width = static_cast<float>(pairs);
    if (null != nullptr ? null->apply(source, result, technique, width)
                        : applyTechnique(source, result, technique, width, gpuFormat)) {
        result.setData(source.getData());
        result.setDataFormat(destFormat);
        result.setRowPitch(pitch); // of the new image, not of the source's rows
    }
    return result;
}

/// Returns the technique of "null.fx" that converts an RGB source to ARGB, or "".
const char* normalisingTechnique(const Surface& source)
{
    const bool isTopDown = source.isTopDown();
    switch (source.getDataFormat()) {
    case ARGB:
    case ARGB10:
        return isTopDown ? "" : "FlipVertical";
    case RGBA:
        return "RotateLeft";
    case ABGR:
        return "ABGRtoARGB";
    case PlanarRGB:
        return "RGBPlanartoARGB";
    case RGB24:
    case BGR24:
        if (source.getBitsPerComponent() != 8) {
            QX_CONVERTER_ASSERT(isTopDown, "isTopDown", 367);
            QX_CONVERTER_ASSERT(source.getBitsPerComponent() == 16, "source.getBitsPerComponent() == 16",
                                368);
            return "RGB16toABGR";
        }
        return isTopDown ? "RGBtoARGB" : "RGBtoARGB_FlipVertical";
    case BGR3:
    case B48R:
        return isTopDown ? "BGRtoARGB" : "BGRtoARGB_FlipVertical";
    case B64A:
        QX_CONVERTER_ASSERT(isTopDown, "isTopDown", 382);
        return "BGRAtoARGB";
    default:
        return "";
    }
}

/// Returns the depth of the result, which never exceeds the source's.
iGPUImage::eFormat normalisedFormat(const Surface& source, iGPUImage::eFormat wanted)
{
    const unsigned bits = source.getBitsPerComponent();
    const bool kept =
        (wanted == iGPUImage::eARGB16 && bits == 16) || (wanted == iGPUImage::eARGB10 && bits == 10);
    return kept ? wanted : iGPUImage::eARGB8;
}

Surface decoded(const Surface& source, iGPUImage::eFormat gpuFormat)
{
    QX_CONVERTER_ASSERT(source.getBitsPerComponent() == 8 || source.getBitsPerComponent() == 16,
                        "source.getBitsPerComponent() == 8 || source.getBitsPerComponent() == 16", 346);
    Surface result = source.createDestARGBGPUSurface(gpuFormat);
    convertYCrCb422ToRGB(source, result, GamutScaling::Unscaled, Filter::Point);
    return result;
}

/// BGRA is drawn as an image through an effect that reverses the components.
Surface reversed(const Surface& source, iGPUImage::eFormat gpuFormat)
{
    const DefaultEffect null;
    if (!null.effect()) {
        return source;
    }
    Surface result = source.createDestARGBGPUSurface(gpuFormat);
    const Qx::Ptr<iGPUImage> target = result.getGPUSurface();
    const CriticalSectionScope inside(null.lock());
    null.effect()->setTechnique("ReverseComponentOrder");
    const Qx::Ptr<iGraphicPrimitivesRenderer> renderer =
        target ? target->getPrimitivesRenderer(1) : Qx::Ptr<iGraphicPrimitivesRenderer>();
    if (renderer) {
        const RectangleOf<float> whole{0.0F, 0.0F, static_cast<float>(source.getWidth()),
                                       static_cast<float>(source.getHeight())};
        ImageDescriptionEx description;
        description.image = source.getGPUSurface();
        description.effect = null.effect();
        description.source = whole;
        description.destination = whole;
        description.blend = false;
        renderer->draw(description, 1);
    }
    return result;
}

} // namespace

Surface toUYVY(const DefaultEffect& null, const Surface& source) noexcept
{
    const bool deep = source.getBitsPerComponent() > 8;
    return reordered(&null, source, UYVY, deep ? iGPUImage::eARGB16 : iGPUImage::eARGB8, "UYVYtoYUYV");
}

Surface reorderComponents(Surface& source, Format destFormat, iGPUImage::eFormat gpuFormat) noexcept
{
    const bool deep = gpuFormat == iGPUImage::eARGB16 && source.getBitsPerComponent() > 8;
    const char* technique = reorderingTechnique(source, destFormat);
    if (*technique != '\0') {
        return reordered(nullptr, source, destFormat, deep ? iGPUImage::eARGB16 : iGPUImage::eARGB8,
                         technique);
    }
    Surface result = source;
    switch (source.getDataFormat()) {
    case YUY2:
    case YUYV:
        renameYUY2(source, destFormat, result);
        break;
    case M101:
    case M102:
        QX_CONVERTER_ASSERT(destFormat == YUY2, "destFormat == YUY2", 271);
        if (source.getBitsPerComponent() == 10) {
            result = source.createDestYUY2GPUSurface(gpuFormat);
            unpackMatrox10BitFormat(source, result);
        }
        break;
    default:
        break;
    }
    return result;
}

Surface convertToRGBA(Surface& source, iGPUImage::eFormat gpuFormat) noexcept
{
    const iGPUImage::eFormat format = normalisedFormat(source, gpuFormat);
    switch (source.getDataFormat()) {
    case BGRA:
    case BGRA32:
        return reversed(source, format);
    case M101:
    case M102:
        QX_CONVERTER_ASSERT(source.getBitsPerComponent() == 8, "source.getBitsPerComponent() == 8", 342);
        return decoded(source, format);
    case YUY2:
    case Y216:
        return decoded(source, format);
    default:
        break;
    }
    const char* technique = normalisingTechnique(source);
    if (*technique == '\0' || source.getWidth() == 0) {
        return source;
    }
    Surface result = source.createDestARGBGPUSurface(format);
    applyTechnique(source, result, technique, static_cast<float>(source.getWidth()), format);
    return result;
}

Qx::Ptr<iGPUImage> channelExpand(const Qx::Ptr<iGPUImage>& image, iGPUImage::eFormat fmt) noexcept
{
    QX_CONVERTER_ASSERT(fmt == iGPUImage::eARGB8, "fmt == iGPUImage::eARGB8", 788);
    if (!image) {
        return {};
    }
    const XY<int> size = image->getSize();
    const int width = 4 * size.x;
    Qx::Ptr<iGPUImage> expanded = OS().gpu().createGPUImage({width, size.y}, fmt);
    if (!expanded) {
        return {};
    }
    const CriticalSectionScope inside(gpuLock());
    const Qx::Ptr<iShaderEffect> effect = getShader(nullEffect);
    if (effect && effect->setTechnique("ChannelExpand")) {
        effect->setFloat("_Width", static_cast<float>(width));
        Qx::Vector<iShaderEffect::Source> inputs;
        inputs.emplace_back("Input", image);
        effect->render(expanded, inputs);
    }
    return expanded;
}

} // namespace Qx::Image::ColourConversion
