#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace Qx::Program {

/// What "qxhost diagnose" was asked for.
struct DiagnoseOptions
{
    bool quick = false;
    std::vector<std::string> only; ///< steps; empty for all
    std::string device;
    std::filesystem::path html;     ///< the page to write; empty for none
    std::filesystem::path jsonFile; ///< the same as JSON
    bool page = false;              ///< the page goes to standard output instead of the text
    bool json = false;              ///< JSON does
    bool save = false;
    std::string compare; ///< a file, or a saved run's name, or "last"; empty for none
    std::string from;    ///< a run to show instead of measuring, named likewise
    double limit = 30;   ///< seconds without a sign of life after which the device counts as hung
    bool force = false;
};

/// What the process that measures is started with; it is not for people.
struct MeasureOptions
{
    bool quick = false;
    std::vector<std::string> only;
    std::string device;
    std::filesystem::path scratch; ///< an empty directory, which the parent removes; empty for none
    int lifeSign = -1;             ///< file descriptor of the memory that it shares with its parent
    int parent = 0;                ///< process id
};

/// The arguments that have this program measure, and what they say; empty for arguments that are no such.
std::vector<std::string> argumentsOf(const MeasureOptions& options);
std::optional<MeasureOptions> measureOptionsFrom(const std::vector<std::string>& arguments);

} // namespace Qx::Program
