#include "bench/Look.h"

#include "lut/LUTManager.h"
#include "platform/FileManager.h"
#include "platform/GPUService.h"
#include "platform/OS.h"
#include "platform/Settings.h"
#include "platform/Text.h"

namespace Qx::Bench {

Look::Look(const std::filesystem::path& file)
    : effect_(OS().gpu().loadEffectFile(joinPaths(getShadersDir(), L"LUT.fx"), {})),
      table_(LUTManager::instance().load(fromUTF8(file.c_str())))
{
}

bool Look::draw(const Qx::Ptr<iGPUImage>& source, const Qx::Ptr<iGPUImage>& target) const
{
    if (!effect_ || !table_ || !source || !target) {
        return false;
    }
    Qx::Vector<iShaderEffect::Source> sources;
    sources.emplace_back("Input", source);
    sources.emplace_back("LUT", table_);
    return effect_->render(target, sources);
}

} // namespace Qx::Bench
