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
    // The deleting thread passes through the manager's loadingLock, so that lock must be taken before
    // lifetimeLock() is released: then the manager cannot be deleted until the pass has ended.
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
