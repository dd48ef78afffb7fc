#include "tests/host/gpu/GpuFixture.h"
#include "tests/pixels/Judge.h"

#include "platform/Font.h"
#include "platform/Text.h"

#include <fontconfig/fontconfig.h>

#include <cstring>
#include <memory>

// Pages of text against pictures that people have looked at. When a page is to look otherwise, the test
// leaves the new one behind; look at it, and put it into pages/.

namespace Qx::FontTests {
namespace {

using GpuTests::Bytes;
using Pixels::Picture;

/// Each version of the installed emoji draws them anew: "2.042" in Debian 12, "2.051" in Debian 13.
std::string emojiVersion()
{
    const std::unique_ptr<FcPattern, void (*)(FcPattern*)> wanted(
        FcPatternBuild(nullptr, FC_FAMILY, FcTypeString, "Noto Color Emoji", nullptr), FcPatternDestroy);
    const std::unique_ptr<FcObjectSet, void (*)(FcObjectSet*)> properties(
        FcObjectSetBuild(FC_FONTVERSION, nullptr), FcObjectSetDestroy);
    const std::unique_ptr<FcFontSet, void (*)(FcFontSet*)> found(
        FcFontList(nullptr, wanted.get(), properties.get()), FcFontSetDestroy);
    int version = 0; // 16 bits behind the point
    if (found->nfont == 0 ||
        FcPatternGetInteger(found->fonts[0], FC_FONTVERSION, 0, &version) != FcResultMatch) {
        return "none";
    }
    constexpr double one = 65536;
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.3f", version / one);
    return text.data();
}

struct TextLine
{
    const wchar_t* typeface;
    int size;
    int style;
    const wchar_t* text;
};

const NormalisedRGB white{1, 1, 1, 1};

class Page : public GpuTests::GpuTest
{
protected:
    static constexpr int margin = 12;

