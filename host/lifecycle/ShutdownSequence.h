#pragma once

#include "platform/Shutdown.h"

#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

namespace Qx::Host {

/// The callbacks of one shutdown, and the order in which they are called.
class ShutdownSequence
{
public:
    /// Callbacks of lower orders find the task queue closed.
    static constexpr int taskQueueOrder = 1000;

    /// False when the sequence has run to its end: nobody will call it.
    bool add(Shutdown::Callback callback, int order);

    /// Calls every callback, those that are added meanwhile too: descending orders, equal ones last come
    /// first called. `closeTasks` is called once, when the remaining orders are all below taskQueueOrder.
    /// Only the first call does anything.
    void run(Shutdown::eExitType exitType, const std::function<void()>& closeTasks);

private:
    struct Entry
    {
        Shutdown::Callback callback;
        int order;
    };

    /// The order that comes next, without taking it.
    std::optional<int> nextOrder();

    /// Takes the next callback; null at the end, from which on nothing is added.
    Shutdown::Callback takeNext();

    std::mutex mutex_;
    std::vector<Entry> entries_;
    bool started_ = false;
    bool ended_ = false;
};

/// The process's sequence.
ShutdownSequence& shutdownSequence();

} // namespace Qx::Host
