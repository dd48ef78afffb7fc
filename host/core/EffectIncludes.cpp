#include "host/core/EffectIncludes.h"

#include "platform/Settings.h"
#include "platform/Text.h"

namespace Qx::Host {

std::vector<std::filesystem::path> effectIncludeDirectories()
{
    std::vector<std::filesystem::path> directories;
    const auto add = [&](const LightweightString<wchar_t>& directory) {
        if (!directory.empty()) {
            directories.emplace_back(toUTF8(directory).c_str());
        }
    };
    add(getShadersDir());
    if (!directories.empty()) {
        directories.push_back(directories.front() / "Include");
    }
    add(getFXTemplatesDirectory(iSettings::User));
    add(getFXTemplatesDirectory(iSettings::Machine));
    return directories;
}

} // namespace Qx::Host
