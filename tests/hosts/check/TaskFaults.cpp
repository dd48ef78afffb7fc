#include "tests/hosts/check/Faults.h"
#include "tests/hosts/check/WrappedOS.h"

#include <platform/BackgroundTasks.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace Qx::HostTests {

namespace {

/// Whether a task is the one with this name, of those of the conformance tests.
bool isProbe(const Ptr<iBackgroundTask>& task, const char* name)
{
    return task->getID() == LightweightString<char>("hosttests ") + name;
}

struct RunsAtOnce final : Services
{
    void queueTask(Ptr<iBackgroundTask> task, bool urgent) override
    {
        if (isProbe(task, "elsewhere")) {
            task->run();
            return;
        }
        Services::queueTask(std::move(task), urgent);
    }
};

/// Each task has a thread of its own.
struct RunsAllTogether final : Services
{
    void queueTask(Ptr<iBackgroundTask> task, bool urgent) override
    {
        if (!isProbe(task, "a") && !isProbe(task, "b") && !isProbe(task, "c") && !isProbe(task, "d")) {
            Services::queueTask(std::move(task), urgent);
            return;
        }
        std::thread([task = std::move(task)]() mutable {
            task->run();
            task.reset();
        }).detach();
    }
};

struct WaitsForTheTaskBefore final : Services
{
    void queueTask(Ptr<iBackgroundTask> task, bool urgent) override
    {
        if (isProbe(task, "behind")) {
            const auto drained = std::make_shared<std::promise<void>>();
            Services::queueTask(makePtr<Marker>(drained), false);
            drained->get_future().wait();
        }
        Services::queueTask(std::move(task), urgent);
    }

private:
    class Marker final : public BackgroundTaskBase
    {
    public:
        explicit Marker(std::shared_ptr<std::promise<void>> reached) : reached_(std::move(reached)) {}
        LightweightString<char> getID() const override { return "marker"; }
        LightweightString<wchar_t> getDescription() const override { return L"marker"; }
        bool run() override
        {
            reached_->set_value();
            return true;
        }

    private:
        std::shared_ptr<std::promise<void>> reached_;
    };
};

struct EveryTaskIsUrgent final : Services
{
    void queueTask(Ptr<iBackgroundTask> task, bool) override { Services::queueTask(std::move(task), true); }
};

struct NoTaskIsUrgent final : Services
{
    void queueTask(Ptr<iBackgroundTask> task, bool) override { Services::queueTask(std::move(task), false); }
};

struct KeepsAllTasks final : Services
{
    void queueTask(Ptr<iBackgroundTask> task, bool urgent) override
    {
        if (isProbe(task, "task")) {
            const std::lock_guard guard(lock_);
            kept_.push_back(task);
        }
        Services::queueTask(std::move(task), urgent);
    }

private:
    std::mutex lock_;
    std::vector<Ptr<iBackgroundTask>> kept_;
};

/// A task of the queue's own that runs the given one, and asks nobody how long that shall live.
class ShortLived final : public BackgroundTaskBase
{
public:
    explicit ShortLived(Ptr<iBackgroundTask> task) : task_(std::move(task)) {}
    LightweightString<char> getID() const override { return task_->getID(); }
    LightweightString<wchar_t> getDescription() const override { return task_->getDescription(); }
    bool run() override { return task_->run(); }

private:
    Ptr<iBackgroundTask> task_;
};

struct KeepsNoTask final : Services
{
    void queueTask(Ptr<iBackgroundTask> task, bool urgent) override
    {
        Services::queueTask(makePtr<ShortLived>(std::move(task)), urgent);
    }
};

struct AlwaysRunning final : Services
{
    BackgroundTaskQueueBase::eTaskStatus getCurrentTaskStatus() override
    {
        const auto status = Services::getCurrentTaskStatus();
        return status == BackgroundTaskQueueBase::NoTask ? BackgroundTaskQueueBase::Running : status;
    }
};

struct NeverHoldsBack final : Services
{
    BackgroundTaskQueueBase::eTaskStatus getCurrentTaskStatus() override
    {
        const auto status = Services::getCurrentTaskStatus();
        return status == BackgroundTaskQueueBase::HoldBack ? BackgroundTaskQueueBase::Running : status;
    }
};

/// Numbers the other way round.
struct AscendingOrder final : Services
{
    void addShutdownCallback(Shutdown::Callback callback, int order) override
    {
        const bool isTurned = order == 1500 || order == 400;
        Services::addShutdownCallback(callback, isTurned ? 1900 - order : order);
    }
};

struct EqualOrdersRunForwards final : Services
{
    void addShutdownCallback(Shutdown::Callback callback, int order) override
    {
        Services::addShutdownCallback(callback, order == 1200 ? 1200 - added_++ : order);
    }

private:
    int added_ = 0;
};

struct RegistersOnce final : Services
{
    void addShutdownCallback(Shutdown::Callback callback, int order) override
    {
        const std::lock_guard guard(lock_);
        if (std::find(known_.begin(), known_.end(), callback) == known_.end()) {
            known_.push_back(callback);
            Services::addShutdownCallback(callback, order);
        }
    }

private:
    std::mutex lock_;
    std::vector<Shutdown::Callback> known_;
};

struct TooLateForMore final : Services
{
    void addShutdownCallback(Shutdown::Callback callback, int order) override
    {
        if (order != 1300) { // that of a callback
            Services::addShutdownCallback(callback, order);
        }
    }
};

std::unique_ptr<Services> alwaysFatal(HostUnderTest& host)
{
    host.shutDown = [shutDown = host.shutDown](Shutdown::eExitType) { shutDown(Shutdown::FatalExit); };
    return std::make_unique<Services>();
}

/// A queue that takes tasks for ever.
struct QueueStaysOpen final : Services
{
    void queueTask(Ptr<iBackgroundTask> task, bool urgent) override
    {
        if (isProbe(task, "late")) {
            std::thread([task] { task->run(); }).join();
            return;
        }
        Services::queueTask(std::move(task), urgent);
    }
};

} // namespace

