#include "QxFxResources/ShaderCompilationTask.h"

#include "platform/Text.h"

namespace Qx::FxResources {

namespace {
constexpr int descriptionResource = 13226;
}

LightweightString<char> Manager::ShaderCompilationTask::getID() const
{
    return "ShaderCompilationTask";
}

LightweightString<wchar_t> Manager::ShaderCompilationTask::getDescription() const
{
    return resourceStrW(descriptionResource);
}

bool Manager::ShaderCompilationTask::run()
{
    // The handle keeps the manager while the pass waits for its lock. No lock is held meanwhile: shutdown
    // needs them to stop a pass that is in progress.
    if (const Handle manager = existing()) {
        manager->compileAll(getLog());
    }
    return true;
}

} // namespace Qx::FxResources
