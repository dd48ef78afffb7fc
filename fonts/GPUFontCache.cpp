#include "Qx/QxLokiSingleton.h"

#include "fonts/GPUFontCache.h"
#include "platform/GPUService.h"
#include "platform/OS.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr int styleFlags = iFont::Bold | iFont::Italic;

/// Truncates toward zero. A size that no int holds becomes the nearest one that does, for the host to refuse.
int wholePixels(float size)
{
    using Int = std::numeric_limits<int>;
    return std::isnan(size) ? 0 : static_cast<int>(std::clamp<double>(size, Int::min(), Int::max()));
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
