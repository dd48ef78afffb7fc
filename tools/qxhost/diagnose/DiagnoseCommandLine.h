#pragma once

#include "tools/qxhost/diagnose/MeasureOptions.h"

#include <CLI/CLI.hpp>

namespace Qx::Program {

/// Adds "diagnose", whose values go to `options`.
CLI::App* addDiagnose(CLI::App& app, DiagnoseOptions& options);

} // namespace Qx::Program
