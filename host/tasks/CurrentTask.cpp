#include "host/tasks/CurrentTask.h"

namespace Qx::Host {

namespace {

thread_local const std::atomic<bool>* current = nullptr;

} // namespace

CurrentTaskScope::CurrentTaskScope(const std::atomic<bool>& heldBack) : outer_(current)
{
    current = &heldBack;
}

CurrentTaskScope::~CurrentTaskScope()
{
    current = outer_;
}

} // namespace Qx::Host

BackgroundTaskQueueBase::eTaskStatus BackgroundTaskQueueBase::getCurrentTaskStatus()
{
    const std::atomic<bool>* heldBack = Qx::Host::current;
    return heldBack == nullptr ? NoTask : *heldBack ? HoldBack : Running;
}
