#include "host/lifecycle/Reclaim.h"
#include "host/Host.h"
#include "platform/Reclaimable.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

namespace Qx::Host::Test {
namespace {

/// Counts its calls while it is registered.
class Cache : public iReclaimable
{
public:
    Cache() { registerReclaimable(this); }
    ~Cache() override { unregisterReclaimable(this); }
    Cache(const Cache&) = delete;
    Cache& operator=(const Cache&) = delete;

    void purge() override { ++purged; }
    void limitUsage() override { ++limited; }
    void reportUsage() override { ++reported; }

    std::atomic<int> purged{0};
    std::atomic<int> limited{0};
    std::atomic<int> reported{0};
};

std::string pressure(const std::string& some, const std::string& full)
{
    return "some avg10=" + some + " avg60=99.00 avg300=99.00 total=12345\nfull avg10=" + full +
           " avg60=99.00 avg300=99.00 total=1234\n";
}

TEST(Reclaim, PressureIsWhatTheLastTenSecondsWere)
{
    EXPECT_EQ(pressureFrom(pressure("0.00", "0.00")), MemoryPressure::None);
    EXPECT_EQ(pressureFrom(pressure("9.99", "4.99")), MemoryPressure::None);
    EXPECT_EQ(pressureFrom(pressure("10.00", "0.00")), MemoryPressure::Some);
    EXPECT_EQ(pressureFrom(pressure("30.50", "5.00")), MemoryPressure::Full);
    EXPECT_EQ(pressureFrom(""), MemoryPressure::None) << "a kernel that does not tell";
    EXPECT_EQ(pressureFrom("some avg10=\nfull"), MemoryPressure::None);
}

TEST(Reclaim, ALittlePressureLimitsAndMuchOfItEmpties)
{
    Cache a;
    Cache b;
    reclaimMemory(MemoryPressure::None);
    EXPECT_EQ(a.purged + a.limited, 0);
    reclaimMemory(MemoryPressure::Some);
    EXPECT_EQ(a.limited, 1);
    EXPECT_EQ(b.limited, 1);
    EXPECT_EQ(a.purged, 0);
    reclaimMemory(MemoryPressure::Full);
    EXPECT_EQ(a.purged, 1);
    EXPECT_EQ(b.purged, 1);
    EXPECT_EQ(a.limited, 1);
    reportMemory();
    EXPECT_EQ(a.reported, 1);
}

TEST(Reclaim, WhatIsRegisteredTwiceIsAskedOnceAndWhatLeftNoMore)
{
    Cache a;
    registerReclaimable(&a);
    registerReclaimable(nullptr);
    reclaimMemory(MemoryPressure::Full);
    EXPECT_EQ(a.purged, 1);
    unregisterReclaimable(&a);
    reclaimMemory(MemoryPressure::Full);
    EXPECT_EQ(a.purged, 1);
}

TEST(Reclaim, ThreadsMayComeAndGoWhileMemoryIsReclaimed)
{
    std::atomic<bool> done{false};
    std::thread reclaiming([&] {
        while (!done) {
            reclaimMemory(MemoryPressure::Some);
        }
    });
    for (int i = 0; i < 500; ++i) {
        const Cache cache;
    }
    done = true;
    reclaiming.join();
}

} // namespace
} // namespace Qx::Host::Test
