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
    /// Supported are packed 4:2:2 of every kind (YUY2, YUYV, YVYU, UYVY, VYUY, Y216, v216, v210, M101, M102,
    /// at each of their depths) to every other kind, and every format to itself. To more bits is exact: the
    /// code becomes the most significant bits. To fewer rounds to the nearest code, halves up, and never
    /// beyond the largest. What a 10-bit row has behind the picture is 0.
    static bool convert(const Qx::Image::Surface& from, Qx::Image::Surface& to);
};
