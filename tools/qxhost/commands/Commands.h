#pragma once

#include "tools/qxhost/commands/CommandLine.h"
#include "tools/qxhost/console/Console.h"
#include "tools/qxhost/console/ExitCode.h"

namespace Qx::Program {

// What the program does, one function a command. They throw Failure; what they answer otherwise is the exit
// code.

ExitCode runConvert(const ConvertOptions& options, Console& console);
ExitCode runEffectsList(const EffectsListOptions& options, Console& console);
ExitCode runEffectsCheck(const EffectsCheckOptions& options, Console& console);
ExitCode runBlack(const BlackOptions& options, Console& console);
ExitCode runFormats(const FormatsOptions& options, Console& console);
ExitCode runEffectsWatch(const EffectsWatchOptions& options, Console& console);
ExitCode runLut(const LutOptions& options, Console& console);
ExitCode runEffectsDescribe(const EffectsDescribeOptions& options, Console& console);
ExitCode runEffectsCache(const EffectsCacheOptions& options, Console& console);
ExitCode runDevices(const DevicesOptions& options, Console& console);
ExitCode runDiagnose(const DiagnoseOptions& options, Console& console);
ExitCode runMeasure(const MeasureOptions& options, Console& console);

/// Converts on the host that is running, without a word. Throws Failure.
void convertQuietly(const ConvertOptions& options);

} // namespace Qx::Program
