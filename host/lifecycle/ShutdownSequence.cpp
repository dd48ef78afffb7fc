#include "host/lifecycle/ShutdownSequence.h"

#include "host/core/Immortal.h"
#include "platform/Log.h"

#include <algorithm>
#include <exception>

namespace Qx::Host {

bool ShutdownSequence::add(Shutdown::Callback callback, int order)
{
    const std::lock_guard lock(mutex_);
    if (ended_ || callback == nullptr) {
        return false;
    }
    // In the order of the calls: a new callback goes before its equals.
    const auto place = std::find_if(entries_.begin(), entries_.end(),
                                    [&](const Entry& entry) { return entry.order <= order; });
    entries_.insert(place, {callback, order});
    return true;
}

std::optional<int> ShutdownSequence::nextOrder()
{
    const std::lock_guard lock(mutex_);
    return entries_.empty() ? std::nullopt : std::optional(entries_.front().order);
}

Shutdown::Callback ShutdownSequence::takeNext()
{
    const std::lock_guard lock(mutex_);
    if (entries_.empty()) {
        ended_ = true;
        return nullptr;
    }
    const Shutdown::Callback callback = entries_.front().callback;
    entries_.erase(entries_.begin());
    return callback;
}

void ShutdownSequence::run(Shutdown::eExitType exitType, const std::function<void()>& closeTasks)
{
    {
        const std::lock_guard lock(mutex_);
        if (started_) {
            return;
        }
        started_ = true;
    }
    bool closed = false;
    for (;;) {
        if (!closed && nextOrder().value_or(0) < taskQueueOrder) {
            closeTasks();
            closed = true;
            continue; // the last task may have added a callback
        }
        const Shutdown::Callback callback = takeNext();
        if (callback == nullptr) {
            return;
        }
        try {
            callback(exitType);
        } catch (const std::exception& error) {
            LogBoth("A shutdown callback failed: %s\n", error.what());
        } catch (...) {
            LogBoth("A shutdown callback failed\n");
        }
    }
}

ShutdownSequence& shutdownSequence()
{
    return immortal<ShutdownSequence>();
}

} // namespace Qx::Host

void Shutdown::addCallback(Callback callback, int order)
{
    if (!Qx::Host::shutdownSequence().add(callback, order) && callback != nullptr) {
        Log("A shutdown callback of order %d came after the shutdown and is not called\n", order);
    }
}
