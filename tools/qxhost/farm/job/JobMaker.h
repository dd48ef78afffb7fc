#pragma once

#include "tools/qxhost/console/Console.h"
#include "tools/qxhost/farm/job/Job.h"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Qx::Program::Farm {

/// What a job is made of.
struct JobRequest
{
    ConvertOptions options;             ///< of the whole conversion
    std::vector<std::string> arguments; ///< the same as words, without input and output
    std::filesystem::path folder;       ///< that is made
    std::optional<std::int64_t> pieces; ///< empty: as many as is usual
    bool copiesInput = false;           ///< into the folder; else it gets a link
    bool keepsDigests = true;           ///< false: for a job that does not outlive this run
};

/// Makes a job's folder, whole or not at all: effects with their includes, LUTs, textures and fonts are
/// copied into it, inputs are linked or copied. Throws Failure, also if the conversion cannot be split, and
/// (interrupted) once `stopped` is true.
Job makeJob(const JobRequest& request, const std::atomic<bool>& stopped, Console& console);

} // namespace Qx::Program::Farm
