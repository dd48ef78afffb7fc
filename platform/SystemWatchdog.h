#pragma once

#include "platform/Api.h"

/// The host's watchdog, which reports threads that appear to hang. Thread-safe.
class QX_PLATFORM_API SystemWatchdog
{
public:
    /// Suspends the watchdog for the calling thread until the matching endLifeSupport(). Pairs nest.
    static void beginLifeSupport();
    static void endLifeSupport(); ///< Ends what the last beginLifeSupport() of this thread began.
};
