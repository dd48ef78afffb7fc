#include "tests/pixels/Reference.h"
#include "tests/pixels/Judge.h"
#include "tests/pixels/Zimg.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <set>

namespace Qx::Pixels {
namespace {

using Codes = std::array<int, 3>;

/// Y, Cb and Cr of one colour at 8 bits, from full-range RGB.
Codes encodedColour(Matrix matrix, const Codes& rgb)
{
    Picture pixel = Picture::blank("pixel", Layout::Rgb, 1, 1, 8);
    for (int i = 0; i < 3; ++i)
        pixel.at(0, 0, i) = static_cast<std::uint16_t>(rgb[static_cast<std::size_t>(i)]);
    const auto exact =
        exactConversion({Direction::Encode, Range::Full, Range::Video, matrix, Filter::Point}, pixel, 8);
    return {static_cast<int>(std::lround(exact[0])), static_cast<int>(std::lround(exact[1])),
            static_cast<int>(std::lround(exact[3]))};
}

TEST(Reference, GivesThePublishedCodesOfBt709ColourBars)
{
    EXPECT_EQ(encodedColour(Matrix::Bt709, {255, 255, 255}), (Codes{235, 128, 128}));
    EXPECT_EQ(encodedColour(Matrix::Bt709, {255, 255, 0}), (Codes{219, 16, 138}));
    EXPECT_EQ(encodedColour(Matrix::Bt709, {0, 255, 255}), (Codes{188, 154, 16}));
    EXPECT_EQ(encodedColour(Matrix::Bt709, {0, 255, 0}), (Codes{173, 42, 26}));
    EXPECT_EQ(encodedColour(Matrix::Bt709, {255, 0, 255}), (Codes{78, 214, 230}));
    EXPECT_EQ(encodedColour(Matrix::Bt709, {255, 0, 0}), (Codes{63, 102, 240}));
    EXPECT_EQ(encodedColour(Matrix::Bt709, {0, 0, 255}), (Codes{32, 240, 118}));
    EXPECT_EQ(encodedColour(Matrix::Bt709, {0, 0, 0}), (Codes{16, 128, 128}));
}

TEST(Reference, GivesThePublishedCodesOfBt601ColourBars)
{
    EXPECT_EQ(encodedColour(Matrix::Bt601, {255, 255, 0}), (Codes{210, 16, 146}));
    EXPECT_EQ(encodedColour(Matrix::Bt601, {0, 255, 255}), (Codes{170, 166, 16}));
    EXPECT_EQ(encodedColour(Matrix::Bt601, {0, 255, 0}), (Codes{145, 54, 34}));
    EXPECT_EQ(encodedColour(Matrix::Bt601, {255, 0, 255}), (Codes{106, 202, 222}));
    EXPECT_EQ(encodedColour(Matrix::Bt601, {255, 0, 0}), (Codes{81, 90, 240}));
    EXPECT_EQ(encodedColour(Matrix::Bt601, {0, 0, 255}), (Codes{41, 240, 110}));
}

TEST(Reference, DecodesWhatItEncodes)
{
    for (const Matrix matrix : {Matrix::Bt601, Matrix::Bt709}) {
        Picture source = Picture::blank("grid", Layout::Rgb, 2 * 216, 1, 16);
        for (int i = 0; i < 216; ++i) {
            for (int half = 0; half < 2; ++half) {
                for (int component = 0, digits = i; component < 3; ++component, digits /= 6)
                    source.at(2 * i + half, 0, component) = static_cast<std::uint16_t>(digits % 6 * 13107);
            }
        }
        const auto middle =
            exactConversion({Direction::Encode, Range::Full, Range::Full, matrix, Filter::Point}, source, 16);
        const Picture packed =
            rounded(Picture::blank("packed", Layout::Packed422, source.width, 1, 16), middle);
        const auto back =
            exactConversion({Direction::Decode, Range::Full, Range::Full, matrix, Filter::Point}, packed, 16);
        for (int x = 0; x < source.width; ++x) {
            for (int component = 0; component < 3; ++component) {
                EXPECT_NEAR(back[static_cast<std::size_t>(4 * x + component)], source.at(x, 0, component),
                            2.0)
                    << "pixel " << x << ", component " << component;
            }
        }
    }
}

TEST(Reference, KeepsFlatColourFlatWithEveryFilter)
{
    for (const Conversion& conversion : allConversions()) {
        const bool decode = conversion.direction == Direction::Decode;
        Picture flat = Picture::blank("flat", decode ? Layout::Packed422 : Layout::Rgb, 15, 1, 8);
        for (std::size_t i = 0; i < flat.codes.size(); ++i)
            flat.codes[i] = static_cast<std::uint16_t>(std::array{100, 140, 100, 90}[i % 4]);
        const auto exact = exactConversion(conversion, flat, 8);
        for (std::size_t i = 0; i < exact.size(); ++i)
            EXPECT_NEAR(exact[i], exact[i % 4], 1e-9) << conversion.technique() << ", value " << i;
    }
}

TEST(Reference, AgreesWithZimgWithinACode)
{
    for (const int depth : {8, 16}) {
        for (const Conversion& conversion : allConversions()) {
            const Layout layout = conversion.direction == Direction::Decode ? Layout::Packed422 : Layout::Rgb;
            const Picture source = naturalPicture(layout, depth, 160, 40);
            const Picture theirs = convertByZimg(conversion, source);
            ASSERT_GT(theirs.width, 0);
            std::string where;
            EXPECT_LE(farthestApart(theirs, rounded(theirs, exactConversion(conversion, source, depth)),
                                    edgeOfZimg, where),
                      1)
                << conversion.technique() << ", " << where;
        }
    }
}

TEST(Reference, NamesSixtyTechniques)
{
    std::set<std::string> names;
    for (const Conversion& conversion : allConversions())
        names.insert(conversion.technique());
    EXPECT_EQ(names.size(), 60U);
    EXPECT_TRUE(names.contains("YCrCb422_Video_BT709_To_RGB_Unscaled_CatmullRom"));
    EXPECT_TRUE(names.contains("RGB_Unscaled_To_YCrCb422_Video_BT601_Lanczos"));
}

TEST(Judge, CallsOnlyTheNearestCodeRight)
{
    Picture got = Picture::blank("got", Layout::Rgb, 1, 1, 8);
    got.codes = {10, 20, 30, 255};
    const Verdict verdict = judge(got, {10.5, 20.501, 32.2, 255.0});
    EXPECT_EQ(verdict.errors.samples, 3U); // not alpha
    EXPECT_EQ(verdict.errors.misrounded, 2U);
    EXPECT_EQ(verdict.errors.worst, 2);
    EXPECT_EQ(verdict.worstSample, "\"got\" (1 x 1, 8 bits), pixel 0, row 0, B: 30 for 32.2");
}

} // namespace
} // namespace Qx::Pixels
