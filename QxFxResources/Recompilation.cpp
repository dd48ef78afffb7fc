#include "QxFxResources/Manager.h"
#include "platform/GPUService.h"
#include "platform/Log.h"
#include "platform/OS.h"
#include "platform/Text.h"

#include <algorithm>

namespace Qx::FxResources {

void Manager::recompileAll() noexcept
{
    waitForEffectsToLoad();
    Qx::Vector<ShaderEffectInfo> scanned;
    getFXFiles(scanned);
    for (const ShaderEffectInfo& fresh : scanned) {
        const auto known = std::find_if(effects_.begin(), effects_.end(), [&](const ShaderEffectInfo& info) {
            return info.name.equalsIgnoringCase(fresh.name) &&
                   info.directory.equalsIgnoringCase(fresh.directory);
        });
        if (known == effects_.end()) {
            addCompiled(fresh);
        } else if (known->timeStamp != fresh.timeStamp) {
            recompile(*known, fresh);
        }
    }
}

void Manager::recompile(ShaderEffectInfo& known, const ShaderEffectInfo& fresh) noexcept
{
    // Without the manager's definitions: a file that is being edited has to compile on its own.
    const EffectCompileResult result = OS().gpu().compileEffectFile(fresh.getFullPath(), {});
    if (result.effect) {
        known.effect = result.effect;
        known.timeStamp = fresh.timeStamp;
        vexo_printf("Recompiled %s\n", toUTF8(fresh.name).c_str());
        return;
    }
    vexo_printf("Failed to recompile %s\n", toUTF8(fresh.name).c_str());
    if (!result.errors.empty()) {
        vexo_printf("   %s\n", result.errors.c_str());
    }
}

void Manager::addCompiled(const ShaderEffectInfo& fresh) noexcept
{
    if (fresh.getShader()) {
        effects_.push_back(fresh);
    } else {
        vexo_printf("Failed to compile %s\n", toUTF8(fresh.name).c_str());
    }
}

} // namespace Qx::FxResources
