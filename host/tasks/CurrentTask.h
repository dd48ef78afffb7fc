#pragma once

#include "platform/BackgroundTasks.h"

#include <atomic>

namespace Qx::Host {

/// Marks the calling thread as running a task, within a scope. While `heldBack` is true the task's status is
/// HoldBack. The flag must outlive the scope.
class CurrentTaskScope
{
public:
    explicit CurrentTaskScope(const std::atomic<bool>& heldBack);
    ~CurrentTaskScope();
    CurrentTaskScope(const CurrentTaskScope&) = delete;
    CurrentTaskScope& operator=(const CurrentTaskScope&) = delete;

private:
    const std::atomic<bool>* outer_;
};

} // namespace Qx::Host
