#pragma once

#include "Qx/LightweightString.h"
#include "Qx/Ptr.h"
#include "fonts/Cache.h"
#include "platform/Api.h"
#include "platform/Font.h"

#include <cstdint>

/// Which font. Ordered by size, then style, then name in its letter case.
struct FontDefinition
{
    LightweightString<wchar_t> name; ///< of the typeface
    float size = 0;                  ///< in pixels; fonts are made in whole ones, rounded toward zero
    std::uint8_t style = 0;          ///< iFont::eStyle; further bits tell definitions apart and no more

    friend QX_API bool operator<(const FontDefinition& a, const FontDefinition& b) noexcept;
};

/// The process's GPU fonts, each made once. About ten are kept: see Cache for which one goes.
class QX_API GPUFontCache
{
    using Fonts = Cache<FontDefinition, Qx::Ptr<iFont>, SizeLimit<10>>;

public:
    /// A use of a font. The font inside is empty when it could not be made, which is remembered like a font.
    using Result = Fonts::Result;

    /// The cache, made on first use. It lives until the process exits; who asks even later gets a new one.
    static GPUFontCache& instance() noexcept;

    /// Never empty. Any thread.
    Qx::Ptr<Result> getFont(const FontDefinition& definition) const noexcept;

    /// Forgets every font; uses keep theirs. For shutdown: no other thread may be drawing.
    void clear() noexcept;

private:
    Fonts fonts_;
};
