#include "tools/qxhost/console/SlowStart.h"

#include "host/core/Printable.h"

#include <chrono>
#include <condition_variable>
#include <fmt/format.h>
#include <mutex>
#include <stop_token>

namespace Qx::Program {

std::string slowStartReason(const Host::CacheInfo& cache)
{
    if (!cache.enabled) {
        return "the effects are compiled for this device in each run, because the settings keep none";
    }
    if (!cache.problem.empty()) {
        return fmt::format(
            "the effects are compiled for this device in each run, because they cannot be kept in {}: {}",
            Host::printable(cache.directory.c_str()), cache.problem.c_str());
    }
    return "a first run compiles the effects for this device";
}

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
            console.status("waiting for the first picture; " + slowStartReason(Host::cacheInfo()));
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
