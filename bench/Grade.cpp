#include "bench/Grade.h"

#include "platform/FileManager.h"
#include "platform/GPUService.h"
#include "platform/OS.h"
#include "platform/Settings.h"

#include <utility>

namespace Qx::Bench {

Grade::Grade() : effect_(OS().gpu().loadEffectFile(joinPaths(getShadersDir(), L"cc3.fx"), {}))
{
    constexpr std::pair<const char*, float> settings[] = {
        {"lift", 0.03F}, {"gamma", 1.2F}, {"gammaBlue", 0.9F}, {"gainRed", 1.1F}, {"saturation", 1.25F}};
    for (const auto& [name, value] : settings) {
        if (effect_ && !effect_->setFloat(name, value)) {
            effect_ = {};
        }
    }
}

bool Grade::draw(const Qx::Ptr<iGPUImage>& source, const Qx::Ptr<iGPUImage>& target) const
{
    if (!effect_ || !source || !target) {
        return false;
    }
    Qx::Vector<iShaderEffect::Source> sources;
    sources.emplace_back("Input", source);
    return effect_->render(target, sources);
}

} // namespace Qx::Bench
