#pragma once

#include "host/tasks/TaskProgress.h"
#include "platform/BackgroundTasks.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Qx::Host {

enum class TaskState
{
    Queued,
    Running,
    Succeeded,
    Failed
};

struct TaskReport
{
    std::string id;
    std::wstring description;
    TaskState state = TaskState::Queued;
    TaskProgress progress; ///< of tasks that derive from BackgroundTaskBase
};

/// A background queue with one thread, which starts with the first task. Thread-safe.
class TaskQueue final : public UIBackgroundTasksQueue
{
public:
    TaskQueue() = default;
    ~TaskQueue() override;

    void queue(Ptr<iBackgroundTask> task, bool urgent) override;

    /// Asks the running task and later ones to wait before their next steps. Has no effect on a queue that is
    /// being closed.
    void holdBack(bool hold);

    /// Drops the waiting tasks and those queued from now on. The running task continues and is no longer held
    /// back.
    void refuse();

    /// The same; blocks until the running task has finished and the thread has ended. Called from the queue's
    /// own task, it returns at once.
    void close();

    /// The queue's tasks: finished ones that are still listed, the running one, and waiting ones.
    std::vector<TaskReport> report() const;

private:
    struct Done
    {
        Ptr<iBackgroundTask> task;
        bool succeeded;
    };

    void runTasks();
    Ptr<iBackgroundTask> takeNext();
    void finish(const Ptr<iBackgroundTask>& task, bool succeeded);

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Ptr<iBackgroundTask>> waiting_;
    std::vector<Done> done_;
    Ptr<iBackgroundTask> running_;
    std::thread thread_;
    std::atomic<bool> heldBack_ = false;
    bool closed_ = false;
};

/// Makes the process's queue, and any that Loki might create in its place, refuse tasks.
void refuseTasks();

/// The process's queue.
TaskQueue& taskQueue();

} // namespace Qx::Host
