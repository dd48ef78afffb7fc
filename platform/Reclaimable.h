#pragma once

#include "platform/Api.h"

/// An object that holds memory which the host may reclaim. Thread-safe.
class QX_PLATFORM_API iReclaimable
{
public:
    virtual ~iReclaimable() = default;

    virtual void purge() = 0;       ///< frees everything that can be recreated
    virtual void limitUsage() = 0;  ///< frees what exceeds the object's limit
    virtual void reportUsage() = 0; ///< writes the amount held to the host's log
};
