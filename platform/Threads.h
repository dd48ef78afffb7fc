#pragma once

#include "platform/Api.h"

/// The host's thread service. Thread-safe.
class QX_PLATFORM_API iThreadService
{
public:
    /// Blocks the calling thread for at least `milliseconds`. Returns early while the host shuts down.
    virtual void sleepMilliseconds(unsigned milliseconds) = 0;

protected:
    ~iThreadService() = default;
};
