#include "host/lifecycle/Watchdog.h"

#include "host/Host.h"
#include "host/core/Immortal.h"
#include "host/lifecycle/PeriodicThread.h"
#include "platform/Log.h"
#include "platform/SystemWatchdog.h"

#include <utility>

namespace Qx::Host {

WatchList::Ticket WatchList::add(std::thread::id thread, std::string name, Clock::duration limit,
                                 Clock::time_point now)
{
    const std::lock_guard lock(mutex_);
    watched_[nextTicket_] = {thread, std::move(name), limit, now, false};
    return nextTicket_++;
}

void WatchList::remove(Ticket ticket)
{
    const std::lock_guard lock(mutex_);
    watched_.erase(ticket);
}

void WatchList::report(Ticket ticket, Clock::time_point now)
{
    const std::lock_guard lock(mutex_);
    if (const auto found = watched_.find(ticket); found != watched_.end()) {
        found->second.lastReport = now;
        found->second.reported = false;
    }
}

void WatchList::suspend(std::thread::id thread)
{
    const std::lock_guard lock(mutex_);
    ++suspensions_[thread];
}

void WatchList::resume(std::thread::id thread, Clock::time_point now)
{
    const std::lock_guard lock(mutex_);
    const auto found = suspensions_.find(thread);
    if (found == suspensions_.end() || --found->second > 0) {
        return;
    }
    suspensions_.erase(found);
    for (auto& [ticket, watched] : watched_) {
        if (watched.thread == thread) {
            watched.lastReport = now;
            watched.reported = false;
        }
    }
}

std::vector<WatchList::Stall> WatchList::check(Clock::time_point now)
{
    const std::lock_guard lock(mutex_);
    std::vector<Stall> stalls;
    for (auto& [ticket, watched] : watched_) {
        const Clock::duration silence = now - watched.lastReport;
        if (silence > watched.limit && !watched.reported && !suspensions_.contains(watched.thread)) {
            watched.reported = true;
            stalls.push_back({watched.name, silence});
        }
    }
    return stalls;
}

bool WatchList::empty() const
{
    const std::lock_guard lock(mutex_);
    return watched_.empty();
}

WatchList& watchList()
{
    return immortal<WatchList>();
}

void reportStalls(WatchList::Clock::time_point now)
{
    for (const WatchList::Stall& stall : watchList().check(now)) {
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(stall.silence);
        Log("Watchdog: the thread %s has not reported for %lld s\n", stall.name.c_str(),
            static_cast<long long>(seconds.count()));
    }
}

namespace {

class Monitor : public PeriodicThread
{
public:
    Monitor()
        : PeriodicThread("watchdog", std::chrono::seconds(1), [] { reportStalls(WatchList::Clock::now()); })
    {
    }
};

} // namespace

void startMonitor()
{
    immortal<Monitor>().start();
}

void stopMonitor()
{
    immortal<Monitor>().stop();
}

WatchedThread::WatchedThread(const char* name, unsigned seconds)
    : ticket_(watchList().add(std::this_thread::get_id(), name != nullptr ? name : "",
                              std::chrono::seconds(seconds), WatchList::Clock::now()))
{
    startMonitor();
}

WatchedThread::~WatchedThread()
{
    watchList().remove(ticket_);
}

void WatchedThread::report()
{
    watchList().report(ticket_, WatchList::Clock::now());
}

} // namespace Qx::Host

void SystemWatchdog::beginLifeSupport()
{
    Qx::Host::watchList().suspend(std::this_thread::get_id());
}

void SystemWatchdog::endLifeSupport()
{
    Qx::Host::watchList().resume(std::this_thread::get_id(), Qx::Host::WatchList::Clock::now());
}
