#include "host/gpu/FloatImages.h"
#include "tests/host/gpu/GpuFixture.h"

#include <array>
#include <cmath>
#include <cstring>

namespace Qx::GpuTests {

namespace {

class PrimitivesTest : public GpuTest
{
protected:
    Qx::Ptr<iGPUImage> canvas(XY<int> size, const std::vector<std::uint8_t>& texel)
    {
        return upload(size, iGPUImage::eARGB8, filled(size, texel));
    }

    /// A texel's red is its column, its green its row.
    Qx::Ptr<iGPUImage> addresses(XY<int> size)
    {
        Bytes bytes;
        for (int y = 0; y < size.y; ++y) {
            for (int x = 0; x < size.x; ++x) {
                bytes.insert(bytes.end(),
                             {255, static_cast<std::uint8_t>(x), static_cast<std::uint8_t>(y), 0});
            }
        }
        return upload(size, iGPUImage::eARGB8, bytes);
    }

    template <class Description>
    static bool draw(const Qx::Ptr<iGPUImage>& target, const Description& description)
    {
        const Qx::Ptr<iGraphicPrimitivesRenderer> renderer = target->getPrimitivesRenderer(1);
        return renderer && renderer->draw(description, 1);
    }
};

RectDescription rectangle(RectangleOf<int> area, NormalisedRGB top, NormalisedRGB bottom, int border = 0)
{
    RectDescription d;
    d.area = area;
    d.colour = top;
    d.colour2 = bottom;
    d.border = border;
    return d;
}

ImageDescription stretched(const Qx::Ptr<iGPUImage>& image, RectangleOf<int> source,
                           RectangleOf<int> destination)
{
    ImageDescription d;
    d.image = image;
    d.source = source;
    d.destination = destination;
    return d;
}

ImageDescriptionEx precise(const Qx::Ptr<iGPUImage>& image, RectangleOf<float> source,
                           RectangleOf<float> destination, bool blend)
{
    ImageDescriptionEx d;
    d.image = image;
    d.source = source;
    d.destination = destination;
    d.blend = blend;
    return d;
}

const NormalisedRGB redHalf{1.0F, 0.0F, 0.0F, 128.0F / 255.0F};

} // namespace

TEST_F(PrimitivesTest, ARectangleFillsItsPixelsAndNoOthers)
{
    const XY<int> size{6, 5};
    const Qx::Ptr<iGPUImage> target = canvas(size, {9, 9, 9, 9});
    ASSERT_TRUE(draw(target, rectangle({1, 2, 4, 4}, redHalf, redHalf)));
    const Bytes result = download(target);
    for (int y = 0; y < size.y; ++y) {
        for (int x = 0; x < size.x; ++x) {
            const bool inside = x >= 1 && x < 4 && y >= 2 && y < 4;
            EXPECT_EQ(at(result, size, x, y, 0), inside ? 128 : 9);
            EXPECT_EQ(at(result, size, x, y, 1), inside ? 255 : 9);
            EXPECT_EQ(at(result, size, x, y, 2), inside ? 0 : 9);
            EXPECT_EQ(at(result, size, x, y, 3), inside ? 0 : 9);
        }
    }
}

TEST_F(PrimitivesTest, AWholeTargetIsClearedToTransparentOrOpaqueBlack)
{
    const XY<int> size{3, 2};
    const Qx::Ptr<iGPUImage> target = canvas(size, {9, 9, 9, 9});
    const NormalisedRGB transparent{0.0F, 0.0F, 0.0F, 0.0F};
    ASSERT_TRUE(draw(target, rectangle({0, 0, 3, 2}, transparent, transparent)));
    EXPECT_EQ(download(target), filled(size, {0, 0, 0, 0}));
    const NormalisedRGB opaque{0.0F, 0.0F, 0.0F, 1.0F};
    ASSERT_TRUE(draw(target, rectangle({0, 0, 3, 2}, opaque, opaque)));
    EXPECT_EQ(download(target), filled(size, {255, 0, 0, 0}));
}

TEST_F(PrimitivesTest, ATenBitTargetIsFilledWithoutRotation)
{
    const Qx::Ptr<iGPUImage> target = gpu().createGPUImage({1, 1}, iGPUImage::eARGB10);
    const NormalisedRGB blue{0.0F, 0.0F, 1.0F, 0.0F};
    ASSERT_TRUE(draw(target, rectangle({0, 0, 1, 1}, blue, blue)));
    EXPECT_EQ(download(target), (Bytes{0xff, 0x03, 0x00, 0x00}));
}

TEST_F(PrimitivesTest, AGradientRunsFromTheTopToTheBottomOfItsRectangle)
{
    const XY<int> size{2, 8};
    const Qx::Ptr<iGPUImage> target = canvas(size, {9, 9, 9, 9});
    ASSERT_TRUE(draw(target, rectangle({0, 2, 2, 6}, {0.0F, 1.0F, 0.0F, 1.0F}, {1.0F, 0.0F, 0.0F, 1.0F})));
    const Bytes result = download(target);
    EXPECT_EQ(at(result, size, 0, 1, 1), 9);
    EXPECT_EQ(at(result, size, 0, 6, 1), 9);
    for (int row = 0; row < 4; ++row) {
        const double t = (row + 0.5) / 4;
        EXPECT_NEAR(at(result, size, 1, 2 + row, 1), 255 * t, 0.51);
        EXPECT_NEAR(at(result, size, 1, 2 + row, 2), 255 * (1 - t), 0.51);
        EXPECT_EQ(at(result, size, 1, 2 + row, 0), 255);
    }
}

TEST_F(PrimitivesTest, ABorderDrawsTheOutlineAlone)
{
    const XY<int> size{7, 6};
    for (const bool gradient : {false, true}) {
        const Qx::Ptr<iGPUImage> target = canvas(size, {9, 9, 9, 9});
        const NormalisedRGB other{1.0F, 0.0F, gradient ? 1.0F : 0.0F, 128.0F / 255.0F};
        ASSERT_TRUE(draw(target, rectangle({1, 1, 6, 5}, redHalf, other, 1)));
        const Bytes result = download(target);
        for (int y = 0; y < size.y; ++y) {
            for (int x = 0; x < size.x; ++x) {
                const bool inside = x >= 1 && x < 6 && y >= 1 && y < 5;
                const bool hole = x >= 2 && x < 5 && y >= 2 && y < 4;
                EXPECT_EQ(at(result, size, x, y, 1), inside && !hole ? 255 : 9) << x << "," << y;
            }
        }
    }
}

TEST_F(PrimitivesTest, WhatLiesOutsideTheTargetIsNotDrawnAndIsNoFailure)
{
    const XY<int> size{4, 4};
    const Qx::Ptr<iGPUImage> target = canvas(size, {9, 9, 9, 9});
    EXPECT_TRUE(draw(target, rectangle({-5, -5, 0, 4}, redHalf, redHalf)));
    EXPECT_TRUE(draw(target, rectangle({4, 0, 400, 4}, redHalf, redHalf)));
    EXPECT_TRUE(draw(target, rectangle({3, 3, 1, 1}, redHalf, redHalf)));
    EXPECT_EQ(download(target), filled(size, {9, 9, 9, 9}));
    EXPECT_TRUE(
        draw(target, rectangle({-2147483647, -2147483647, 2147483647, 2147483647}, redHalf, redHalf)));
    EXPECT_EQ(download(target), filled(size, {128, 255, 0, 0}));
}

TEST_F(PrimitivesTest, AnImageAtItsOwnSizeIsCopiedExactly)
{
    const XY<int> size{37, 23};
    const Bytes bytes = noise(bytesOf(size, iGPUImage::eARGB8));
    const Qx::Ptr<iGPUImage> target = gpu().createGPUImage(size, iGPUImage::eARGB8);
    ASSERT_TRUE(
        draw(target, stretched(upload(size, iGPUImage::eARGB8, bytes), {0, 0, 37, 23}, {0, 0, 37, 23})));
    EXPECT_EQ(download(target), bytes);
}

TEST_F(PrimitivesTest, HalvingAveragesTwoByTwoTexels)
{
    const XY<int> size{64, 32};
    const Bytes bytes = noise(bytesOf(size, iGPUImage::eARGB8));
    const Qx::Ptr<iGPUImage> target = gpu().createGPUImage({32, 16}, iGPUImage::eARGB8);
    ASSERT_TRUE(
        draw(target, stretched(upload(size, iGPUImage::eARGB8, bytes), {0, 0, 64, 32}, {0, 0, 32, 16})));
    const Bytes result = download(target);
    for (int y = 0; y < 16; ++y) {
        for (int x = 0; x < 32; ++x) {
            for (int c = 0; c < 4; ++c) {
                const int sum = at(bytes, size, 2 * x, 2 * y, c) + at(bytes, size, 2 * x + 1, 2 * y, c) +
                                at(bytes, size, 2 * x, 2 * y + 1, c) +
                                at(bytes, size, 2 * x + 1, 2 * y + 1, c);
                EXPECT_NEAR(at(result, {32, 16}, x, y, c), sum / 4.0, 0.51);
            }
        }
    }
}

TEST_F(PrimitivesTest, ShrinkingWeighsEveryTexelByTheAreaOfIt)
{
    // 3 texels into 2 pixels: a pixel is one whole texel and half of the middle one.
    const Qx::Ptr<iGPUImage> source =
        upload({3, 1}, iGPUImage::eARGB8, {0, 30, 0, 0, 0, 90, 0, 0, 0, 240, 0, 0});
    const Qx::Ptr<iGPUImage> target = gpu().createGPUImage({2, 1}, iGPUImage::eARGB8);
    ASSERT_TRUE(draw(target, stretched(source, {0, 0, 3, 1}, {0, 0, 2, 1})));
    const Bytes result = download(target);
    EXPECT_EQ(at(result, {2, 1}, 0, 0, 1), (30 * 2 + 90) / 3);
    EXPECT_EQ(at(result, {2, 1}, 1, 0, 1), (90 + 240 * 2) / 3);
}

TEST_F(PrimitivesTest, EnlargingInterpolatesAndDoesNotReadBeyondTheSourceRectangle)
{
    // Columns 1 and 2 of four are drawn: the bright neighbours must not bleed in.
    const Qx::Ptr<iGPUImage> source =
        upload({4, 1}, iGPUImage::eARGB8, {0, 255, 0, 0, 0, 40, 0, 0, 0, 80, 0, 0, 0, 255, 0, 0});
    const XY<int> size{8, 1};
    const Qx::Ptr<iGPUImage> target = gpu().createGPUImage(size, iGPUImage::eARGB8);
    ASSERT_TRUE(draw(target, stretched(source, {1, 0, 3, 1}, {0, 0, 8, 1})));
    const Bytes result = download(target);
    const std::array<int, 8> expected{40, 40, 45, 55, 65, 75, 80, 80};
    for (int x = 0; x < 8; ++x) {
        EXPECT_EQ(at(result, size, x, 0, 1), expected.at(static_cast<std::size_t>(x))) << x;
    }
}

TEST_F(PrimitivesTest, ExtremeShrinkingFinishes)
{
    const XY<int> size{4096, 512};
    const Qx::Ptr<iGPUImage> source = canvas(size, {255, 100, 50, 25});
    const Qx::Ptr<iGPUImage> target = gpu().createGPUImage({1, 1}, iGPUImage::eARGB8);
    ASSERT_TRUE(draw(target, stretched(source, {0, 0, size.x, size.y}, {0, 0, 1, 1})));
    EXPECT_EQ(download(target), (Bytes{255, 100, 50, 25}));
}

TEST_F(PrimitivesTest, BlendingIsOverByTheImagesAlpha)
{
    const XY<int> size{3, 1};
    const Qx::Ptr<iGPUImage> source =
        upload(size, iGPUImage::eARGB8, {0, 200, 100, 50, 255, 200, 100, 50, 51, 200, 100, 50});
    for (const bool preciseKind : {false, true}) {
        const Qx::Ptr<iGPUImage> target = canvas(size, {255, 10, 20, 30});
        if (preciseKind) {
            ASSERT_TRUE(draw(target, precise(source, {0, 0, 3, 1}, {0, 0, 3, 1}, true)));
        } else {
            ImageDescription d = stretched(source, {0, 0, 3, 1}, {0, 0, 3, 1});
            d.blend = true;
            ASSERT_TRUE(draw(target, d));
        }
        const Bytes result = download(target);
        EXPECT_EQ(Bytes(result.begin(), result.begin() + 4), (Bytes{255, 10, 20, 30}));
        EXPECT_EQ(Bytes(result.begin() + 4, result.begin() + 8), (Bytes{255, 200, 100, 50}));
        EXPECT_EQ(result[8], 255);
        EXPECT_NEAR(result[9], 10 + 0.2 * 190, 1.0);
        EXPECT_NEAR(result[10], 20 + 0.2 * 80, 1.0);
        EXPECT_NEAR(result[11], 30 + 0.2 * 20, 1.0);
    }
}

TEST_F(PrimitivesTest, BlendingRaisesTheTargetsAlpha)
{
    const XY<int> size{1, 1};
    const Qx::Ptr<iGPUImage> target = canvas(size, {102, 0, 0, 0});
    ASSERT_TRUE(draw(target, precise(canvas(size, {51, 255, 0, 0}), {0, 0, 1, 1}, {0, 0, 1, 1}, true)));
    EXPECT_NEAR(download(target)[0], 255 * (0.2 + 0.4 * 0.8), 1.0);
}

TEST_F(PrimitivesTest, BlendingKeepsSixteenBitPrecision)
{
    const XY<int> size{1, 1};
    const Qx::Ptr<iGPUImage> source = upload(size, iGPUImage::eARGB16, {0x00, 0x80, 0x34, 0x12, 0, 0, 0, 0});
    const Qx::Ptr<iGPUImage> target = upload(size, iGPUImage::eARGB16, {0xff, 0xff, 0x78, 0x56, 0, 0, 0, 0});
    ASSERT_TRUE(draw(target, precise(source, {0, 0, 1, 1}, {0, 0, 1, 1}, true)));
    const Bytes result = download(target);
    const double a = 0x8000 / 65535.0;
    EXPECT_NEAR(result[2] + 256 * result[3], a * 0x1234 + (1 - a) * 0x5678, 1.0);
}

TEST_F(PrimitivesTest, TheWeightSaysHowMuchOfTheImageReplacesTheTarget)
{
    const XY<int> size{1, 1};
    const Qx::Ptr<iGPUImage> source = canvas(size, {200, 100, 50, 0});
    for (const auto& [weight, expected] : std::vector<std::pair<float, Bytes>>{
             {0.0F, {0, 0, 0, 100}}, {0.5F, {100, 50, 25, 50}}, {1.0F, {200, 100, 50, 0}}}) {
        const Qx::Ptr<iGPUImage> target = canvas(size, {0, 0, 0, 100});
        ImageDescription d = stretched(source, {0, 0, 1, 1}, {0, 0, 1, 1});
        d.weight = weight;
        ASSERT_TRUE(draw(target, d));
        const Bytes result = download(target);
        for (std::size_t c = 0; c < 4; ++c) {
            EXPECT_NEAR(result.at(c), expected.at(c), 1) << weight;
        }
    }
}

TEST_F(PrimitivesTest, EverySecondLineGoesUnfilteredToOneLineOfTheTarget)
{
    const XY<int> size{8, 8};
    const Qx::Ptr<iGPUImage> target = canvas(size, {1, 1, 1, 1});
    ImageDescriptionEx d = precise(addresses(size), {2, 1, 6, 9}, {3, 2, 7, 6}, false);
    d.mode = ImageDescriptionEx::EverySecondLine;
    ASSERT_TRUE(draw(target, d));
    const Bytes result = download(target);
    for (int y = 0; y < size.y; ++y) {
        for (int x = 0; x < size.x; ++x) {
            const bool inside = x >= 3 && x < 7 && y >= 2 && y < 6;
            EXPECT_EQ(at(result, size, x, y, 1), inside ? x - 1 : 1) << x << "," << y;
            EXPECT_EQ(at(result, size, x, y, 2), inside ? 1 + 2 * (y - 2) : 1) << x << "," << y;
        }
    }
}

TEST_F(PrimitivesTest, EverySecondLineLeavesTheRowsForWhichThereIsNoLine)
{
    const XY<int> size{4, 4};
    const Qx::Ptr<iGPUImage> target = canvas(size, {7, 7, 7, 7});
    ImageDescriptionEx d = precise(addresses(size), {0, 0, 4, 4}, {0, 0, 4, 4}, false);
    d.mode = ImageDescriptionEx::EverySecondLine;
    ASSERT_TRUE(draw(target, d));
    const Bytes result = download(target);
    EXPECT_EQ(at(result, size, 0, 0, 2), 0);
    EXPECT_EQ(at(result, size, 0, 1, 2), 2);
    EXPECT_EQ(at(result, size, 0, 2, 2), 7);
    EXPECT_EQ(at(result, size, 0, 3, 2), 7);
}

namespace {

const char* const rectangleEffect = R"(
texture First;
texture Next;
sampler S = sampler_state { Texture = <First>; MinFilter = Point; MagFilter = Point; };
sampler T = sampler_state { Texture = <Next>; MinFilter = Point; MagFilter = Point; };
float4 one(float2 uv : TEXCOORD0) : COLOR0 { return tex2D(S, uv); }
float4 two(float2 a : TEXCOORD0, float2 b : TEXCOORD1) : COLOR0
{
    return float4(tex2D(S, a).r, tex2D(T, b).g, 0.0, 1.0);
}
float4 faint(float2 uv : TEXCOORD0) : COLOR0 { return float4(1.0, 1.0, 1.0, 0.2); }
technique One { pass P { PixelShader = compile ps_3_0 one(); } }
technique Two { pass P { PixelShader = compile ps_3_0 two(); } }
technique Faint { pass P { PixelShader = compile ps_3_0 faint(); } }
)";

} // namespace

