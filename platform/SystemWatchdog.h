#pragma once

#include "platform/Api.h"

/// The host's watchdog, which reports a thread that seems to hang.
class QX_PLATFORM_API SystemWatchdog
{
public:
    /// Keeps the watchdog quiet about the calling thread until the matching call; pairs nest.
    static void beginLifeSupport();
    static void endLifeSupport();
};
