#pragma once

#include "tools/qxhost/console/Console.h"
#include "tools/qxhost/console/ExitCode.h"

#include <exception>
#include <string>

namespace Qx::Program {

/// Prints a failure, as JSON too if the command was asked for it, and returns the exit code.
ExitCode report(Console& console, bool json, ExitCode code, const std::string& text,
                const std::string& details = {});

/// What to say of a failure that nobody foresaw.
std::string failureText(const std::exception& error);

} // namespace Qx::Program
