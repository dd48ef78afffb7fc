#pragma once

#include "platform/Api.h"

/// Something that holds memory which the host may ask to give back. Any thread may ask.
class QX_PLATFORM_API iReclaimable
{
public:
    virtual ~iReclaimable() = default;

    virtual void purge() = 0;       ///< gives back all that can be had again
    virtual void limitUsage() = 0;  ///< gives back what is over its limit
    virtual void reportUsage() = 0; ///< writes what it holds to the host's log
};
