#pragma once

#include "tools/qxhost/pipeline/options/BurnInOptions.h"

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace Qx::Program {

/// Adds the options of burned-in texts to a command. `words` is a target that the library wants.
void addBurnIn(CLI::App& command, std::vector<std::string>& words);

/// The texts in their order. Further options belong to the "--burn-in" before them; those before the first
/// belong to it. Throws Failure (usage) if options are given without a text, a value is invalid, or two texts
/// have one place.
std::vector<BurnInOptions> groupBurnIns(const CLI::App& command);

} // namespace Qx::Program
