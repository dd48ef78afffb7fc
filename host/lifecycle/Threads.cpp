#include "platform/Threads.h"

#include "host/core/Immortal.h"
#include "host/lifecycle/Services.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace Qx::Host {

namespace {

class ThreadService final : public iThreadService
{
public:
    void sleepMilliseconds(unsigned milliseconds) override
    {
        std::unique_lock lock(mutex_);
        if (shuttingDown_) {
            // Callers sleep in loops until an event, which may need the processor.
            lock.unlock();
            std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds > 0 ? 1 : 0));
            return;
        }
        changed_.wait_for(lock, std::chrono::milliseconds(milliseconds), [this] { return shuttingDown_; });
    }

    void wakeAll()
    {
        const std::lock_guard lock(mutex_);
        shuttingDown_ = true;
        changed_.notify_all();
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool shuttingDown_ = false;
};

} // namespace

iThreadService& hostThreads()
{
    return immortal<ThreadService>();
}

void wakeSleepers()
{
    immortal<ThreadService>().wakeAll();
}

} // namespace Qx::Host
