#pragma once

#include "platform/Shutdown.h"

#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

namespace Qx::Host {

/// The callbacks of one shutdown and the order of their calls.
class ShutdownSequence
{
public:
    /// Callbacks of lower orders find the task queue closed.
    static constexpr int taskQueueOrder = 1000;

    /// Returns false if the sequence has ended, so that the callback will not be called.
    bool add(Shutdown::Callback callback, int order);

    /// Calls every callback, those added meanwhile included: orders descend, and of equal orders the last one
    /// added comes first. `closeTasks` is called once, when all remaining orders are below taskQueueOrder.
    /// Only the first call has an effect.
    void run(Shutdown::eExitType exitType, const std::function<void()>& closeTasks);

private:
    struct Entry
    {
        Shutdown::Callback callback;
        int order;
    };

    /// The next order, without removing it.
    std::optional<int> nextOrder();

    /// Removes and returns the next callback. Null at the end, after which nothing can be added.
    Shutdown::Callback takeNext();

    std::mutex mutex_;
    std::vector<Entry> entries_;
    bool started_ = false;
    bool ended_ = false;
};

/// The process's sequence.
ShutdownSequence& shutdownSequence();

} // namespace Qx::Host
