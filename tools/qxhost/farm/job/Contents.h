#pragma once

#include "tools/qxhost/farm/job/Job.h"

#include <atomic>
#include <filesystem>
#include <string>

namespace Qx::Program::Farm {

/// SHA-256 of a file in hexadecimal digits. Throws Failure (input), and (interrupted) once `stopped` is true.
std::string digestOf(const std::filesystem::path& file, const std::atomic<bool>* stopped = nullptr);

enum class Reading
{
    whatChanged, ///< large files are read only if their size or their times are not those of the last reading
    everything
};

/// Throws Failure (input) with the first file that is missing or whose content is not the one that the job
/// was made with, and what to do.
void checkContents(const Job& job, Reading reading, const std::atomic<bool>* stopped = nullptr);

/// Notes that the files have just been read, so that they are not read again.
void noteContents(const Job& job);

} // namespace Qx::Program::Farm
