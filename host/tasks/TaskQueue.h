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

/// A background queue with one thread, which starts with the first task.
class TaskQueue final : public UIBackgroundTasksQueue
{
public:
    TaskQueue() = default;
    ~TaskQueue() override;

    void queue(Ptr<iBackgroundTask> task, bool urgent) override;

    /// Asks the running task, and those after it, to wait before their next steps. A queue that is being
    /// closed asks nobody.
    void holdBack(bool hold);

    /// Lets the running task finish and drops those that wait. Tasks that are queued from now on are dropped.
    /// Returns when the thread is gone; called from the queue's own task, at once.
    void close();

    /// The queue's tasks: those that are done and stay listed, the running one, those that wait.
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

/// Closes the process's queue, and every one that Loki might make in its place.
void closeTaskQueue();

/// The process's queue.
TaskQueue& taskQueue();

} // namespace Qx::Host
