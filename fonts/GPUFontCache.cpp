#include "Qx/QxLokiSingleton.h"

#include "fonts/GPUFontCache.h"
#include "platform/GPUService.h"
#include "platform/OS.h"

#include <algorithm>
#include <cmath>
#include <compare>

namespace {

constexpr int styleFlags = iFont::Bold | iFont::Italic;

/// Rounded toward zero; what is no size of a font is the host's to refuse.
int wholePixels(float size)
{
    constexpr float largest = 1 << 24; // up to which a float holds every whole number
    return std::isnan(size) ? 0 : static_cast<int>(std::clamp(size, -largest, largest));
}

} // namespace

bool operator<(const FontDefinition& a, const FontDefinition& b) noexcept
{
    // What is no number has its place too, or the map would lose its order.
    if (const auto order = std::weak_order(a.size, b.size); order != 0) {
        return order < 0;
    }
    if (a.style != b.style) {
        return a.style < b.style;
    }
    return a.name < b.name;
}

GPUFontCache& GPUFontCache::instance() noexcept
{
    return Qx::LokiSingleton<GPUFontCache>::instance();
}

Qx::Ptr<GPUFontCache::Result> GPUFontCache::getFont(const FontDefinition& definition) const noexcept
{
    return fonts_.get(definition, [&definition] {
        return OS().gpu().createFont(definition.name, wholePixels(definition.size),
                                     definition.style & styleFlags);
    });
}

void GPUFontCache::clear() noexcept
{
    fonts_.clear();
}
