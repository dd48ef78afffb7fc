#pragma once

#include "platform/Api.h"

/// The host's shutdown callbacks.
class QX_PLATFORM_API Shutdown
{
public:
    enum eExitType
    {
        NormalExit = 0,
        FatalExit = 1, ///< after an error; the process ends anyway
    };

    using Callback = void (*)(eExitType);

    /// Registers a callback for the host's shutdown. Each registration is called once; higher orders go
    /// first, and equal ones in the reverse order of registration. The task queue is closed before any order
    /// below 1000: it starts no more tasks, while one that is running may run on beside the callbacks. A
    /// callback may register callbacks: they are called in the same shutdown.
    static void addCallback(Callback callback, int order);
};
