#include "platform/Surface.h"

#include "host/gpu/FloatImages.h"
#include "host/surfaces/RowGeometry.h"
#include "platform/GPUService.h"
#include "platform/Log.h"
#include "platform/OS.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <optional>

namespace Qx::Image {

namespace {

using Host::RowGeometry;

/// Fills in what a description leaves to its format.
void complete(Core::Data& data)
{
    if (data.bitsPerPixel == 0) {
        data.bitsPerPixel = Host::bitsPerPixelOf(data);
    }
    if (data.rowPitch == 0) {
        const std::optional<RowGeometry> geometry = Host::rowGeometryOf(data);
        if (geometry && geometry->pitch <= std::numeric_limits<std::uint32_t>::max()) {
            data.rowPitch = static_cast<std::uint32_t>(geometry->pitch);
        }
    }
}

struct Rows
{
    std::size_t bytes; ///< of a row
    std::size_t count;
};

/// The part of an image's rows that a description covers. Rows beyond the description are left out. A
/// description that exceeds the image is clamped to it, and that is logged.
Rows rowsToCopy(const std::optional<RowGeometry>& described, std::size_t pitch, const iHostImage& image)
{
    const std::size_t imageRows = static_cast<std::size_t>(image.getSize().y);
    const std::size_t imagePitch = image.getPitch();
    if (!described) {
        return {std::min(pitch, imagePitch), imageRows};
    }
    if (described->rowBytes > std::min(pitch, imagePitch) || described->rows > imageRows) {
        Log("Surface::copyToHost : the description asks for %llu rows of %llu bytes, the image has %zu of "
            "%zu and the row pitch is %zu; the rest is left black\n",
            static_cast<unsigned long long>(described->rows),
            static_cast<unsigned long long>(described->rowBytes), imageRows, imagePitch, pitch);
    }
    return {std::min(pitch, imagePitch), std::min<std::size_t>(described->rows, imageRows)};
}

/// Copies the image's first rows to a new image of that many texels without padding; empty if allocation
/// failed.
Ptr<iHostImage> copyRows(iHostImage& from, const Rows& rows, XY<int> size)
{
    Ptr<iHostImage> result = OS().gpu().createHostImage(size, from.getFormat());
    const auto* source = result ? static_cast<const std::byte*>(from.map(iHostImage::Read)) : nullptr;
    auto* target = source != nullptr ? static_cast<std::byte*>(result->map(iHostImage::Write)) : nullptr;
    if (target == nullptr) {
        return {};
    }
    const std::size_t pitch = result->getPitch();
    for (std::size_t y = 0; y < rows.count; ++y) {
        std::memcpy(target + y * pitch, source + y * from.getPitch(), rows.bytes);
        std::memset(target + y * pitch + rows.bytes, 0, pitch - rows.bytes);
    }
    const std::size_t blank = static_cast<std::size_t>(size.y) - rows.count;
    std::memset(target + rows.count * pitch, 0, blank * pitch);
    return result;
}

Surface describeARGB(unsigned width, unsigned height, iGPUImage::eFormat texels)
{
    if (texels == Host::floatTexels) {
        constexpr std::uint64_t bytes = 16;
        constexpr std::uint64_t most = std::numeric_limits<std::uint32_t>::max();
        Surface floats(width, height, ARGB, false, 32, 128, 0);
        floats.setRowPitch(static_cast<std::uint32_t>(std::min(width * bytes, most)));
        return floats;
    }
    switch (texels) {
    case iGPUImage::eARGB16:
        return {width, height, ARGB, false, 16, 0, 0};
    case iGPUImage::eARGB10:
        return {width, height, ARGB10, false, 10, 0, 0};
    case iGPUImage::eARGB8:
        break;
    }
    return {width, height, ARGB, false, 8, 0, 0};
}

Ptr<iGPUImage> createImage(unsigned width, unsigned height, iGPUImage::eFormat format)
{
    constexpr unsigned largest = std::numeric_limits<int>::max();
    if (width > largest || height > largest) {
        return {};
    }
    return OS().gpu().createGPUImage({static_cast<int>(width), static_cast<int>(height)}, format);
}

} // namespace

Surface::Surface(unsigned width, unsigned height, Format format, bool bottomUp,
                 unsigned short bitsPerComponent, unsigned short bitsPerPixel, unsigned short rowPitch)
{
    init(width, height, format, bottomUp, bitsPerComponent, bitsPerPixel, rowPitch);
}

void Surface::init(unsigned width, unsigned height, Format format, bool bottomUp,
                   unsigned short bitsPerComponent, unsigned short bitsPerPixel, unsigned short rowPitch)
{
    data_ = Core::Data(width, height, format, bitsPerComponent, bitsPerPixel);
    data_.topDown = bottomUp ? 0 : 1;
    data_.rowPitch = rowPitch;
    complete(data_);
    descriptions_ = ImageDescriptions();
    gpuImage_.reset();
    hostImage_.reset();
}

bool Surface::allocateHost()
{
    complete(data_);
    const std::optional<RowGeometry> geometry = Host::rowGeometryOf(data_);
    if (!geometry || geometry->pitch > std::numeric_limits<std::uint32_t>::max()) {
        return false;
    }
    Ptr<iHostImage> image = OS().gpu().createHostImage(geometry->imageSize(), geometry->texels);
    if (!image) {
        return false;
    }
    data_.rowPitch = static_cast<std::uint32_t>(geometry->pitch);
    hostImage_ = image;
    gpuImage_.reset();
    return true;
}

Surface Surface::uploadToGPU() const
{
    Surface result = *this;
    result.hostImage_.reset();
    result.gpuImage_ = hostImage_ ? OS().gpu().uploadImage(hostImage_, 0) : nullptr;
    return result;
}

Surface Surface::copyToHost() const
{
    if (!gpuImage_) {
        return *this;
    }
    Surface result = *this;
    result.gpuImage_.reset();
    result.hostImage_.reset();
    const Ptr<iHostImage> image = OS().gpu().downloadImage(gpuImage_);
    if (!image) {
        return result;
    }

    complete(result.data_);
    const unsigned texel = Host::bytesPerTexel(image->getFormat());
    const std::optional<RowGeometry> described = Host::rowGeometryAtAnyPitch(result.data_);
    const std::size_t asked = result.data_.rowPitch != 0 ? result.data_.rowPitch : image->getPitch();
    const std::size_t pitch = (asked + texel - 1) / texel * texel;
    const std::size_t rows = described ? described->rows : static_cast<std::size_t>(image->getSize().y);
    result.data_.rowPitch = static_cast<std::uint32_t>(pitch);
    if (pitch == image->getPitch() && rows == static_cast<std::size_t>(image->getSize().y)) {
        rowsToCopy(described, pitch, *image); // logs if the description exceeds the image
        result.hostImage_ = image;
    } else {
        const XY<int> size{static_cast<int>(pitch / texel), static_cast<int>(rows)};
        result.hostImage_ = copyRows(*image, rowsToCopy(described, pitch, *image), size);
    }
    return result;
}

Surface Surface::createDestARGBGPUSurface(iGPUImage::eFormat format) const
{
    Surface result = describeARGB(getWidth(), getHeight(), format);
    result.descriptions_ = descriptions_;
    result.gpuImage_ = createImage(getWidth(), getHeight(), format);
    return result;
}

Surface Surface::createDestYUY2GPUSurface(iGPUImage::eFormat format) const
{
    const unsigned short bits = format == iGPUImage::eARGB8 ? 8 : 16;
    Surface result(getWidth(), getHeight(), YUY2, false, bits, 0, 0);
    result.descriptions_ = descriptions_;
    if (format != iGPUImage::eARGB10) { // a 10-bit word has no room for two pixels
        result.gpuImage_ = createImage(getWidth() / 2 + getWidth() % 2, getHeight(), format);
    }
    return result;
}

Surface makeWrapper(Ptr<iGPUImage> image)
{
    if (!image) {
        return {};
    }
    const XY<int> size = image->getSize();
    Surface result =
        describeARGB(static_cast<unsigned>(size.x), static_cast<unsigned>(size.y), image->getFormat());
    result.setGPUSurface(std::move(image));
    return result;
}

} // namespace Qx::Image
