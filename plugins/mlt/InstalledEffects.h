#pragma once

#include <filesystem>
#include <map>
#include <string>

namespace Qx::Mlt {

/// The files of the effects that are installed, by their names without ".fx". Reads directories and nothing
/// else: MLT asks before a service is used, and perhaps none ever is.
std::map<std::string, std::filesystem::path> installedEffects();

} // namespace Qx::Mlt
