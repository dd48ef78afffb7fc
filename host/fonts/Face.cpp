#include "host/fonts/Face.h"

#include "host/fonts/ScaleBitmap.h"

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H
#include <hb-ot.h>
#include <hb.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <limits>

namespace Qx::Host::Text {

namespace {

struct Destroy
{
    void operator()(hb_blob_t* blob) const { hb_blob_destroy(blob); }
    void operator()(hb_face_t* face) const { hb_face_destroy(face); }
    void operator()(hb_font_t* font) const { hb_font_destroy(font); }
    void operator()(FT_Library library) const { FT_Done_FreeType(library); }
    void operator()(FT_Face face) const { FT_Done_Face(face); }
};

// The tangent of 12 degrees, a usual angle of italics.
constexpr float slope = 0.2126F;

std::uint64_t nextId()
{
    static std::atomic<std::uint64_t> last{0};
    return ++last;
}

GlyphBitmap fromCoverage(const FT_Bitmap& bitmap)
{
    GlyphBitmap result;
    result.width = static_cast<int>(bitmap.width);
    result.height = static_cast<int>(bitmap.rows);
    result.texels.reserve(std::size_t{4} * bitmap.width * bitmap.rows);
    for (unsigned y = 0; y < bitmap.rows; ++y) {
        const std::uint8_t* row = bitmap.buffer + static_cast<std::ptrdiff_t>(y) * bitmap.pitch;
        for (unsigned x = 0; x < bitmap.width; ++x) {
            result.texels.insert(result.texels.end(), 4, row[x]);
        }
    }
    return result;
}

GlyphBitmap fromColour(const FT_Bitmap& bitmap)
{
    GlyphBitmap result;
    result.width = static_cast<int>(bitmap.width);
    result.height = static_cast<int>(bitmap.rows);
    result.colour = true;
    result.texels.reserve(std::size_t{4} * bitmap.width * bitmap.rows);
    for (unsigned y = 0; y < bitmap.rows; ++y) {
        const std::uint8_t* row = bitmap.buffer + static_cast<std::ptrdiff_t>(y) * bitmap.pitch;
        for (unsigned x = 0; x < bitmap.width; ++x) {
            const std::uint8_t* bgra = row + std::size_t{4} * x;
            result.texels.insert(result.texels.end(), {bgra[3], bgra[2], bgra[1], bgra[0]});
        }
    }
    return result;
}

GlyphBitmap fromSlot(const FT_GlyphSlot slot)
{
    GlyphBitmap result;
    if (slot->bitmap.pixel_mode == FT_PIXEL_MODE_GRAY) {
        result = fromCoverage(slot->bitmap);
    } else if (slot->bitmap.pixel_mode == FT_PIXEL_MODE_BGRA) {
        result = fromColour(slot->bitmap);
    }
    result.left = slot->bitmap_left;
    result.top = slot->bitmap_top;
    return result;
}

bool isTooLarge(const FT_Outline& outline)
{
    FT_BBox box;
    FT_Outline_Get_CBox(&outline, &box);
    constexpr FT_Pos largest = FT_Pos{Face::largestGlyph} * 64;
    return box.xMax - box.xMin > largest || box.yMax - box.yMin > largest;
}

} // namespace

struct Face::Libraries
{
    std::unique_ptr<hb_blob_t, Destroy> blob; // the file's bytes, for both libraries
    std::unique_ptr<hb_font_t, Destroy> shaper;
    // Each face has its own library, since threads may not open faces of one library concurrently.
    std::unique_ptr<FT_LibraryRec_, Destroy> library;
    std::unique_ptr<FT_FaceRec_, Destroy> face;
};

Face::Face() : id_(nextId()), libraries_(std::make_unique<Libraries>()) {}

Face::~Face() = default;

std::shared_ptr<const Face> Face::open(const FontFile& file, int size, std::string& failure)
{
    std::shared_ptr<Face> self(new Face);
    return self->start(file, size, failure) ? self : nullptr;
}

bool Face::start(const FontFile& file, int size, std::string& failure)
{
    Libraries& with = *libraries_;
    size_ = size;
    with.blob.reset(hb_blob_create_from_file_or_fail(file.path.c_str()));
    if (with.blob == nullptr) {
        failure = "it cannot be read";
        return false;
    }
    unsigned length = 0;
    const char* bytes = hb_blob_get_data(with.blob.get(), &length);
    FT_Library library = nullptr;
    FT_Face face = nullptr;
    if (FT_Init_FreeType(&library) != 0) {
        failure = "FreeType cannot be initialised";
        return false;
    }
    with.library.reset(library);
    if (FT_New_Memory_Face(library, reinterpret_cast<const FT_Byte*>(bytes), static_cast<FT_Long>(length),
                           file.index, &face) != 0) {
        failure = "it is not a font, or it is damaged";
        return false;
    }
    with.face.reset(face);
    if (!FT_IS_SFNT(face)) {
        failure = "it is not a TrueType or OpenType font";
        return false;
    }
    const std::unique_ptr<hb_face_t, Destroy> shapes(
        hb_face_create(with.blob.get(), static_cast<unsigned>(file.index) & 0xFFFFU));
    with.shaper.reset(hb_font_create(shapes.get()));
    hb_font_set_scale(with.shaper.get(), size * 64, size * 64);
    if (file.index > 0xFFFF) {
        hb_font_set_var_named_instance(with.shaper.get(), (static_cast<unsigned>(file.index) >> 16U) - 1);
    }
    colour_ = FT_HAS_COLOR(face);
    bold_ = file.bold && FT_IS_SCALABLE(face);
    slant_ = file.slant && FT_IS_SCALABLE(face);
    if (slant_) {
        hb_font_set_synthetic_slant(with.shaper.get(), slope);
    }
    hb_font_make_immutable(with.shaper.get());
    if (!FT_IS_SCALABLE(face)) {
        chooseStrike(size);
    } else if (FT_Set_Pixel_Sizes(face, 0, static_cast<FT_UInt>(size)) != 0) {
        failure = "it cannot be scaled to " + std::to_string(size) + " pixels";
        return false;
    }
    if (!FT_IS_SCALABLE(face) && strikeScale_ == 0) {
        failure = "it has neither outlines nor bitmaps";
        return false;
    }
    hb_font_extents_t extents{};
    hb_font_get_h_extents(with.shaper.get(), &extents);
    ascent_ = std::clamp((extents.ascender + 63) / 64, 0, 8 * size);
    descent_ = std::clamp((63 - extents.descender) / 64, 0, 8 * size);
    return true;
}

void Face::chooseStrike(int size)
{
    FT_Face face = libraries_->face.get();
    int best = -1;
    long bestPixels = 0;
    for (int i = 0; i < face->num_fixed_sizes; ++i) {
        const long pixels = face->available_sizes[i].y_ppem / 64;
        const bool better = bestPixels < size ? pixels > bestPixels : pixels >= size && pixels < bestPixels;
        if (pixels > 0 && better) {
            best = i;
            bestPixels = pixels;
        }
    }
    if (best >= 0 && FT_Select_Size(face, best) == 0) {
        strikeScale_ = static_cast<double>(size) / static_cast<double>(bestPixels);
    }
}

hb_font_t* Face::shaper() const
{
    return libraries_->shaper.get();
}

Face::Pen Face::penAt(std::int64_t position)
{
    constexpr std::int64_t unit = 64 / phases;
    const std::int64_t steps = (position + unit / 2) >> 4;
    return {steps >> 2, static_cast<unsigned>(steps & (phases - 1))};
}

bool Face::has(char32_t character) const
{
    hb_codepoint_t glyph = 0;
    return hb_font_get_nominal_glyph(shaper(), character, &glyph) != 0;
}

GlyphExtent Face::extentOf(std::uint32_t glyph) const
{
    // Emboldening and hinting may enlarge the outline a little.
    const int margin = 2 + (bold_ || slant_ ? size_ / 4 : 0) + (strikeScale_ != 0 ? size_ / 8 : 0);
    hb_glyph_extents_t extents{};
    if (hb_font_get_glyph_extents(shaper(), glyph, &extents) == 0) {
        return {-size_, 2 * size_, 4 * size_, 4 * size_};
    }
    const auto pixels = [](hb_position_t value) { return static_cast<int>(std::floor(value / 64.0)); };
    const auto end = [](hb_position_t a, hb_position_t b) {
        return static_cast<int>(std::ceil((static_cast<double>(a) + b) / 64.0));
    };
    const int left = pixels(extents.x_bearing) - margin;
    const int right = end(extents.x_bearing, extents.width) + margin + 1;
    const int top = end(extents.y_bearing, 0) + margin;
    const int bottom = pixels(extents.y_bearing + extents.height) - margin;
    return {left, top, right - left, top - bottom};
}

GlyphBitmap Face::draw(std::uint32_t glyph, unsigned phase) const
{
    const std::lock_guard lock(mutex_);
    return strikeScale_ != 0 ? drawStrike(glyph) : drawOutline(glyph, phase);
}

GlyphBitmap Face::drawOutline(std::uint32_t glyph, unsigned phase) const
{
    FT_Face face = libraries_->face.get();
    // Light hinting moves outlines to whole rows, which keeps baselines sharp, and keeps the widths by which
    // the text was shaped.
    constexpr FT_Int32 flags = FT_LOAD_TARGET_LIGHT | FT_LOAD_NO_BITMAP;
    if (FT_Load_Glyph(face, glyph, flags) != 0) {
        return {};
    }
    FT_GlyphSlot slot = face->glyph;
    if (slot->format != FT_GLYPH_FORMAT_OUTLINE || isTooLarge(slot->outline)) {
        return {};
    }
    if (colour_ && FT_Load_Glyph(face, glyph, flags | FT_LOAD_COLOR | FT_LOAD_RENDER) == 0 &&
        slot->bitmap.pixel_mode == FT_PIXEL_MODE_BGRA) {
        return fromSlot(slot);
    }
    if (colour_ && FT_Load_Glyph(face, glyph, flags) != 0) {
        return {};
    }
    if (bold_) {
        FT_Outline_Embolden(&slot->outline, size_ * 64 / 24);
    }
    if (slant_) {
        const FT_Matrix shear{0x10000, static_cast<FT_Fixed>(slope * 0x10000), 0, 0x10000};
        FT_Outline_Transform(&slot->outline, &shear);
    }
    FT_Outline_Translate(&slot->outline, static_cast<FT_Pos>(phase * 64 / phases), 0);
    return FT_Render_Glyph(slot, FT_RENDER_MODE_NORMAL) == 0 ? fromSlot(slot) : GlyphBitmap();
}

GlyphBitmap Face::drawStrike(std::uint32_t glyph) const
{
    FT_Face face = libraries_->face.get();
    if (FT_Load_Glyph(face, glyph, FT_LOAD_COLOR) != 0) {
        return {};
    }
    const GlyphBitmap stored = fromSlot(face->glyph);
    if (std::max(stored.width, stored.height) * strikeScale_ > largestGlyph) {
        return {};
    }
    return scaled(stored, strikeScale_);
}

} // namespace Qx::Host::Text
