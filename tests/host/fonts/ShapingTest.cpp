#include "host/fonts/TextShaper.h"
#include "host/fonts/Typeface.h"

#include "tests/host/gpu/LogCapture.h"

#include <gmock/gmock.h>

#include <hb.h>

#include <algorithm>
#include <set>
#include <string>
#include <thread>

namespace Qx::FontTests {
namespace {

using Host::Text::Line;
using Host::Text::PlacedGlyph;
using Host::Text::TextShaper;

/// A line with the shaper whose faces it is of.
struct ShapedLine
{
    std::shared_ptr<TextShaper> shaper;
    std::vector<PlacedGlyph> glyphs;
    int width = 0;
};

std::shared_ptr<TextShaper> open(const wchar_t* typeface, int size = 40)
{
    auto shaper = Host::Text::openTypeface(typeface, size, 0);
    EXPECT_NE(shaper, nullptr) << GpuTests::takeLog();
    return shaper;
}

ShapedLine shape(const wchar_t* typeface, const wchar_t* text)
{
    const auto shaper = open(typeface);
    const Line line = shaper->shape(text);
    return {shaper, line.glyphs, line.width};
}

std::uint32_t glyphOf(const PlacedGlyph& placed, char32_t character)
{
    hb_codepoint_t glyph = 0;
    hb_font_get_nominal_glyph(placed.face->shaper(), character, &glyph);
    return glyph;
}

template <class AnyLine>
std::vector<std::uint32_t> glyphsOf(const AnyLine& line)
{
    std::vector<std::uint32_t> glyphs;
    for (const PlacedGlyph& placed : line.glyphs) {
        glyphs.push_back(placed.glyph);
    }
    return glyphs;
}

TEST(Shaping, kernsAndMeasures)
{
    const auto shaper = open(L"DejaVu Sans");
    const int together = shaper->shape(L"AV").width;
    EXPECT_LT(together, shaper->shape(L"A").width + shaper->shape(L"V").width);
    EXPECT_GT(together, 0);
    EXPECT_EQ(shaper->shape(L"").width, 0);
    EXPECT_GT(shaper->ascent(), 20);
    EXPECT_GT(shaper->descent(), 3);
}

TEST(Shaping, putsMarksOnTheirLetters)
{
    // There is no such letter in one piece, so the mark is a glyph of its own.
    const ShapedLine line = shape(L"DejaVu Sans", L"x\u0302");
    ASSERT_EQ(line.glyphs.size(), 2U);
    EXPECT_EQ(line.width, shape(L"DejaVu Sans", L"x").width) << "the mark takes no room";
    const auto centre = [](const PlacedGlyph& placed) {
        hb_glyph_extents_t extents{};
        hb_font_get_glyph_extents(placed.face->shaper(), placed.glyph, &extents);
        return static_cast<double>(placed.x) + extents.x_bearing + extents.width / 2.0;
    };
    EXPECT_NEAR(centre(line.glyphs[1]), centre(line.glyphs[0]), 64.0) << "a pixel";
}

TEST(Shaping, writesHebrewFromTheRight)
{
    const ShapedLine line = shape(L"DejaVu Sans", L"\u05D0\u05D1");
    ASSERT_EQ(line.glyphs.size(), 2U);
    EXPECT_EQ(line.glyphs[0].glyph, glyphOf(line.glyphs[0], U'\u05D1'));
    EXPECT_EQ(line.glyphs[1].glyph, glyphOf(line.glyphs[1], U'\u05D0'));
    EXPECT_LT(line.glyphs[0].x, line.glyphs[1].x);
}

TEST(Shaping, mixesBothDirections)
{
    const ShapedLine line = shape(L"DejaVu Sans", L"a\u05D0\u05D112b");
    ASSERT_EQ(line.glyphs.size(), 6U);
    const std::u32string seen = U"a12\u05D1\u05D0b"; // numbers keep their order within the Hebrew
    for (std::size_t i = 0; i < seen.size(); ++i) {
        EXPECT_EQ(line.glyphs[i].glyph, glyphOf(line.glyphs[i], seen[i])) << i;
    }
}

TEST(Shaping, mirrorsBracketsInTextFromTheRight)
{
    const ShapedLine line = shape(L"DejaVu Sans", L"\u05D0(\u05D1)");
    ASSERT_EQ(line.glyphs.size(), 4U);
    EXPECT_EQ(line.glyphs[0].glyph, glyphOf(line.glyphs[0], U'('));
    EXPECT_EQ(line.glyphs[2].glyph, glyphOf(line.glyphs[2], U')'));
}

TEST(Shaping, joinsArabicLetters)
{
    const ShapedLine line = shape(L"DejaVu Sans", L"\u0628\u0628\u0628");
    const std::vector<std::uint32_t> glyphs = glyphsOf(line);
    EXPECT_EQ(std::set(glyphs.begin(), glyphs.end()).size(), 3U) << "first, middle and last differ";
}

TEST(Shaping, takesWhatTheTypefaceLacksFromOthers)
{
    const ShapedLine line = shape(L"DejaVu Serif", L"a\u05D0\u65E5");
    ASSERT_EQ(line.glyphs.size(), 3U);
    EXPECT_NE(line.glyphs[1].face, line.glyphs[0].face) << "DejaVu Serif has no Hebrew";
    EXPECT_NE(line.glyphs[2].face, line.glyphs[1].face);
    for (const PlacedGlyph& placed : line.glyphs) {
        EXPECT_NE(placed.glyph, 0U) << "a box";
    }
}

TEST(Shaping, aLetterAndItsMarkComeFromOneFace)
{
    // Hebrew points are in other faces than the letters of DejaVu Serif.
    const ShapedLine line = shape(L"DejaVu Serif", L"\u05E9\u05C1\u05B8");
    for (const PlacedGlyph& placed : line.glyphs) {
        EXPECT_EQ(placed.face, line.glyphs.front().face);
        EXPECT_NE(placed.glyph, 0U);
    }
}

TEST(Shaping, drawsEmojiInColourUnlessToldOtherwise)
{
    const auto shaper = open(L"DejaVu Sans");
    EXPECT_TRUE(shaper->shape(L"\U0001F600").glyphs.at(0).face->hasColour());
    EXPECT_TRUE(shaper->shape(L"\u2764\uFE0F").glyphs.at(0).face->hasColour());
    EXPECT_FALSE(shaper->shape(L"\u2764\uFE0E").glyphs.at(0).face->hasColour());
    EXPECT_FALSE(shaper->shape(L"\u2764").glyphs.at(0).face->hasColour()) << "text by itself";
    EXPECT_FALSE(shaper->shape(L"1").glyphs.at(0).face->hasColour());
}

TEST(Shaping, sequencesOfEmojiBecomeOnePicture)
{
    const auto shaper = open(L"DejaVu Sans");
    const auto pictures = [&](const wchar_t* text) {
        const int one = shaper->shape(L"\U0001F600").width;
        return (shaper->shape(text).width + one / 2) / one;
    };
    EXPECT_EQ(pictures(L"\U0001F1E9\U0001F1EA"), 1) << "a flag";
    EXPECT_EQ(pictures(L"\U0001F44D\U0001F3FD"), 1) << "a colour of skin";
    EXPECT_EQ(pictures(L"\U0001F468\u200D\U0001F469\u200D\U0001F467"), 1) << "a family";
    EXPECT_EQ(pictures(L"1\uFE0F\u20E3"), 1) << "a key";
}

TEST(Shaping, whatIsNoCharacterIsShownAsOne)
{
    const auto shaper = open(L"DejaVu Sans");
    const Line wanted = shaper->shape(L"a\uFFFDb");
    for (const std::uint32_t bad :
         {0xD800U, 0xDBFFU, 0xDC80U, 0xDFFFU, 0x110000U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        const std::wstring text{L'a', static_cast<wchar_t>(bad), L'b'};
        EXPECT_EQ(glyphsOf(shaper->shape(text)), glyphsOf(wanted)) << std::hex << bad;
    }
    const std::wstring withNull(L"a\0b", 3);
    for (const std::wstring& text : {withNull, std::wstring(L"a\nb"), std::wstring(L"a\tb"),
                                     std::wstring(L"a\u0085b"), std::wstring(L"a\u2028b")}) {
        EXPECT_EQ(glyphsOf(shaper->shape(text)), glyphsOf(shaper->shape(L"a b")));
    }
}

TEST(Shaping, oddSequencesGiveLinesToo)
{
    const auto shaper = open(L"DejaVu Sans");
    std::wstring tower = L"e";
    tower.append(2000, L'\u0301');
    const std::wstring embeddings(500, L'\u202B');
    for (const std::wstring& text :
         {std::wstring(L"\u0301"), std::wstring(L"\u200D"), std::wstring(L"\uFE0F"), std::wstring(L"\u202E"),
          std::wstring(L"\U0001F1E9"), std::wstring(L"\u0644"), tower, embeddings + L"abc",
          std::wstring(L"\uFDFA\uFDFD"), std::wstring(L"\uFFFE\uFFFF\U0010FFFF\uE000")}) {
        EXPECT_GE(shaper->shape(text).width, 0);
    }
}

TEST(Shaping, refusesTextBeyondItsBound)
{
    const auto shaper = open(L"DejaVu Sans Mono", 10);
    EXPECT_EQ(shaper->shape(std::wstring(TextShaper::longestLine, L'x')).glyphs.size(),
              TextShaper::longestLine);
    EXPECT_TRUE(shaper->shape(std::wstring(TextShaper::longestLine + 1, L'x')).glyphs.empty());
    EXPECT_TRUE(shaper->shape(std::wstring(1'000'000, L'\u0628')).glyphs.empty());
}

TEST(Shaping, manyThreadsGetWhatOneGets)
{
    const auto shared = open(L"DejaVu Serif");
    const std::wstring text = L"Take 7 \u05D0\u05D1 \u65E5\u672C \U0001F600 \u0628\u0628";
    const Line wanted = shared->shape(text);
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 5; ++i) {
                const auto own = Host::Text::openTypeface(L"DejaVu Serif", 40, 0);
                for (TextShaper* shaper : {shared.get(), own.get()}) {
                    const Line line = shaper->shape(text);
                    wrong += line.width != wanted.width || glyphsOf(line) != glyphsOf(wanted);
                    for (const PlacedGlyph& placed : line.glyphs) {
                        static_cast<void>(placed.face->draw(placed.glyph, 0));
                    }
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}

TEST(Faces, drawGlyphsAtQuartersOfAPixel)
{
    const auto shaper = open(L"DejaVu Sans");
    const PlacedGlyph placed = shaper->shape(L"l").glyphs.at(0);
    const auto centre = [&](unsigned phase) {
        const Host::Text::GlyphBitmap bitmap = placed.face->draw(placed.glyph, phase);
        double sum = 0;
        double weighted = 0;
        for (std::size_t i = 0; i < bitmap.texels.size(); i += 4) {
            const auto x = static_cast<double>(i / 4 % static_cast<std::size_t>(bitmap.width));
            sum += bitmap.texels[i];
            weighted += bitmap.texels[i] * (bitmap.left + x);
        }
        return weighted / sum;
    };
    for (unsigned phase = 1; phase < Host::Text::Face::phases; ++phase) {
        EXPECT_NEAR(centre(phase) - centre(0), 0.25 * phase, 0.05);
    }
}

TEST(Faces, pixelsLieWithinTheExtent)
{
    for (const wchar_t* typeface : {L"DejaVu Sans", L"DejaVu Serif", L"Noto Color Emoji"}) {
        for (const int size : {7, 40, 200}) {
            for (const int style : {0, 3}) {
                const auto shaper = Host::Text::openTypeface(typeface, size, style);
                ASSERT_NE(shaper, nullptr);
                for (const PlacedGlyph& placed : shaper->shape(L"fjW\u0416g\u0628\U0001F600").glyphs) {
                    const Host::Text::GlyphExtent bound = placed.face->extentOf(placed.glyph);
                    const Host::Text::GlyphBitmap bitmap = placed.face->draw(placed.glyph, 3);
                    if (bitmap.width > 0) {
                        EXPECT_LE(bound.left, bitmap.left);
                        EXPECT_GE(bound.top, bitmap.top);
                        EXPECT_GE(bound.left + bound.width, bitmap.left + bitmap.width);
                        EXPECT_LE(bound.top - bound.height, bitmap.top - bitmap.height);
                    }
                }
            }
        }
    }
}

} // namespace
} // namespace Qx::FontTests
