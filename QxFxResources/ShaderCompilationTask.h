#pragma once

#include "QxFxResources/Manager.h"
#include "platform/BackgroundTasks.h"

namespace Qx::FxResources {

/// Compiles the whole catalogue on the background queue's thread. When the manager that queued it is gone by
/// then, it does nothing: it never brings a manager back.
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
