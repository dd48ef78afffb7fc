#pragma once

#include "tests/pixels/HostFrames.h"
#include "tests/pixels/Picture.h"
#include "tests/pixels/Reference.h"

#include "platform/Surface.h"

#include <optional>

/// Techniques of "null.fx" and the packed formats, called as a program calls them that writes every format.
namespace Qx::Pixels {

/// The depth of GPU images for surfaces of that many bits a component.
iGPUImage::eFormat gpuFormatFor(unsigned depth);

/// Which technique brings a picture from the GPU's order, ARGB or YUY2, to a format; "" when the order is the
/// format's own already.
const char* techniqueTo(Image::Format format);

/// A GPU surface through a technique of "null.fx" into a new one of these rows.
Image::Surface through(const char* technique, const Image::Surface& source, const FrameSpec& target);

/// The rows that a GPU surface in the GPU's order has in a format.
Rows rowsAs(const FrameSpec& target, const Image::Surface& source);

/// The same for 10-bit M101, whose last block is whole at any width.
Rows rowsAsM101(const Image::Surface& source);

/// Uploaded rows, unpacked or reordered by a technique of "null.fx" to YUY2, all pairs of an odd width too.
Rows rowsAsYUY2(const char* technique, const Image::Surface& frame, unsigned depth);

/// An RGB picture encoded by the library and packed as v210: the codes of 10 bits that lie there. Empty when
/// the library or the device refused.
std::optional<Picture> convertToTenBits(const Conversion& conversion, const Picture& source);

} // namespace Qx::Pixels
