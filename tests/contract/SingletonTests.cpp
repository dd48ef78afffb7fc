#include "Qx/QxLokiSingleton.h"

#include "tests/contract/recording/RecordingHost.h"

#include <gtest/gtest.h>

#include <semaphore>
#include <thread>

namespace {

struct Single
{
    Single() { ++living; }
    ~Single() { --living; }

    static inline int living = 0;
};

using Holder = Qx::LokiSingleton<Single>;

/// Its construction lasts until another thread waits for it.
struct Slow
{
    Slow()
    {
        ++made;
        constructing.release();
        waited = Qx::Test::waitForBlockedThreads(1);
    }

    static inline int made = 0;
    static inline bool waited = false;
    static inline std::binary_semaphore constructing{0};
};

using SlowHolder = Qx::LokiSingleton<Slow>;

} // namespace

TEST(LokiSingleton, ThreadsThatComeFirstWaitForOneObject)
{
    const Slow* first = nullptr;
    const Slow* second = nullptr;
    {
        const std::jthread one([&] { first = &SlowHolder::instance(); });
        Slow::constructing.acquire();
        const std::jthread other([&] { second = &SlowHolder::instance(); });
    }
    EXPECT_TRUE(Slow::waited);
    EXPECT_EQ(Slow::made, 1);
    EXPECT_EQ(first, second);
    SlowHolder::destroy();
}

TEST(LokiSingleton, IsMadeOnFirstUseAndAgainAfterItsEnd)
{
    EXPECT_EQ(Single::living, 0);
    const Single* first = &Holder::instance();
    EXPECT_EQ(&Holder::instance(), first);
    EXPECT_EQ(Single::living, 1);
    Holder::destroy();
    EXPECT_EQ(Single::living, 0);
    Holder::instance();
    EXPECT_EQ(Single::living, 1);
    Holder::destroy();
    EXPECT_EQ(Single::living, 0);
}
