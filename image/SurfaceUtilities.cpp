#include "image/SurfaceUtilities.h"

#include "platform/GPUService.h"
#include "platform/GraphicPrimitives.h"
#include "platform/ImageConverter.h"
#include "platform/Log.h"
#include "platform/OS.h"

#include <algorithm>
#include <cstdint>

namespace Qx::Image {

namespace {

constexpr int ownLayer = 1;

Qx::Ptr<iGraphicPrimitivesRenderer> rendererOf(const Qx::Ptr<iGPUImage>& image)
{
    return image->getPrimitivesRenderer(ownLayer);
}

template <class Description>
void draw(const Qx::Ptr<iGPUImage>& target, const Description& description)
{
    if (const Qx::Ptr<iGraphicPrimitivesRenderer> renderer = rendererOf(target)) {
        renderer->draw(description, ownLayer);
    }
}

/// Returns the next smaller size: half, or the target if half would be less.
int nextStep(int current, int target)
{
    return std::max(current / 2, target);
}

} // namespace

XY<int> getBlackGPUSurfaceSize() noexcept
{
    return {2, 1};
}

Surface createBlackGPUSurface(XY<int> size, TransparencyType transparency) noexcept
{
    const Qx::Ptr<iGPUImage> image = OS().gpu().createGPUImage(size, iGPUImage::eARGB8);
    if (image) {
        const NormalisedRGB black{0.0F, 0.0F, 0.0F, transparency == TransparencyType::Opaque ? 1.0F : 0.0F};
        draw(image, RectDescription{{0, 0, size.x, size.y}, black, black});
    }
    Surface surface = makeWrapper(image);
    surface.setTransparency(transparency);
    return surface;
}

Surface prepareForGPU(Surface& surface, iGPUImage::eFormat format) noexcept
{
    if (surface.getDataFormat() == V210) {
        const bool eightBits = format == iGPUImage::eARGB8;
        Surface unpacked(surface.getWidth(), surface.getHeight(), eightBits ? YUY2 : Y216, false,
                         eightBits ? 8 : 16, 0, 0);
        unpacked.setDescriptions(surface.getDescriptions());
        if (ImageConverter::convert(surface, unpacked)) {
            surface = unpacked;
        }
    }
    return surface;
}

Qx::Ptr<iGPUImage> createResizedSurface(Qx::Ptr<iGPUImage> source, const XY<int>& size,
                                        iGPUImage::eFormat format) noexcept
{
    if (!source) {
        return {};
    }
    Qx::Ptr<iGPUImage> resized = OS().gpu().createGPUImage(size, format);
    if (!resized) {
        LogBoth("Failed to create GPU surface\n");
        return source;
    }
    const XY<int> sourceSize = source->getSize();
    ImageDescription description;
    description.image = source;
    description.destination = {0, 0, size.x, size.y};
    description.source = {0, 0, sourceSize.x, sourceSize.y};
    draw(resized, description);
    return resized;
}

Qx::Ptr<iGPUImage> shrink(Qx::Ptr<iGPUImage> source, const XY<int>& size, iGPUImage::eFormat format) noexcept
{
    if (!source) {
        return {};
    }
    XY<int> current = source->getSize();
    if (size.x <= 0 || size.y <= 0 || current.x < size.x || current.y < size.y) {
        return {};
    }
    Qx::Ptr<iGPUImage> result = source;
    while (current != size) {
        // The loop continues from the requested size even if a step fell back to a larger image.
        current = {nextStep(current.x, size.x), nextStep(current.y, size.y)};
        result = createResizedSurface(result, current, format);
    }
    return result;
}

void interlaceCopy(Qx::Ptr<iGPUImage> source, Qx::Ptr<iGPUImage> dest, const XY<int>& position, Raster raster,
                   bool blend) noexcept
{
    if (!source || !dest) {
        return;
    }
    // Any position is valid; sums and multiples of positions exceed the range of int.
    using Integer = std::int64_t;
    Integer width = source->getSize().x;
    Integer height = source->getSize().y;
    const Integer destWidth = dest->getSize().x;
    Integer x = position.x;
    Integer y = position.y;

    Integer sourceX = 0;
    if (x < 0) {
        width += x;
        sourceX = -x;
        x = 0;
    }
    if (x + width > destWidth) {
        width = destWidth - x;
    }

    Integer sourceY = 0;
    if (y < 0) {
        height += y;
        sourceY = -2 * y; // two source lines per destination line, for whole frames as well
        y = 0;
    }

    const bool isField = raster == Raster::UpperField || raster == Raster::LowerField;
    const bool startsOdd = y % 2 != 0;
    if (raster == Raster::LowerField && startsOdd) {
        ++y;
        ++sourceY;
    } else if (raster == Raster::UpperField && !startsOdd) {
        ++sourceY;
    }

    const auto rectangle = [](Integer x0, Integer y0, Integer x1, Integer y1) {
        return RectangleOf<float>{static_cast<float>(x0), static_cast<float>(y0), static_cast<float>(x1),
                                  static_cast<float>(y1)};
    };
    ImageDescriptionEx description;
    description.image = source;
    description.source = rectangle(sourceX, sourceY, sourceX + width, sourceY + height);
    description.destination = rectangle(x, y, x + width, y + (isField ? height / 2 : height));
    description.blend = blend;
    description.mode = ImageDescriptionEx::EverySecondLine;
    draw(dest, description);
}

} // namespace Qx::Image
