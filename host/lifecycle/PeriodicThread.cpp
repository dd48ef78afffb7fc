#include "host/lifecycle/PeriodicThread.h"

#include "platform/Log.h"

#include <system_error>
#include <utility>

namespace Qx::Host {

void PeriodicThread::start()
{
    const std::lock_guard lock(mutex_);
    if (stopped_ || thread_.joinable()) {
        return;
    }
    try {
        thread_ = std::thread(&PeriodicThread::run, this);
    } catch (const std::system_error& error) {
        Log("Cannot start the thread of the %s: %s\n", name_.c_str(), error.what());
    }
}

void PeriodicThread::stop()
{
    std::thread thread;
    {
        const std::lock_guard lock(mutex_);
        stopped_ = true;
        thread = std::exchange(thread_, {});
    }
    stopping_.notify_all();
    if (thread.joinable()) {
        thread.join();
    }
}

void PeriodicThread::run()
{
    std::unique_lock lock(mutex_);
    while (!stopping_.wait_for(lock, interval_, [this] { return stopped_; })) {
        lock.unlock();
        work_();
        lock.lock();
    }
}

} // namespace Qx::Host
