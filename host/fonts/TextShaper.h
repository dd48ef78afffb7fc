#pragma once

#include "host/fonts/Face.h"

#include <string_view>

namespace Qx::Host::Text {

/// A glyph of a line and the position of its pen: in 1/64 pixel to the right of the line's left end, and in
/// whole pixels upward from the baseline. The face lives as long as the shaper.
struct PlacedGlyph
{
    const Face* face = nullptr;
    std::uint32_t glyph = 0;
    std::int64_t x = 0;
    int y = 0;
};

/// A line of text, in visual order from left to right.
struct Line
{
    std::vector<PlacedGlyph> glyphs;
    int width = 0; ///< from the first pen position to the last, in pixels
};

/// Turns text into glyphs: bidirectional text, scripts, marks, and other files for characters that the
/// typeface lacks. Thread-safe.
class TextShaper
{
public:
    /// The largest number of characters of a line.
    static constexpr std::size_t longestLine = 65536;

    /// Null, with the reason, if the typeface's file is not a font.
    static std::shared_ptr<TextShaper> create(std::shared_ptr<const FontFiles> files, int size,
                                              std::string& failure);
    ~TextShaper();
    TextShaper(const TextShaper&) = delete;
    TextShaper& operator=(const TextShaper&) = delete;

    int ascent() const { return first_->ascent(); }
    int descent() const { return first_->descent(); }

    /// Control characters count as spaces; invalid characters become U+FFFD. The line is empty for a text of
    /// more than longestLine characters.
    Line shape(std::wstring_view text);

private:
    struct Tools;
    struct Item;
    TextShaper(std::shared_ptr<const FontFiles> files, std::shared_ptr<const Face> first, int size);

    const Face* faceFor(std::u16string_view cluster);
    const Face* fallbackFor(const std::u32string& characters, bool colour);
    std::vector<Item> itemise(const std::u16string& text);
    void shapeItem(const std::u16string& text, const Item& item, Line& line, std::int64_t& pen);

    const std::shared_ptr<const FontFiles> files_;
    const std::shared_ptr<const Face> first_;
    const int size_;
    std::mutex mutex_; // guards all below
    std::unique_ptr<Tools> tools_;
};

} // namespace Qx::Host::Text