TEST_F(PrimitivesTest, AnEffectReadsTheSourceRectangleOverTheDestination)
{
    const XY<int> size{8, 8};
    const Qx::Ptr<iShaderEffect> e = effect(rectangleEffect);
    ASSERT_TRUE(e);
    for (const bool blend : {false, true}) {
        const Qx::Ptr<iGPUImage> target = canvas(size, {255, 9, 9, 9});
        ImageDescriptionEx d = precise(addresses({16, 16}), {4, 2, 8, 6}, {2, 3, 6, 7}, blend);
        d.effect = e;
        ASSERT_TRUE(draw(target, d));
        const Bytes result = download(target);
        for (int y = 0; y < size.y; ++y) {
            for (int x = 0; x < size.x; ++x) {
                const bool inside = x >= 2 && x < 6 && y >= 3 && y < 7;
                EXPECT_EQ(at(result, size, x, y, 1), inside ? x + 2 : 9) << x << "," << y;
                EXPECT_EQ(at(result, size, x, y, 2), inside ? y - 1 : 9) << x << "," << y;
            }
        }
    }
}

TEST_F(PrimitivesTest, FurtherImagesAreTheEffectsOtherTextures)
{
    const XY<int> size{4, 4};
    const Qx::Ptr<iShaderEffect> e = effect(rectangleEffect);
    ASSERT_TRUE(e);
    ASSERT_TRUE(e->setTechnique("Two"));
    const Qx::Ptr<iGPUImage> target = canvas(size, {9, 9, 9, 9});
    ImageDescriptionEx d = precise(canvas(size, {1, 2, 3, 4}), {0, 0, 4, 4}, {0, 0, 4, 4}, false);
    d.effect = e;
    EXPECT_FALSE(draw(target, d)); // the second texture is missing
    d.furtherImages.push_back(canvas(size, {5, 6, 7, 8}));
    ASSERT_TRUE(draw(target, d));
    EXPECT_EQ(download(target), filled(size, {255, 2, 7, 0}));
    d.furtherImages.push_back(canvas(size, {5, 6, 7, 8}));
    EXPECT_FALSE(draw(target, d)); // more than the effect has
}

