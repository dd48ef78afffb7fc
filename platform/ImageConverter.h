#pragma once

#include "platform/Api.h"
#include "platform/Surface.h"

/// The host's conversions between formats in host memory, on the CPU.
class QX_PLATFORM_API ImageConverter
{
public:
    /// Converts the pixels of `from` to the format and depth of `to`, which has the same size; `to` gets
    /// memory when it has none. False, and `to` as it was, when the pair of formats is not supported or there
    /// is no memory.
    ///
    /// Supported are v210 to YUY2 and to Y216, YUY2 to Y216 and back, and every format to itself. To 16 bits
    /// is exact: the code becomes the most significant bits. To 8 bits rounds to the nearest code, halves up,
    /// and never beyond 255.
    static bool convert(const Qx::Image::Surface& from, Qx::Image::Surface& to);
};
