#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace Qx::Program {

/// What "qxhost effects check" was asked for.
struct CheckOptions
{
    std::vector<std::filesystem::path> files;
    std::string device;
    bool json = false;
};

} // namespace Qx::Program
