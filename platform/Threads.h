#pragma once

#include "platform/Api.h"

/// The host's thread service.
class QX_PLATFORM_API iThreadService
{
public:
    /// Blocks the calling thread for at least that long, unless the host is shutting down.
    virtual void sleepMilliseconds(unsigned milliseconds) = 0;

protected:
    ~iThreadService() = default;
};
