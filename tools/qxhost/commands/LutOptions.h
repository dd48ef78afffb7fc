#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace Qx::Program {

/// "qxhost lut ACTION".
struct LutOptions
{
    enum class Action
    {
        list,
        install,
        info,
        preview
    };

    Action action = Action::list;
    std::vector<std::filesystem::path> files; ///< to install
    std::filesystem::path file;               ///< of info and preview
    std::filesystem::path output;             ///< the picture of preview
    bool force = false;                       ///< replace what exists
    bool json = false;
};

} // namespace Qx::Program
