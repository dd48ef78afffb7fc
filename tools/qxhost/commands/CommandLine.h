#pragma once

#include "tools/qxhost/commands/Command.h"

#include <memory>
#include <string>
#include <vector>

namespace Qx::Program {

/// Reads the program's arguments, argv[0] left out, and returns the command that they ask for, ready to run;
/// help and the version are commands too. Throws Failure (usage). Touches neither files nor devices.
std::unique_ptr<Command> parseCommandLine(const std::vector<std::string>& arguments);

} // namespace Qx::Program
