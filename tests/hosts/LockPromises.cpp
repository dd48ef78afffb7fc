#include "Promise.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <utility>

namespace Qx::HostTests {

namespace {

using SharedLock = std::shared_ptr<Lock>;

SharedLock lockOf(const Kit& kit)
{
    return kit.services.makeLock();
}

/// Lets another thread try to enter. `entered` is set when it was inside.
std::thread enterElsewhere(const SharedLock& lock, std::atomic<bool>& begun, std::atomic<bool>& entered)
{
    return std::thread([lock, &begun, &entered] {
        begun = true;
        lock->enter();
        entered = true;
        lock->leave();
    });
}

/// Whether a thread that enters through `second` waits for the one that is inside through `first`. A lock
/// that does not exclude lets it in at once; the wait gives it the time.
bool excludes(const SharedLock& first, const SharedLock& second, int entries = 1, int leavesBefore = 0)
{
    std::atomic<bool> begun = false;
    std::atomic<bool> entered = false;
    for (int i = 0; i < entries; ++i) {
        first->enter();
    }
    for (int i = 0; i < leavesBefore; ++i) {
        first->leave();
    }
    std::thread other = enterElsewhere(second, begun, entered);
    while (!begun) {
        std::this_thread::yield();
    }
    for (int i = 0; i < 200 && !entered; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    const bool wasOut = !entered;
    for (int i = leavesBefore; i < entries; ++i) {
        first->leave();
    }
    other.join();
    return wasOut;
}

/// Runs in a thread that may be lost to a lock that does not let go.
void expectExclusion(const Kit& kit, const SharedLock& first, const SharedLock& second, int entries = 1,
                     int leavesBefore = 0)
{
    auto excluded = std::make_shared<std::atomic<bool>>(false);
    ASSERT_TRUE(endsInTime(kit, [=] { *excluded = excludes(first, second, entries, leavesBefore); }))
        << "a thread waits for a lock that nobody holds";
    EXPECT_TRUE(*excluded) << "two threads were inside at once";
}

void locksExcludeOtherThreads(const Kit& kit)
{
    const SharedLock lock = lockOf(kit);
    expectExclusion(kit, lock, lock);
}

void locksAreReEntrant(const Kit& kit)
{
    const SharedLock lock = lockOf(kit);
    EXPECT_TRUE(endsInTime(kit, [lock] {
        lock->enter();
        lock->enter();
        lock->leave();
        lock->leave();
    })) << "a thread that is inside cannot enter again";
}

void eachEnterNeedsALeave(const Kit& kit)
{
    const SharedLock lock = lockOf(kit);
    auto reEnters = std::make_shared<std::atomic<bool>>(false);
    ASSERT_TRUE(endsInTime(kit, [lock, reEnters] {
        lock->enter();
        lock->enter();
        lock->leave();
        lock->leave();
        *reEnters = true;
    })) << "a thread that is inside cannot enter again";
    expectExclusion(kit, lock, lock, 2, 1);
}

void aCopyIsTheSameLock(const Kit& kit)
{
    const SharedLock lock = lockOf(kit);
    const SharedLock copy = lock->copy();
    expectExclusion(kit, lock, copy);
}

void anAssignedHandleIsTheSameLock(const Kit& kit)
{
    const SharedLock lock = lockOf(kit);
    const SharedLock assigned = lockOf(kit);
    assigned->assign(*lock);
    expectExclusion(kit, lock, assigned);
}

void locksLiveAsLongAsAnyHandle(const Kit& kit)
{
    SharedLock first = lockOf(kit);
    const SharedLock second = first->copy();
    const SharedLock third = second->copy();
    first.reset();
    expectExclusion(kit, second, third);
}

/// The thread that leaves through its own handle while the other drops the last but one.
void handlesMayGoWhileAnotherLeaves(const Kit& kit)
{
    EXPECT_TRUE(endsInTime(kit, [&services = kit.services] {
        for (int i = 0; i < 500; ++i) {
            SharedLock lock = services.makeLock();
            SharedLock copy = lock->copy();
            std::thread other([copy = std::move(copy)]() mutable {
                copy->enter();
                copy->leave();
                copy.reset();
            });
            lock->enter();
            lock->leave();
            lock.reset();
            other.join();
        }
    }));
}

} // namespace

Promises lockPromises()
{
    return {
        {"Locks",
         "ExcludeOtherThreads",
         locksExcludeOtherThreads,
         "platform/CriticalSection.h: enter() blocks until no other thread is inside",
         {}},
        {"Locks",
         "AreReEntrant",
         locksAreReEntrant,
         "platform/CriticalSection.h: a thread that is inside may enter again",
         {}},
        {"Locks",
         "NeedALeaveForEachEnter",
         eachEnterNeedsALeave,
         "platform/CriticalSection.h: each enter() needs one leave()",
         {}},
        {"Locks",
         "AreSharedByCopies",
         aCopyIsTheSameLock,
         "platform/CriticalSection.h: a copy refers to the same lock",
         {}},
        {"Locks",
         "AreSharedByAssignment",
         anAssignedHandleIsTheSameLock,
         "platform/CriticalSection.h: the object is a shared handle",
         {}},
        {"Locks",
         "LiveAsLongAsAnyHandle",
         locksLiveAsLongAsAnyHandle,
         "platform/CriticalSection.h: the lock lives as long as any handle to it",
         {}},
        {"Locks",
         "LetHandlesGoWhileAnotherLeaves",
         handlesMayGoWhileAnotherLeaves,
         "platform/CriticalSection.h: one thread may drop its handle while another is leaving",
         {}},
    };
}

} // namespace Qx::HostTests
