#pragma once

#include "platform/Api.h"
#include "platform/Surface.h"

/// The host's conversions between pixel formats in host memory, on the CPU. Thread-safe for different
/// surfaces.
class QX_PLATFORM_API ImageConverter
{
public:
    /// Converts the pixels of `from` to the format and depth of `to`, which must have the same size.
    /// Allocates memory for `to` if it has none. Returns false if the pair of formats is not supported or out
    /// of memory; `to` is then unchanged.
    ///
    /// Supported are packed 4:2:2 of every kind (YUY2, YUYV, YVYU, UYVY, VYUY, Y216, v216, v210, M101, M102,
    /// at each of their depths) to every other kind, and every format to itself. A conversion to more bits is
    /// exact: the code becomes the most significant bits. A conversion to fewer bits rounds to nearest,
    /// halves up, and is clamped to the largest code. Bits of a 10-bit row beyond the picture are 0.
    static bool convert(const Qx::Image::Surface& from, Qx::Image::Surface& to);
};
