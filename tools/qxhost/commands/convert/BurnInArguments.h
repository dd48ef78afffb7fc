#pragma once

#include "tools/qxhost/pipeline/burnin/BurnInOptions.h"

#include <CLI/CLI.hpp>

namespace Qx::Program {

/// Adds the options of burned-in text to a command.
void addBurnIn(CLI::App& command, BurnInOptions& options);

/// Throws Failure (usage) for options that make no sense without each other.
void checkBurnIn(const CLI::App& command, const BurnInOptions& options);

} // namespace Qx::Program