    /// The lines, one below the other.
    void expectPage(const std::string& name, XY<int> size, const std::vector<TextLine>& lines,
                    const NormalisedRGB& colour = white)
    {
        const Qx::Ptr<iGPUImage> image =
            upload(size, iGPUImage::eARGB8, GpuTests::filled(size, {255, 24, 40, 64}));
        int y = margin;
        for (const TextLine& line : lines) {
            const Qx::Ptr<iFont> font = gpu().createFont(line.typeface, line.size, line.style);
            ASSERT_TRUE(font) << GpuTests::takeLog();
            ASSERT_TRUE(font->draw(image, line.text, {margin, y}, colour)) << GpuTests::takeLog();
            y += font->measure(line.text).y;
        }
        compare(name, size, download(image));
    }

private:
    static void compare(const std::string& name, XY<int> size, const Bytes& bytes)
    {
        ASSERT_FALSE(bytes.empty());
        Picture got = Picture::blank(name, Pixels::Layout::Rgb, size.x, size.y, 8);
        for (std::size_t i = 0; i < bytes.size(); i += 4) {
            const std::array<std::uint16_t, 4> rgba{bytes[i + 1], bytes[i + 2], bytes[i + 3], bytes[i]};
            std::copy(rgba.begin(), rgba.end(), got.codes.begin() + static_cast<std::ptrdiff_t>(i));
        }
        const auto wanted = Pixels::readPng(QX_FONTS_FOLDER "/pages/" + name + ".png");
        if (!wanted || wanted->width != size.x || wanted->height != size.y) {
            FAIL() << "there is no picture " << name << ".png of that size to compare with; "
                   << Pixels::leaveBehind(name, got, got);
        }
        std::string where;
        EXPECT_LE(Pixels::farthestApart(got, *wanted, 0, where), 2)
            << where << "; " << Pixels::leaveBehind(name, got, *wanted);
    }
};

TEST_F(Page, latinAtSeveralSizesAndStyles)
{
    const wchar_t* text = L"Hamburgefonstiv AVATAR 0123456789 \"quoted\" fi ffl";
    expectPage("latin", {900, 330},
               {{L"DejaVu Sans", 12, 0, text},
                {L"DejaVu Sans", 18, 0, text},
                {L"DejaVu Sans", 27, 0, text},
                {L"DejaVu Sans", 27, iFont::Bold, text},
                {L"DejaVu Sans", 27, iFont::Italic, text},
                {L"DejaVu Serif", 27, 0, text},
                {L"DejaVu Serif", 27, iFont::Bold | iFont::Italic, L"Made bold and slanted: Hamburgefonstiv"},
                {L"DejaVu Sans Mono", 27, 0, L"01:23:45;29  0000123"}});
}

TEST_F(Page, marksOnTheirLetters)
{
    expectPage(
        "marks", {700, 200},
        {{L"DejaVu Sans", 40, 0, L"e\u0301 a\u0308\u0304 Z\u030C n\u0303 g\u0307\u0323 \u1E69 o\u0302\u0301"},
         {L"DejaVu Sans", 40, 0,
          L"\u0416\u0301 \u03B1\u0345\u0301 \u05E9\u05C1\u05B8\u05DC\u05D5\u05B9\u05DD"},
         {L"DejaVu Serif", 40, 0, L"Vie\u0323\u0302t  Vi\u1EC7t"}});
}

TEST_F(Page, bothDirectionsOfWriting)
{
    expectPage(
        "directions", {800, 330},
        {{L"DejaVu Sans", 36, 0,
          L"\u0645\u0631\u062D\u0628\u0627 \u0628\u0627\u0644\u0639\u0627\u0644\u0645"},
         {L"DejaVu Sans", 36, 0, L"\u05E9\u05DC\u05D5\u05DD \u05E2\u05D5\u05DC\u05DD (123)"},
         {L"DejaVu Sans", 36, 0, L"Take 12: \u0645\u0634\u0647\u062F 34 (\u05E1\u05E6\u05E0\u05D4) end"},
         {L"DejaVu Sans", 36, 0,
          L"\u0627\u0644\u0645\u0634\u0647\u062F 12 - Scene A-7 - \u0646\u0647\u0627\u064A\u0629"},
         {L"DejaVu Serif", 36, 0,
          L"Serif, then \u0644\u0627 \u0627\u0644\u0633\u0644\u0627\u0645 from another face"},
         {L"DejaVu Sans", 36, 0,
          L"\u0628\u0650\u0633\u0652\u0645\u0650 \u0627\u0644\u0644\u0651\u064E\u0647\u0650"}});
}

TEST_F(Page, ideographsAndPicturesInColour)
{
    expectPage(
        "cjk-emoji-" + emojiVersion(), {800, 300},
        {{L"DejaVu Sans", 36, 0,
          L"\u65E5\u672C\u8A9E\u306E\u30C6\u30B9\u30C8 \u4E2D\u6587 \uD55C\uAD6D\uC5B4 mixed"},
         {L"DejaVu Sans", 36, 0,
          L"Take \U0001F3AC \U0001F600 \u2764\uFE0F \u2764\uFE0E ok \U0001F44D\U0001F3FD"},
         {L"DejaVu Sans", 36, 0,
          L"\U0001F468\u200D\U0001F469\u200D\U0001F467 \U0001F1E9\U0001F1EA 1\uFE0F\u20E3 family, flag, key"},
         {L"Noto Color Emoji", 72, 0, L"\U0001F3A5\U0001F39E\uFE0F\U0001F3AC"}});
}

TEST_F(Page, translucentTextShowsNoSeams)
{
    expectPage("translucent-" + emojiVersion(), {700, 180},
               {{L"DejaVu Sans", 60, iFont::Italic, L"WAVAVA \u0633\u0644\u0627\u0645 e\u0338\u0336"},
                {L"DejaVu Sans", 60, 0, L"half \U0001F600 opaque"}},
               {1.0F, 0.9F, 0.3F, 0.5F});
}

} // namespace
} // namespace Qx::FontTests
