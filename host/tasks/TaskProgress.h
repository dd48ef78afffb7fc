#pragma once

#include "Qx/Ptr.h"
#include "platform/BackgroundTasks.h"

#include <string>

namespace Qx::Host {

/// How far a task is, as it told its log.
struct TaskProgress
{
    std::wstring step;
    double fraction = 0; ///< 0 to 1
};

/// What a task's log holds. Any thread.
TaskProgress progressOf(const iTaskLog& log);

} // namespace Qx::Host
