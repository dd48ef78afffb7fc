#pragma once

#include "Qx/LightweightString.h"
#include "Qx/Ptr.h"
#include "fonts/Cache.h"
#include "platform/Api.h"
#include "platform/Font.h"

#include <compare>
#include <cstdint>

/// The key of a font. Ordered by size, then style, then name (case-sensitive).
struct FontDefinition
{
    LightweightString<wchar_t> name; ///< name of the typeface
    float size = 0;                  ///< em size in pixels; rounded toward zero when the font is created
    std::uint8_t style = 0;          ///< iFont::eStyle; other bits only distinguish keys

    /// The order of a cache, of no other meaning.
    friend bool operator<(const FontDefinition& a, const FontDefinition& b) noexcept
    {
        // std::weak_order also orders NaN; a map needs a strict weak ordering.
        const auto order = std::weak_order(a.size, b.size);
        if (order != 0) {
            return order < 0;
        }
        return a.style != b.style ? a.style < b.style : a.name < b.name;
    }
};

/// The process-wide cache of GPU fonts. It keeps about ten; Cache describes which one is evicted.
class QX_API GPUFontCache
{
    using Fonts = Cache<FontDefinition, Qx::Ptr<iFont>, SizeLimit<10>>;

public:
    /// A handle to a font. The font is empty if it could not be created; this result is cached like a font.
    using Result = Fonts::Result;

    /// Returns the cache, creating it on first use. It lives until process exit; a later call creates a new
    /// one. Thread-safe.
    static GPUFontCache& instance() noexcept;

    /// Returns a handle to a font, never empty. Creates the font if it is not cached. Thread-safe.
    Qx::Ptr<Result> getFont(const FontDefinition& definition) const noexcept;

    /// Removes all fonts; handles keep theirs. For shutdown only: no other thread may use the cache.
    void clear() noexcept;

private:
    Fonts fonts_;
};
