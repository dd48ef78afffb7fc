#include "image/TechniqueApplication.h"

#include "QxFxResources/GPUColourConverter.h"
#include "QxFxResources/Manager.h"
#include "image/ApplicationKit.h"

#include <utility>

namespace Qx::Image {

namespace {

/// An application takes the kit once: the manager may be shut down while it draws, and asking for the manager
/// again then would create another.
Qx::Ptr<ApplicationKit> takeKit()
{
    return FxResources::Manager::instance().applicationKit();
}

/// The part that both forms share after the technique is selected. The second input is shifted by `shift`
/// times the width.
void renderTechnique(ApplicationKit& kit, iShaderEffect& effect, const Surface& src, Surface& dst,
                     float width, float shift)
{
    effect.setFloat(kit.width, width);
    effect.setFloat(kit.height, static_cast<float>(src.getHeight()));
    auto sources = std::exchange(kit.sources, {}); // the host may re-enter while it renders
    sources.reserve(2);
    sources.emplace_back(kit.input, src.getGPUSurface());
    sources.emplace_back(kit.input, src.getGPUSurface()).texCoords = {shift, 0.0F, 1.0F + shift, 1.0F};
    effect.render(dst.getGPUSurface(), sources);
    dst.setDescriptions(src.getDescriptions());
    sources.clear();
    kit.sources = std::move(sources);
}

} // namespace

Qx::Ptr<iShaderEffect> getShader(const LightweightString<wchar_t>& fileName) noexcept
{
    if (!ColourConversion::isInitialised()) {
        ColourConversion::init();
    }
    return FxResources::Manager::instance().findEffect(fileName).getShader();
}

bool applyTechnique(Qx::Ptr<iShaderEffect> effect, const Surface& src, Surface& dst,
                    const LightweightString<char>& technique, float width) noexcept
{
    const Qx::Ptr<ApplicationKit> kit = takeKit();
    const CriticalSectionScope inside(kit->gpuLock);
    if (!effect || !effect->setTechnique(technique)) {
        return false;
    }
    renderTechnique(*kit, *effect, src, dst, width, 1.0F / static_cast<float>(src.getWidth()));
    return true;
}

bool applyTechnique(const Surface& src, Surface& dst, const LightweightString<char>& technique, float width,
                    iGPUImage::eFormat /*format*/) noexcept
{
    const Qx::Ptr<ApplicationKit> kit = takeKit();
    const Qx::Ptr<iShaderEffect> effect = getShader(kit->defaultEffect);
    const CriticalSectionScope inside(kit->gpuLock);
    if (!effect) {
        return false;
    }
    effect->setTechnique(technique);
    renderTechnique(*kit, *effect, src, dst, width, -1.0F / width);
    return true;
}

} // namespace Qx::Image
