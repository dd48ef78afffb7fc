#include "host/fonts/TextShaper.h"

#include <hb.h>
#include <unicode/ubidi.h>
#include <unicode/ubrk.h>
#include <unicode/uchar.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <map>
#include <optional>
#include <utility>

namespace Qx::Host::Text {

namespace {

struct Destroy
{
    void operator()(UBiDi* bidi) const { ubidi_close(bidi); }
    void operator()(UBreakIterator* breaks) const { ubrk_close(breaks); }
    void operator()(hb_buffer_t* buffer) const { hb_buffer_destroy(buffer); }
};

// The limits of open fallback faces and of clusters with a cached face.
constexpr std::size_t mostFaces = 32;
constexpr std::size_t mostClusters = 4096;

constexpr char32_t textVariant = 0xFE0E;
constexpr char32_t emojiVariant = 0xFE0F;

void append(std::u16string& text, wchar_t character)
{
    auto c = static_cast<char32_t>(character);
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
        c = 0xFFFD;
    } else if (u_charType(static_cast<UChar32>(c)) == U_CONTROL_CHAR || c == 0x2028 || c == 0x2029) {
        c = U' ';
    }
    if (c <= 0xFFFF) {
        text += static_cast<char16_t>(c);
    } else {
        text += static_cast<char16_t>(U16_LEAD(c));
        text += static_cast<char16_t>(U16_TRAIL(c));
    }
}

std::u16string toUTF16(std::wstring_view text)
{
    std::u16string result;
    result.reserve(text.size());
    for (const wchar_t character : text) {
        append(result, character);
    }
    return result;
}

std::u32string charactersOf(std::u16string_view cluster)
{
    std::u32string characters;
    for (std::size_t i = 0; i < cluster.size();) {
        char32_t c = cluster[i++];
        if (U16_IS_LEAD(c) && i < cluster.size()) {
            c = static_cast<char32_t>(U16_GET_SUPPLEMENTARY(c, cluster[i++]));
        }
        characters += c;
    }
    return characters;
}

bool has(char32_t c, UProperty property)
{
    return u_hasBinaryProperty(static_cast<UChar32>(c), property) != 0;
}

/// Whether the cluster should be shown as a colour picture (Unicode Technical Standard 51, section 4).
bool asksForColour(const std::u32string& cluster)
{
    const bool asText = cluster.find(textVariant) != std::u32string::npos;
    const bool asEmoji = cluster.find(emojiVariant) != std::u32string::npos;
    return has(cluster.front(), UCHAR_EMOJI) && !asText &&
           (asEmoji || has(cluster.front(), UCHAR_EMOJI_PRESENTATION));
}

/// The characters without invisible ones, which a font need not have.
std::u32string visible(std::u32string cluster)
{
    std::erase_if(cluster, [](char32_t c) { return has(c, UCHAR_DEFAULT_IGNORABLE_CODE_POINT); });
    return cluster;
}

bool hasAll(const Face& face, const std::u32string& characters)
{
    return std::all_of(characters.begin(), characters.end(), [&](char32_t c) { return face.has(c); });
}

/// The script of a cluster; common characters take that of their neighbours.
hb_script_t scriptOf(const std::u32string& cluster)
{
    return hb_unicode_script(hb_unicode_funcs_get_default(), cluster.front());
}

bool isNeutral(hb_script_t script)
{
    return script == HB_SCRIPT_COMMON || script == HB_SCRIPT_INHERITED || script == HB_SCRIPT_UNKNOWN;
}

} // namespace

/// A run of text that is shaped at once.
struct TextShaper::Item
{
    std::size_t start = 0; ///< in code units
    std::size_t end = 0;
    UBiDiLevel level = 0;
    const Face* face = nullptr;
    hb_script_t script = HB_SCRIPT_COMMON;
};

struct TextShaper::Tools
{
    std::unique_ptr<UBiDi, Destroy> bidi;
    std::unique_ptr<UBreakIterator, Destroy> clusters;
    std::unique_ptr<hb_buffer_t, Destroy> buffer;
    std::map<std::pair<std::string, int>, std::shared_ptr<const Face>> faces; ///< null: no usable file
    std::map<std::pair<std::u32string, bool>, const Face*> found;             ///< null: no file has it
};

TextShaper::TextShaper(std::shared_ptr<const FontFiles> files, std::shared_ptr<const Face> first, int size)
    : files_(std::move(files)), first_(std::move(first)), size_(size), tools_(std::make_unique<Tools>())
{
    UErrorCode error = U_ZERO_ERROR;
    tools_->bidi.reset(ubidi_open());
    tools_->clusters.reset(ubrk_open(UBRK_CHARACTER, "", nullptr, 0, &error));
    tools_->buffer.reset(hb_buffer_create());
}

TextShaper::~TextShaper() = default;

std::shared_ptr<TextShaper> TextShaper::create(std::shared_ptr<const FontFiles> files, int size,
                                               std::string& failure)
{
    std::shared_ptr<const Face> first = Face::open(files->first(), size, failure);
    if (first == nullptr) {
        return nullptr;
    }
    std::shared_ptr<TextShaper> self(new TextShaper(std::move(files), std::move(first), size));
    if (self->tools_->bidi == nullptr || self->tools_->clusters == nullptr) {
        failure = "ICU's data is missing";
        return nullptr;
    }
    return self;
}

