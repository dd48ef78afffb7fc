#pragma once

#include "platform/Api.h"

#include <filesystem>

namespace Qx::Host {

///@{
/// The user's directories of this host, by the XDG Base Directory Specification, version 0.8: "qxhost" in
/// $XDG_CONFIG_HOME, $XDG_DATA_HOME, $XDG_STATE_HOME and $XDG_CACHE_HOME, or in their defaults below the home
/// directory. Variables without an absolute path are ignored. Empty if there is no home directory either.
QX_API std::filesystem::path userConfigurationDirectory();
QX_LOCAL std::filesystem::path userDataDirectory();
QX_API std::filesystem::path userStateDirectory();
QX_API std::filesystem::path userCacheDirectory();
///@}

/// The installed data: "share/qx" beside or above the directory that this library was loaded from, so that an
/// installation can be moved. A build directory has it too.
QX_API std::filesystem::path installedDataDirectory();

} // namespace Qx::Host
