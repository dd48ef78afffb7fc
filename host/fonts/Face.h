#pragma once

#include "host/fonts/FontFiles.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

struct hb_font_t;

namespace Qx::Host::Text {

/// A picture of a glyph, four bytes a texel: A R G B with premultiplied colour. A glyph in the text's colour
/// has its coverage in all four.
struct GlyphBitmap
{
    int left = 0; ///< of the first column, from the pen, in pixels
    int top = 0;  ///< of the first row, upward from the baseline, in pixels
    int width = 0;
    int height = 0;
    bool colour = false; ///< it has its own colours
    std::vector<std::uint8_t> texels;
};

/// The pixels that a glyph may touch, as GlyphBitmap counts them.
struct GlyphExtent
{
    int left = 0;
    int top = 0;
    int width = 0;
    int height = 0;
};

/// A face of a font file at one size. Thread-safe.
class Face
{
public:
    /// The subpixel positions at which glyphs are drawn.
    static constexpr unsigned phases = 4;

    /// The pixel of a pen position in 1/64 pixel, and how many phases it stands right of that.
    struct Pen
    {
        std::int64_t pixel = 0;
        unsigned phase = 0;
    };
    static Pen penAt(std::int64_t position);

    /// The largest width and height of a glyph's picture, in pixels.
    static constexpr int largestGlyph = 4096;

    /// `size` is that of the em square in pixels. Null, with the reason, if the file is not a font.
    static std::shared_ptr<const Face> open(const FontFile& file, int size, std::string& failure);
    ~Face();
    Face(const Face&) = delete;
    Face& operator=(const Face&) = delete;

    /// Unique in the process.
    std::uint64_t id() const { return id_; }
    /// For shaping. Its unit is 1/64 pixel, and it never changes.
    hb_font_t* shaper() const;
    bool hasColour() const { return colour_; }
    bool has(char32_t character) const;

    /// Of a line of text, in pixels from its baseline upward and downward.
    int ascent() const { return ascent_; }
    int descent() const { return descent_; }

    /// A bound of the drawn pixels.
    GlyphExtent extentOf(std::uint32_t glyph) const;

    /// The glyph, drawn `phase` quarters of a pixel to the right. Empty if there is nothing to see or the
    /// picture would be too large.
    GlyphBitmap draw(std::uint32_t glyph, unsigned phase) const;

private:
    struct Libraries;
    Face();
    bool start(const FontFile& file, int size, std::string& failure);
    void chooseStrike(int size);
    GlyphBitmap drawOutline(std::uint32_t glyph, unsigned phase) const;
    GlyphBitmap drawStrike(std::uint32_t glyph) const;

    const std::uint64_t id_;
    std::unique_ptr<Libraries> libraries_;
    mutable std::mutex mutex_; // FreeType draws one glyph of a face at a time
    bool colour_ = false;
    bool bold_ = false;
    bool slant_ = false;
    int size_ = 0;
    double strikeScale_ = 0; ///< of stored pictures to the size; 0 for outlines
    int ascent_ = 0;
    int descent_ = 0;
};

} // namespace Qx::Host::Text
