#include "Pixels.h"

#include <platform/BackgroundTasks.h>
#include <platform/GPUService.h>
#include <platform/Threads.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace Qx::HostTests {

namespace {

/// What the one shutdown of this process did. Callbacks are plain functions and find it here.
struct Course
{
    const Kit* kit = nullptr;
    std::mutex lock;
    std::vector<std::string> events;
    Ptr<iGPUImage> keptImage;
    Ptr<iHostImage> keptHostImage;
    bool sleepsEnd = false;
    bool callbacksCanBeAdded = false;
    std::atomic<bool> lateTaskRan = false;
    std::atomic<bool> fatal = false;

    void add(const std::string& event)
    {
        const std::lock_guard guard(lock);
        events.push_back(event);
    }
};

Course& course()
{
    static Course& only = *new Course;
    return only;
}

class LateTask final : public BackgroundTaskBase
{
public:
    LightweightString<char> getID() const override { return "hosttests late"; }
    LightweightString<wchar_t> getDescription() const override { return wide("A task after the end"); }
    bool run() override
    {
        course().lateTaskRan = true;
        return true;
    }
};

void note(const char* name, Shutdown::eExitType type)
{
    course().add(name);
    course().fatal = course().fatal || type != Shutdown::NormalExit;
}

void lateAddition(Shutdown::eExitType type)
{
    note("added in a callback", type);
}
void first1500(Shutdown::eExitType type)
{
    note("1500", type);
    course().kit->services.addShutdownCallback(lateAddition, 1300);
    course().callbacksCanBeAdded = endsInTime(*course().kit, [&s = course().kit->services] {
        s.addShutdownCallback([](Shutdown::eExitType) {}, 1);
    });
}
void first1200(Shutdown::eExitType type)
{
    note("1200, registered first", type);
}
void second1200(Shutdown::eExitType type)
{
    note("1200, registered second", type);
}
void twice(Shutdown::eExitType type)
{
    note("registered twice", type);
}
void last400(Shutdown::eExitType type)
{
    note("400", type);
    const Kit& kit = *course().kit;
    kit.services.queueTask(makePtr<LateTask>(), false);
    // An hour: the sleep returns early, or the test is over before.
    course().sleepsEnd =
        endsInTime(kit, [&s = kit.services] { s.os().threads().sleepMilliseconds(3'600'000); });
}

/// Shuts the host down on the first call. Returns false, with a failure, if there is no way to.
bool shutDownOnce(const Kit& kit)
{
    static std::optional<bool> result;
    if (!kit.host.shutDown) {
        ADD_FAILURE() << "set HostUnderTest::shutDown, or name Feature::Shutdown in `without`";
        return false;
    }
    if (result) {
        return *result;
    }
    Course& c = course();
    c.kit = &kit;
    iGPUService& gpu = kit.services.os().gpu();
    c.keptImage = gpu.createGPUImage({4, 4}, iGPUImage::eARGB8);
    c.keptHostImage = gpu.createHostImage({4, 4}, iGPUImage::eARGB8);
    Services& s = kit.services;
    s.addShutdownCallback(first1200, 1200);
    s.addShutdownCallback(last400, 400);
    s.addShutdownCallback(second1200, 1200);
    s.addShutdownCallback(first1500, 1500);
    s.addShutdownCallback(twice, 600);
    s.addShutdownCallback(twice, 600);
    // The callbacks wait themselves for what must not block.
    result = endsInTime(
        kit, [&host = kit.host] { host.shutDown(Shutdown::NormalExit); }, 4);
    EXPECT_TRUE(*result) << "the shutdown does not end";
    return *result;
}

std::size_t placeOf(const std::string& event)
{
    const std::lock_guard guard(course().lock);
    const auto& events = course().events;
    return static_cast<std::size_t>(std::find(events.begin(), events.end(), event) - events.begin());
}

std::ptrdiff_t timesOf(const std::string& event)
{
    const std::lock_guard guard(course().lock);
    return std::count(course().events.begin(), course().events.end(), event);
}

void callbacksRunInDescendingOrder(const Kit& kit)
{
    ASSERT_TRUE(shutDownOnce(kit));
    ASSERT_EQ(timesOf("1500"), 1);
    ASSERT_EQ(timesOf("400"), 1);
    EXPECT_LT(placeOf("1500"), placeOf("1200, registered first"));
    EXPECT_LT(placeOf("1200, registered first"), placeOf("registered twice"));
    EXPECT_LT(placeOf("registered twice"), placeOf("400"));
}

void equalOrdersRunBackwards(const Kit& kit)
{
    ASSERT_TRUE(shutDownOnce(kit));
    ASSERT_EQ(timesOf("1200, registered first"), 1);
    EXPECT_LT(placeOf("1200, registered second"), placeOf("1200, registered first"));
}

void eachRegistrationIsCalledOnce(const Kit& kit)
{
    ASSERT_TRUE(shutDownOnce(kit));
    EXPECT_EQ(timesOf("registered twice"), 2);
    EXPECT_EQ(timesOf("1500"), 1);
}

void callbacksMayAddCallbacks(const Kit& kit)
{
    ASSERT_TRUE(shutDownOnce(kit));
    EXPECT_EQ(timesOf("added in a callback"), 1);
}

void addingDoesNotWait(const Kit& kit)
{
    ASSERT_TRUE(shutDownOnce(kit));
    EXPECT_TRUE(course().callbacksCanBeAdded) << "addCallback() waits for the callback that is running";
}

void theExitTypeIsPassedOn(const Kit& kit)
{
    ASSERT_TRUE(shutDownOnce(kit));
    EXPECT_FALSE(course().fatal) << "the host was shut down with NormalExit";
}

void noTaskStartsLate(const Kit& kit)
{
    ASSERT_TRUE(shutDownOnce(kit));
    ASSERT_EQ(timesOf("400"), 1);
    EXPECT_FALSE(course().lateTaskRan) << "a task that was queued in a callback below 1000";
}

void sleepersWake(const Kit& kit)
{
    ASSERT_TRUE(shutDownOnce(kit));
    ASSERT_EQ(timesOf("400"), 1);
    EXPECT_TRUE(course().sleepsEnd) << "a sleep of an hour goes on while the host shuts down";
}

void theGPUFailsAfterwards(const Kit& kit)
{
    ASSERT_TRUE(shutDownOnce(kit));
    iGPUService& gpu = kit.services.os().gpu();
    EXPECT_FALSE(gpu.createGPUImage({4, 4}, iGPUImage::eARGB8));
    EXPECT_FALSE(gpu.createHostImage({4, 4}, iGPUImage::eARGB8));
    if (course().keptImage) {
        EXPECT_FALSE(gpu.downloadImage(course().keptImage)) << "of an image that outlives the service";
    }
}

void imagesMayGoAfterwards(const Kit& kit)
{
    ASSERT_TRUE(shutDownOnce(kit));
    if (course().keptImage) {
        EXPECT_EQ(course().keptImage->getSize(), (XY<int>{4, 4}));
    }
    course().keptImage.reset();
    course().keptHostImage.reset();
}

void memoryWorksAfterwards(const Kit& kit)
{
    ASSERT_TRUE(shutDownOnce(kit));
    iOS& os = kit.services.os();
    void* const block = os.allocator().allocate(100, 16);
    EXPECT_NE(block, nullptr);
    os.allocator().deallocate(block);
    std::uint32_t counter = 0;
    EXPECT_EQ(os.atomics().atomicIncrement(counter), 1U);
    EXPECT_TRUE(endsInTime(kit, [&services = kit.services] {
        const std::unique_ptr<Lock> lock = services.makeLock();
        lock->enter();
        lock->leave();
    }));
}

} // namespace

