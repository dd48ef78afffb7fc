#pragma once

#include "tools/qxhost/pipeline/look/ColourDrawing.h"
#include "tools/qxhost/pipeline/look/Look.h"

#include <filesystem>
#include <string>
#include <vector>

namespace Qx::Program {

/// Whether what a look makes of a colour depends on that colour alone.
struct MappingVerdict
{
    /// Empty if it does. Otherwise why not, and by which step: "step 2, qx-vignette.fx: the same colour comes
    /// out up to 0.31 apart at different places".
    std::string obstacle;
    double difference = 0; ///< the largest between two drawings of a colour; black is 0 and white is 1

    bool isMapping() const { return obstacle.empty(); }
};

/// Decides it by what the effects ask for, and by drawing many colours at different places, in pictures of
/// different sizes, among different neighbours and at different times. Key frames must be resolved. Steps
/// that are off do not count. `file` is the look's, for messages. Needs a HostSession with a device; see
/// ColourDrawing. Throws Failure (effect, device).
MappingVerdict examineMapping(const Look& look, const std::filesystem::path& file = {});

/// The largest difference between drawings that counts as rounding, in codes of 16 bits.
constexpr int roundingOfDrawings = 2;

} // namespace Qx::Program
