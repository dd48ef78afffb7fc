#pragma once

#include "tools/qxhost/diagnose/Report.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Qx::Diagnosis {

enum class Health
{
    healthy,
    partial,   ///< what was measured is well; the run was not asked for all
    remarks,   ///< it works; something about it is worth knowing
    unhealthy, ///< something failed or came out wrong
    unknown,   ///< the run could not tell
};

std::string_view nameOf(Health health);

/// Whether whole frames of a kind go through as fast as they are shown.
struct RealTime
{
    std::string name;              ///< "1080p25"
    double needed = 0;             ///< frames a second
    std::optional<double> reached; ///< empty: not measured
};

/// What a report means, for a person who knows nothing of it. Sentences end with a full stop.
struct Verdict
{
    Health health = Health::unknown;
    std::string headline; ///< one sentence
    std::string device;   ///< one sentence: which device, real or software
    std::vector<std::string> faults;
    std::vector<std::string> remarks;
    std::vector<RealTime> realTime;
    std::string limit; ///< one sentence: what a frame's time goes into; empty when that was not measured
    std::string load;  ///< one sentence, if the machine was busy; no part of its health
};

/// Rules, and nothing else: the same report has the same verdict on every machine.
///
/// A fault is a step that failed, hung or died, a failure in the suite's lines, or a check that came out
/// wrong. A remark is a rate that fell all the while, levels that the device rounds the
/// wrong way, and a run that is not complete. Where the program's own parts are missing, nothing can be said
/// of the device. Real time is judged by the rate of whole frames.
Verdict judge(const Report& report);

/// "yes (2.4 times as fast)", "barely (1.04 times)", "no (0.7 times)", "not measured".
std::string answer(const RealTime& rate);

} // namespace Qx::Diagnosis
