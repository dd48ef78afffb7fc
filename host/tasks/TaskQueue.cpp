#include "host/tasks/TaskQueue.h"

#include "Qx/QxLokiSingleton.h"
#include "host/tasks/CurrentTask.h"
#include "platform/Log.h"

#include <exception>
#include <system_error>
#include <utility>

namespace Qx::Host {

namespace {

std::atomic<bool> closedForGood = false;

bool runTask(iBackgroundTask& task, const std::atomic<bool>& heldBack)
{
    const CurrentTaskScope scope(heldBack);
    try {
        return task.run();
    } catch (const std::exception& error) {
        LogBoth("The background task %s failed: %s\n", task.getID().c_str(), error.what());
    } catch (...) {
        LogBoth("The background task %s failed\n", task.getID().c_str());
    }
    return false;
}

TaskReport describe(iBackgroundTask& task, TaskState state)
{
    TaskReport report{
        std::string(task.getID().view()), std::wstring(task.getDescription().view()), state, {}};
    if (const auto* base = dynamic_cast<const BackgroundTaskBase*>(&task)) {
        report.progress = progressOf(*base->getLog());
    }
    return report;
}

} // namespace

TaskQueue::~TaskQueue()
{
    close();
    if (thread_.joinable()) {
        thread_.detach(); // a task has ended the process on this thread
    }
}

void TaskQueue::queue(Ptr<iBackgroundTask> task, bool urgent)
{
    if (!task) {
        return;
    }
    const std::lock_guard lock(mutex_);
    if (closed_ || closedForGood) {
        return;
    }
    if (!thread_.joinable()) {
        try {
            thread_ = std::thread(&TaskQueue::runTasks, this);
        } catch (const std::system_error& error) {
            LogBoth("Cannot start the thread of the background tasks (%s): %s will not run\n", error.what(),
                    task->getID().c_str());
            return;
        }
    }
    waiting_.insert(urgent ? waiting_.begin() : waiting_.end(), std::move(task));
    changed_.notify_one();
}

void TaskQueue::holdBack(bool hold)
{
    const std::lock_guard lock(mutex_);
    heldBack_ = hold && !closed_;
}

void TaskQueue::refuse()
{
    std::deque<Ptr<iBackgroundTask>>
        dropped; // destroyed outside the lock, since destructors may call the queue
    const std::lock_guard lock(mutex_);
    closed_ = true;
    heldBack_ = false; // otherwise a waiting task would never finish
    dropped.swap(waiting_);
    changed_.notify_all();
}

void TaskQueue::close()
{
    refuse();
    std::thread thread;
    {
        const std::lock_guard lock(mutex_);
        if (thread_.get_id() != std::this_thread::get_id()) {
            thread.swap(thread_);
        }
    }
    if (thread.joinable()) {
        thread.join();
    }
}

std::vector<TaskReport> TaskQueue::report() const
{
    std::vector<std::pair<Ptr<iBackgroundTask>, TaskState>> tasks;
    {
        const std::lock_guard lock(mutex_);
        for (const Done& done : done_) {
            tasks.emplace_back(done.task, done.succeeded ? TaskState::Succeeded : TaskState::Failed);
        }
        if (running_) {
            tasks.emplace_back(running_, TaskState::Running);
        }
        for (const Ptr<iBackgroundTask>& task : waiting_) {
            tasks.emplace_back(task, TaskState::Queued);
        }
    }
    std::vector<TaskReport> reports;
    for (const auto& [task, state] : tasks) {
        reports.push_back(describe(*task, state));
    }
    return reports;
}

Ptr<iBackgroundTask> TaskQueue::takeNext()
{
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return closed_ || !waiting_.empty(); });
    if (closed_) {
        return {};
    }
    running_ = std::move(waiting_.front());
    waiting_.pop_front();
    return running_;
}

void TaskQueue::finish(const Ptr<iBackgroundTask>& task, bool succeeded)
{
    const std::lock_guard lock(mutex_);
    running_.reset();
    if (task->getLifetime() != 0) {
        done_.push_back({task, succeeded});
    }
}

void TaskQueue::runTasks()
{
    while (const Ptr<iBackgroundTask> task = takeNext()) {
        finish(task, runTask(*task, heldBack_));
    }
}

TaskQueue& taskQueue()
{
    return LokiSingleton<TaskQueue>::instance();
}

void refuseTasks()
{
    closedForGood = true;
    taskQueue().refuse();
}

} // namespace Qx::Host

UIBackgroundTasksQueue& UIBackgroundTasksQueue::instance()
{
    return Qx::Host::taskQueue();
}
