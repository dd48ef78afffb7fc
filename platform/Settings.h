#pragma once

#include "Qx/LightweightString.h"
#include "platform/Api.h"

/// The scopes in which the host keeps settings and data.
class QX_PLATFORM_API iSettings
{
public:
    enum eType
    {
        User = 0,    ///< the current user's own
        Machine = 1, ///< shared by all users of the machine
    };
};

/// Directories, each with a trailing separator; empty when the scope has none. They need not exist.
QX_PLATFORM_API LightweightString<wchar_t> getShadersDir();
QX_PLATFORM_API LightweightString<wchar_t> getFXTemplatesDirectory(iSettings::eType scope);
QX_PLATFORM_API LightweightString<wchar_t> getLUTDirectory(iSettings::eType scope);

/// An integer setting, or `defaultValue` when it is not set. May be called during static initialisation.
QX_PLATFORM_API int config_int(const char* name, int defaultValue);
