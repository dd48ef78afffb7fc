#include "host/tasks/TaskQueue.h"
#include "platform/BackgroundTasks.h"
#include "platform/OS.h"
#include "platform/Threads.h"
#include "tests/host/services/Support.h"

#include <atomic>
#include <cmath>
#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>
#include <vector>

using namespace Qx::Host::Test;
using Qx::Host::TaskQueue;
using Qx::Host::TaskState;

namespace {

class Task final : public BackgroundTaskBase
{
public:
    explicit Task(std::string id, std::function<bool()> work = {}, int lifetime = 0)
        : id_(std::move(id)), work_(std::move(work)), lifetime_(lifetime)
    {
    }
    ~Task() override { ++gone; }

    LightweightString<char> getID() const override { return id_.c_str(); }
    LightweightString<wchar_t> getDescription() const override { return L"a test"; }
    bool run() override { return work_ ? work_() : true; }
    int getLifetime() const override { return lifetime_; }

    static inline std::atomic<int> gone = 0;

private:
    std::string id_;
    std::function<bool()> work_;
    int lifetime_;
};

/// Opens once, for any number of threads.
class Gate
{
public:
    void open() { promise_.set_value(); }
    void wait() const { opened_.wait(); }

private:
    std::promise<void> promise_;
    std::shared_future<void> opened_ = promise_.get_future().share();
};

} // namespace

TEST(Tasks, RunOneAfterTheOtherAndUrgentOnesNext)
{
    TaskQueue queue;
    Gate started;
    Gate go;
    Gate done;
    std::string order;
    queue.queue(Qx::makePtr<Task>("first",
                                  [&] {
                                      started.open();
                                      go.wait();
                                      order += "1";
                                      return true;
                                  }),
                false);
    started.wait();
    queue.queue(Qx::makePtr<Task>("second", [&] { return (order += "2", true); }), false);
    queue.queue(Qx::makePtr<Task>("last",
                                  [&] {
                                      order += "3";
                                      done.open();
                                      return true;
                                  }),
                false);
    queue.queue(Qx::makePtr<Task>("urgent", [&] { return (order += "u", true); }), true);
    go.open();
    done.wait();
    queue.close();
    EXPECT_EQ(order, "1u23");
}

TEST(Tasks, ClosingLetsTheRunningOneFinishAndDropsTheOthers)
{
    Task::gone = 0;
    TaskQueue queue;
    Gate started;
    Gate go;
    std::atomic<int> finished = 0;
    queue.queue(Qx::makePtr<Task>("running",
                                  [&] {
                                      started.open();
                                      go.wait();
                                      ++finished;
                                      return true;
                                  }),
                false);
    queue.queue(Qx::makePtr<Task>("waiting", [&] { return ++finished > 0; }), false);
    started.wait();
    std::thread closing([&] { queue.close(); });
    go.open();
    closing.join();
    EXPECT_LE(finished, 2);
    const int atClose = finished;
    queue.queue(Qx::makePtr<Task>("late", [&] { return ++finished > 0; }), true);
    queue.close();
    EXPECT_EQ(finished, atClose);
    EXPECT_EQ(Task::gone, 3);
}

TEST(Tasks, WhatWaitsWhenTheQueueClosesNeverRuns)
{
    Task::gone = 0;
    bool ran = false;
    TaskQueue queue;
    Gate started;
    queue.queue(Qx::makePtr<Task>("closes the queue",
                                  [&] {
                                      queue.queue(Qx::makePtr<Task>("dropped", [&] { return ran = true; }),
                                                  false);
                                      queue.close(); // from its own thread: returns at once
                                      started.open();
                                      return true;
                                  }),
                false);
    started.wait();
    queue.close();
    EXPECT_FALSE(ran);
    EXPECT_EQ(Task::gone, 2);
}