const Face* TextShaper::fallbackFor(const std::u32string& characters, bool colour)
{
    const auto known = tools_->found.find({characters, colour});
    if (known != tools_->found.end()) {
        return known->second;
    }
    const Face* face = nullptr;
    if (const std::optional<FontFile> file = files_->covering(characters, colour)) {
        const std::pair key(file->path, file->index);
        auto opened = tools_->faces.find(key);
        if (opened == tools_->faces.end() && tools_->faces.size() < mostFaces) {
            std::string ignored;
            opened = tools_->faces.emplace(key, Face::open(*file, size_, ignored)).first;
        }
        face = opened != tools_->faces.end() ? opened->second.get() : nullptr;
    }
    if (tools_->found.size() >= mostClusters) {
        tools_->found.clear();
    }
    tools_->found.emplace(std::pair(characters, colour), face);
    return face;
}

const Face* TextShaper::faceFor(std::u16string_view cluster)
{
    const std::u32string all = charactersOf(cluster);
    const std::u32string characters = visible(all);
    if (asksForColour(all) && !first_->hasColour()) {
        if (const Face* face = fallbackFor(characters.substr(0, 1), true)) {
            return face;
        }
    }
    if (characters.empty() || hasAll(*first_, characters)) {
        return first_.get();
    }
    if (const Face* face = fallbackFor(characters, false)) {
        return face;
    }
    // A letter without its mark is more legible than a box.
    if (first_->has(characters.front())) {
        return first_.get();
    }
    const Face* face = fallbackFor(characters.substr(0, 1), false);
    return face != nullptr ? face : first_.get();
}

std::vector<TextShaper::Item> TextShaper::itemise(const std::u16string& text)
{
    UErrorCode error = U_ZERO_ERROR;
    const auto length = static_cast<std::int32_t>(text.size());
    ubidi_setPara(tools_->bidi.get(), text.data(), length, UBIDI_DEFAULT_LTR, nullptr, &error);
    const UBiDiLevel* levels = ubidi_getLevels(tools_->bidi.get(), &error);
    ubrk_setText(tools_->clusters.get(), text.data(), length, &error);
    if (U_FAILURE(error)) {
        return {};
    }
    std::vector<Item> items;
    std::int32_t start = ubrk_first(tools_->clusters.get());
    for (std::int32_t end = ubrk_next(tools_->clusters.get()); end != UBRK_DONE;
         start = std::exchange(end, ubrk_next(tools_->clusters.get()))) {
        const std::u16string_view cluster = std::u16string_view(text).substr(
            static_cast<std::size_t>(start), static_cast<std::size_t>(end - start));
        Item item{static_cast<std::size_t>(start), static_cast<std::size_t>(end), levels[start],
                  faceFor(cluster), scriptOf(charactersOf(cluster))};
        Item* last = items.empty() ? nullptr : &items.back();
        if (last != nullptr && last->face == item.face && last->level == item.level &&
            (last->script == item.script || isNeutral(last->script) || isNeutral(item.script))) {
            last->end = item.end;
            last->script = isNeutral(last->script) ? item.script : last->script;
        } else {
            items.push_back(item);
        }
    }
    return items;
}

void TextShaper::shapeItem(const std::u16string& text, const Item& item, Line& line, std::int64_t& pen)
{
    hb_buffer_t* buffer = tools_->buffer.get();
    hb_buffer_clear_contents(buffer);
    hb_buffer_add_utf16(buffer, reinterpret_cast<const std::uint16_t*>(text.data()),
                        static_cast<int>(text.size()), static_cast<unsigned>(item.start),
                        static_cast<int>(item.end - item.start));
    hb_buffer_set_direction(buffer, item.level % 2 != 0 ? HB_DIRECTION_RTL : HB_DIRECTION_LTR);
    hb_buffer_set_script(buffer, item.script);
    hb_buffer_set_language(buffer, hb_language_get_default());
    hb_shape(item.face->shaper(), buffer, nullptr, 0);
    unsigned count = 0;
    const hb_glyph_info_t* infos = hb_buffer_get_glyph_infos(buffer, &count);
    const hb_glyph_position_t* positions = hb_buffer_get_glyph_positions(buffer, &count);
    for (unsigned i = 0; i < count; ++i) {
        const hb_glyph_position_t& at = positions[i];
        line.glyphs.push_back({item.face, infos[i].codepoint, pen + at.x_offset, (at.y_offset + 32) >> 6});
        pen += at.x_advance;
    }
}

Line TextShaper::shape(std::wstring_view text)
{
    Line line;
    if (text.empty() || text.size() > longestLine) {
        return line;
    }
    const std::u16string units = toUTF16(text);
    const std::lock_guard lock(mutex_);
    const std::vector<Item> items = itemise(units);
    std::vector<UBiDiLevel> levels;
    levels.reserve(items.size());
    for (const Item& item : items) {
        levels.push_back(item.level);
    }
    std::vector<std::int32_t> order(items.size());
    ubidi_reorderVisual(levels.data(), static_cast<std::int32_t>(levels.size()), order.data());
    std::int64_t pen = 0;
    for (const std::int32_t index : order) {
        shapeItem(units, items[static_cast<std::size_t>(index)], line, pen);
    }
    line.width = static_cast<int>((pen + 63) / 64);
    return line;
}

} // namespace Qx::Host::Text
