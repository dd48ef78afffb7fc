#pragma once

#include "tools/qxhost/console/Console.h"
#include "tools/qxhost/console/ExitCode.h"
#include "tools/qxhost/farm/job/Job.h"

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

namespace Qx::Program::Farm {

/// Makes the pieces of a job that are missing or damaged, in processes of this machine.
struct WorkerOptions
{
    std::optional<std::int64_t> jobs; ///< at a time; empty: by the machine's devices. Memory may allow fewer
    std::string device;               ///< empty: each in turn where there are several
    bool quiet = false;
};

/// Returns ok, or the exit code of the pieces that failed if it is the same, or else `failed`; what failed
/// and why is told. A piece that fails leaves the others alone; so does one that is killed, which is tried
/// again. Throws Failure, (interrupted) once `stopped` is true.
ExitCode makePieces(const Job& job, const WorkerOptions& options, const std::atomic<bool>& stopped,
                    Console& console);

} // namespace Qx::Program::Farm
