#include "tools/qxhost/pipeline/output/FrameDelivery.h"

#include "QxFxResources/GPUColourConverter.h"
#include "host/surfaces/RowGeometry.h"
#include "platform/GPUService.h"
#include "platform/OS.h"
#include "tools/qxhost/console/Failure.h"
#include "tools/qxhost/media/Matrices.h"
#include "tools/qxhost/pipeline/device/Drawing.h"
#include "tools/qxhost/pipeline/device/HostSession.h"
#include "tools/qxhost/pipeline/effects/NullEffect.h"
#include "tools/qxhost/pipeline/effects/WideEffect.h"

namespace Qx::Program {

namespace {

using Image::Surface;

iGPUImage::eFormat gpuFormat(unsigned bits)
{
    return bits == 8 ? iGPUImage::eARGB8 : iGPUImage::eARGB16;
}

/// The texels of an RGB format, a pixel each, before its components are reordered.
iGPUImage::eFormat rgbTexels(const PixelFormat& format)
{
    return format.bits == 10 ? iGPUImage::eARGB10 : gpuFormat(format.bits);
}

Media::Matrix usualMatrix(const Surface& picture)
{
    return Media::matrixForWidth(static_cast<int>(picture.getWidth()));
}

} // namespace

FrameDelivery::FrameDelivery(const PixelFormat& format, std::optional<Media::Matrix> matrix)
    : format_(format), matrix_(matrix), way_(wayOf(format.info->format, format.bits))
{
}

bool FrameDelivery::isLibrarys(unsigned width) const
{
    return way_.library != Image::UnknownFormat && width % way_.libraryBlock == 0;
}

Surface FrameDelivery::fromPicture(const Surface& given, Media::Range range) const
{
    const unsigned width = given.getWidth();
    const bool video = range == Media::Range::video; // the library takes pictures for full range
    // The library picks the matrix by the width.
    const bool otherMatrix = matrix_.value_or(usualMatrix(given)) != usualMatrix(given);
    if (format_.isYCrCb() && (video || otherMatrix || !isLibrarys(width))) {
        return fromPairs(encode(given, range));
    }
    const Surface picture = video ? atDepth(given, rgbTexels(format_), range) : given;
    const Qx::Ptr<iGPUImage> image = picture.getGPUSurface();
    if (image && image->getFormat() == iGPUImage::eARGB10 && rgbTexels(format_) == iGPUImage::eARGB10) {
        return toHost(picture, given);
    }
    if (isLibrarys(width)) {
        PixelFormat asked = format_;
        asked.info = Host::findFormat(way_.library);
        const Surface result = Image::ColourConversion::copyToHostSurface(
            picture, describeFrame(asked, width, picture.getHeight()), picture.getPolarity());
        if (!result.getHostImage()) {
            failOnDevice(picture);
        }
        return result;
    }
    const Surface deep = atDepth(picture, gpuFormat(format_.bits), range);
    return toHost(through(way_.technique, deep, picture), picture);
}

Surface FrameDelivery::encode(const Surface& picture, Media::Range range) const
{
    Surface pairs = picture.createDestYUY2GPUSurface(gpuFormat(format_.bits));
    const Media::Matrix matrix = matrix_.value_or(usualMatrix(picture));
    pairs.setColourSpace(Media::infoOf(matrix).colourSpace);
    pairs.setGamutScaling(Image::GamutScaling::Video);
    Surface source = picture;
    source.setGamutScaling(range == Media::Range::video ? Image::GamutScaling::Video
                                                        : Image::GamutScaling::Unscaled);
    const Drawing drawing = tryDrawing([&] {
        return matrix == Media::Matrix::bt2020
                   ? encodeWide(source, pairs)
                   : Image::ColourConversion::convertRGBToYCrCb422(source, pairs, Image::Filter::Point);
    });
    if (drawing != Drawing::recorded) {
        failOnDevice(picture);
    }
    return pairs;
}

Surface FrameDelivery::fromPairs(const Surface& pairs) const
{
    if (way_.out == FormatWay::Out::packed) {
        return toHost(packMatrox(pairs), pairs);
    }
    const Qx::Ptr<iGPUImage> image = pairs.getGPUSurface();
    const bool isThis =
        way_.in == FormatWay::In::pairs && image && image->getFormat() == gpuFormat(format_.bits);
    return toHost(isThis ? pairs : through(way_.technique, pairs, pairs), pairs);
}

Surface FrameDelivery::packMatrox(const Surface& pairs) const
{
    Surface source = pairs;
    source.setWidth((pairs.getWidth() + way_.libraryBlock - 1) / way_.libraryBlock * way_.libraryBlock);
    Surface packed;
    const Drawing drawing =
        tryDrawing([&] { return Image::ColourConversion::packMatrox10BitFormat(source, packed); });
    if (drawing != Drawing::recorded) {
        failOnDevice(pairs);
    }
    return packed;
}

/// `of` is the picture that gives the result its size in pixels.
Surface FrameDelivery::through(const char* technique, const Surface& from, const Surface& of) const
{
    const Image::Core::Data data = describeFrame(format_, of.getWidth(), of.getHeight());
    const auto geometry = Host::rowGeometryOf(data);
    if (!geometry) {
        failOnDevice(of);
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
        failOnDevice(of);
    }
    return result;
}

} // namespace Qx::Program
