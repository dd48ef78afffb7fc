#include "QxFxResources/ShaderEffectInfo.h"

#include "QxFxResources/Manager.h"
#include "platform/GPUService.h"
#include "platform/OS.h"

namespace Qx::FxResources {

ShaderEffectInfo::ShaderEffectInfo(const ShaderEffectInfo& other) noexcept
    : lock(other.lock),
      effect(other.effect.acquire()),
      name(other.name),
      directory(other.directory),
      timeStamp(other.timeStamp)
{
}

ShaderEffectInfo& ShaderEffectInfo::operator=(const ShaderEffectInfo& other) noexcept
{
    lock = other.lock;
    effect = other.effect.acquire();
    name = other.name;
    directory = other.directory;
    timeStamp = other.timeStamp;
    return *this;
}

LightweightString<wchar_t> ShaderEffectInfo::getFullPath() const noexcept
{
    return directory + name;
}

void ShaderEffectInfo::load(const Qx::Vector<iShaderEffect::CompilerDefinition>& definitions) const noexcept
{
    const CriticalSectionScope inside(lock);
    if (!effect) {
        effect.publish(OS().gpu().loadEffectFile(getFullPath(), definitions));
    }
}

Qx::Ptr<iShaderEffect> ShaderEffectInfo::getShader() const noexcept
{
    if (Qx::Ptr<iShaderEffect> loaded = effect.acquire()) {
        return loaded;
    }
    Manager::instance().load(*this);
    return effect.acquire();
}

} // namespace Qx::FxResources
