#pragma once

#include "platform/Api.h"

/// The host's shutdown callbacks. Thread-safe.
class QX_PLATFORM_API Shutdown
{
public:
    /// Why the host shuts down.
    enum eExitType
    {
        NormalExit = 0,
        FatalExit = 1, ///< after an error; the process ends regardless
    };

    using Callback = void (*)(eExitType); ///< What is called at the shutdown, on the thread that shuts down.

    /// Registers a callback for the host's shutdown. Each registration is called once. Callbacks run in
    /// descending order; equal orders run in the reverse order of registration. The task queue is closed
    /// before the first order below 1000: no task starts after that, but a running task may still run
    /// concurrently with the callbacks. A callback may register further callbacks, which run in the same
    /// shutdown. Returns without waiting for a callback that is running: it is called while the library
    /// creates its manager, see iOS, for which the library's own callback waits.
    static void addCallback(Callback callback, int order);
};