Promises shutdownPromises()
{
    return {
        {"Shutdown", "RunsInDescendingOrder", callbacksRunInDescendingOrder,
         "platform/Shutdown.h: callbacks run in descending order", Feature::Shutdown},
        {"Shutdown", "RunsEqualOrdersBackwards", equalOrdersRunBackwards,
         "platform/Shutdown.h: equal orders run in the reverse order of registration", Feature::Shutdown},
        {"Shutdown", "CallsEachRegistrationOnce", eachRegistrationIsCalledOnce,
         "platform/Shutdown.h: each registration is called once", Feature::Shutdown},
        {"Shutdown", "TakesCallbacksOnTheWay", callbacksMayAddCallbacks,
         "platform/Shutdown.h: a callback may register further callbacks, which run in the same shutdown",
         Feature::Shutdown},
        {"Shutdown", "TakesCallbacksWithoutWaiting", addingDoesNotWait,
         "platform/Shutdown.h: addCallback() returns without waiting for a callback that is running",
         Feature::Shutdown},
        {"Shutdown", "PassesTheExitType", theExitTypeIsPassedOn, "platform/Shutdown.h: eExitType",
         Feature::Shutdown},
        {"Shutdown", "StartsNoTask", noTaskStartsLate,
         "platform/Shutdown.h: the task queue is closed before the first order below 1000",
         Feature::Shutdown},
        {"Shutdown", "WakesSleepers", sleepersWake,
         "platform/Threads.h: returns early while the host shuts down", Feature::Shutdown},
        {"Shutdown", "EndsTheGPU", theGPUFailsAfterwards,
         "platform/OS.h: once the GPU service is shut down, its operations fail", Feature::Shutdown},
        {"Shutdown", "LetsImagesGo", imagesMayGoAfterwards,
         "platform/GPUImage.h: an image that outlives the GPU service remains safe to release",
         Feature::Shutdown},
        {"Shutdown", "LeavesMemoryAndLocks", memoryWorksAfterwards,
         "platform/OS.h: a host never destroys its allocator, atomics and locks", Feature::Shutdown},
    };
}

} // namespace Qx::HostTests
