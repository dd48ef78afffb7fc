#pragma once

#include "Qx/LightweightString.h"
#include "Qx/Ptr.h"
#include "Qx/iObject.h"
#include "platform/Api.h"

/// The progress of one background task. The task's thread writes it; the host may read it from any thread.
class QX_PLATFORM_API iTaskLog : public iObject
{
public:
    /// Sets the current step. `level` is 0 for the task itself.
    virtual void setStep(const LightweightString<wchar_t>& text, int level) = 0;

    /// Sets the completed fraction, 0 to 1. `text` may be empty.
    virtual void setProgress(const LightweightString<wchar_t>& text, double fraction) = 0;
};

/// A unit of work for a background queue.
class QX_PLATFORM_API iBackgroundTask : public iObject
{
public:
    /// A short name for logs, the same for all tasks of a kind.
    virtual LightweightString<char> getID() const = 0;
    /// A description for the user.
    virtual LightweightString<wchar_t> getDescription() const = 0;

    /// Does the work. Called once, on the queue's thread. Returns false on failure.
    virtual bool run() = 0;

    /// 0: the queue releases the task after it has run. 1: the queue lists the task as done until the queue
    /// itself is destroyed.
    virtual int getLifetime() const = 0;

    /// Whether the host may offer the user to abort the task.
    virtual bool isAbortable() const = 0;
};

/// The base class of tasks: holds the log and supplies defaults.
class QX_PLATFORM_API BackgroundTaskBase : public iBackgroundTask
{
public:
    BackgroundTaskBase();
    ~BackgroundTaskBase() override;

    int getLifetime() const override { return 0; }
    bool isAbortable() const override { return true; }

    /// Returns the task's own log, never empty.
    Qx::Ptr<iTaskLog> getLog() const { return log_; }

private:
    Qx::Ptr<iTaskLog> log_;
};

/// A queue that runs its tasks one at a time on a thread of its own.
class QX_PLATFORM_API BackgroundTaskQueueBase
{
public:
    /// What the queue asks of the task that it is running.
    enum eTaskStatus
    {
        NoTask = 0,
        Running = 1,
        HoldBack = 2, ///< the host is busy: the task should wait before its next step
    };

    virtual ~BackgroundTaskQueueBase() = default;

    /// Adds a task to the end of the queue, or to its front if `urgent`. The queue keeps a reference to the
    /// task. A closed queue drops the task. Returns without waiting for any task: it is called while the
    /// library creates its manager, see iOS, and the library's task waits until that has ended. Thread-safe.
    virtual void queue(Qx::Ptr<iBackgroundTask> task, bool urgent) = 0;

    /// Returns the status of the task that runs on the calling thread, or NoTask.
    static eTaskStatus getCurrentTaskStatus();
};

/// The process-wide queue for background work that the user does not wait for.
class QX_PLATFORM_API UIBackgroundTasksQueue : public BackgroundTaskQueueBase
{
public:
    /// Returns the queue, creating it on the first call. Thread-safe.
    static UIBackgroundTasksQueue& instance();
};
