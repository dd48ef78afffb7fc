#pragma once

#include "platform/Api.h"
#include "platform/OS.h"

/// The host's monotonic clock. Thread-safe.
class QX_PLATFORM_API iClock
{
public:
    /// Returns the milliseconds since a fixed point in the life of the process, with a resolution of one
    /// microsecond or better.
    virtual double millisecondsPrecise() = 0;

protected:
    ~iClock() = default;
};

inline double service_get_msecs_precise()
{
    return OS().clock().millisecondsPrecise();
}
