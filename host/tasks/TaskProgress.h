#pragma once

#include "Qx/Ptr.h"
#include "platform/BackgroundTasks.h"

#include <string>

namespace Qx::Host {

/// The progress of a task, as the task reported it.
struct TaskProgress
{
    std::wstring step;
    double fraction = 0; ///< 0 to 1
};

/// The contents of a task's log. Thread-safe.
TaskProgress progressOf(const iTaskLog& log);

} // namespace Qx::Host
