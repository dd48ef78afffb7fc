#pragma once

#include "tools/qxhost/diagnose/Report.h"

#include <filesystem>
#include <string>

namespace Qx::Diagnosis {

// Runs that are kept: JSON files in the directory "diagnose" of the user's state directory, named by date and
// device.

/// Keeps a run, and says where; one of the same second stays beside it. Throws Failure (output).
std::filesystem::path saveRun(const Report& report);

struct NamedReport
{
    std::string name;
    Report report;
};

/// The run of a file, of a kept run's name, or, for "last", of the last one that was kept. Throws Failure
/// (input).
NamedReport loadRun(const std::string& name);

/// The name that a run is kept under: "2026-11-21T07-13-01_llvmpipe.json".
std::string fileNameOf(const Report& report);

/// Writes a file aside and renames it; replaces one that exists with `force` alone. Throws Failure (output).
void writeFile(const std::filesystem::path& file, const std::string& text, bool force);

} // namespace Qx::Diagnosis
