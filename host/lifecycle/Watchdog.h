#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Qx::Host {

/// The threads that the watchdog watches. Callers pass the time in. Thread-safe.
class WatchList
{
public:
    using Clock = std::chrono::steady_clock;
    using Ticket = std::uint64_t;

    struct Stall
    {
        std::string name;
        Clock::duration silence; ///< since the last report
    };

    /// Watches a thread, which must report at least every `limit`.
    Ticket add(std::thread::id thread, std::string name, Clock::duration limit, Clock::time_point now);
    void remove(Ticket ticket);
    void report(Ticket ticket, Clock::time_point now);

    /// Ignores a thread until the matching resume, which counts as a report.
    void suspend(std::thread::id thread);
    void resume(std::thread::id thread, Clock::time_point now);

    /// The threads that have exceeded their limit, each once until it reports again.
    std::vector<Stall> check(Clock::time_point now);

    bool empty() const;

private:
    struct Watched
    {
        std::thread::id thread;
        std::string name;
        Clock::duration limit;
        Clock::time_point lastReport;
        bool reported = false;
    };

    mutable std::mutex mutex_;
    std::map<Ticket, Watched> watched_;
    std::map<std::thread::id, unsigned> suspensions_;
    Ticket nextTicket_ = 1;
};

/// The process's list.
WatchList& watchList();

/// Logs a line for each thread of the process's list that has exceeded its limit.
void reportStalls(WatchList::Clock::time_point now);

/// Starts the thread that calls reportStalls() once a second; stopMonitor() ends it for good.
void startMonitor();
void stopMonitor();

} // namespace Qx::Host
