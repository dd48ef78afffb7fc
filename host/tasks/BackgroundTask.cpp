#include "host/tasks/TaskProgress.h"
#include "platform/BackgroundTasks.h"

#include <algorithm>
#include <mutex>

namespace Qx::Host {

namespace {

class TaskLog final : public iTaskLog
{
public:
    void setStep(const LightweightString<wchar_t>& text, int level) override
    {
        const std::lock_guard lock(mutex_);
        if (level == 0) {
            progress_.step = text.view();
        }
    }

    void setProgress(const LightweightString<wchar_t>&, double fraction) override
    {
        const std::lock_guard lock(mutex_);
        progress_.fraction = fraction >= 0 ? std::min(fraction, 1.0) : 0.0; // NaN counts as 0
    }

    TaskProgress progress() const
    {
        const std::lock_guard lock(mutex_);
        return progress_;
    }

private:
    mutable std::mutex mutex_;
    TaskProgress progress_;
};

} // namespace

TaskProgress progressOf(const iTaskLog& log)
{
    const auto* ours = dynamic_cast<const TaskLog*>(&log);
    return ours != nullptr ? ours->progress() : TaskProgress();
}

} // namespace Qx::Host

BackgroundTaskBase::BackgroundTaskBase() : log_(new Qx::Host::TaskLog) {}

BackgroundTaskBase::~BackgroundTaskBase() = default;
