#include "QxFxResources/ShaderCompilationTask.h"

#include "QxFxResources/ManagerLifetime.h"
#include "platform/Text.h"

#include <optional>

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
    // Whoever deletes the manager passes through its loadingLock first, so it must be held before the manager
    // can go away.
    std::optional<CriticalSectionScope> alive(std::in_place, lifetimeLock());
    Manager* manager = existingManager();
    if (manager == nullptr) {
        return true;
    }
    const CriticalSectionScope loading(manager->loadingLock_);
    alive.reset();
    manager->compileAll(getLog());
    return true;
}

} // namespace Qx::FxResources
