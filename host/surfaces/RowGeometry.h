#pragma once

#include "Qx/XY.h"
#include "platform/Api.h"
#include "platform/GPUImage.h"
#include "platform/ImageDescription.h"

#include <cstdint>
#include <optional>

namespace Qx::Host {

/// Where the rows of a described image lie. All planes are counted: a planar image's rows are those of the
/// planes, one plane after the other.
struct RowGeometry
{
    std::uint64_t rowBytes = 0; ///< what the pixels of a row need
    std::uint64_t pitch = 0;    ///< from a row to the next: what the description says, in whole texels
    std::uint64_t rows = 0;
    iGPUImage::eFormat texels = iGPUImage::eARGB8;

    /// The image that holds these rows, in texels.
    QX_API XY<int> imageSize() const;
};

/// Bytes of a texel.
unsigned bytesPerTexel(iGPUImage::eFormat format);

/// What the format table says of a description's bits per pixel; 0 for an unknown format.
std::uint16_t bitsPerPixelOf(const Image::Core::Data& data);

/// The geometry of a description. A row pitch of 0 is computed from the width; one that is not a whole number
/// of texels is rounded up. Empty when the description makes no sense: no width or height, a format that is
/// unknown (and no bits per pixel either) or does not exist at that depth, a pitch that a row does not fit
/// into, or a size beyond what an image and the address space can have.
QX_API std::optional<RowGeometry> rowGeometryOf(const Image::Core::Data& data);

/// The same without requiring that the pitch holds a row.
std::optional<RowGeometry> rowGeometryAtAnyPitch(const Image::Core::Data& data);

} // namespace Qx::Host
