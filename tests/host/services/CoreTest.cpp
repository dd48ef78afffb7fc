#include "host/core/CoreServices.h"
#include "platform/CriticalSection.h"
#include "platform/FileManager.h"
#include "platform/Notifications.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <optional>
#include <thread>
#include <vector>

using Qx::Host::coreAllocator;
using Qx::Host::coreAtomics;

TEST(Allocator, BlocksAreAlignedAndWritable)
{
    for (std::size_t alignment = 1; alignment <= 4096; alignment *= 2) {
        void* block = coreAllocator().allocate(100, alignment);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % alignment, 0U);
        std::memset(block, 1, 100);
        coreAllocator().deallocate(block);
    }
}

TEST(Allocator, ZeroBytesAreABlockOfTheirOwn)
{
    void* a = coreAllocator().allocate(0, 1);
    void* b = coreAllocator().allocate(0, 1);
    EXPECT_NE(a, nullptr);
    EXPECT_NE(a, b);
    coreAllocator().deallocate(a);
    coreAllocator().deallocate(b);
    coreAllocator().deallocate(nullptr);
}

TEST(Allocator, WhatCannotBeHadIsNull)
{
    EXPECT_EQ(coreAllocator().allocate(std::numeric_limits<std::size_t>::max() / 4, 64), nullptr);
    EXPECT_EQ(coreAllocator().allocate(16, 3), nullptr);
    EXPECT_EQ(coreAllocator().allocate(16, 0), nullptr);
}

TEST(Atomics, CountersReturnTheNewValueAndWrap)
{
    std::uint32_t counter = 0;
    EXPECT_EQ(coreAtomics().atomicIncrement(counter), 1U);
    EXPECT_EQ(coreAtomics().atomicDecrement(counter), 0U);
    EXPECT_EQ(coreAtomics().atomicDecrement(counter), 0xFFFFFFFFU);
    EXPECT_EQ(coreAtomics().atomicIncrement(counter), 0U);
}

TEST(Atomics, NoCountIsLostBetweenThreads)
{
    std::uint32_t counter = 0;
    const auto count = [&] {
        for (int i = 0; i < 10000; ++i) {
            coreAtomics().atomicIncrement(counter);
        }
    };
    std::thread other(count);
    count();
    other.join();
    EXPECT_EQ(counter, 20000U);
}

TEST(CriticalSection, AThreadMayEnterAgainAndOthersWaitUntilItHasLeftAsOften)
{
    CriticalSection section;
    section.enter();
    section.enter();
    std::atomic<bool> entered = false;
    bool insideWhileHeld = true;
    std::thread other([&] {
        section.enter();
        entered = true;
        section.leave();
    });
    section.leave();
    insideWhileHeld = entered;
    section.leave();
    other.join();
    EXPECT_FALSE(insideWhileHeld);
    EXPECT_TRUE(entered);
}

TEST(CriticalSection, ACopyIsTheSameLock)
{
    CriticalSection section;
    CriticalSection assigned;
    assigned = section;
    const CriticalSection copy(section);
    int shared = 0;
    const auto add = [&shared](const CriticalSection& lock) {
        for (int i = 0; i < 5000; ++i) {
            const CriticalSectionScope scope(lock);
            ++shared;
        }
    };
    std::thread first(add, std::cref(copy));
    std::thread second(add, std::cref(assigned));
    add(section);
    first.join();
    second.join();
    EXPECT_EQ(shared, 15000);
}

TEST(CriticalSection, AssigningToItselfKeepsIt)
{
    CriticalSection section;
    const CriticalSection& same = section;
    section = same;
    section.enter();
    section.leave();
}

// One thread drops its handle while the other is still between taking the lock and having left it. A lock
// that went with the first handle would be freed under the second thread's feet, which the sanitizers see.
TEST(CriticalSection, TheLockLivesUntilTheLastThreadHasLeftThroughItsOwnHandle)
{
    for (int i = 0; i < 200; ++i) {
        std::optional<CriticalSection> owner(std::in_place);
        owner->enter();
        std::thread other([handle = *owner] { const CriticalSectionScope scope(handle); });
        owner->leave();
        owner.reset();
        other.join();
    }
}

