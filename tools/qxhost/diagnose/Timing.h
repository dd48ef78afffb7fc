#pragma once

#include "tools/qxhost/diagnose/Probe.h"
#include "tools/qxhost/diagnose/Report.h"

#include <functional>
#include <optional>
#include <vector>

namespace Qx::Diagnosis {

/// How long frames took.
struct Timing
{
    std::vector<double> samples; ///< milliseconds a frame, each over a block of frames that was waited for
    Basis basis = Basis::waited;
    bool failed = false; ///< a frame was refused, or the device did not finish

    /// The median; empty when it failed.
    std::optional<double> milliseconds() const;
};

/// Times frames of work for the device: `frame` orders one and is false when it is refused. After a warm-up,
/// blocks of frames are ordered and waited for until the budget is used up, so that the waiting counts for
/// little and samples still show how the rate moves.
Timing timeFrames(Probe& probe, const std::function<bool()>& frame);

/// The same for drawing, by the device's own clock where it has one. For drawing alone: software devices copy
/// outside of what their clock sees.
Timing timeDrawing(Probe& probe, const std::function<bool()>& frame);

/// Times each call for work that is done when `frame` returns. The caller has warmed up.
Timing timeWork(Probe& probe, const std::function<bool()>& frame, Basis basis);

/// The figure of a timing, as "frames/s", or failed.
Figure rateFigure(std::string id, std::string group, std::string title, const Timing& timing);

/// As "GB/s" for frames of so many bytes.
Figure bandwidthFigure(std::string id, std::string group, std::string title, const Timing& timing,
                       double bytes);

/// As "ms".
Figure durationFigure(std::string id, std::string group, std::string title, const Timing& timing);

/// A figure that was not measured, and is no fault.
Figure notMeasured(std::string id, std::string group, std::string title, std::string unit, std::string why);

} // namespace Qx::Diagnosis
