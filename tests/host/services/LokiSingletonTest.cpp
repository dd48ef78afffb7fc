#include "Qx/QxLokiSingleton.h"

#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

int constructions = 0;
int destructions = 0;

struct Counted
{
    Counted() { ++constructions; }
    ~Counted() { ++destructions; }
};

using Single = Qx::LokiSingleton<Counted>;

/// What Loki's own code calls when it deletes the object, called out of turn.
struct Again : Loki::DeletableSingleton<Counted>
{
    static void destroyDirectly() { deleter(); }
};

} // namespace

TEST(LokiSingleton, IsMadeOnceDeletedOnDemandAndMadeAgain)
{
    constructions = 0;
    destructions = 0;
    Counted* first = &Single::instance();
    EXPECT_EQ(&Single::instance(), first);
    EXPECT_EQ(constructions, 1);
    Single::destroy();
    EXPECT_EQ(destructions, 1);
    Single::destroy();
    EXPECT_EQ(destructions, 1) << "there is none to delete";
    Single::instance();
    EXPECT_EQ(constructions, 2);
    Single::destroy();
}

TEST(LokiSingleton, DestroyingADestroyedOnePrintsOurAssertionAndGoesOn)
{
    Single::instance();
    Single::destroy();
    testing::internal::CaptureStdout();
    Again::destroyDirectly();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "assertion failed !destroyed_ at Qx/QxLokiSingleton line 242\n");
}

TEST(LokiSingleton, ThreadsThatMeetGetTheSameOne)
{
    constructions = 0;
    std::vector<Counted*> seen(4);
    std::vector<std::thread> threads;
    for (Counted*& mine : seen) {
        threads.emplace_back([&mine] { mine = &Single::instance(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(seen, std::vector<Counted*>(4, &Single::instance()));
    EXPECT_EQ(constructions, 1);
    Single::destroy();
}

// The header must leave assert() as the including file wants it.
#ifdef NDEBUG
TEST(LokiSingleton, AssertIsStillOffInReleaseBuilds)
{
    bool evaluated = false;
    assert((evaluated = true));
    EXPECT_FALSE(evaluated);
}
#else
TEST(LokiSingleton, AssertStillEndsTheProcessInDebugBuilds)
{
    EXPECT_DEATH(assert(constructions < 0), "constructions < 0");
}
#endif
