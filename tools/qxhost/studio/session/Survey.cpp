#include "tools/qxhost/studio/session/Survey.h"

#include "QxFxResources/Manager.h"
#include "tools/qxhost/pipeline/device/HostText.h"
#include "tools/qxhost/pipeline/effects/EffectFile.h"

#include <algorithm>
#include <regex>
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
    static const std::regex option(R"(--texture (\w+)=FILE)");
    std::string needs;
    for (const std::string& need : uses.front().needs) {
        needs += (needs.empty() ? "needs " : " and ") +
                 std::regex_replace(
                     need, option,
                     "a second picture for $1, which a look's file can name: texture = { $1 = \"FILE\" }");
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