TEST_F(PrimitivesTest, AnEffectsResultIsBlendedByItsOwnAlpha)
{
    const XY<int> size{2, 2};
    const Qx::Ptr<iShaderEffect> e = effect(rectangleEffect);
    ASSERT_TRUE(e);
    ASSERT_TRUE(e->setTechnique("Faint"));
    const Qx::Ptr<iGPUImage> target = canvas(size, {255, 0, 0, 0});
    ImageDescriptionEx d = precise(canvas(size, {1, 2, 3, 4}), {0, 0, 2, 2}, {0, 0, 2, 2}, true);
    d.effect = e;
    ASSERT_TRUE(draw(target, d));
    const Bytes result = download(target);
    EXPECT_EQ(result[0], 255);
    EXPECT_NEAR(result[1], 51, 1);
    EXPECT_NEAR(result[2], 51, 1);
    EXPECT_NEAR(result[3], 51, 1);
}

TEST_F(PrimitivesTest, AnEffectWithEverySecondLineLeavesTheRowsForWhichThereIsNoLine)
{
    const XY<int> size{4, 4};
    const Qx::Ptr<iGPUImage> target = canvas(size, {7, 7, 7, 7});
    const Qx::Ptr<iShaderEffect> e = effect(rectangleEffect);
    ASSERT_TRUE(e);
    ImageDescriptionEx d = precise(addresses(size), {0, 0, 4, 4}, {0, 0, 4, 4}, false);
    d.mode = ImageDescriptionEx::EverySecondLine;
    d.effect = e;
    ASSERT_TRUE(draw(target, d));
    const Bytes result = download(target);
    EXPECT_EQ(at(result, size, 0, 0, 2), 0);
    EXPECT_EQ(at(result, size, 0, 1, 2), 2);
    EXPECT_EQ(at(result, size, 0, 2, 2), 7);
    EXPECT_EQ(at(result, size, 0, 3, 2), 7);
}

