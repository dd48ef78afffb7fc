#pragma once

#include "tools/qxhost/pipeline/options/BurnInOptions.h"

#include <CLI/CLI.hpp>

namespace Qx::Program {

/// Adds the options of burned-in text to a command.
void addBurnIn(CLI::App& command, BurnInOptions& options);

/// Throws Failure (usage) if options of the text are given without it, or a value is invalid.
void checkBurnIn(const CLI::App& command, const BurnInOptions& options);

} // namespace Qx::Program
