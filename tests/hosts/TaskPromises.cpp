#include "Promise.h"

#include <platform/BackgroundTasks.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Qx::HostTests {

namespace {

/// What tasks did, for the test's thread.
class TaskEvents
{
public:
    void add(const std::string& event)
    {
        const std::lock_guard guard(lock_);
        events_.push_back(event);
        changed_.notify_all();
    }

    /// Returns false if the event does not come within the host's patience.
    bool waitFor(const Kit& kit, const std::string& event)
    {
        std::unique_lock guard(lock_);
        return changed_.wait_for(guard, kit.host.patience, [&] {
            return std::find(events_.begin(), events_.end(), event) != events_.end();
        });
    }

    std::vector<std::string> all()
    {
        const std::lock_guard guard(lock_);
        return events_;
    }

private:
    std::mutex lock_;
    std::condition_variable changed_;
    std::vector<std::string> events_;
};

using SharedEvents = std::shared_ptr<TaskEvents>;

/// Says when it runs and when it is destroyed.
class ProbeTask final : public BackgroundTaskBase
{
public:
    ProbeTask(std::string name, SharedEvents events, std::function<bool()> work = {}, int lifetime = 0)
        : name_(std::move(name)), events_(std::move(events)), work_(std::move(work)), lifetime_(lifetime)
    {
    }
    ~ProbeTask() override { events_->add("destroyed " + name_); }

    LightweightString<char> getID() const override { return ("hosttests " + name_).c_str(); }
    LightweightString<wchar_t> getDescription() const override { return wide("A task of the host's tests"); }
    int getLifetime() const override { return lifetime_; }

    bool run() override
    {
        events_->add("began " + name_);
        const bool result = work_ ? work_() : true;
        events_->add("ended " + name_);
        return result;
    }

private:
    const std::string name_;
    const SharedEvents events_;
    const std::function<bool()> work_;
    const int lifetime_;
};

void queueProbe(const Kit& kit, Ptr<ProbeTask> task, bool urgent = false)
{
    kit.services.queueTask(task, urgent);
}

/// A task that holds the queue until it is told to end, or until the host has had patience enough.
struct Blocker
{
    std::atomic<bool> mayEnd = false;
    SharedEvents events = std::make_shared<TaskEvents>();