TEST_F(PrimitivesTest, AnEffectWithEverySecondLineSeesThoseLines)
{
    const XY<int> size{4, 4};
    const Qx::Ptr<iShaderEffect> e = effect(rectangleEffect);
    ASSERT_TRUE(e);
    const Qx::Ptr<iGPUImage> target = canvas(size, {255, 9, 9, 9});
    ImageDescriptionEx d = precise(addresses({4, 8}), {0, 1, 4, 9}, {0, 0, 4, 4}, false);
    d.effect = e;
    d.mode = ImageDescriptionEx::EverySecondLine;
    ASSERT_TRUE(draw(target, d));
    const Bytes result = download(target);
    for (int y = 0; y < 4; ++y) {
        EXPECT_EQ(at(result, size, 3, y, 1), 3);
        EXPECT_EQ(at(result, size, 3, y, 2), 1 + 2 * y);
    }
}

TEST_F(PrimitivesTest, DrawsWithoutAnImageOrFromTheTargetItselfFail)
{
    const XY<int> size{4, 4};
    const Qx::Ptr<iGPUImage> target = canvas(size, {1, 2, 3, 4});
    EXPECT_FALSE(draw(target, stretched({}, {0, 0, 4, 4}, {0, 0, 4, 4})));
    EXPECT_FALSE(draw(target, stretched(target, {0, 0, 4, 4}, {0, 0, 4, 4})));
    EXPECT_FALSE(draw(target, precise(target, {0, 0, 4, 4}, {0, 0, 4, 4}, true)));
    EXPECT_FALSE(target->getPrimitivesRenderer(1)->draw(rectangle({0, 0, 4, 4}, {}, {}), 0));
    EXPECT_EQ(download(target), filled(size, {1, 2, 3, 4}));
}

