#pragma once

#include "tools/qxhost/console/Console.h"
#include "tools/qxhost/console/ExitCode.h"
#include "tools/qxhost/farm/job/Job.h"

#include <atomic>
#include <filesystem>

namespace Qx::Program::Farm {

/// Where to put the whole, and whether to replace what is there.
struct JoinOptions
{
    std::filesystem::path output; ///< empty: in the job's folder, by the job's name
    bool force = false;
    bool quiet = false;
};

/// Joins the pieces of a job, without encoding again; does nothing if that is done. Returns ExitCode::input
/// if the input was damaged: the output then holds what could be read. Throws Failure, with the numbers of
/// the pieces that are missing or damaged; (interrupted) once `stopped` is true.
ExitCode joinJob(const Job& job, const JoinOptions& options, const std::atomic<bool>& stopped,
                 Console& console);

/// Whether the output in the job's folder is there, of the size that it was written with.
bool isJoined(const Job& job);

/// What is wrong with the output in the job's folder, which is read; empty if it is as it was written, or has
/// not been written yet.
std::string problemWithJoined(const Job& job);

} // namespace Qx::Program::Farm