    static std::shared_ptr<Blocker> start(const Kit& kit)
    {
        auto blocker = std::make_shared<Blocker>();
        const auto end = std::chrono::steady_clock::now() + 2 * kit.host.patience;
        queueProbe(kit, makePtr<ProbeTask>("blocker", blocker->events, [blocker, end] {
                       while (!blocker->mayEnd && std::chrono::steady_clock::now() < end) {
                           std::this_thread::sleep_for(std::chrono::milliseconds(1));
                       }
                       return true;
                   }));
        EXPECT_TRUE(blocker->events->waitFor(kit, "began blocker")) << "the queue runs no task";
        return blocker;
    }
};

void tasksRunOnAnotherThread(const Kit& kit)
{
    const auto events = std::make_shared<TaskEvents>();
    const auto thread = std::make_shared<std::atomic<std::thread::id>>();
    queueProbe(kit, makePtr<ProbeTask>("elsewhere", events, [thread] {
                   *thread = std::this_thread::get_id();
                   return true;
               }));
    ASSERT_TRUE(events->waitFor(kit, "ended elsewhere")) << "the queue does not run the task";
    EXPECT_NE(thread->load(), std::this_thread::get_id());
}

void queueingDoesNotWait(const Kit& kit)
{
    const std::shared_ptr<Blocker> blocker = Blocker::start(kit);
    const auto events = std::make_shared<TaskEvents>();
    EXPECT_TRUE(endsInTime(kit, [&services = kit.services, events] {
        services.queueTask(makePtr<ProbeTask>("behind", events), false);
    })) << "queue() waits for the task that is running";
    blocker->mayEnd = true;
    EXPECT_TRUE(events->waitFor(kit, "ended behind"));
}

void tasksRunOneAtATime(const Kit& kit)
{
    const std::shared_ptr<Blocker> blocker = Blocker::start(kit);
    const auto events = std::make_shared<TaskEvents>();
    const auto inside = std::make_shared<std::atomic<int>>(0);
    const auto most = std::make_shared<std::atomic<int>>(0);
    for (const char* const name : {"a", "b", "c", "d"}) {
        queueProbe(kit, makePtr<ProbeTask>(name, events, [inside, most] {
                       *most = std::max(most->load(), ++*inside);
                       std::this_thread::sleep_for(std::chrono::milliseconds(20));
                       --*inside;
                       return true;
                   }));
    }
    blocker->mayEnd = true;
    for (const char* const end : {"ended a", "ended b", "ended c", "ended d"}) {
        ASSERT_TRUE(events->waitFor(kit, end)) << end;
    }
    EXPECT_EQ(*most, 1) << "tasks that ran at once";
}

/// The order in which tasks began that were queued behind one another.
std::vector<std::string> orderOf(const Kit& kit, const std::vector<std::pair<std::string, bool>>& tasks)
{
    const std::shared_ptr<Blocker> blocker = Blocker::start(kit);
    const auto events = std::make_shared<TaskEvents>();
    for (const auto& [name, urgent] : tasks) {
        queueProbe(kit, makePtr<ProbeTask>(name, events), urgent);
    }
    blocker->mayEnd = true;
    std::vector<std::string> order;
    for (const auto& [name, urgent] : tasks) {
        EXPECT_TRUE(events->waitFor(kit, "ended " + name)) << name;
    }
    for (const std::string& event : events->all()) {
        if (event.starts_with("began ")) {
            order.push_back(event.substr(6));
        }
    }
    return order;
}

void tasksRunInOrder(const Kit& kit)
{
    EXPECT_EQ(orderOf(kit, {{"1", false}, {"2", false}, {"3", false}}),
              std::vector<std::string>({"1", "2", "3"}));
}

void urgentTasksAreNext(const Kit& kit)
{
    EXPECT_EQ(orderOf(kit, {{"1", false}, {"2", false}, {"urgent", true}}),
              std::vector<std::string>({"urgent", "1", "2"}));
}

/// The test drops its own handle before the task runs.
void theQueueKeepsTasks(const Kit& kit)
{
    const std::shared_ptr<Blocker> blocker = Blocker::start(kit);
    const auto events = std::make_shared<TaskEvents>();
    queueProbe(kit, makePtr<ProbeTask>("task", events));
    EXPECT_EQ(events->all(), std::vector<std::string>()) << "a task that waits is destroyed";
    blocker->mayEnd = true;
    EXPECT_TRUE(events->waitFor(kit, "ended task"));
}

void tasksAreReleased(const Kit& kit)
{
    const auto events = std::make_shared<TaskEvents>();
    queueProbe(kit, makePtr<ProbeTask>("task", events));
    EXPECT_TRUE(events->waitFor(kit, "destroyed task")) << "a task of lifetime 0 is kept";
    const std::vector<std::string> expected{"began task", "ended task", "destroyed task"};
    EXPECT_EQ(events->all(), expected);
}

void tasksOfLifetime1AreKept(const Kit& kit)
{
    const auto events = std::make_shared<TaskEvents>();
    queueProbe(kit, makePtr<ProbeTask>(
                        "kept", events, [] { return true; }, 1));
    queueProbe(kit, makePtr<ProbeTask>("next", events));
    ASSERT_TRUE(events->waitFor(kit, "destroyed next"));
    const std::vector<std::string> all = events->all();
    EXPECT_EQ(std::count(all.begin(), all.end(), "destroyed kept"), 0);
}

void failedTasksDoNotStopTheQueue(const Kit& kit)
{
    const auto events = std::make_shared<TaskEvents>();
    queueProbe(kit, makePtr<ProbeTask>("failing", events, [] { return false; }));
    queueProbe(kit, makePtr<ProbeTask>("next", events));
    EXPECT_TRUE(events->waitFor(kit, "ended next"));
    const std::vector<std::string> all = events->all();
    EXPECT_EQ(std::count(all.begin(), all.end(), "began failing"), 1) << "a task is run once";
}

void theStatusIsTheThreads(const Kit& kit)
{
    EXPECT_EQ(kit.services.getCurrentTaskStatus(), BackgroundTaskQueueBase::NoTask)
        << "on a thread that runs no task";
    const auto events = std::make_shared<TaskEvents>();
    const auto status = std::make_shared<std::atomic<int>>(-1);
    queueProbe(kit, makePtr<ProbeTask>("task", events, [&services = kit.services, status] {
                   *status = services.getCurrentTaskStatus();
                   return true;
               }));
    ASSERT_TRUE(events->waitFor(kit, "ended task"));
    EXPECT_EQ(*status, BackgroundTaskQueueBase::Running) << "in a task";
}

void theHostHoldsTasks(const Kit& kit)
{
    ASSERT_TRUE(kit.host.holdBackTasks)
        << "set HostUnderTest::holdBackTasks, or name Feature::HeldTasks in `without`";
    const auto events = std::make_shared<TaskEvents>();
    const auto status = std::make_shared<std::atomic<int>>(-1);
    const auto mayEnd = std::make_shared<std::atomic<bool>>(false);
    queueProbe(kit, makePtr<ProbeTask>("task", events, [&services = kit.services, status, mayEnd] {
                   while (!*mayEnd) {
                       *status = services.getCurrentTaskStatus();
                       std::this_thread::sleep_for(std::chrono::milliseconds(1));
                   }
                   return true;
               }));
    const auto becomes = [&](int wanted) {
        const auto end = std::chrono::steady_clock::now() + kit.host.patience;
        while (*status != wanted && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return *status == wanted;
    };
    kit.host.holdBackTasks(true);
    EXPECT_TRUE(becomes(BackgroundTaskQueueBase::HoldBack)) << "while the host holds its tasks back";
    kit.host.holdBackTasks(false);
    EXPECT_TRUE(becomes(BackgroundTaskQueueBase::Running)) << "when it no longer does";
    *mayEnd = true;
    EXPECT_TRUE(events->waitFor(kit, "ended task"));
}

void tasksHaveALog(const Kit&)
{
    const Ptr<ProbeTask> task = makePtr<ProbeTask>("task", std::make_shared<TaskEvents>());
    const Ptr<iTaskLog> log = task->getLog();
    ASSERT_TRUE(log);
    EXPECT_TRUE(task->getLog() == log) << "the task's own";
    log->setStep(wide("a step"), 0);
    log->setProgress({}, 0.5);
}

} // namespace

Promises taskPromises()
{
    return {
        {"Tasks",
         "HaveALog",
         tasksHaveALog,
         "platform/BackgroundTasks.h: getLog() returns the task's own log, never empty",
         {}},
        {"Tasks", "RunOnAnotherThread", tasksRunOnAnotherThread,
         "platform/BackgroundTasks.h: a queue runs its tasks on a thread of its own", Feature::Tasks},
        {"Tasks", "AreQueuedWithoutWaiting", queueingDoesNotWait,
         "platform/BackgroundTasks.h: queue() returns without waiting for any task", Feature::Tasks},
        {"Tasks", "RunOneAtATime", tasksRunOneAtATime,
         "platform/BackgroundTasks.h: a queue runs its tasks one at a time", Feature::Tasks},
        {"Tasks", "RunInOrder", tasksRunInOrder,
         "platform/BackgroundTasks.h: queue() adds a task to the end of the queue", Feature::Tasks},
        {"Tasks", "AreNextIfUrgent", urgentTasksAreNext,
         "platform/BackgroundTasks.h: queue() adds an urgent task to the front", Feature::Tasks},
        {"Tasks", "AreKeptWhileTheyWait", theQueueKeepsTasks,
         "platform/BackgroundTasks.h: the queue keeps a reference to the task", Feature::Tasks},
        {"Tasks", "AreReleased", tasksAreReleased,
         "platform/BackgroundTasks.h: lifetime 0: the queue releases the task after it has run",
         Feature::Tasks},
        {"Tasks", "AreListedIfTheyAskForIt", tasksOfLifetime1AreKept,
         "platform/BackgroundTasks.h: lifetime 1: the queue lists the task as done", Feature::Tasks},
        {"Tasks", "MayFail", failedTasksDoNotStopTheQueue,
         "platform/BackgroundTasks.h: run() is called once and returns false on failure", Feature::Tasks},
        {"Tasks", "HaveAStatus", theStatusIsTheThreads,
         "platform/BackgroundTasks.h: the status of the task that runs on the calling thread, or NoTask",
         Feature::Tasks},
        {"Tasks", "AreHeldBack", theHostHoldsTasks,
         "platform/BackgroundTasks.h: HoldBack: the task should wait before its next step",
         Feature::HeldTasks},
    };
}

} // namespace Qx::HostTests
