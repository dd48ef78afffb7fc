#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

namespace Qx::Host::Text {

struct GlyphBitmap;

/// The layout of glyphs on pages, whose texels it does not hold. Pages are added up to the limit; then the
/// least recently used page is dropped with all its glyphs. Not thread-safe.
class GlyphAtlas
{
public:
    struct Key
    {
        std::uint64_t face = 0;
        std::uint32_t glyph = 0;
        unsigned phase = 0;

        // NOLINTNEXTLINE(modernize-use-nullptr): takes the comparison with 0 that it stands for for a
        // pointer's
        friend auto operator<=>(const Key&, const Key&) = default;
    };

    struct Slot
    {
        std::size_t page = 0;
        int x = 0; ///< on the page, in texels
        int y = 0;
        int width = 0; ///< 0 if there is nothing to see
        int height = 0;
        int left = 0; ///< as in GlyphBitmap
        int top = 0;
        bool colour = false;
    };

    /// Pages are squares of this side; a larger glyph has a page of its own.
    static constexpr int pageSide = 1024;

    /// `budget` is in texels, at least one page.
    explicit GlyphAtlas(std::uint64_t budget) : budget_(budget) {}

    /// Begins a use: pages used from here on are kept until the next use begins.
    void begin() { ++use_; }

    /// The place of a glyph; null if it has none. Valid until the next add().
    const Slot* find(const Key& key);

    /// Creates a place for a glyph. Empty if all pages are in use since begin(): draw what is there, begin
    /// again and retry. That works for every glyph, as one beyond the limit gets a page alone. Dropped pages
    /// are appended to `given`; later pages may take their numbers.
    std::optional<Slot> add(const Key& key, const GlyphBitmap& bitmap, std::vector<std::size_t>& given);

    /// Removes everything.
    void clear();

    struct Size
    {
        int width = 0; ///< 0 if the number has no page
        int height = 0;
    };
    Size sizeOf(std::size_t page) const { return pages_.at(page).size; }
    std::size_t pageNumbers() const { return pages_.size(); } ///< below this are the numbers of all pages
    std::uint64_t texels() const { return texels_; }          ///< of all pages
    std::size_t glyphs() const { return slots_.size(); }

private:
    struct Shelf
    {
        int top = 0;
        int height = 0;
        int used = 0; ///< texels from the left
    };
    struct Page
    {
        Size size;
        std::vector<Shelf> shelves;
        std::uint64_t lastUse = 0;
    };

    static bool place(Page& page, int width, int height, Slot& slot);
    bool makeRoom(std::uint64_t texels, std::vector<std::size_t>& given);
    std::size_t addPage(Size size);

    const std::uint64_t budget_;
    std::uint64_t use_ = 0;
    std::uint64_t texels_ = 0;
    std::vector<Page> pages_;
    std::map<Key, Slot> slots_;
};

} // namespace Qx::Host::Text
