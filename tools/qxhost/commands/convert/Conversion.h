#pragma once

#include "tools/qxhost/console/Console.h"
#include "tools/qxhost/console/ExitCode.h"
#include "tools/qxhost/pipeline/options/ConvertOptions.h"

#include <string>
#include <vector>

namespace Qx::Program {

/// Converts on a host of its own, with progress and remarks. Returns ExitCode::input if the input is damaged;
/// the output then holds what could be read. Throws Failure.
ExitCode runConversion(const ConvertOptions& options, Console& console);

/// Converts on the host that is running, without output to the console. Returns what a user should know of
/// the effects' settings, a line each. Throws Failure.
std::vector<std::string> convertQuietly(const ConvertOptions& options);

} // namespace Qx::Program