TEST(Tasks, StatusIsThatOfTheThread)
{
    EXPECT_EQ(BackgroundTaskQueueBase::getCurrentTaskStatus(), BackgroundTaskQueueBase::NoTask);
    TaskQueue queue;
    Gate running;
    Gate held;
    Gate seenHeld;
    std::vector<int> seen;
    queue.queue(Qx::makePtr<Task>("asks",
                                  [&] {
                                      seen.push_back(BackgroundTaskQueueBase::getCurrentTaskStatus());
                                      running.open();
                                      held.wait();
                                      seen.push_back(BackgroundTaskQueueBase::getCurrentTaskStatus());
                                      seenHeld.open();
                                      while (BackgroundTaskQueueBase::getCurrentTaskStatus() ==
                                             BackgroundTaskQueueBase::HoldBack) {
                                          std::this_thread::yield();
                                      }
                                      seen.push_back(BackgroundTaskQueueBase::getCurrentTaskStatus());
                                      return true;
                                  }),
                false);
    running.wait();
    queue.holdBack(true);
    held.open();
    seenHeld.wait();
    EXPECT_EQ(BackgroundTaskQueueBase::getCurrentTaskStatus(), BackgroundTaskQueueBase::NoTask);
    queue.close(); // which must not wait for a task that waits to go on
    EXPECT_EQ(seen, (std::vector<int>{BackgroundTaskQueueBase::Running, BackgroundTaskQueueBase::HoldBack,
                                      BackgroundTaskQueueBase::Running}));
    queue.holdBack(true);
}

TEST(Tasks, ReportsTellStateAndProgress)
{
    TaskQueue queue;
    Gate running;
    Gate go;
    auto task = Qx::makePtr<Task>(
        "works",
        [&] {
            running.open();
            go.wait();
            return false;
        },
        1);
    task->getLog()->setStep(L"a.fx", 0);
    task->getLog()->setStep(L"detail", 1);
    task->getLog()->setProgress({}, 0.25);
    queue.queue(task, false);
    queue.queue(Qx::makePtr<Task>("waits"), false);
    running.wait();
    auto report = queue.report();
    ASSERT_EQ(report.size(), 2U);
    EXPECT_EQ(report[0].id, "works");
    EXPECT_EQ(report[0].description, L"a test");
    EXPECT_EQ(report[0].state, TaskState::Running);
    EXPECT_EQ(report[0].progress.step, L"a.fx");
    EXPECT_EQ(report[0].progress.fraction, 0.25);
    EXPECT_EQ(report[1].state, TaskState::Queued);
    Gate last;
    queue.queue(Qx::makePtr<Task>("last", [&] { return (last.open(), true); }), false);
    go.open();
    last.wait();
    queue.close();
    report = queue.report();
    ASSERT_EQ(report.size(), 1U) << "only the one with a lifetime stays";
    EXPECT_EQ(report[0].state, TaskState::Failed);
}

TEST(Tasks, ProgressStaysBetweenNothingAndAll)
{
    const auto task = Qx::makePtr<Task>("progress");
    task->getLog()->setProgress({}, 7);
    EXPECT_EQ(Qx::Host::progressOf(*task->getLog()).fraction, 1.0);
    task->getLog()->setProgress({}, -1);
    EXPECT_EQ(Qx::Host::progressOf(*task->getLog()).fraction, 0.0);
    task->getLog()->setProgress({}, std::nan(""));
    EXPECT_EQ(Qx::Host::progressOf(*task->getLog()).fraction, 0.0);
}

TEST(Tasks, AnExceptionFailsTheTaskAndNotTheProcess)
{
    TaskQueue queue;
    Gate after;
    testing::internal::CaptureStderr();
    queue.queue(Qx::makePtr<Task>("throws", []() -> bool { throw std::runtime_error("broken"); }), false);
    queue.queue(Qx::makePtr<Task>("after", [&] { return (after.open(), true); }), false);
    after.wait();
    queue.close();
    EXPECT_NE(testing::internal::GetCapturedStderr().find("throws failed: broken"), std::string::npos);
}

TEST(Tasks, NothingIsQueuedForNothing)
{
    TaskQueue queue;
    queue.queue({}, false);
    EXPECT_TRUE(queue.report().empty());
}

TEST(Tasks, TheProcessHasOneQueue)
{
    EXPECT_EQ(&UIBackgroundTasksQueue::instance(), &UIBackgroundTasksQueue::instance());
    Gate ran;
    UIBackgroundTasksQueue::instance().queue(Qx::makePtr<Task>("runs", [&] { return (ran.open(), true); }),
                                             false);
    ran.wait();
}
