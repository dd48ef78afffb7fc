#pragma once

#include "platform/Api.h"
#include "platform/OS.h"

/// The host's clock. It never goes back.
class QX_PLATFORM_API iClock
{
public:
    /// Milliseconds since a fixed moment of the process, to the microsecond or better.
    virtual double millisecondsPrecise() = 0;

protected:
    ~iClock() = default;
};

inline double service_get_msecs_precise()
{
    return OS().clock().millisecondsPrecise();
}
