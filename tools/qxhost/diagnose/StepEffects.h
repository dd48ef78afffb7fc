#pragma once

#include "tools/qxhost/diagnose/Steps.h"

#include <vector>

namespace Qx::Diagnosis {

/// Compiles what the steps draw with, so that no figure holds that, and takes out the steps whose effects
/// are unavailable: that is no fault of the device. What is wrong, and what to do, is sent as one failed
/// figure.
void compileEffects(Probe& probe, std::vector<Step>& chosen);

} // namespace Qx::Diagnosis
