#include "host/lifecycle/Reclaim.h"

#include "host/Host.h"
#include "host/core/Immortal.h"
#include "host/lifecycle/PeriodicThread.h"
#include "platform/Log.h"
#include "platform/Reclaimable.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <vector>

namespace Qx::Host {

namespace {

/// The average over ten seconds in the line that begins with `kind`, in percent; 0 if there is none.
double stalled(std::string_view text, std::string_view kind)
{
    constexpr std::string_view key = " avg10=";
    const std::size_t line = text.substr(0, kind.size()) == kind ? 0 : text.find("\n" + std::string(kind));
    const std::size_t at = line == std::string_view::npos ? line : text.find(key, line);
    double percent = 0.0;
    if (at != std::string_view::npos) {
        const std::string_view number = text.substr(at + key.size());
        std::from_chars(number.data(), number.data() + number.size(), percent);
    }
    return percent;
}

class Reclaimables
{
public:
    void add(iReclaimable* reclaimable)
    {
        const std::lock_guard lock(mutex_);
        if (std::find(all_.begin(), all_.end(), reclaimable) == all_.end()) {
            all_.push_back(reclaimable);
        }
    }

    void remove(iReclaimable* reclaimable)
    {
        const std::lock_guard lock(mutex_);
        std::erase(all_, reclaimable);
    }

    /// The calls may add and remove reclaimables on this thread; other threads block.
    void each(void (iReclaimable::*call)())
    {
        const std::lock_guard lock(mutex_);
        for (iReclaimable* reclaimable : std::vector<iReclaimable*>(all_)) {
            if (std::find(all_.begin(), all_.end(), reclaimable) != all_.end()) {
                (reclaimable->*call)();
            }
        }
    }

private:
    std::recursive_mutex mutex_;
    std::vector<iReclaimable*> all_; // guarded by mutex_
};

Reclaimables& reclaimables()
{
    return immortal<Reclaimables>();
}

/// Checks the machine's memory.
class MemoryWatch : public PeriodicThread
{
public:
    MemoryWatch()
        : PeriodicThread("memory watch", interval, [] {
              std::ifstream file("/proc/pressure/memory");
              const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
              reclaimMemory(pressureFrom(text));
          })
    {
    }

private:
    // The kernel averages over ten seconds: a shorter interval tells nothing new, and memory that was given
    // back shows only after that.
    static constexpr std::chrono::seconds interval{10};
};

} // namespace

MemoryPressure pressureFrom(std::string_view text)
{
    constexpr double someFrom = 10.0;
    constexpr double fullFrom = 5.0;
    if (stalled(text, "full") >= fullFrom) {
        return MemoryPressure::Full;
    }
    return stalled(text, "some") >= someFrom ? MemoryPressure::Some : MemoryPressure::None;
}

void reclaimMemory(MemoryPressure pressure)
{
    if (pressure == MemoryPressure::None) {
        return;
    }
    Log("Memory is short: caches are %s\n", pressure == MemoryPressure::Full ? "emptied" : "limited");
    reclaimables().each(pressure == MemoryPressure::Full ? &iReclaimable::purge : &iReclaimable::limitUsage);
}

void stopMemoryWatch()
{
    immortal<MemoryWatch>().stop();
}

void registerReclaimable(iReclaimable* reclaimable)
{
    if (reclaimable != nullptr) {
        reclaimables().add(reclaimable);
        immortal<MemoryWatch>().start();
    }
}

void unregisterReclaimable(iReclaimable* reclaimable)
{
    reclaimables().remove(reclaimable);
}

void reportMemory()
{
    reclaimables().each(&iReclaimable::reportUsage);
}

} // namespace Qx::Host
