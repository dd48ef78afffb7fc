#pragma once

#include "tools/qxhost/diagnose/Probe.h"
#include "tools/qxhost/diagnose/Yardsticks.h"

#include <string_view>
#include <vector>

namespace Qx::Diagnosis {

/// What can be measured. Steps send what they find; what fails in one is a failed figure, and the next goes
/// on. None throws.
struct Step
{
    std::string_view name; ///< as on the command line
    std::string_view title;
    bool isQuick;                     ///< also part of a quick run
    std::vector<const char*> effects; ///< that must be compiled before
    void (*run)(Probe& probe, Yardsticks& yardsticks);
};

/// All steps in the order in which they run.
const std::vector<Step>& steps();

void runSuite(Probe& probe, Yardsticks& yardsticks);
void measureCopies(Probe& probe, Yardsticks& yardsticks);
void measureTransfers(Probe& probe, Yardsticks& yardsticks);
void measureLatency(Probe& probe, Yardsticks& yardsticks);
void measureConversions(Probe& probe, Yardsticks& yardsticks);
void measureLooks(Probe& probe, Yardsticks& yardsticks);
void measureFrames(Probe& probe, Yardsticks& yardsticks);
void measureStreams(Probe& probe, Yardsticks& yardsticks);
void measureCompiling(Probe& probe, Yardsticks& yardsticks);
void checkResults(Probe& probe, Yardsticks& yardsticks);
void measureMemory(Probe& probe, Yardsticks& yardsticks);

} // namespace Qx::Diagnosis