Faults taskFaults()
{
    return {
        {"tasks-run-at-once", "Tasks.RunOnAnotherThread", overriding<RunsAtOnce>},
        {"queueing-waits", "Tasks.AreQueuedWithoutWaiting", impatient<overriding<WaitsForTheTaskBefore>>},
        {"tasks-run-together", "Tasks.RunOneAtATime", overriding<RunsAllTogether>},
        {"every-task-is-urgent",
         "Tasks.RunInOrder",
         overriding<EveryTaskIsUrgent>,
         {"Tasks.AreNextIfUrgent"}},
        {"no-task-is-urgent", "Tasks.AreNextIfUrgent", overriding<NoTaskIsUrgent>},
        {"all-tasks-are-kept", "Tasks.AreReleased", impatient<overriding<KeepsAllTasks>>},
        {"no-task-is-kept", "Tasks.AreListedIfTheyAskForIt", overriding<KeepsNoTask>},
        {"the-status-is-always-running", "Tasks.HaveAStatus", overriding<AlwaysRunning>},
        {"tasks-are-not-held-back", "Tasks.AreHeldBack", impatient<overriding<NeverHoldsBack>>},
        {"callbacks-in-ascending-order",
         "Shutdown.RunsInDescendingOrder",
         overriding<AscendingOrder>,
         {},
         {"Shutdown.StartsNoTask"}}, // the queue is still open, and may be fast enough
        {"equal-orders-run-forwards", "Shutdown.RunsEqualOrdersBackwards",
         overriding<EqualOrdersRunForwards>},
        {"callbacks-are-registered-once", "Shutdown.CallsEachRegistrationOnce", overriding<RegistersOnce>},
        {"callbacks-come-too-late", "Shutdown.TakesCallbacksOnTheWay", overriding<TooLateForMore>},
        {"every-exit-is-fatal", "Shutdown.PassesTheExitType", alwaysFatal},
        {"the-queue-stays-open", "Shutdown.StartsNoTask", overriding<QueueStaysOpen>},
    };
}

} // namespace Qx::HostTests
