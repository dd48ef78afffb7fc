#pragma once

#include "tools/qxhost/commands/convert/Conversion.h"
#include "tools/qxhost/farm/job/Job.h"

#include <cstdint>
#include <vector>

namespace Qx::Program::Farm {

/// The number of pieces for "auto": each some seconds long, as most schedulers like it.
std::int64_t usualPieces(std::int64_t frames);

/// Splits frames into `count` pieces, or as many as there are frames, of nearly the same length. A piece
/// begins with a key frame of the input where one is near, since nothing is then decoded in vain.
std::vector<PlannedPiece> splitFrames(const ConversionPlan& plan, std::int64_t count);

} // namespace Qx::Program::Farm
