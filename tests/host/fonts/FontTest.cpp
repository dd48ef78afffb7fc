#include "tests/host/gpu/GpuFixture.h"

#include "platform/Font.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <limits>
#include <thread>

namespace Qx::FontTests {
namespace {

using GpuTests::Bytes;
using Host::GPUService;
using Host::GPUStatistics;
using testing::HasSubstr;

const NormalisedRGB white{1, 1, 1, 1};
const XY<int> size{160, 48};

class Fonts : public GpuTests::GpuTest
{
protected:
    Qx::Ptr<iFont> font(const wchar_t* typeface = L"DejaVu Sans", int pixels = 24)
    {
        Qx::Ptr<iFont> made = gpu().createFont(typeface, pixels, 0);
        EXPECT_TRUE(made) << GpuTests::takeLog();
        return made;
    }

    Qx::Ptr<iGPUImage> black(XY<int> extent = size)
    {
        return upload(extent, iGPUImage::eARGB8, GpuTests::filled(extent, {255, 0, 0, 0}));
    }

    static std::size_t linesIn(const std::string& log)
    {
        return static_cast<std::size_t>(std::count(log.begin(), log.end(), '\n'));
    }
};

TEST_F(Fonts, measuresALine)
{
    const Qx::Ptr<iFont> small = font(L"DejaVu Sans", 20);
    const Qx::Ptr<iFont> large = font(L"DejaVu Sans", 40);
    EXPECT_NEAR(large->measure(L"Hamburgefonstiv").x, 2 * small->measure(L"Hamburgefonstiv").x, 2);
    EXPECT_EQ(small->measure(L"x").y, small->measure(L"Agj\u00C5").y) << "of the typeface, not of the text";
    EXPECT_GT(small->measure(L"x").y, 20);
    EXPECT_LT(small->measure(L"x").y, 32);
    EXPECT_EQ(small->measure(L"").x, 0);
}

TEST_F(Fonts, drawsWithinWhatItMeasures)
{
    const Qx::Ptr<iGPUImage> image = black();
    const Qx::Ptr<iFont> sans = font();
    const XY<int> box = sans->measure(L"Hxg0");
    ASSERT_TRUE(sans->draw(image, L"Hxg0", {20, 10}, white));
    const Bytes bytes = download(image);
    int lit = 0;
    for (int y = 0; y < size.y; ++y) {
        for (int x = 0; x < size.x; ++x) {
            if (GpuTests::at(bytes, size, x, y, 1) > 0) {
                ++lit;
                EXPECT_TRUE(x >= 20 && x < 20 + box.x && y >= 10 && y < 10 + box.y) << x << "," << y;
            }
        }
    }
    EXPECT_GT(lit, 200);
}

TEST_F(Fonts, whatLiesOutsideTheTargetIsLeftOut)
{
    const XY<int> extent{64, 40};
    const XY<int> large{3 * extent.x, 3 * extent.y};
    const Qx::Ptr<iFont> sans = font();
    for (const XY<int> corner : {XY<int>{-30, 5}, XY<int>{40, 5}, XY<int>{5, -12}, XY<int>{5, 25},
                                 XY<int>{-40, -15}, XY<int>{-300, 0}, XY<int>{65, 0}}) {
        const Qx::Ptr<iGPUImage> part = black(extent);
        const Qx::Ptr<iGPUImage> whole = black(large);
        ASSERT_TRUE(sans->draw(part, L"Wide text \U0001F600", corner, white));
        ASSERT_TRUE(
            sans->draw(whole, L"Wide text \U0001F600", {corner.x + extent.x, corner.y + extent.y}, white));
        const Bytes small = download(part);
        const Bytes all = download(whole);
        for (int y = 0; y < extent.y; ++y) {
            for (int x = 0; x < extent.x; ++x) {
                ASSERT_EQ(GpuTests::at(small, extent, x, y, 1),
                          GpuTests::at(all, large, x + extent.x, y + extent.y, 1))
                    << corner.x << "," << corner.y << " at " << x << "," << y;
            }
        }
    }
    const Qx::Ptr<iGPUImage> image = black();
    const Bytes before = download(image);
    for (const int far : {INT_MIN, INT_MAX}) {
        EXPECT_TRUE(sans->draw(image, L"far", {far, 0}, white));
        EXPECT_TRUE(sans->draw(image, L"far", {0, far}, white));
    }
    EXPECT_EQ(download(image), before);
}

TEST_F(Fonts, badCallsAreRefusedWithOneLineOfTheLog)
{
    const Qx::Ptr<iFont> sans = font();
    const Qx::Ptr<iGPUImage> image = black();
    const Bytes before = download(image);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    GPUService other;
    const Qx::Ptr<iGPUImage> foreign = other.createGPUImage({8, 8}, iGPUImage::eARGB8);
    GpuTests::takeLog();
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(sans->draw({}, L"x", {0, 0}, white));
        EXPECT_FALSE(sans->draw(foreign, L"x", {0, 0}, white));
        EXPECT_FALSE(sans->draw(image, L"x", {0, 0}, {nan, 0, 0, 1}));
        EXPECT_FALSE(sans->draw(image, L"x", {0, 0}, {0, 0, 0, INFINITY}));
        const LightweightString<wchar_t> huge(std::wstring(1'000'000, L'x'));
        EXPECT_FALSE(sans->draw(image, huge, {0, 0}, white));
        EXPECT_EQ(sans->measure(huge).x, 0);
    }
    const std::string log = GpuTests::takeLog();
    EXPECT_EQ(linesIn(log), 3U) << log;
    EXPECT_THAT(log, HasSubstr("the target is missing"));
    EXPECT_THAT(log, HasSubstr("its colour is not a number"));
    EXPECT_THAT(log, HasSubstr("a text of 1000000 characters"));
    EXPECT_EQ(download(image), before);
}

TEST_F(Fonts, coloursAreHeldToWhatThereIs)
{
    const Qx::Ptr<iFont> sans = font();
    const Qx::Ptr<iGPUImage> image = black();
    const Qx::Ptr<iGPUImage> wanted = black();
    ASSERT_TRUE(sans->draw(image, L"x", {0, 0}, {7.0F, -3.0F, 1.0F, 2.0F}));
    ASSERT_TRUE(sans->draw(wanted, L"x", {0, 0}, {1.0F, 0.0F, 1.0F, 1.0F}));
    EXPECT_EQ(download(image), download(wanted));
    EXPECT_TRUE(sans->draw(image, L"", {0, 0}, white));
    EXPECT_TRUE(sans->draw(image, L"   ", {0, 0}, white));
    EXPECT_TRUE(sans->draw(image, L"x", {0, 0}, {1, 1, 1, 0}));
    EXPECT_EQ(download(image), download(wanted));
}

TEST_F(Fonts, glyphsAreMadeOnce)
{
    const Qx::Ptr<iFont> sans = font();
    const Qx::Ptr<iGPUImage> image = black();
    ASSERT_TRUE(sans->draw(image, L"00:00:00:00", {0, 0}, white));
    ASSERT_TRUE(sans->draw(image, L"0123456789:0123456789:", {0, 0}, white));
    const std::uint64_t after = gpu().statistics().glyphsUploaded;
    EXPECT_GT(after, 0U);
    for (int i = 0; i < 50; ++i) {
        ASSERT_TRUE(sans->draw(image, L"0123456789:0123456789:", {0, i % 20}, white));
    }
    EXPECT_EQ(gpu().statistics().glyphsUploaded, after);
}

TEST_F(Fonts, tenThousandStringsLeaveMemoryBounded)
{
    constexpr std::uint64_t pages = 32U << 20;
    const Qx::Ptr<iGPUImage> image = black();
    std::vector<Qx::Ptr<iFont>> fonts;
    for (const int pixels : {20, 33, 47}) {
        fonts.push_back(font(L"WenQuanYi Micro Hei", pixels));
    }
    for (int i = 0; i < 10'000; ++i) {
        std::wstring text = std::to_wstring(i) + L' ';
        for (int c = 0; c < 3; ++c) {
            text += static_cast<wchar_t>(0x4E00 + (i * 3 + c) % 20'000);
        }
        ASSERT_TRUE(fonts[static_cast<std::size_t>(i) % fonts.size()]->draw(
            image, LightweightString<wchar_t>(std::wstring_view(text)), {i % 7 - 3, i % 5}, white));
        if (i % 1000 == 999) {
            const GPUStatistics now = gpu().statistics();
            ASSERT_LE(now.glyphPageBytes, pages);
            ASSERT_LE(now.liveImageBytes, pages + (1U << 20));
        }
    }
    EXPECT_GT(gpu().statistics().glyphsUploaded, 20'000U);
    EXPECT_EQ(gpu().statistics().glyphPageBytes, pages) << "the bound was reached";
    const Bytes drawn = download(image);
    EXPECT_TRUE(std::any_of(drawn.begin(), drawn.end(), [](std::uint8_t b) { return b > 0 && b < 255; }));
}

TEST_F(Fonts, aLineMayHaveMoreGlyphsThanThePagesHold)
{
    // Each of these glyphs takes a page by itself, and there are eight.
    const Qx::Ptr<iFont> huge = font(L"WenQuanYi Micro Hei", 600);
    std::wstring text;
    for (int i = 0; i < 12; ++i) {
        text += static_cast<wchar_t>(0x9B31 + i);
    }
    const XY<int> extent{12 * 600, 600};
    const Qx::Ptr<iGPUImage> line = black(extent);
    const Qx::Ptr<iGPUImage> single = black(extent);
    ASSERT_TRUE(huge->draw(line, LightweightString<wchar_t>(std::wstring_view(text)), {0, 0}, white))
        << GpuTests::takeLog();
    for (int i = 0; i < 12; ++i) {
        ASSERT_TRUE(huge->draw(
            single,
            LightweightString<wchar_t>(std::wstring_view(text).substr(static_cast<std::size_t>(i), 1)),
            {i * 600, 0}, white));
    }
    EXPECT_EQ(download(line), download(single));
}

TEST_F(Fonts, severalThreadsMakeAndDrawAtOnce)
{
    const Qx::Ptr<iGPUImage> wanted = black();
    const wchar_t* text = L"Thread \u05D0\u05D1 \U0001F600";
    ASSERT_TRUE(font()->draw(wanted, text, {2, 3}, white));
    const Bytes bytes = download(wanted);
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 10; ++i) {
                const Qx::Ptr<iFont> own = gpu().createFont(L"DejaVu Sans", 24, 0);
                const Qx::Ptr<iGPUImage> image = black();
                wrong += !own || !own->draw(image, text, {2, 3}, white) || download(image) != bytes;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
}

TEST_F(Fonts, refusedMemoryIsAFailureAndNothingMore)
{
    const Qx::Ptr<iFont> sans = font();
    const Qx::Ptr<iGPUImage> image = black();
    const Qx::Ptr<iGPUImage> wanted = black();
    const Bytes before = download(image);
    gpu().failAllocations(0, 1000);
    EXPECT_FALSE(sans->draw(image, L"memory", {0, 0}, white));
    gpu().failAllocations(0, 0);
    EXPECT_EQ(download(image), before);
    // Refused at every step once: what is drawn later is whole.
    for (std::uint64_t step = 0; step < 6; ++step) {
        gpu().trim();
        gpu().failAllocations(step, 2);
        const Qx::Ptr<iFont> other = gpu().createFont(L"DejaVu Serif", 20 + static_cast<int>(step), 0);
        if (other) {
            static_cast<void>(other->draw(image, L"step", {0, 0}, {0, 0, 0, 1}));
        }
        gpu().failAllocations(0, 0);
    }
    const Qx::Ptr<iGPUImage> again = black();
    ASSERT_TRUE(sans->draw(again, L"memory", {0, 0}, white));
    ASSERT_TRUE(font()->draw(wanted, L"memory", {0, 0}, white));
    EXPECT_EQ(download(again), download(wanted));
}

TEST_F(Fonts, badRequestsMakeNoFont)
{
    for (const auto& [typeface, pixels] :
         {std::pair(L"", 20), std::pair(L"DejaVu Sans", 0), std::pair(L"DejaVu Sans", -7),
          std::pair(L"DejaVu Sans", INT_MAX), std::pair(L"/dev/zero", 20), std::pair(L"/no/such.ttf", 20)}) {
        GpuTests::takeLog();
        EXPECT_FALSE(gpu().createFont(typeface, pixels, 0));
        const std::string log = GpuTests::takeLog();
        EXPECT_EQ(linesIn(log), 1U) << log;
    }
    EXPECT_TRUE(gpu().createFont(L"DejaVu Sans", 20, -1)) << "flags that nobody knows";
}

TEST_F(Fonts, aFontThatOutlivesTheDeviceIsAHusk)
{
    const Qx::Ptr<iFont> sans = font();
    const Qx::Ptr<iGPUImage> image = black();
    ASSERT_TRUE(sans->draw(image, L"alive", {0, 0}, white));
    const int width = sans->measure(L"alive").x;
    gpu().shutdown();
    EXPECT_FALSE(sans->draw(image, L"alive", {0, 0}, white));
    EXPECT_EQ(sans->measure(L"alive").x, width);
    EXPECT_FALSE(gpu().createFont(L"DejaVu Sans", 24, 0));
}

TEST(FontLives, aFontMayBeReleasedAfterItsServiceIsGone)
{
    Qx::Ptr<iFont> kept;
    {
        GPUService service;
        kept = service.createFont(L"DejaVu Sans", 24, 0);
        ASSERT_TRUE(kept);
        const Qx::Ptr<iGPUImage> image = service.createGPUImage({32, 32}, iGPUImage::eARGB8);
        ASSERT_TRUE(kept->draw(image, L"x", {0, 0}, white));
    }
    EXPECT_GT(kept->measure(L"x").x, 0);
    static Qx::Ptr<iFont> untilTheEnd;
    untilTheEnd = kept;
}

TEST_F(Fonts, aLostDeviceDrawsNoText)
{
    const Qx::Ptr<iFont> sans = font();
    const Qx::Ptr<iGPUImage> image = black();
    gpu().loseDevice();
    EXPECT_FALSE(sans->draw(image, L"lost", {0, 0}, white));
    EXPECT_FALSE(gpu().createFont(L"DejaVu Sans", 24, 0));
}

} // namespace
} // namespace Qx::FontTests
