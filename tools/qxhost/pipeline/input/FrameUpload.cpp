#include "tools/qxhost/pipeline/input/FrameUpload.h"

#include "QxFxResources/GPUColourConverter.h"
#include "host/gpu/FloatImages.h"
#include "host/surfaces/RowGeometry.h"
#include "image/SurfaceUtilities.h"
#include "platform/GPUService.h"
#include "platform/OS.h"
#include "tools/qxhost/media/Matrices.h"
#include "tools/qxhost/pipeline/device/Drawing.h"
#include "tools/qxhost/pipeline/device/HostSession.h"
#include "tools/qxhost/pipeline/effects/NullEffect.h"
#include "tools/qxhost/pipeline/formats/FormatWay.h"

namespace Qx::Program {

namespace {

using Image::GamutScaling;
using Image::Polarity;
using Image::Surface;

Polarity polarityOf(Media::FieldOrder order)
{
    switch (order) {
    case Media::FieldOrder::topFirst:
        return Polarity::UpperFieldFirst;
    case Media::FieldOrder::bottomFirst:
        return Polarity::LowerFieldFirst;
    case Media::FieldOrder::progressive:
        break;
    }
    return Polarity::Progressive;
}

/// Sets the description of a GPU image of pixel pairs.
void describePairs(Surface& pairs, std::uint32_t width)
{
    const Qx::Ptr<iGPUImage> image = pairs.getGPUSurface();
    const unsigned texelBits = image ? image->getBitsPerTexel() : 0;
    pairs.setDataFormat(Image::YUY2);
    pairs.setWidth(width);
    pairs.setBitsPerComponent(static_cast<std::uint16_t>(texelBits / 4));
    pairs.setBitsPerPixel(static_cast<std::uint16_t>(texelBits / 2));
    pairs.setTopDown(true);
    if (image) {
        pairs.setRowPitch(static_cast<std::uint32_t>(image->getSize().x) * texelBits / 8);
    }
}

} // namespace

Qx::Ptr<iHostImage> makeFloatImage(int width, int height)
{
    return OS().gpu().createHostImage({width, height}, Host::floatTexels);
}

Surface uploadFloats(const Qx::Ptr<iHostImage>& image)
{
    Surface picture = Image::makeWrapper(OS().gpu().uploadImage(image, 0));
    if (!picture.getGPUSurface()) {
        failOnDevice(image->getSize().x, image->getSize().y);
    }
    picture.setGamutScaling(GamutScaling::Unscaled);
    return picture;
}

bool deviceDrawsFloats()
{
    return static_cast<bool>(OS().gpu().createGPUImage({1, 1}, Host::floatTexels));
}

FrameUpload::FrameUpload(const Image::Core::Data& layout, const Media::FramePacker::Target& source,
                         int codeBits)
    : layout_(layout), source_(source), codeBits_(codeBits != 0 ? codeBits : layout.bitsPerComponent)
{
}

bool FrameUpload::isYCrCb() const
{
    return Image::isYUV(layout_.format);
}

Qx::Ptr<iHostImage> FrameUpload::makeHostImage() const
{
    const auto geometry = Host::rowGeometryOf(layout_);
    return geometry ? OS().gpu().createHostImage(geometry->imageSize(), geometry->texels)
                    : Qx::Ptr<iHostImage>();
}

void FrameUpload::fail() const
{
    failOnDevice(static_cast<int>(layout_.width), static_cast<int>(layout_.height));
}

Surface FrameUpload::upload(const Qx::Ptr<iHostImage>& image, const Media::FrameTime& time,
                            iGPUImage::eFormat working) const
{
    const Surface host = describe(image, time);
    Surface result = isYCrCb() ? toPairs(host) : toPicture(host, working);
    if (!result.getGPUSurface()) {
        fail();
    }
    return result;
}

Surface FrameUpload::uploadAsIs(const Qx::Ptr<iHostImage>& image, const Media::FrameTime& time) const
{
    Surface uploaded = describe(image, time).uploadToGPU();
    if (!uploaded.getGPUSurface()) {
        fail();
    }
    return uploaded;
}

Surface FrameUpload::describe(const Qx::Ptr<iHostImage>& image, const Media::FrameTime& time) const
{
    Surface surface;
    surface.setData(layout_);
    surface.setRowPitch(static_cast<std::uint32_t>(image->getPitch()));
    surface.setHostImage(image);
    surface.setPolarity(polarityOf(time.fieldOrder));
    if (!isYCrCb()) {
        surface.setGamutScaling(GamutScaling::Unscaled);
        return surface;
    }
    surface.setColourSpace(Media::infoOf(source_.matrix).colourSpace);
    surface.setGamutScaling(source_.range == Media::Range::video ? GamutScaling::Video
                                                                 : GamutScaling::Unscaled);
    surface.setTransparency(Image::TransparencyType::Opaque);
    return surface;
}

Surface FrameUpload::toPairs(Surface host) const
{
    const std::uint32_t width = layout_.width;
    const FormatWay::In way = wayOf(layout_.format, layout_.bitsPerComponent).in;
    if (way == FormatWay::In::unpacked) {
        Image::prepareForGPU(host, iGPUImage::eARGB16);
        if (host.getDataFormat() == layout_.format) {
            fail();
        }
    }
    Surface pairs = host.uploadToGPU();
    if (!pairs.getGPUSurface()) {
        fail();
    }
    if (way == FormatWay::In::reordered) {
        // The library rounds the number of pairs down, so the width is rounded up to whole pairs for it.
        pairs.setWidth(width + width % 2);
        pairs = Image::ColourConversion::reorderComponents(pairs, Image::YUY2, iGPUImage::eARGB16);
    }
    describePairs(pairs, width);
    return atWantedLevels(pairs);
}

Surface FrameUpload::atWantedLevels(const Surface& pairs) const
{
    const int wanted = source_.bits != 0 ? source_.bits : pairs.getBitsPerComponent();
    if (source_.range == Media::Range::video || wanted == codeBits_) {
        return pairs; // in video range, codes in the upper bits are at these levels
    }
    Surface result = fullRangeAtDepth(pairs, codeBits_, wanted);
    describePairs(result, layout_.width);
    return result;
}

Surface FrameUpload::toPicture(const Surface& host, iGPUImage::eFormat working) const
{
    Surface uploaded = host.uploadToGPU();
    if (!uploaded.getGPUSurface()) {
        fail();
    }
    // The library changes the depth as full range does.
    const iGPUImage::eFormat own = layout_.bitsPerComponent == 8 ? iGPUImage::eARGB8 : iGPUImage::eARGB16;
    const iGPUImage::eFormat ordered = source_.range == Media::Range::video ? own : working;
    Surface picture;
    const Drawing drawing = tryDrawing([&] {
        picture = Image::ColourConversion::convertToRGBA(uploaded, ordered);
        return picture.getGPUSurface() != uploaded.getGPUSurface(); // else it is in this order already
    });
    if (drawing == Drawing::notRecorded) {
        fail();
    }
    return atDepth(picture, working, source_.range);
}

} // namespace Qx::Program
