#include "QxFxResources/ColourConversionDetail.h"
#include "QxFxResources/GPUColourConverter.h"
#include "image/TechniqueApplication.h"
#include "platform/GPUService.h"
#include "platform/OS.h"

#include <optional>

namespace Qx::Image::ColourConversion {

namespace {

/// The largest width, in pixels, that counts as standard definition: the digital active line of Rec. ITU-R
/// BT.601.
constexpr unsigned standardDefinitionWidth = 720;

/// Creates the YUY2 surface that a picture of the source's size is encoded into.
Surface makeIntermediate(const Surface& source, unsigned bits, Polarity polarity)
{
    const int width = static_cast<int>(source.getWidth());
    const XY<int> size{width / 2, static_cast<int>(source.getHeight())};
    const iGPUImage::eFormat format = bits == 8 ? iGPUImage::eARGB8 : iGPUImage::eARGB16;
    Surface intermediate = makeWrapper(OS().gpu().createGPUImage(size, format));
    intermediate.setDataFormat(YUY2);
    intermediate.setWidth(source.getWidth());
    intermediate.setBitsPerPixel(static_cast<std::uint16_t>(2 * bits));
    intermediate.frame() = source.frame();
    intermediate.setPolarity(polarity);
    intermediate.setColourSpace(source.getWidth() > standardDefinitionWidth ? ColourSpace::BT709
                                                                            : ColourSpace::BT601);
    intermediate.setGamutScaling(GamutScaling::Video);
    return intermediate;
}

iGPUImage::eFormat gpuFormatOf(const Surface& surface)
{
    const Qx::Ptr<iGPUImage> image = surface.getGPUSurface();
    return image ? image->getFormat() : iGPUImage::eARGB8;
}

const char* orderingTechnique(const Core::Data& fmt)
{
    switch (fmt.getDataFormat()) {
    case B48R:
        return "ARGBtoRGB";
    case BGR24:
        return "ARGBtoBGR";
    case B64A:
        return fmt.getBitsPerComponent() == 16 ? "ARGBtoBGRA" : "Null";
    default:
        return "Null";
    }
}

/// Creates a GPU surface of the source's size, one texel per pixel.
Surface makeTarget(const Surface& source, iGPUImage::eFormat format)
{
    const XY<int> size{static_cast<int>(source.getWidth()), static_cast<int>(source.getHeight())};
    return makeWrapper(OS().gpu().createGPUImage(size, format));
}

/// What the steps of an encoding take from the manager, before the first of them that draws: the manager may
/// be shut down between two.
struct Tools
{
    explicit Tools(bool reorders) : lock(gpuLock())
    {
        if (reorders) {
            null.emplace(); // may wait for a compilation: not within the lock
        }
        const CriticalSectionScope inside(lock);
        convert = getShader(colourConvertEffect);
    }

    template <class Step>
    bool within(Step step) const
    {
        const CriticalSectionScope inside(lock);
        return step();
    }

    const CriticalSection lock;
    Qx::Ptr<iShaderEffect> convert;
    std::optional<DefaultEffect> null;
};

/// Runs a technique of "null.fx" from the source into the target, then gives the source the target's image
/// and the requested description. If the technique is unavailable, the source is unchanged.
void redraw(const DefaultEffect& null, Surface& source, Surface& target, const char* technique,
            const Core::Data& fmt)
{
    if (null.applyIfThere(source, target, technique, static_cast<float>(source.getWidth()))) {
        source.setGPUSurface(target.getGPUSurface());
        source.setData(fmt);
    }
}

} // namespace

Surface copyToHostSurface(Surface source, const Core::Data& fmt, Polarity polarity) noexcept
{
    if (isRGB(fmt.getDataFormat())) {
        return copyToHostRGBSurface(source, fmt, polarity);
    }
    QX_CONVERTER_ASSERT(isYUV(fmt.getDataFormat()), "isYUV( fmt.getDataFormat() )", 825);
    return copyToHostYUVSurface(source, fmt, polarity);
}

Surface copyToHostYUVSurface(Surface source, const Core::Data& fmt, Polarity polarity) noexcept
{
    const unsigned bits = fmt.getBitsPerComponent();
    Surface intermediate = makeIntermediate(source, bits, polarity);
    source.setGamutScaling(GamutScaling::Unscaled); // rendered pictures are full range
    const Tools tools(fmt.getDataFormat() == UYVY);
    const bool success =
        tools.within([&] { return encode(tools.convert, source, intermediate, Filter::Point); });
    QX_CONVERTER_ASSERT(success, "success", 886);

    if (bits == 10 && intermediate.getBitsPerComponent() == 16) {
        Surface packed;
        if (tools.within([&] { return packMatrox(tools.convert, intermediate, packed); })) {
            intermediate = packed;
        } else {
            QX_CONVERTER_ASSERT(false, "false", 897);
        }
    }
    // Reordering would unpack a frame that is already packed as requested.
    if (fmt.getDataFormat() != YUY2 && fmt.getDataFormat() != intermediate.getDataFormat()) {
        intermediate = tools.null && intermediate.getDataFormat() == YUY2
                           ? toUYVY(*tools.null, intermediate)
                           : reorderComponents(intermediate, fmt.getDataFormat(), gpuFormatOf(intermediate));
    }
    return intermediate.copyToHost();
}

Surface copyToHostRGBSurface(Surface source, const Core::Data& fmt, Polarity /*polarity*/) noexcept
{
    const unsigned wanted = fmt.getBitsPerComponent();
    const unsigned given = source.getBitsPerComponent();
    if (given != 10 && wanted == 10) {
        QX_CONVERTER_ASSERT(fmt.getDataFormat() == ARGB10, "fmt.getDataFormat() == ARGB10", 921);
        const DefaultEffect null;
        Surface target = makeTarget(source, iGPUImage::eARGB10);
        target.setDataFormat(ARGB10); // makeWrapper() of another host may not set it
        target.setBitsPerComponent(10);
        redraw(null, source, target, "Null", fmt);
    } else if (given != wanted || source.getDataFormat() != fmt.getDataFormat()) {
        Surface target = makeTarget(source, wanted == 8 ? iGPUImage::eARGB8 : iGPUImage::eARGB16);
        redraw(DefaultEffect(), source, target, orderingTechnique(fmt), fmt);
    }
    return source.copyToHost();
}

} // namespace Qx::Image::ColourConversion
