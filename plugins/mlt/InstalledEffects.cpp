#include "plugins/mlt/InstalledEffects.h"

#include "host/Host.h"

#include <set>

namespace Qx::Mlt {

namespace {

/// Effects that are parts of the system, which nobody chooses.
bool isInternal(const std::string& name)
{
    static const std::set<std::string> internal{"ColourConvert", "ColourConvert2020", "LUT", "null"};
    return internal.count(name) > 0;
}

} // namespace

std::map<std::string, std::filesystem::path> installedEffects()
{
    std::map<std::string, std::filesystem::path> effects;
    for (const LightweightString<char>& directory : Host::effectDirectories()) {
        std::error_code error;
        for (std::filesystem::directory_iterator each(std::filesystem::path(directory.view()), error), end;
             !error && each != end; each.increment(error)) {
            const std::filesystem::path& file = each->path();
            if (file.extension() == ".fx" && !isInternal(file.stem())) {
                effects.emplace(file.stem(),
                                file); // of two files with one name, the first directory's counts
            }
        }
    }
    return effects;
}

} // namespace Qx::Mlt
