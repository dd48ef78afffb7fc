#include "tools/qxhost/studio/session/Survey.h"

#include "QxFxResources/Manager.h"
#include "tools/qxhost/pipeline/device/HostText.h"
#include "tools/qxhost/pipeline/effects/EffectFile.h"

#include <algorithm>
#include <utility>

namespace Qx::Program::Studio {

namespace {

bool canBeDrawn(const FxResources::ShaderEffectInfo& info)
{
    const Qx::Ptr<iShaderEffect> effect = info.getShader();
    if (!effect) {
        return false;
    }
    const std::vector<TechniqueUse> uses = techniqueUses(*effect, narrow(info.getFullPath()));
    return !uses.empty() && uses.front().needs.empty();
}

} // namespace

Survey::~Survey()
{
    stops_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
}

void Survey::start(std::function<void(Result)> done)
{
    if (thread_.joinable()) {
        return;
    }
    thread_ = std::thread([this, done = std::move(done)] {
        Result result;
        for (const FxResources::ShaderEffectInfo& info : FxResources::Manager::instance().effects()) {
            if (stops_) {
                return;
            }
            result[narrow(info.getFullPath())] = canBeDrawn(info);
        }
        done(std::move(result));
    });
}

} // namespace Qx::Program::Studio
