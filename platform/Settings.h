#pragma once

#include "Qx/LightweightString.h"
#include "platform/Api.h"

/// The scopes in which the host keeps settings and data.
class QX_PLATFORM_API iSettings
{
public:
    /// Whose settings and data.
    enum eType
    {
        User = 0,    ///< per user
        Machine = 1, ///< shared by all users of the machine
    };
};

/// Return a directory with a trailing separator, or an empty string if the scope has none. The directory may
/// not exist. Thread-safe. The first two are called while the library creates its manager, see iOS.
QX_PLATFORM_API LightweightString<wchar_t> getShadersDir();
QX_PLATFORM_API LightweightString<wchar_t> getFXTemplatesDirectory(iSettings::eType scope);
QX_PLATFORM_API LightweightString<wchar_t> getLUTDirectory(iSettings::eType scope);

/// Returns an integer setting, or `defaultValue` if it is not set. Thread-safe; may be called during static
/// initialisation.
QX_PLATFORM_API int config_int(const char* name, int defaultValue);
