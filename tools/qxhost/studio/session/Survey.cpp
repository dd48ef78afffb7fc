#include "tools/qxhost/studio/session/Survey.h"

#include "QxFxResources/Manager.h"
#include "tools/qxhost/pipeline/device/HostText.h"
#include "tools/qxhost/pipeline/effects/EffectFile.h"
#include "tools/qxhost/pipeline/effects/EffectTextures.h"

#include <algorithm>
#include <utility>

namespace Qx::Program::Studio {

namespace {

/// Empty if it can be.
std::string whyNotDrawn(const FxResources::ShaderEffectInfo& info)
{
    const Qx::Ptr<iShaderEffect> effect = info.getShader();
    if (!effect) {
        return "does not compile";
    }
    const std::vector<TechniqueUse> uses = techniqueUses(*effect, narrow(info.getFullPath()));
    if (uses.empty()) {
        return "has no technique";
    }
    std::string needs;
    for (const std::string& need : uses.front().needs) {
        needs += (needs.empty() ? "needs a second picture: " : " and ") +
                 asInLooks(need, "in the step of a look's file");
    }
    return needs;
}

} // namespace

Survey::~Survey()
{
    stops_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
}

void Survey::start(std::function<void(Result)> found)
{
    if (thread_.joinable()) {
        return;
    }
    thread_ = std::thread([this, found = std::move(found)] {
        Result result;
        for (const FxResources::ShaderEffectInfo& info : FxResources::Manager::instance().effects()) {
            if (stops_) {
                return;
            }
            result[narrow(info.getFullPath())] = whyNotDrawn(info);
            found(result);
        }
    });
}

} // namespace Qx::Program::Studio
