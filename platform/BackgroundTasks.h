#pragma once

#include "Qx/LightweightString.h"
#include "Qx/Ptr.h"
#include "Qx/iObject.h"
#include "platform/Api.h"

/// Where a task reports how far it is. The task's thread writes; any thread reads through the host.
class QX_PLATFORM_API iTaskLog : public iObject
{
public:
    /// What is being done now. `level` is 0 for the task itself.
    virtual void setStep(const LightweightString<wchar_t>& text, int level) = 0;

    /// The fraction done, 0 to 1, and a text that may be empty.
    virtual void setProgress(const LightweightString<wchar_t>& text, double fraction) = 0;
};

/// A piece of work for a background queue.
class QX_PLATFORM_API iBackgroundTask : public iObject
{
public:
    virtual LightweightString<char> getID() const = 0;
    virtual LightweightString<wchar_t> getDescription() const = 0;

    /// Does the work on the queue's thread; false when it failed.
    virtual bool run() = 0;

    /// 0: the queue lets go of the task when it has run; 1: the task stays listed, done, until the queue
    /// goes.
    virtual int getLifetime() const = 0;

    virtual bool isAbortable() const = 0;
};

/// What tasks have in common.
class QX_PLATFORM_API BackgroundTaskBase : public iBackgroundTask
{
public:
    BackgroundTaskBase();
    ~BackgroundTaskBase() override;

    int getLifetime() const override { return 0; }
    bool isAbortable() const override { return true; }

    /// The task's own log; never empty.
    Qx::Ptr<iTaskLog> getLog() const { return log_; }

private:
    Qx::Ptr<iTaskLog> log_;
};

/// A queue that runs its tasks one after the other on a thread of its own.
class QX_PLATFORM_API BackgroundTaskQueueBase
{
public:
    /// What a queue asks of the task that it is running.
    enum eTaskStatus
    {
        NoTask = 0,
        Running = 1,
        HoldBack = 2, ///< the host is busy: the task should wait before it takes its next step
    };

    virtual ~BackgroundTaskQueueBase() = default;

    /// Adds a task at the queue's end, or at its front when it is urgent; the queue keeps it alive. A queue
    /// that has been closed drops the task.
    virtual void queue(Qx::Ptr<iBackgroundTask> task, bool urgent) = 0;

    /// The status of the task that runs on the calling thread.
    static eTaskStatus getCurrentTaskStatus();
};

/// The queue for what the user did not ask for and should not wait for.
class QX_PLATFORM_API UIBackgroundTasksQueue : public BackgroundTaskQueueBase
{
public:
    /// The process's queue, made on first use.
    static UIBackgroundTasksQueue& instance();
};
