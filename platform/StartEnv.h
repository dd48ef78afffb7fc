#pragma once

#include "platform/Api.h"

/// How the program was started.
class QX_PLATFORM_API StartEnv
{
public:
    static StartEnv& programEnv();

    /// Non-zero when the program was started with that argument, "-transcode" say.
    int arg(const wchar_t* name) const;
};
