#pragma once

#include "host/luts/LUTSteps.h"
#include "tools/qxhost/pipeline/output/Canvas.h"

#include <string>

namespace Qx::Program {

/// Draws the effect of a LUT: a chart before and after, the curves of grey, and ramps before and after,
/// each with its title. `name` and `contents` head the picture. Titles are left out if there is no typeface.
MemoryPicture drawLut(const Host::LUTSteps& steps, const std::string& name, const std::string& contents);

} // namespace Qx::Program
