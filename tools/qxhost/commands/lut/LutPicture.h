#pragma once

#include "host/luts/LUTSteps.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Qx::Program {

/// A picture in memory order A R G B, 8 bits, rows without padding.
struct LutPicture
{
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> bytes;
};

/// Draws the effect of a LUT: a chart before and after, the curves of grey, and ramps before and after,
/// each with its title. `name` and `contents` head the picture. Titles are left out if there is no typeface.
LutPicture drawLut(const Host::LUTSteps& steps, const std::string& name, const std::string& contents);

} // namespace Qx::Program
