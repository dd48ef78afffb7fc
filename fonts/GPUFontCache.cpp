#include "Qx/QxLokiSingleton.h"

#include "fonts/GPUFontCache.h"
#include "platform/GPUService.h"
#include "platform/OS.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr int styleFlags = iFont::Bold | iFont::Italic;

/// Rounds toward zero. Invalid sizes are left for the host to refuse.
int wholePixels(float size)
{
    constexpr float largest = 1 << 24; // largest n for which a float represents all integers up to n
    return std::isnan(size) ? 0 : static_cast<int>(std::clamp(size, -largest, largest));
}

} // namespace

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
