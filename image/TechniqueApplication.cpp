#include "image/TechniqueApplication.h"

#include "QxFxResources/GPUColourConverter.h"
#include "QxFxResources/Manager.h"
#include "image/ApplicationKit.h"
#include "image/DefaultEffect.h"

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

bool applyIfThere(ApplicationKit& kit, const Qx::Ptr<iShaderEffect>& effect, const Surface& src, Surface& dst,
                  const LightweightString<char>& technique, float width)
{
    const CriticalSectionScope inside(kit.gpuLock);
    if (!effect || !effect->setTechnique(technique)) {
        return false;
    }
    renderTechnique(kit, *effect, src, dst, width, 1.0F / static_cast<float>(src.getWidth()));
    return true;
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
    return applyIfThere(*kit, effect, src, dst, technique, width);
}

bool applyTechnique(const Surface& src, Surface& dst, const LightweightString<char>& technique, float width,
                    iGPUImage::eFormat /*format*/) noexcept
{
    return DefaultEffect().apply(src, dst, technique, width);
}

DefaultEffect::DefaultEffect() noexcept : kit_(takeKit()), effect_(getShader(kit_->defaultEffect)) {}

bool DefaultEffect::apply(const Surface& src, Surface& dst, const LightweightString<char>& technique,
                          float width) const noexcept
{
    const CriticalSectionScope inside(kit_->gpuLock);
    if (!effect_) {
        return false;
    }
    effect_->setTechnique(technique);
    renderTechnique(*kit_, *effect_, src, dst, width, -1.0F / width);
    return true;
}

bool DefaultEffect::applyIfThere(const Surface& src, Surface& dst, const LightweightString<char>& technique,
                                 float width) const noexcept
{
    return Image::applyIfThere(*kit_, effect_, src, dst, technique, width);
}

} // namespace Qx::Image