TEST_F(PrimitivesTest, RectanglesThatAreNoNumbersDrawNothing)
{
    const XY<int> size{4, 4};
    const Qx::Ptr<iGPUImage> target = canvas(size, {1, 2, 3, 4});
    const Qx::Ptr<iGPUImage> source = canvas(size, {9, 9, 9, 9});
    const float nan = std::nanf("");
    EXPECT_TRUE(draw(target, precise(source, {0, 0, nan, 4}, {0, 0, 4, 4}, false)));
    EXPECT_TRUE(draw(target, precise(source, {0, 0, 4, 4}, {nan, 0, 4, 4}, false)));
    EXPECT_TRUE(draw(target, precise(source, {0, 0, 4, 4}, {0, 0, INFINITY, 4}, false)));
    EXPECT_TRUE(draw(target, precise(source, {1, 1, 1, 1}, {0, 0, 4, 4}, false)));
    EXPECT_EQ(download(target), filled(size, {1, 2, 3, 4}));
}

TEST_F(PrimitivesTest, ATargetOfFloatsIsNeitherClippedNorRounded)
{
    const XY<int> size{4, 2};
    const auto bytesOfFloats = [](const std::vector<float>& numbers) {
        Bytes bytes(numbers.size() * sizeof(float));
        std::memcpy(bytes.data(), numbers.data(), bytes.size());
        return bytes;
    };
    const auto colours = [](const std::array<float, 4>& texel) {
        std::vector<float> all;
        for (int i = 0; i < 8; ++i) {
            all.insert(all.end(), texel.begin(), texel.end());
        }
        return all;
    };
    const auto numbersOf = [&](const Qx::Ptr<iGPUImage>& image) {
        const Bytes bytes = download(image);
        std::vector<float> numbers(bytes.size() / sizeof(float));
        std::memcpy(numbers.data(), bytes.data(), numbers.size() * sizeof(float));
        return numbers;
    };
    // A R G B. A third is no code of 16 bits.
    const std::array<float, 4> below{1, 10, -0.5F, 1.0F / 3};
    const Qx::Ptr<iGPUImage> target = upload(size, Host::floatTexels, bytesOfFloats(colours(below)));
    ASSERT_TRUE(target);
    const Qx::Ptr<iGPUImage> half = upload({1, 1}, Host::floatTexels, bytesOfFloats({0.5F, 3, 7.25F, -1}));
    ASSERT_TRUE(half);

    ImageDescription over = stretched(half, {0, 0, 1, 1}, {1, 0, 2, 1});
    over.blend = true;
    ASSERT_TRUE(draw(target, over)); // by its alpha, which is a half
    ASSERT_TRUE(draw(target, stretched(half, {0, 0, 1, 1}, {2, 0, 3, 1})));
    ASSERT_TRUE(draw(target, rectangle({3, 0, 4, 1}, {0.25F, 0.5F, 0.75F, 1}, {0.25F, 0.5F, 0.75F, 1})));
    std::vector<float> expected = colours(below);
    const std::array<float, 12> drawn{1, 6.5F, 3.375F, -1.0F / 3, 0.5F, 3, 7.25F, -1, 1, 0.25F, 0.5F, 0.75F};
    std::copy(drawn.begin(), drawn.end(), expected.begin() + 4);
    const std::vector<float> result = numbersOf(target);
    ASSERT_EQ(result.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_FLOAT_EQ(result[i], expected[i]) << i;
    }

    // Smaller, the mean; and a copy is exact.
    const Qx::Ptr<iGPUImage> small = upload({2, 1}, Host::floatTexels, Bytes(32));
    ASSERT_TRUE(draw(small, stretched(target, {0, 0, 4, 2}, {0, 0, 2, 1})));
    EXPECT_FLOAT_EQ(numbersOf(small)[1], (3 * 10 + 6.5F) / 4);
    const Qx::Ptr<iGPUImage> copy = upload(size, Host::floatTexels, bytesOfFloats(colours({0, 0, 0, 0})));
    ASSERT_TRUE(draw(copy, stretched(target, {0, 0, 4, 2}, {0, 0, 4, 2})));
    EXPECT_EQ(download(copy), download(target));
}

} // namespace Qx::GpuTests
