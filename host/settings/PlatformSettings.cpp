#include "host/settings/Directories.h"
#include "host/settings/Settings.h"
#include "platform/Settings.h"
#include "platform/Text.h"

#include <cstdint>
#include <filesystem>
#include <limits>

using Qx::Host::Settings;

namespace {

LightweightString<wchar_t> asDirectory(const std::filesystem::path& directory)
{
    std::string bytes = directory.string();
    if (!bytes.empty() && bytes.back() != '/') {
        bytes += '/';
    }
    return fromUTF8(LightweightString<char>(std::string_view(bytes)));
}

/// The directory that a setting names, or the usual one; empty if there is neither.
LightweightString<wchar_t> directoryOf(const char* setting, const std::filesystem::path& base,
                                       const char* name)
{
    if (const auto chosen = Settings::instance().text(setting)) {
        return asDirectory(*chosen);
    }
    return base.empty() ? LightweightString<wchar_t>() : asDirectory(base / name);
}

} // namespace

LightweightString<wchar_t> getShadersDir()
{
    return directoryOf("shaders_dir", Qx::Host::installedDataDirectory(), "shaders");
}

LightweightString<wchar_t> getFXTemplatesDirectory(iSettings::eType scope)
{
    return scope == iSettings::User
               ? directoryOf("templates_dir", Qx::Host::userDataDirectory(), "templates")
               : directoryOf("machine_templates_dir", Qx::Host::installedDataDirectory(), "templates");
}

LightweightString<wchar_t> getLUTDirectory(iSettings::eType scope)
{
    return scope == iSettings::User
               ? directoryOf("luts_dir", Qx::Host::userDataDirectory(), "luts")
               : directoryOf("machine_luts_dir", Qx::Host::installedDataDirectory(), "luts");
}

int config_int(const char* name, int defaultValue)
{
    const auto value = name != nullptr ? Settings::instance().integer(name) : std::nullopt;
    const bool fits =
        value && *value >= std::numeric_limits<int>::min() && *value <= std::numeric_limits<int>::max();
    return fits ? static_cast<int>(*value) : defaultValue;
}
