#include "tools/qxhost/pipeline/output/FrameDelivery.h"

#include "QxFxResources/GPUColourConverter.h"
#include "host/surfaces/RowGeometry.h"
#include "platform/GPUService.h"
#include "platform/OS.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/media/Matrices.h"
#include "tools/qxhost/pipeline/Drawing.h"
#include "tools/qxhost/pipeline/HostSession.h"
#include "tools/qxhost/pipeline/effects/NullEffect.h"
#include "tools/qxhost/pipeline/input/FrameUpload.h"

namespace Qx::Program {

namespace {

using Image::Format;
using Image::Surface;

constexpr unsigned matroxBlock = 16;

/// The format of the same bytes by which the library knows it.
Format sameBytes(const PixelFormat& format)
{
    switch (format.info->format) {
    case Image::YUYV:
        return Image::YUY2;
    case Image::M101:
    case Image::M102:
        return format.bits == 8 ? Image::YUY2 : Image::M101;
    case Image::RGB24:
        return Image::BGR24;
    case Image::BGR3:
        return Image::B48R;
    default:
        return format.info->format;
    }
}

/// The technique of "null.fx" from A R G B to an order that the library does not write itself.
const char* finishingRgb(Format format)
{
    switch (format) {
    case Image::BGRA:
    case Image::BGRA32:
        return "ReverseComponentOrder";
    case Image::RGBA:
        return "ARGBtoRGBA";
    case Image::ABGR:
        return "ABGRtoARGB";
    default:
        return "ARGBtoRGBPlanar";
    }
}

/// The same from pairs in YUY2 order.
const char* finishingYCrCb(Format format)
{
    switch (format) {
    case Image::YVYU:
        return "YVYUtoYUYV";
    case Image::VYUY:
        return "ReverseComponentOrder";
    case Image::YV12:
        return "YUYVtoYV12";
    case Image::V210:
        return "YUYVtoV210";
    default:
        return "UYVYtoYUYV"; // the same swap both ways
    }
}

[[noreturn]] void failOn(const Surface& surface)
{
    failOnDevice(static_cast<int>(surface.getWidth()), static_cast<int>(surface.getHeight()));
}

iGPUImage::eFormat gpuFormat(unsigned bits)
{
    return bits == 8 ? iGPUImage::eARGB8 : iGPUImage::eARGB16;
}

} // namespace

bool FrameDelivery::isLibrarys(unsigned width) const
{
    switch (sameBytes(format_)) {
    case Image::YUY2:
    case Image::UYVY:
    case Image::Y216:
    case Image::V216:
        return width % 2 == 0; // it leaves out the pixel of half a pair
    case Image::M101:
        return width % matroxBlock == 0; // and the end of a block that is not full
    case Image::ARGB:
    case Image::ARGB10:
    case Image::BGR24:
    case Image::B48R:
    case Image::B64A:
        return true;
    default:
        return false;
    }
}

Surface FrameDelivery::fromPicture(const Surface& picture) const
{
    const unsigned width = picture.getWidth();
    if (isLibrarys(width)) {
        PixelFormat asked = format_;
        asked.info = Host::findFormat(sameBytes(format_));
        const Surface result = Image::ColourConversion::copyToHostSurface(
            picture, describeFrame(asked, width, picture.getHeight()), picture.getPolarity());
        if (!result.getHostImage()) {
            failOn(picture);
        }
        return result;
    }
    if (format_.isYCrCb()) {
        return fromPairs(encode(picture));
    }
    const Surface deep = atDepth(picture, gpuFormat(format_.bits));
    return toHost(through(finishingRgb(format_.info->format), deep, picture), picture);
}

Surface FrameDelivery::encode(const Surface& picture) const
{
    Surface pairs = picture.createDestYUY2GPUSurface(gpuFormat(format_.bits));
    const Media::Matrix matrix = Media::matrixForWidth(static_cast<int>(picture.getWidth()));
    pairs.setColourSpace(Media::infoOf(matrix).colourSpace);
    pairs.setGamutScaling(Image::GamutScaling::Video);
    Surface source = picture;
    source.setGamutScaling(Image::GamutScaling::Unscaled);
    const Drawing drawing = tryDrawing([&] {
        return Image::ColourConversion::convertRGBToYCrCb422(source, pairs, Image::Filter::Point);
    });
    if (drawing != Drawing::recorded) {
        failOn(picture);
    }
    return pairs;
}

Surface FrameDelivery::fromPairs(const Surface& pairs) const
{
    switch (sameBytes(format_)) {
    case Image::M101:
        return toHost(packMatrox(pairs), pairs);
    case Image::YUY2:
    case Image::Y216:
    case Image::V216: {
        const Qx::Ptr<iGPUImage> image = pairs.getGPUSurface();
        if (image && image->getFormat() == gpuFormat(format_.bits)) {
            return toHost(pairs, pairs);
        }
        // There and back again: the swap is what changes the depth of video.
        const Surface swapped = through("UYVYtoYUYV", pairs, pairs);
        return toHost(through("UYVYtoYUYV", swapped, pairs), pairs);
    }
    default:
        return toHost(through(finishingYCrCb(format_.info->format), pairs, pairs), pairs);
    }
}

Surface FrameDelivery::packMatrox(const Surface& pairs) const
{
    Surface source = pairs;
    source.setWidth((pairs.getWidth() + matroxBlock - 1) / matroxBlock * matroxBlock);
    Surface packed;
    const Drawing drawing =
        tryDrawing([&] { return Image::ColourConversion::packMatrox10BitFormat(source, packed); });
    if (drawing != Drawing::recorded) {
        failOn(pairs);
    }
    return packed;
}

/// `of` is the picture, whose size the result has in pixels.
Surface FrameDelivery::through(const char* technique, const Surface& from, const Surface& of) const
{
    const Image::Core::Data data = describeFrame(format_, of.getWidth(), of.getHeight());
    const auto geometry = Host::rowGeometryOf(data);
    if (!geometry) {
        failOn(of);
    }
    Surface result = of;
    result.setData(data);
    result.setGPUSurface(OS().gpu().createGPUImage(geometry->imageSize(), geometry->texels));
    applyNullEffect(technique, from, result);
    return result;
}

Surface FrameDelivery::toHost(Surface frame, const Surface& of) const
{
    frame.setData(describeFrame(format_, of.getWidth(), of.getHeight()));
    const Surface result = frame.copyToHost();
    if (!result.getHostImage()) {
        failOn(of);
    }
    return result;
}

} // namespace Qx::Program
