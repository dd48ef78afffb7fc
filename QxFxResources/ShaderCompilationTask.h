#pragma once

#include "QxFxResources/Manager.h"
#include "platform/BackgroundTasks.h"

namespace Qx::FxResources {

/// Compiles the catalogue on the background queue's thread. Uses the manager that exists when the task runs:
/// if the one that queued it was replaced, it compiles the new one's catalogue. If there is no manager, it
/// does nothing; it never creates one. A manager that is shut down before the pass begins compiles nothing,
/// and is deleted when the task lets go of it.
class Manager::ShaderCompilationTask : public BackgroundTaskBase
{
public:
    LightweightString<char> getID() const override;
    LightweightString<wchar_t> getDescription() const override;
    bool run() override;
    int getLifetime() const override { return 1; }
    bool isAbortable() const override { return false; }
};

} // namespace Qx::FxResources
