#pragma once

#include "tools/qxhost/diagnose/Comparison.h"
#include "tools/qxhost/diagnose/Report.h"

#include <string>
#include <vector>

namespace Qx::Diagnosis {

// Plots as HTML with inline SVG. Names and numbers are text beside the drawing, so that they stay legible at
// any width; every drawn figure carries its id and its value as the attributes data-id and data-value. A plot
// of nothing is empty text.

/// A bar for each figure that was measured, with a mark at its yardstick, and a line for each that was not.
/// All have one unit.
std::string barPlot(const std::vector<const Figure*>& figures);

/// Bandwidths over the sizes of frames: uploads, downloads, and copies in memory.
std::string transferPlot(const Report& report);

/// How long frames took in the course of each measurement, for those of many samples.
std::string coursePlots(const Report& report);

/// By how many percent figures changed, those that did: to the right for the better.
std::string changePlot(const Comparison& comparison);

} // namespace Qx::Diagnosis
