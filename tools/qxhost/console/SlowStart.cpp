#include "tools/qxhost/console/SlowStart.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stop_token>

namespace Qx::Program {

SlowStart::SlowStart(Console& console)
{
    if (!console.interactive() || console.quiet()) {
        return;
    }
    thread_ = std::jthread([&console](const std::stop_token& stop) {
        constexpr std::chrono::seconds patience{2};
        std::mutex mutex;
        std::condition_variable_any ended;
        std::unique_lock lock(mutex);
        ended.wait_for(lock, stop, patience, [] { return false; });
        if (!stop.stop_requested()) {
            console.status("waiting for the first picture; a first run compiles the effects for this device");
        }
    });
}

void SlowStart::end()
{
    if (thread_.joinable()) {
        thread_.request_stop();
        thread_.join();
    }
}

} // namespace Qx::Program
