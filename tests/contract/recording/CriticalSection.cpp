#include "platform/CriticalSection.h"

#include "tests/contract/recording/RecordingHost.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace {

class ThreadCount
{
public:
    void change(int by)
    {
        const std::lock_guard guard(lock_);
        count_ += by;
        changed_.notify_all();
    }

    bool waitFor(int count)
    {
        std::unique_lock guard(lock_);
        return changed_.wait_for(guard, std::chrono::minutes(1), [&] { return count_ >= count; });
    }

    bool isAny()
    {
        const std::lock_guard guard(lock_);
        return count_ > 0;
    }

private:
    std::mutex lock_;
    std::condition_variable changed_;
    int count_ = 0;
};

ThreadCount blockedThreads;

} // namespace

class CriticalSection::Impl
{
public:
    void addHandle() { ++handles_; }

    void dropHandle()
    {
        if (--handles_ == 0) {
            delete this;
        }
    }

    /// Returns how often the calling thread is inside, including this time.
    int enter()
    {
        if (!mutex_.try_lock()) {
            blockedThreads.change(+1);
            mutex_.lock();
            blockedThreads.change(-1);
        }
        return ++depth_;
    }

    void leave()
    {
        --depth_;
        mutex_.unlock();
    }

private:
    std::recursive_mutex mutex_;
    std::atomic<int> handles_ = 1;
    int depth_ = 0;
};

namespace {

/// The depth of the calling thread's last enter(), in any section.
thread_local int depthReached = 0;

/// How often the calling thread has entered a section.
thread_local std::size_t entries = 0;

/// What the calling thread does before it enters a section, and at which of its entries.
thread_local int entriesToAction = 0;
thread_local std::function<void()> actionBeforeEntry;

} // namespace

CriticalSection::CriticalSection() : impl_(new Impl) {}

CriticalSection::CriticalSection(const CriticalSection& other) : impl_(other.impl_)
{
    impl_->addHandle();
}

CriticalSection& CriticalSection::operator=(const CriticalSection& other)
{
    other.impl_->addHandle();
    impl_->dropHandle();
    impl_ = other.impl_;
    return *this;
}

CriticalSection::~CriticalSection()
{
    impl_->dropHandle();
}

void CriticalSection::enter() const
{
    if (entriesToAction > 0 && --entriesToAction == 0) {
        std::exchange(actionBeforeEntry, nullptr)();
    }
    depthReached = impl_->enter();
    ++entries;
}

void CriticalSection::leave() const
{
    impl_->leave();
}

namespace Qx::Test {

int depthOf(const CriticalSection& section)
{
    const CriticalSectionScope inside(section);
    return depthReached - 1;
}

int depthOfLockEnteredBy(const std::function<void()>& call)
{
    call();
    return depthReached - 1;
}

std::size_t locksEnteredDuring(const std::function<void()>& call)
{
    const std::size_t before = entries;
    call();
    return entries - before;
}

bool waitForBlockedThreads(int count)
{
    return blockedThreads.waitFor(count);
}

bool isAnyThreadBlocked()
{
    return blockedThreads.isAny();
}

void beforeEntering(int count, std::function<void()> action)
{
    entriesToAction = count;
    actionBeforeEntry = std::move(action);
}

} // namespace Qx::Test
