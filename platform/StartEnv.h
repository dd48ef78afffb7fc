#pragma once

#include "platform/Api.h"

/// The arguments that the program was started with. Thread-safe.
class QX_PLATFORM_API StartEnv
{
public:
    static StartEnv& programEnv(); ///< Returns the arguments of this program.

    /// Returns non-zero if the program was started with the argument `name`, for example "-transcode".
    int arg(const wchar_t* name) const;
};
