#pragma once

#include "platform/GPUImage.h"

#include <cstdint>
#include <vector>

namespace Qx::Program {

/// A picture in memory order A R G B, 8 bits, rows without padding.
struct LutPicture
{
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> bytes;
};

/// Draws what a table does: a chart before and after, the curves of grey, and ramps before and after.
LutPicture drawLut(const iHostImage3D& table);

} // namespace Qx::Program
