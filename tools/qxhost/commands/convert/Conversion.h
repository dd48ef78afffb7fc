#pragma once

#include "tools/qxhost/console/Console.h"
#include "tools/qxhost/console/ExitCode.h"
#include "tools/qxhost/pipeline/options/ConvertOptions.h"

#include <filesystem>
#include <string>
#include <vector>

namespace Qx::Program {

/// Converts on a host of its own, with progress and remarks. Returns ExitCode::input if the input is damaged;
/// the output then holds what could be read. Throws Failure.
ExitCode runConversion(const ConvertOptions& options, Console& console);

struct QuietConversion
{
    std::vector<std::string> warnings;               ///< of the effects' settings, a line each
    std::vector<std::filesystem::path> textureFiles; ///< that pictures of textures were read from
};

/// Converts on the host that is running, without output to the console. Throws Failure.
QuietConversion convertQuietly(const ConvertOptions& options);

} // namespace Qx::Program
