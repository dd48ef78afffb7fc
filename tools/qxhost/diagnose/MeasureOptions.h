#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace Qx::Program {

/// What the process that measures is started with: the hidden command "diagnose-measure".
struct MeasureOptions
{
    bool quick = false;
    std::vector<std::string> only; ///< steps; empty for all
    std::string device;
    std::filesystem::path scratch; ///< an empty directory, which the parent removes; empty for none
    int lifeSign = -1;             ///< file descriptor of the memory shared with the parent
    int parent = 0;                ///< process id
};

/// The program's arguments for these options.
std::vector<std::string> argumentsOf(const MeasureOptions& options);

} // namespace Qx::Program
