#include "host/fonts/FontFiles.h"

#include "host/core/Immortal.h"
#include "host/core/Printable.h"
#include "host/core/Suggestion.h"
#include "platform/Font.h"

#include <fontconfig/fontconfig.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <mutex>
#include <set>
#include <string_view>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace Qx::Host::Text {

namespace {

struct Destroy
{
    void operator()(FcPattern* pattern) const { FcPatternDestroy(pattern); }
    void operator()(FcFontSet* set) const { FcFontSetDestroy(set); }
    void operator()(FcObjectSet* set) const { FcObjectSetDestroy(set); }
};
using Pattern = std::unique_ptr<FcPattern, Destroy>;
using FontSet = std::unique_ptr<FcFontSet, Destroy>;

FcBool loadConfiguration()
{
#ifdef __SANITIZE_ADDRESS__
    // The configuration refers to parts of it by offsets, which the search for leaks does not follow.
    const __lsan::ScopedDisabler unseen;
#endif
    return FcInit();
}

/// Fontconfig's own locks do not cover the loading of its configuration in all versions.
std::unique_lock<std::mutex> lockFontconfig()
{
    std::unique_lock lock(immortal<std::mutex>());
    [[maybe_unused]] static const FcBool loaded = loadConfiguration(); // without it nothing is found
    return lock;
}

const FcChar8* asFc(const std::string& text)
{
    return reinterpret_cast<const FcChar8*>(text.c_str());
}

std::string textOf(const FcPattern* pattern, const char* object, int index = 0)
{
    FcChar8* text = nullptr;
    return FcPatternGetString(pattern, object, index, &text) == FcResultMatch
               ? std::string(reinterpret_cast<const char*>(text))
               : std::string();
}

int numberOf(const FcPattern* pattern, const char* object, int otherwise)
{
    int number = otherwise;
    return FcPatternGetInteger(pattern, object, 0, &number) == FcResultMatch ? number : otherwise;
}

bool isSet(const FcPattern* pattern, const char* object)
{
    FcBool value = FcFalse;
    return FcPatternGetBool(pattern, object, 0, &value) == FcResultMatch && value == FcTrue;
}

bool isUsable(const FcPattern* pattern)
{
    const std::string format = textOf(pattern, FC_FONTFORMAT);
    // A variable font is listed with each of its named instances as well.
    return (format == "TrueType" || format == "CFF") && !isSet(pattern, FC_VARIABLE) &&
           !textOf(pattern, FC_FILE).empty();
}

bool hasAll(const FcPattern* pattern, std::span<const char32_t> characters)
{
    FcCharSet* set = nullptr;
    return FcPatternGetCharSet(pattern, FC_CHARSET, 0, &set) == FcResultMatch &&
           std::all_of(characters.begin(), characters.end(),
                       [set](char32_t c) { return FcCharSetHasChar(set, c) == FcTrue; });
}

FontFile fileOf(const FcPattern* pattern, int style)
{
    const bool colour = isSet(pattern, FC_COLOR);
    return {textOf(pattern, FC_FILE), numberOf(pattern, FC_INDEX, 0),
            (style & iFont::Bold) != 0 && !colour &&
                numberOf(pattern, FC_WEIGHT, FC_WEIGHT_REGULAR) < FC_WEIGHT_DEMIBOLD,
            (style & iFont::Italic) != 0 && !colour &&
                numberOf(pattern, FC_SLANT, FC_SLANT_ROMAN) == FC_SLANT_ROMAN};
}

FontSet sortedFor(const std::string& family, int style)
{
    const Pattern pattern(FcPatternCreate());
    if (pattern == nullptr) {
        return {};
    }
    FcPatternAddString(pattern.get(), FC_FAMILY, asFc(family));
    FcPatternAddInteger(pattern.get(), FC_WEIGHT,
                        (style & iFont::Bold) != 0 ? FC_WEIGHT_BOLD : FC_WEIGHT_REGULAR);
    FcPatternAddInteger(pattern.get(), FC_SLANT,
                        (style & iFont::Italic) != 0 ? FC_SLANT_ITALIC : FC_SLANT_ROMAN);
    FcConfigSubstitute(nullptr, pattern.get(), FcMatchPattern);
    FcDefaultSubstitute(pattern.get());
    FcResult result = FcResultMatch;
    return FontSet(FcFontSort(nullptr, pattern.get(), FcFalse, nullptr, &result));
}

std::span<FcPattern* const> patternsOf(const FontSet& set)
{
    return set != nullptr ? std::span<FcPattern* const>(set->fonts, static_cast<std::size_t>(set->nfont))
                          : std::span<FcPattern* const>();
}

bool isCalled(const FcPattern* pattern, const std::string& family)
{
    for (int i = 0;; ++i) {
        const std::string name = textOf(pattern, FC_FAMILY, i);
        if (name.empty()) {
            return false;
        }
        if (FcStrCmpIgnoreCase(asFc(name), asFc(family)) == 0) {
            return true;
        }
    }
}

/// Names of a kind of typeface rather than of one.
bool isGeneric(const std::string& family)
{
    constexpr std::array<std::string_view, 9> generic{
        "sans", "sans-serif", "serif", "monospace", "mono", "system-ui", "emoji", "cursive", "fantasy"};
    return std::any_of(generic.begin(), generic.end(), [&](std::string_view name) {
        return FcStrCmpIgnoreCase(asFc(std::string(name)), asFc(family)) == 0;
    });
}

std::set<std::string> installedFamilies()
{
    std::set<std::string> families;
    const Pattern all(FcPatternCreate());
    const std::unique_ptr<FcObjectSet, Destroy> objects(FcObjectSetBuild(FC_FAMILY, nullptr));
    const FontSet set(FcFontList(nullptr, all.get(), objects.get()));
    for (const FcPattern* pattern : patternsOf(set)) {
        families.insert(textOf(pattern, FC_FAMILY));
    }
    return families;
}

} // namespace

