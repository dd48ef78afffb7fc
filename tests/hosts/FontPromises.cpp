#include "Pixels.h"

#include <platform/GPUService.h>
#include <platform/GraphicPrimitives.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <vector>

namespace Qx::HostTests {

namespace {

Ptr<iFont> fontOf(const Kit& kit, int size = 24)
{
    const Ptr<iFont> font =
        kit.services.os().gpu().createFont(LightweightString<wchar_t>(kit.host.typeface.c_str()), size, 0);
    EXPECT_TRUE(font) << "createFont() fails; HostUnderTest::typeface names the typeface";
    return font;
}

/// A black, opaque picture.
Ptr<iGPUImage> blackPicture(const Kit& kit, XY<int> size)
{
    std::vector<unsigned char> bytes;
    for (int i = 0; i < size.x * size.y; ++i) {
        bytes.insert(bytes.end(), {255, 0, 0, 0});
    }
    return uploaded(kit, size, bytes);
}

constexpr NormalisedRGB white{1.0F, 1.0F, 1.0F, 1.0F};

void impossibleFontsAreRefused(const Kit& kit)
{
    iGPUService& gpu = kit.services.os().gpu();
    const LightweightString<wchar_t> typeface(kit.host.typeface.c_str());
    EXPECT_FALSE(gpu.createFont({}, 24, 0)) << "an empty name";
    EXPECT_FALSE(gpu.createFont(typeface, 0, 0)) << "size 0";
    EXPECT_FALSE(gpu.createFont(typeface, -5, 0)) << "a negative size";
    EXPECT_FALSE(gpu.createFont(typeface, std::numeric_limits<int>::max(), 0)) << "a size too large";
}

void filesThatAreNoFontsAreRefused(const Kit& kit)
{
    const std::filesystem::path file = makeDirectory(kit, "fonts") / "none.ttf";
    writeFile(file, "this is no font");
    EXPECT_FALSE(kit.services.os().gpu().createFont(asText(kit, file), 24, 0));
}

void theLineHeightIsTheTypefaces(const Kit& kit)
{
    const Ptr<iFont> font = fontOf(kit);
    ASSERT_TRUE(font);
    EXPECT_EQ(font->measure(L"x").y, font->measure(L"Mgjpqy|").y);
    EXPECT_GT(font->measure(L"x").y, 0);
}

void longerTextsAreWider(const Kit& kit)
{
    const Ptr<iFont> font = fontOf(kit);
    ASSERT_TRUE(font);
    EXPECT_GT(font->measure(L"MM").x, font->measure(L"M").x);
    EXPECT_GT(font->measure(L"M").x, 0);
    EXPECT_EQ(font->measure({}).x, 0);
}

void largerFontsAreLarger(const Kit& kit)
{
    const Ptr<iFont> small = fontOf(kit, 12);
    const Ptr<iFont> large = fontOf(kit, 48);
    ASSERT_TRUE(small && large);
    EXPECT_GT(large->measure(L"Mx").x, small->measure(L"Mx").x);
    EXPECT_GT(large->measure(L"Mx").y, small->measure(L"Mx").y);
}

void textIsDrawn(const Kit& kit)
{
    const Ptr<iFont> font = fontOf(kit);
    const Ptr<iGPUImage> picture = blackPicture(kit, {64, 64});
    ASSERT_TRUE(font && picture);
    ASSERT_TRUE(font->draw(picture, L"MM", {4, 4}, {1.0F, 0.0F, 0.0F, 1.0F}));
    const std::vector<unsigned char> bytes = downloaded(kit, picture);
    ASSERT_EQ(bytes.size(), 4U * 64U * 64U);
    int brightest = 0;
    int green = 0;
    for (std::size_t i = 0; i < bytes.size(); i += 4) {
        brightest = std::max<int>(brightest, bytes[i + 1]);
        green = std::max<int>(green, bytes[i + 2]);
    }
    EXPECT_GT(brightest, 128) << "red text";
    EXPECT_EQ(green, 0) << "the text has the colour";
    expectTexel(bytes, 63 * 64 + 63, {255, 0, 0, 0}, "far from the text");
}

void textIsClipped(const Kit& kit)
{
    const Ptr<iFont> font = fontOf(kit);
    const Ptr<iGPUImage> picture = blackPicture(kit, {16, 16});
    ASSERT_TRUE(font && picture);
    EXPECT_TRUE(font->draw(picture, L"MMMMMM", {-20, -4}, white));
    EXPECT_TRUE(font->draw(picture, L"M", {1000, 1000}, white)) << "outside";
}

void drawingTextNeedsATarget(const Kit& kit)
{
    const Ptr<iFont> font = fontOf(kit);
    ASSERT_TRUE(font);
    EXPECT_FALSE(font->draw({}, L"M", {0, 0}, white));
}

void coloursAreFinite(const Kit& kit)
{
    const Ptr<iFont> font = fontOf(kit);
    const Ptr<iGPUImage> picture = blackPicture(kit, {16, 16});
    ASSERT_TRUE(font && picture);
    EXPECT_FALSE(font->draw(picture, L"M", {0, 0}, {std::numeric_limits<float>::quiet_NaN(), 0, 0, 1}));
    EXPECT_FALSE(font->draw(picture, L"M", {0, 0}, {0, 0, 0, std::numeric_limits<float>::infinity()}));
}

} // namespace

Promises fontPromises()
{
    return {
        {"Fonts", "AreRefusedIfImpossible", impossibleFontsAreRefused,
         "platform/GPUService.h: createFont(): empty if the name is empty or the size is not positive",
         Feature::Fonts},
        {"Fonts", "AreRefusedIfTheFileIsNone", filesThatAreNoFontsAreRefused,
         "platform/GPUService.h: createFont(): empty if the file is not a font", Feature::Fonts},
        {"Fonts", "HaveOneLineHeight", theLineHeightIsTheTypefaces,
         "platform/Font.h: the line height of the typeface does not depend on the text", Feature::Fonts},
        {"Fonts", "MeasureTheAdvance", longerTextsAreWider,
         "platform/Font.h: measure(): the advance of the pen", Feature::Fonts},
        {"Fonts", "HaveTheirSize", largerFontsAreLarger,
         "platform/GPUService.h: createFont(): the em size in pixels", Feature::Fonts},
        {"Fonts", "Draw", textIsDrawn, "platform/Font.h: draws a line of text over the target's contents",
         Feature::Fonts},
        {"Fonts", "Clip", textIsClipped, "platform/Font.h: parts outside the target are clipped",
         Feature::Fonts},
        {"Fonts", "NeedATarget", drawingTextNeedsATarget,
         "platform/Font.h: draw() returns false if there is no target", Feature::Fonts},
        {"Fonts", "NeedAFiniteColour", coloursAreFinite,
         "platform/Font.h: draw() returns false if a component of `colour` is not finite", Feature::Fonts},
    };
}

} // namespace Qx::HostTests
