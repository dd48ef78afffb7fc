#pragma once

#include "tools/qxhost/console/Console.h"
#include "tools/qxhost/console/ExitCode.h"
#include "tools/qxhost/pipeline/options/ConvertOptions.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Qx::Program::Farm {

/// "qxhost convert --segments".
struct OneRun
{
    ConvertOptions options;
    std::vector<std::string> arguments; ///< the same as words, without input and output
    std::optional<std::int64_t> pieces; ///< empty: as many as is usual
    std::int64_t jobs = 0;              ///< pieces at a time; 0: by the machine
};

/// Converts in pieces and joins them, in a folder beside the output that does not remain, whatever happens.
/// One that a killed run left is removed by the next one that writes there. Throws Failure.
ExitCode convertInPieces(const OneRun& run, Console& console);

} // namespace Qx::Program::Farm