struct FontFiles::Sorted
{
    FontSet set;
    int style = 0;
};

FontFiles::FontFiles() : sorted_(std::make_unique<Sorted>()) {}

FontFiles::~FontFiles()
{
    const std::unique_lock lock = lockFontconfig();
    sorted_.reset();
}

std::shared_ptr<const FontFiles> FontFiles::find(const std::string& typeface, int style, std::string& failure)
{
    const std::shared_ptr<FontFiles> self(new FontFiles);
    const bool isFile = typeface.find('/') != std::string::npos;
    std::error_code error;
    // Opening a pipe would block until it has a writer.
    if (isFile && !std::filesystem::is_regular_file(typeface, error)) {
        failure = std::filesystem::exists(typeface, error) ? "it is not a file" : "there is no such file";
        return nullptr;
    }
    const std::unique_lock lock = lockFontconfig();
    self->sorted_->set = sortedFor(isFile ? "sans" : typeface, style);
    self->sorted_->style = style;
    if (isFile) {
        self->first_.path = typeface;
        return self;
    }
    const auto patterns = patternsOf(self->sorted_->set);
    const auto first = std::find_if(patterns.begin(), patterns.end(), isUsable);
    if (first == patterns.end()) {
        failure = "no TrueType or OpenType font is installed; install one, for "
                  "example the package fonts-dejavu-core";
        return nullptr;
    }
    self->first_ = fileOf(*first, style);
    if (!isCalled(*first, typeface) && !isGeneric(typeface)) {
        self->substitution_ = "there is no typeface \"" + printable(typeface) + "\"" +
                              didYouMean(typeface, installedFamilies()) + "; \"" + textOf(*first, FC_FAMILY) +
                              "\" is used instead";
    }
    return self;
}

std::optional<FontFile> FontFiles::covering(std::span<const char32_t> characters, bool colour) const
{
    const std::unique_lock lock = lockFontconfig();
    for (const FcPattern* pattern : patternsOf(sorted_->set)) {
        if (isUsable(pattern) && (!colour || isSet(pattern, FC_COLOR)) && hasAll(pattern, characters)) {
            return fileOf(pattern, sorted_->style);
        }
    }
    return std::nullopt;
}

} // namespace Qx::Host::Text
