#include "QxFxResources/GPUColourConverter.h"

#include "Qx/HostAllocator.h"
#include "Qx/LightweightString.h"
#include "Qx/Ptr.h"
#include "QxFxResources/ColourConversionDetail.h"
#include "QxFxResources/Manager.h"
#include "image/TechniqueApplication.h"
#include "platform/Commands.h"
#include "platform/Log.h"
#include "platform/Settings.h"
#include "platform/ShaderEffect.h"

#include <array>
#include <atomic>

namespace Qx::Image {

namespace {

std::atomic<bool> cfgForceUnscaledYCrCb{config_int("ForceUnscaledYCrCbColourConversion", 0) != 0};

const CommandRegistrar toggleCommand("_Toggle ForceUnscaledYCrCb", &toggle_cfgForceUnscaledYCrCb, UIString(),
                                     UIString(), GlobalCommand, MapItem());

enum EffectState : int
{
    NotTried = -1,
    Failed = -2,
    Obtained = 0
};

std::atomic<int> effectState{NotTried};

/// The range that conversions assume for a YCrCb surface.
GamutScaling effectiveGamut(GamutScaling ofSurface)
{
    return cfgForceUnscaledYCrCb.load(std::memory_order_relaxed) ? GamutScaling::Unscaled : ofSurface;
}

// Fragments of technique names. An unsupported value adds none, and the resulting name matches no technique.
// No switch has a default, so that the compiler names every place that a new value concerns.

const char* gamutFragment(GamutScaling gamut, const char* unscaled, const char* video)
{
    switch (gamut) {
    case GamutScaling::Unscaled:
        return unscaled;
    case GamutScaling::Video:
        return video;
    case GamutScaling::Unknown:
        break;
    }
    return "";
}

const char* colourSpaceFragment(ColourSpace colourSpace)
{
    switch (colourSpace) {
    case ColourSpace::BT601:
        return "BT601_";
    case ColourSpace::BT709:
        return "BT709_";
    case ColourSpace::Unknown:
        break;
    }
    return "";
}

const char* decodeFilterFragment(Filter filter)
{
    switch (filter) {
    case Filter::Point:
        return "Point";
    case Filter::CatmullRom:
        return "CatmullRom";
    case Filter::Mitchell:
        return "Mitchell";
    case Filter::Lanczos:
        break;
    }
    return "";
}

const char* encodeFilterFragment(Filter filter)
{
    switch (filter) {
    case Filter::Point:
        return "Point";
    case Filter::Lanczos:
        return "Lanczos";
    case Filter::CatmullRom:
    case Filter::Mitchell:
        break;
    }
    return "";
}

LightweightString<char> decodeTechnique(GamutScaling from, ColourSpace colourSpace, GamutScaling to,
                                        Filter filter)
{
    LightweightString<char> name;
    name += gamutFragment(from, "YCrCb422_Unscaled_", "YCrCb422_Video_");
    name += colourSpaceFragment(colourSpace);
    name += gamutFragment(to, "To_RGB_Unscaled_", "To_RGB_Video_");
    name += decodeFilterFragment(filter);
    return name;
}

LightweightString<char> encodeTechnique(GamutScaling from, GamutScaling to, ColourSpace colourSpace,
                                        Filter filter)
{
    LightweightString<char> name;
    name += gamutFragment(from, "RGB_Unscaled_To_", "RGB_Video_To_");
    name += gamutFragment(to, "YCrCb422_Unscaled_", "YCrCb422_Video_");
    name += colourSpaceFragment(colourSpace);
    name += encodeFilterFragment(filter);
    return name;
}

using Sources = Qx::Vector<iShaderEffect::Source>;

/// Returns the width of the picture over the width of a row including padding. A surface without a row pitch
/// or bits per pixel is assumed to have no padding.
float pictureShareOfRow(const Surface& surface)
{
    const std::uint64_t rowBits = std::uint64_t{surface.getRowPitch()} * 8;
    const std::uint64_t rowPixels = surface.getBitsPerPixel() != 0 ? rowBits / surface.getBitsPerPixel() : 0;
    return rowPixels != 0 ? static_cast<float>(surface.getWidth()) / static_cast<float>(rowPixels) : 1.0F;
}

/// Returns four taps for the chroma filter, one pixel apart, and a rectangle in target pixels that lets a
/// shader distinguish even from odd columns.
Sources decodeInputs(const Surface& source, const Surface& dest)
{
    constexpr std::array taps{"gSourceImage", "gSourceImage2", "gSourceImage3", "gSourceImage4"};
    const Qx::Ptr<iGPUImage> image = source.getGPUSurface();
    const float pixel = 1.0F / static_cast<float>(source.getWidth());
    const float firstTap = 0.25F / static_cast<float>(source.getWidth()) + pixel;
    const float share = pictureShareOfRow(source);
    Sources inputs;
    inputs.reserve(taps.size() + 1);
    for (std::size_t i = 0; i < taps.size(); ++i) {
        const float left = static_cast<float>(i) * pixel - firstTap;
        inputs.emplace_back(taps[i], image).texCoords = {left, 0.0F, left + share, 1.0F};
    }
    inputs.emplace_back("gIterHelp2Step", image).texCoords = {0.0F, 0.0F, static_cast<float>(dest.getWidth()),
                                                              static_cast<float>(dest.getHeight())};
    return inputs;
}

/// Returns six taps for the decimation filter, one pixel apart.
Sources encodeInputs(const Qx::Ptr<iGPUImage>& image)
{
    constexpr std::array taps{"gSourceImage",  "gSourceImage2", "gSourceImage3",
                              "gSourceImage4", "gSourceImage5", "gSourceImage6"};
    const float width = image ? static_cast<float>(image->getSize().x) : 0.0F;
    Sources inputs;
    inputs.reserve(taps.size());
    for (std::size_t i = 0; i < taps.size(); ++i) {
        const float left = static_cast<float>(i) / width;
        inputs.emplace_back(taps[i], image).texCoords = {left, 0.0F, left + (width - 1.0F) / width, 1.0F};
    }
    return inputs;
}

} // namespace

void toggle_cfgForceUnscaledYCrCb() noexcept
{
    bool was = cfgForceUnscaledYCrCb.load(std::memory_order_relaxed);
    while (!cfgForceUnscaledYCrCb.compare_exchange_weak(was, !was, std::memory_order_relaxed)) {
    }
    const bool on = !was;
    LogBoth("cfgForceUnscaledYCrCb is now %s\n", on ? "ON" : "OFF");
}

namespace ColourConversion {

bool init() noexcept
{
    const CriticalSectionScope inside(gpuLock());
    if (effectState != NotTried) {
        return false;
    }
    effectState = Failed; // from here on there is no second attempt
    if (!FxResources::Manager::instance().findEffect(colourConvertEffect).getShader()) {
        LogBoth("Error: Failed to obtain effect 'ColourConvert.fx' - effects will not be shown on output "
                "monitors.\n");
        return false;
    }
    effectState = Obtained;
    return true;
}

bool isInitialised() noexcept
{
    return effectState == Obtained;
}

void deInit() noexcept {}

bool convertYCrCb422ToRGB(const Surface& source, Surface& dest, GamutScaling gamut, Filter filter) noexcept
{
    const ColourSpace colourSpace = source.getColourSpace();
    const CriticalSectionScope inside(gpuLock());
    const GamutScaling sourceGamut = effectiveGamut(source.getGamutScaling());
    bool drawn = false;
    if (const Qx::Ptr<iShaderEffect> effect = getShader(colourConvertEffect)) {
        const Sources inputs = decodeInputs(source, dest);
        drawn = effect->setTechnique(decodeTechnique(sourceGamut, colourSpace, gamut, filter));
        if (drawn) {
            effect->render(dest.getGPUSurface(), inputs);
        }
    }
    dest.setGamutScaling(gamut); // labelled as requested, even if nothing was drawn
    return drawn;
}

bool convertRGBToYCrCb422(const Surface& source, Surface& dest, Filter filter) noexcept
{
    const CriticalSectionScope inside(gpuLock());
    return encode(getShader(colourConvertEffect), source, dest, filter);
}

bool encode(const Qx::Ptr<iShaderEffect>& convert, const Surface& source, Surface& dest,
            Filter filter) noexcept
{
    const GamutScaling destGamut = effectiveGamut(dest.getGamutScaling());
    if (!convert || !convert->setTechnique(encodeTechnique(source.getGamutScaling(), destGamut,
                                                           dest.getColourSpace(), filter))) {
        return false;
    }
    convert->render(dest.getGPUSurface(), encodeInputs(source.getGPUSurface()));
    return true;
}

} // namespace ColourConversion

} // namespace Qx::Image
