#pragma once

#include "Qx/XY.h"
#include "platform/Api.h"
#include "platform/GPUImage.h"
#include "platform/ImageDescription.h"

#include <cstdint>
#include <optional>

namespace Qx::Host {

/// The geometry of a described image's rows. Rows of all planes count, one plane after the other.
struct RowGeometry
{
    std::uint64_t rowBytes = 0; ///< what the pixels of a row need
    std::uint64_t pitch = 0;    ///< from a row to the next: the description's, rounded up to whole texels
    std::uint64_t rows = 0;     ///< of all planes
    iGPUImage::eFormat texels = iGPUImage::eARGB8; ///< of the image that holds the rows

    /// The image that holds these rows, in texels.
    QX_API XY<int> imageSize() const;
};

/// Bytes of a texel.
QX_LOCAL unsigned bytesPerTexel(iGPUImage::eFormat format);

/// The bits per pixel of a description according to the format table; 0 for an unknown format.
QX_LOCAL std::uint16_t bitsPerPixelOf(const Image::Core::Data& data);

/// The geometry of a description. A row pitch of 0 is computed from the width; one that is not a whole number
/// of texels is rounded up. Empty if the description is invalid: no width or height, an unknown format
/// without bits per pixel, a format that does not exist at that depth, a pitch smaller than a row, or a size
/// beyond the limits of an image or the address space.
QX_API std::optional<RowGeometry> rowGeometryOf(const Image::Core::Data& data);

/// The same without requiring that the pitch holds a row.
QX_LOCAL std::optional<RowGeometry> rowGeometryAtAnyPitch(const Image::Core::Data& data);

} // namespace Qx::Host
