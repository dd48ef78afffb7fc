#include "host/fonts/GlyphAtlas.h"

#include "host/fonts/Face.h"

#include <algorithm>

namespace Qx::Host::Text {

namespace {

std::uint64_t texelsOf(GlyphAtlas::Size size)
{
    return static_cast<std::uint64_t>(size.width) * static_cast<std::uint64_t>(size.height);
}

// With few different heights, more glyphs share a shelf.
constexpr int shelfStep = 8;

int shelfHeight(int height)
{
    return (height + shelfStep - 1) / shelfStep * shelfStep;
}

} // namespace

const GlyphAtlas::Slot* GlyphAtlas::find(const Key& key)
{
    const auto found = slots_.find(key);
    if (found == slots_.end()) {
        return nullptr;
    }
    if (found->second.width > 0) {
        pages_[found->second.page].lastUse = use_;
    }
    return &found->second;
}

bool GlyphAtlas::place(Page& page, int width, int height, Slot& slot)
{
    Shelf* best = nullptr;
    int end = 0;
    for (Shelf& shelf : page.shelves) {
        end = shelf.top + shelf.height;
        const bool fits = height <= shelf.height && width <= page.size.width - shelf.used;
        // A low glyph on a high shelf wastes the space above it.
        if (fits && shelf.height <= 2 * shelfHeight(height) &&
            (best == nullptr || shelf.height < best->height)) {
            best = &shelf;
        }
    }
    if (best == nullptr) {
        const int fresh = std::min(shelfHeight(height), page.size.height - end);
        if (fresh < height || width > page.size.width) {
            return false;
        }
        best = &page.shelves.emplace_back(Shelf{end, fresh, 0});
    }
    slot.x = best->used;
    slot.y = best->top;
    best->used += width;
    return true;
}

bool GlyphAtlas::makeRoom(std::uint64_t texels, std::vector<std::size_t>& given)
{
    while (texels_ > 0 && texels_ + texels > budget_) {
        Page* oldest = nullptr;
        for (Page& page : pages_) {
            if (page.size.width > 0 && (oldest == nullptr || page.lastUse < oldest->lastUse)) {
                oldest = &page;
            }
        }
        if (oldest->lastUse == use_) {
            return false;
        }
        const auto number = static_cast<std::size_t>(oldest - pages_.data());
        std::erase_if(slots_, [number](const auto& entry) {
            return entry.second.width > 0 && entry.second.page == number;
        });
        texels_ -= texelsOf(oldest->size);
        *oldest = Page();
        given.push_back(number);
    }
    return true;
}

std::size_t GlyphAtlas::addPage(Size size)
{
    auto page = std::find_if(pages_.begin(), pages_.end(), [](const Page& p) { return p.size.width == 0; });
    if (page == pages_.end()) {
        page = pages_.emplace(pages_.end());
    }
    page->size = size;
    texels_ += texelsOf(size);
    return static_cast<std::size_t>(page - pages_.begin());
}

std::optional<GlyphAtlas::Slot> GlyphAtlas::add(const Key& key, const GlyphBitmap& bitmap,
                                                std::vector<std::size_t>& given)
{
    Slot slot{0, 0, 0, bitmap.width, bitmap.height, bitmap.left, bitmap.top, bitmap.colour};
    if (bitmap.width <= 0 || bitmap.height <= 0) {
        slot.width = 0;
        slot.height = 0;
        return slots_.emplace(key, slot).first->second;
    }
    const auto hasRoom = [&](Page& page) {
        return page.size.width > 0 && place(page, bitmap.width, bitmap.height, slot);
    };
    auto page = std::find_if(pages_.begin(), pages_.end(), hasRoom);
    if (page == pages_.end()) {
        const Size size{std::max(pageSide, bitmap.width), std::max(pageSide, bitmap.height)};
        if (!makeRoom(texelsOf(size), given)) {
            return std::nullopt;
        }
        page = pages_.begin() + static_cast<std::ptrdiff_t>(addPage(size));
        place(*page, bitmap.width, bitmap.height, slot);
    }
    page->lastUse = use_;
    slot.page = static_cast<std::size_t>(page - pages_.begin());
    return slots_.emplace(key, slot).first->second;
}

void GlyphAtlas::clear()
{
    pages_.clear();
    slots_.clear();
    texels_ = 0;
}

} // namespace Qx::Host::Text
