#include "host/fonts/GlyphAtlas.h"
#include "host/fonts/Face.h"

#include <gtest/gtest.h>

#include <random>

namespace Qx::FontTests {
namespace {

using Host::Text::GlyphAtlas;
using Host::Text::GlyphBitmap;

constexpr std::uint64_t page = std::uint64_t{GlyphAtlas::pageSide} * GlyphAtlas::pageSide;

GlyphBitmap bitmap(int width, int height)
{
    GlyphBitmap result;
    result.width = width;
    result.height = height;
    return result;
}

class Atlas : public testing::Test
{
protected:
    std::optional<GlyphAtlas::Slot> add(GlyphAtlas& atlas, std::uint32_t glyph, int width, int height)
    {
        given_.clear();
        return atlas.add({1, glyph, 0}, bitmap(width, height), given_);
    }

    std::vector<std::size_t> given_;
};

TEST_F(Atlas, laysGlyphsOutWithoutOverlapAndInsideTheirPages)
{
    GlyphAtlas atlas(8 * page);
    std::mt19937 random(7);
    std::vector<std::vector<bool>> taken;
    atlas.begin();
    for (std::uint32_t glyph = 0; glyph < 3000; ++glyph) {
        const auto slot =
            add(atlas, glyph, static_cast<int>(random() % 60 + 1), static_cast<int>(random() % 60 + 1));
        ASSERT_TRUE(slot);
        taken.resize(std::max(taken.size(), slot->page + 1), std::vector<bool>(page));
        const GlyphAtlas::Size size = atlas.sizeOf(slot->page);
        ASSERT_LE(slot->x + slot->width, size.width);
        ASSERT_LE(slot->y + slot->height, size.height);
        for (int y = slot->y; y < slot->y + slot->height; ++y) {
            for (int x = slot->x; x < slot->x + slot->width; ++x) {
                auto texel = taken[slot->page][static_cast<std::size_t>(y * size.width + x)];
                ASSERT_FALSE(texel) << "two glyphs at " << x << "," << y;
                texel = true;
            }
        }
    }
    // 3000 of 930 texels on average fill less than three pages.
    EXPECT_LE(atlas.pageNumbers(), 4U) << "space is wasted";
}

TEST_F(Atlas, keepsWhatItWasGiven)
{
    GlyphAtlas atlas(page);
    atlas.begin();
    EXPECT_EQ(atlas.find({1, 5, 0}), nullptr);
    GlyphBitmap picture = bitmap(20, 30);
    picture.left = -3;
    picture.top = 25;
    picture.colour = true;
    const auto added = atlas.add({1, 5, 0}, picture, given_);
    ASSERT_TRUE(added);
    const GlyphAtlas::Slot* found = atlas.find({1, 5, 0});
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->left, -3);
    EXPECT_EQ(found->top, 25);
    EXPECT_TRUE(found->colour);
    EXPECT_EQ(atlas.find({1, 5, 1}), nullptr) << "another place between pixels";
    EXPECT_EQ(atlas.find({2, 5, 0}), nullptr) << "another face";
}

TEST_F(Atlas, glyphsWithoutPixelsNeedNoPage)
{
    GlyphAtlas atlas(page);
    atlas.begin();
    const auto space = add(atlas, 1, 0, 0);
    ASSERT_TRUE(space);
    EXPECT_EQ(space->width, 0);
    EXPECT_EQ(atlas.texels(), 0U);
    EXPECT_NE(atlas.find({1, 1, 0}), nullptr);
}

TEST_F(Atlas, staysWithinItsBoundAndGivesUpWhatWasUsedLongestAgo)
{
    GlyphAtlas atlas(2 * page);
    for (std::uint32_t glyph = 0; glyph < 20000; ++glyph) {
        atlas.begin();
        atlas.find({1, 0, 0});
        ASSERT_TRUE(add(atlas, glyph, 50, 50));
        ASSERT_LE(atlas.texels(), 2 * page);
        ASSERT_LE(atlas.pageNumbers(), 2U);
    }
    EXPECT_NE(atlas.find({1, 0, 0}), nullptr) << "used all the time";
    EXPECT_EQ(atlas.find({1, 1000, 0}), nullptr) << "not used for long";
    EXPECT_LE(atlas.glyphs(), 2 * page / (50 * 50));
}

TEST_F(Atlas, aPageInUseIsNotGivenUpBeforeTheNextUse)
{
    GlyphAtlas atlas(page);
    atlas.begin();
    ASSERT_TRUE(add(atlas, 1, 1000, 1000));
    EXPECT_FALSE(add(atlas, 2, 1000, 1000));
    EXPECT_NE(atlas.find({1, 1, 0}), nullptr);
    atlas.begin();
    EXPECT_TRUE(add(atlas, 2, 1000, 1000));
    EXPECT_EQ(given_, std::vector<std::size_t>{0});
    EXPECT_EQ(atlas.find({1, 1, 0}), nullptr);
}

TEST_F(Atlas, aGlyphLargerThanAPageHasOneOfItsOwn)
{
    GlyphAtlas atlas(2 * page);
    atlas.begin();
    const auto wide = add(atlas, 1, 3000, 700);
    ASSERT_TRUE(wide);
    EXPECT_GE(atlas.sizeOf(wide->page).width, 3000);
    atlas.begin();
    const auto huge = add(atlas, 2, 4096, 4096);
    ASSERT_TRUE(huge) << "alone, beyond the bound";
    EXPECT_EQ(atlas.find({1, 1, 0}), nullptr);
    atlas.begin();
    ASSERT_TRUE(add(atlas, 3, 10, 10));
    EXPECT_NE(atlas.find({1, 3, 0}), nullptr);
}

} // namespace
} // namespace Qx::FontTests
