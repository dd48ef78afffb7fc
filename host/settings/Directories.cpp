#include "host/settings/Directories.h"

#include <array>
#include <cstdlib>
#include <dlfcn.h>
#include <pwd.h>
#include <system_error>
#include <unistd.h>

namespace Qx::Host {

namespace {

using std::filesystem::path;

path homeDirectory()
{
    if (const char* home = std::getenv("HOME"); home != nullptr && path(home).is_absolute()) {
        return home;
    }
    passwd entry{};
    passwd* found = nullptr;
    std::array<char, 16384> buffer;
    if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr &&
        found->pw_dir != nullptr) {
        return found->pw_dir;
    }
    return {};
}

path userDirectory(const char* variable, const char* belowHome)
{
    constexpr const char* name = "qxhost";
    if (const char* base = std::getenv(variable); base != nullptr && path(base).is_absolute()) {
        return path(base) / name;
    }
    const path home = homeDirectory();
    return home.is_absolute() ? home / belowHome / name : path();
}

/// The directory of the file that this code was loaded from.
path moduleDirectory()
{
    Dl_info info{};
    if (dladdr(reinterpret_cast<const void*>(&installedDataDirectory), &info) == 0 ||
        info.dli_fname == nullptr) {
        return {};
    }
    std::error_code error;
    const path file = std::filesystem::canonical(info.dli_fname, error);
    return error ? path() : file.parent_path();
}

} // namespace

path userConfigurationDirectory()
{
    return userDirectory("XDG_CONFIG_HOME", ".config");
}

path userDataDirectory()
{
    return userDirectory("XDG_DATA_HOME", ".local/share");
}

path userStateDirectory()
{
    return userDirectory("XDG_STATE_HOME", ".local/state");
}

path userCacheDirectory()
{
    return userDirectory("XDG_CACHE_HOME", ".cache");
}

path installedDataDirectory()
{
    // <prefix>/lib and <prefix>/lib/<architecture> are where libraries are installed.
    constexpr int levels = 3;
    const path start = moduleDirectory();
    path directory = start;
    for (int i = 0; i < levels && !directory.empty(); ++i, directory = directory.parent_path()) {
        std::error_code error;
        if (std::filesystem::is_directory(directory / "share/qx", error)) {
            return directory / "share/qx";
        }
    }
    // There is none: messages name where it would be.
    const path above = start.parent_path();
    return (above.filename() == "lib" ? above.parent_path() : above) / "share/qx";
}

} // namespace Qx::Host
