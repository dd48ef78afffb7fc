#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace Qx::Host {

/// A thread that calls a function at intervals. Thread-safe.
class PeriodicThread
{
public:
    /// `name` is for the log.
    PeriodicThread(std::string name, std::chrono::milliseconds interval, std::function<void()> work)
        : name_(std::move(name)), interval_(interval), work_(std::move(work))
    {
    }

    /// Starts the thread unless it runs or has been stopped. Logs a line if the system refuses.
    void start();

    /// Ends the thread, for good. Blocks until a call under way returns.
    void stop();

private:
    void run();

    const std::string name_;
    const std::chrono::milliseconds interval_;
    const std::function<void()> work_;
    std::mutex mutex_;
    std::condition_variable stopping_;
    std::thread thread_;   // guarded by mutex_
    bool stopped_ = false; // guarded by mutex_
};

} // namespace Qx::Host
