#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace Qx::Host {

/// What the preprocessor gets beside the effect file.
struct PreprocessorOptions
{
    /// Name and value of macros that are defined before the first line.
    std::vector<std::pair<std::string, std::string>> definitions;

    /// Searched for `#include "..."` after the directory of the including file.
    std::vector<std::filesystem::path> includeDirectories;
};

} // namespace Qx::Host
