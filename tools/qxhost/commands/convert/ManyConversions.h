#pragma once

#include "tools/qxhost/console/Console.h"
#include "tools/qxhost/console/ExitCode.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace Qx::Program {

/// "qxhost convert INPUT... --to NAME".
struct ManyConversions
{
    std::vector<std::filesystem::path> inputs; ///< at least one
    std::string to;                            ///< the outputs' name, with {name} and {folder}
    std::int64_t jobs = 1;                     ///< conversions at a time
    std::vector<std::string> arguments;        ///< of each conversion, without its input and output
    bool force = false;
    bool quiet = false;
    bool json = false;
};

/// The output of an input by that name: {name} is the input's name without directory and ending, {folder} its
/// directory, and {{ and }} are braces. Throws Failure (usage).
std::filesystem::path outputFor(const std::filesystem::path& input, const std::string& to);

/// Converts each input in a process of its own, so that one that fails leaves the others alone. Returns ok,
/// the exit code of those that failed if it is the same, or else `failed`. Throws Failure (usage, output)
/// before anything is converted if two inputs have one output, or an output is an input or has no directory.
ExitCode convertMany(const ManyConversions& many, Console& console);

} // namespace Qx::Program