TEST(Paths, TheExtensionFollowsTheLastDotOfTheFileName)
{
    EXPECT_EQ(getExtension(L"/a.b/c.tar.GZ"), L"GZ");
    EXPECT_EQ(getExtension(L"/a.b/c"), L"");
    EXPECT_EQ(getExtension(L"name."), L"");
    EXPECT_EQ(getExtension(L".cube"), L"cube");
    EXPECT_EQ(getExtension(L""), L"");
}

TEST(Paths, TheFileNameFollowsTheLastSeparator)
{
    EXPECT_EQ(stripPath(L"/a/b/c.fx"), L"c.fx");
    EXPECT_EQ(stripPath(L"c.fx"), L"c.fx");
    EXPECT_EQ(stripPath(L"/a/"), L"");
}

TEST(Paths, JoinedPathsHaveOneSeparatorBetweenThem)
{
    EXPECT_EQ(joinPaths(L"/a", L"b"), L"/a/b");
    EXPECT_EQ(joinPaths(L"/a/", L"b"), L"/a/b");
    EXPECT_EQ(joinPaths(L"/a//", L"/b"), L"/a/b");
    EXPECT_EQ(joinPaths(L"/", L"b"), L"/b");
    EXPECT_EQ(joinPaths(L"", L"b"), L"b");
    EXPECT_EQ(joinPaths(L"/a", L""), L"/a/");
}

namespace {

struct Heard
{
    Notifier* notifier = nullptr;
    std::vector<std::string>* calls = nullptr;
    const char* name = "";
    Heard* toRemove = nullptr;
    Heard* toAdd = nullptr;

    static void listen(void* context, const NotifyMsg&)
    {
        auto& self = *static_cast<Heard*>(context);
        self.calls->push_back(self.name);
        if (self.toRemove != nullptr) {
            self.notifier->removeListener(listen, self.toRemove);
        }
        if (self.toAdd != nullptr) {
            self.notifier->addListener(listen, self.toAdd);
        }
    }
};

} // namespace

TEST(Notifier, ListenersAreCalledInTheOrderInWhichTheyCame)
{
    Notifier notifier;
    std::vector<std::string> calls;
    Heard a{&notifier, &calls, "a"};
    Heard b{&notifier, &calls, "b"};
    notifier.addListener(Heard::listen, &b);
    notifier.addListener(Heard::listen, &a);
    notifier.addListener(Heard::listen, &b);
    notifier.issueNotification({}, 0);
    EXPECT_EQ(calls, (std::vector<std::string>{"b", "a"}));
    notifier.removeListener(Heard::listen, &b);
    notifier.issueNotification({}, 0);
    EXPECT_EQ(calls, (std::vector<std::string>{"b", "a", "a"}));
}

TEST(Notifier, AListenerMayRemoveAnotherAndAddOneForTheNextTime)
{
    Notifier notifier;
    std::vector<std::string> calls;
    Heard late{&notifier, &calls, "late"};
    Heard gone{&notifier, &calls, "gone"};
    Heard first{&notifier, &calls, "first", &gone, &late};
    notifier.addListener(Heard::listen, &first);
    notifier.addListener(Heard::listen, &gone);
    notifier.issueNotification({}, 0);
    EXPECT_EQ(calls, std::vector<std::string>{"first"});
    notifier.issueNotification({}, 0);
    EXPECT_EQ(calls, (std::vector<std::string>{"first", "first", "late"}));
}

TEST(NotifyMsgTypeDictionary, ANameHasOneTypeAndTheReservedOneIsNoneOfThem)
{
    auto& dictionary = NotifyMsgTypeDictionary::instance();
    const NotifyMsgType a = dictionary.lookUp("a");
    EXPECT_EQ(dictionary.lookUp("a"), a);
    EXPECT_FALSE(dictionary.lookUp("b") == a);
    EXPECT_FALSE(a == dictionary.lutListChanged());
    EXPECT_EQ(dictionary.lutListChanged(), dictionary.lutListChanged());
}
