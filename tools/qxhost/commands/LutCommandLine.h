#pragma once

#include "tools/qxhost/commands/LutOptions.h"

#include <CLI/CLI.hpp>

namespace Qx::Program {

/// Adds "lut" with its commands, whose values go to `options`.
CLI::App* addLut(CLI::App& app, LutOptions& options);

/// The action of one of these commands.
LutOptions::Action lutActionNamed(const std::string& command);

} // namespace Qx::Program
