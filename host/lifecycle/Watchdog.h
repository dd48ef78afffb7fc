#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Qx::Host {

/// What the watchdog knows about the threads that it watches. It has no clock of its own.
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

    /// Watches a thread: it must report at least that often.
    Ticket add(std::thread::id thread, std::string name, Clock::duration limit, Clock::time_point now);
    void remove(Ticket ticket);
    void report(Ticket ticket, Clock::time_point now);

    /// Keeps quiet about a thread until the matching resume, which counts as a report.
    void suspend(std::thread::id thread);
    void resume(std::thread::id thread, Clock::time_point now);

    /// Those that have been silent for longer than their limit, each once until it reports again.
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

/// Writes a line to the host's log for each thread of the process's list that is silent for too long now.
void reportStalls(WatchList::Clock::time_point now);

/// Starts the thread that checks the list once a second and logs what it finds; stopMonitor() ends it for
/// good.
void startMonitor();
void stopMonitor();

} // namespace Qx::Host
