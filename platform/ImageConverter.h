#pragma once

#include "platform/Api.h"
#include "platform/Surface.h"

/// The host's conversions between formats in host memory, on the CPU.
class QX_PLATFORM_API ImageConverter
{
public:
    /// Converts the pixels of `from` to the format and depth of `to`, which has the same size. False, and
    /// `to` as it was, when the pair of formats is not supported or there is no memory.
    static bool convert(const Qx::Image::Surface& from, Qx::Image::Surface& to);
};
