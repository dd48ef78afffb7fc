#pragma once

#include "host/luts/ColourDecision.h"
#include "tools/qxhost/pipeline/look/Look.h"

#include <string>

namespace Qx::Program {

/// A look as a correction of slope, offset, power and saturation, and how far it is off.
struct DecisionFit
{
    std::string obstacle; ///< why there is none; all else is empty then
    Host::ColourDecision decision;
    /// The largest differences of a component from what the look draws, of many colours; black is 0 and white
    /// is 1. Programs differ in what they do to values beyond these on their way.
    double clampedError = 0;
    double unclampedError = 0;
};

/// The largest error that a fit may have in one of the two ways: half a code of 10 bits.
constexpr double largestDecisionError = 0.5 / 1023.0;

/// Finds the correction. The look must be a mapping: see examineMapping(), and ColourDrawing for what is
/// needed. Throws Failure (effect, device).
DecisionFit decisionOf(const Look& look);

} // namespace Qx::Program
