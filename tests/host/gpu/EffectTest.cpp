#include "tests/host/gpu/GpuFixture.h"

#include <array>

namespace Qx::GpuTests {

namespace {

class EffectTest : public GpuTest
{
protected:
    static Qx::Vector<iShaderEffect::Source>
    sources(std::initializer_list<std::pair<const char*, Qx::Ptr<iGPUImage>>> list)
    {
        Qx::Vector<iShaderEffect::Source> result;
        for (const auto& [name, image] : list) {
            result.emplace_back(name, image);
        }
        return result;
    }
};

const char* const copyEffect = R"(
texture Input;
sampler InputSampler = sampler_state { Texture = <Input>; MinFilter = Point; MagFilter = Point; };
float4 copy(float2 uv : TEXCOORD0) : COLOR0 { return tex2D(InputSampler, uv); }
technique Copy { pass P0 { PixelShader = compile ps_3_0 copy(); } }
)";

} // namespace

TEST_F(EffectTest, AnIdentityEffectCopiesEveryCodeOfEveryFormat)
{
    const Qx::Ptr<iShaderEffect> copy = effect(copyEffect);
    ASSERT_TRUE(copy);
    for (const iGPUImage::eFormat format : {iGPUImage::eARGB8, iGPUImage::eARGB16, iGPUImage::eARGB10}) {
        const XY<int> size{253, 131};
        const Bytes bytes = noise(bytesOf(size, format));
        const Qx::Ptr<iGPUImage> target = gpu().createGPUImage(size, format);
        ASSERT_TRUE(copy->render(target, sources({{"Input", upload(size, format, bytes)}})));
        EXPECT_EQ(download(target), bytes) << "format " << format;
    }
}

namespace {

/// A pass that stores a parameter and a coordinate set as they are, in floats scaled to 16 bits.
const char* const probeEffect = R"(
texture A;
texture B;
sampler SA = sampler_state { Texture = <A>; MinFilter = Point; MagFilter = Point; };
sampler SB = sampler_state { Texture = <B>; MinFilter = Point; MagFilter = Point; };
float2 SizeOfA : TEXTURESIZE < string Texture = "A"; >;
float CodesOfA : TEXTUREMAXCODE < string Texture = "A"; >;
float2 TargetIs : TARGETSIZE;
float TargetCodes : TARGETMAXCODE;
float4 gain = float4(0.25, 0.5, 0.75, 1.0);
float table[3] = { 0.1, 0.2, 0.3 };
int number = 7;
bool flag = true;
float4 coordinates(float2 a : TEXCOORD0, float2 b : TEXCOORD1) : COLOR0
{
    return float4(a * 0.125 + 0.5, b * 0.125 + 0.5);
}
float4 sizes(float2 uv : TEXCOORD0) : COLOR0
{
    return float4(SizeOfA, TargetIs) / 65535.0 + tex2D(SA, uv) * 0.0;
}
float4 codes(float2 uv : TEXCOORD0) : COLOR0
{
    return float4(CodesOfA, TargetCodes, number, flag ? 1.0 : 0.0) / 65535.0 + tex2D(SA, uv) * 0.0;
}
float4 values() : COLOR0 { return gain; }
float4 tables() : COLOR0 { return float4(table[0], table[1], table[2], 1.0); }
float4 both(float2 a : TEXCOORD0, float2 b : TEXCOORD1) : COLOR0
{
    return float4(tex2D(SA, a).rg, tex2D(SA, b).rg);
}
float4 second(float2 uv : TEXCOORD0) : COLOR0 { return tex2D(SB, uv); }
float4 some(float2 uv : TEXCOORD0) : COLOR0
{
    if (uv.x > 0.5)
        discard;
    return float4(1.0, 0.0, 1.0, 0.0);
}
technique Coordinates { pass P { PixelShader = compile ps_3_0 coordinates(); } }
technique Sizes { pass P { PixelShader = compile ps_3_0 sizes(); } }
technique Codes { pass P { PixelShader = compile ps_3_0 codes(); } }
technique Values { pass P { PixelShader = compile ps_3_0 values(); } }
technique Tables { pass P { PixelShader = compile ps_3_0 tables(); } }
technique Both { pass P { PixelShader = compile ps_3_0 both(); } }
technique Second { pass P { PixelShader = compile ps_3_0 second(); } }
technique TwoPasses
{
    pass First { PixelShader = compile ps_3_0 values(); }
    pass Second { PixelShader = compile ps_3_0 some(); }
}
technique Some { pass P { PixelShader = compile ps_3_0 some(); } }
)";

/// A texel of a 16-bit image as effects see it: r, g, b, a.
std::array<int, 4> texel16(const Bytes& image, int width, int x, int y)
{
    std::array<int, 4> rgba{};
    for (std::size_t c = 0; c < 4; ++c) {
        const std::size_t i =
            (static_cast<std::size_t>(y * width + x) * 4 + (c + 1) % 4) * 2; // memory holds a, r, g, b
        rgba.at(c) = image.at(i) + 256 * image.at(i + 1);
    }
    return rgba;
}

int code16(double value)
{
    return static_cast<int>(value * 65535.0 + 0.5);
}

} // namespace

TEST_F(EffectTest, MemoryHoldsAlphaRedGreenBlueToAnEffect)
{
    const Qx::Ptr<iShaderEffect> e = effect(R"(
texture Input;
sampler S = sampler_state { Texture = <Input>; };
float4 f(float2 uv : TEXCOORD0) : COLOR0 { float4 c = tex2D(S, uv); return float4(c.r, c.g, c.b, 0.0); }
technique T { pass P { PixelShader = compile ps_3_0 f(); } }
)");
    ASSERT_TRUE(e);
    const XY<int> size{2, 2};
    const Qx::Ptr<iGPUImage> source = upload(size, iGPUImage::eARGB8, filled(size, {10, 20, 30, 40}));
    const Qx::Ptr<iGPUImage> target = gpu().createGPUImage(size, iGPUImage::eARGB8);
    ASSERT_TRUE(e->render(target, sources({{"Input", source}})));
    EXPECT_EQ(download(target), filled(size, {0, 20, 30, 40}));
}

TEST_F(EffectTest, TheTenBitWordHoldsAlphaOnTopThenRedGreenBlue)
{
    const Qx::Ptr<iShaderEffect> e = effect(R"(
float4 f() : COLOR0 { return float4(1.0 / 1023.0, 2.0 / 1023.0, 3.0 / 1023.0, 1.0 / 3.0); }
technique T { pass P { PixelShader = compile ps_3_0 f(); } }
)");
    ASSERT_TRUE(e);
    const Qx::Ptr<iGPUImage> target = gpu().createGPUImage({1, 1}, iGPUImage::eARGB10);
    ASSERT_TRUE(e->render(target, {}));
    const std::uint32_t word = 1U << 30U | 1U << 20U | 2U << 10U | 3U;
    EXPECT_EQ(download(target),
              (Bytes{static_cast<std::uint8_t>(word), static_cast<std::uint8_t>(word >> 8U),
                     static_cast<std::uint8_t>(word >> 16U), static_cast<std::uint8_t>(word >> 24U)}));
}

TEST_F(EffectTest, RectanglesArriveExactlyAsGivenBeyondTheUnitSquareToo)
{
    const Qx::Ptr<iShaderEffect> e = effect(probeEffect);
    ASSERT_TRUE(e);
    ASSERT_TRUE(e->setTechnique("Coordinates"));
    const XY<int> size{4, 2};
    const Qx::Ptr<iGPUImage> any = upload({1, 1}, iGPUImage::eARGB8, {1, 2, 3, 4});
    Qx::Vector<iShaderEffect::Source> bound = sources({{"A", any}, {"B", any}});
    bound[0].texCoords = {-2.0F, -1.0F, 2.0F, 3.0F};
    bound[1].texCoords = {1.5F, 0.25F, 0.5F, -0.75F}; // mirrored both ways
    const Qx::Ptr<iGPUImage> target = gpu().createGPUImage(size, iGPUImage::eARGB16);
    ASSERT_TRUE(e->render(target, bound));
    const Bytes result = download(target);
    for (int y = 0; y < size.y; ++y) {
        for (int x = 0; x < size.x; ++x) {
            const double u = (x + 0.5) / size.x;
            const double v = (y + 0.5) / size.y;
            const std::array<int, 4> expected{
                code16((-2.0 + 4.0 * u) / 8 + 0.5), code16((-1.0 + 4.0 * v) / 8 + 0.5),
                code16((1.5 - 1.0 * u) / 8 + 0.5), code16((0.25 - 1.0 * v) / 8 + 0.5)};
            const std::array<int, 4> found = texel16(result, size.x, x, y);
            for (std::size_t c = 0; c < 4; ++c) {
                EXPECT_NEAR(found.at(c), expected.at(c), 1) << x << "," << y << " component " << c;
            }
        }
    }
}

TEST_F(EffectTest, SizesAndLargestCodesAreFilledForEveryFormat)
{
    const Qx::Ptr<iShaderEffect> e = effect(probeEffect);
    ASSERT_TRUE(e);
    const std::vector<std::pair<iGPUImage::eFormat, int>> codes{
        {iGPUImage::eARGB8, 255}, {iGPUImage::eARGB16, 65535}, {iGPUImage::eARGB10, 1023}};
    for (const auto& [format, code] : codes) {
        const Qx::Ptr<iGPUImage> source = upload({19, 7}, format, Bytes(bytesOf({19, 7}, format), 0));
        const Qx::Ptr<iGPUImage> target = gpu().createGPUImage({5, 3}, iGPUImage::eARGB16);
        ASSERT_TRUE(e->setTechnique("Sizes"));
        ASSERT_TRUE(e->render(target, sources({{"A", source}})));
        EXPECT_EQ(texel16(download(target), 5, 4, 2), (std::array<int, 4>{19, 7, 5, 3}));
        ASSERT_TRUE(e->setTechnique("Codes"));
        ASSERT_TRUE(e->render(target, sources({{"A", source}})));
        EXPECT_EQ(texel16(download(target), 5, 0, 0), (std::array<int, 4>{code, 65535, 7, 1}));
    }
}

TEST_F(EffectTest, ParametersHaveDefaultsAndTakeAsManyNumbersAsTheyHold)
{
    const Qx::Ptr<iShaderEffect> e = effect(probeEffect);
    ASSERT_TRUE(e);
    ASSERT_TRUE(e->setTechnique("Values"));
    const Qx::Ptr<iGPUImage> target = gpu().createGPUImage({1, 1}, iGPUImage::eARGB16);
    ASSERT_TRUE(e->render(target, {}));
    EXPECT_EQ(texel16(download(target), 1, 0, 0),
              (std::array<int, 4>{code16(0.25), code16(0.5), code16(0.75), 65535}));

    const Qx::Ptr<iShaderParam> gain = e->getParam("gain");
    ASSERT_TRUE(gain);
    EXPECT_EQ(gain->getComponentCount(), 4U);
    const std::array<float, 4> values{0.0F, 1.0F, 0.2F, 0.4F};
    EXPECT_FALSE(gain->setValues(values.data(), 3));
    EXPECT_TRUE(gain->setValues(values.data(), 4));
    ASSERT_TRUE(e->render(target, {}));
    EXPECT_EQ(texel16(download(target), 1, 0, 0), (std::array<int, 4>{0, 65535, code16(0.2F), code16(0.4F)}));

    EXPECT_TRUE(gain->setValue(1.0F));
    ASSERT_TRUE(e->render(target, {}));
    EXPECT_EQ(texel16(download(target), 1, 0, 0), (std::array<int, 4>{65535, 65535, 65535, 65535}));
}

TEST_F(EffectTest, ArraysTakeTheirElementsOneAfterTheOther)
{
    const Qx::Ptr<iShaderEffect> e = effect(probeEffect);
    ASSERT_TRUE(e);
    ASSERT_TRUE(e->setTechnique("Tables"));
    const Qx::Ptr<iShaderParam> table = e->getParam("table");
    ASSERT_TRUE(table);
    ASSERT_EQ(table->getComponentCount(), 3U);
    const std::array<float, 3> values{0.5F, 0.0F, 1.0F};
    ASSERT_TRUE(table->setValues(values.data(), values.size()));
    const Qx::Ptr<iGPUImage> target = gpu().createGPUImage({1, 1}, iGPUImage::eARGB16);
    ASSERT_TRUE(e->render(target, {}));
    EXPECT_EQ(texel16(download(target), 1, 0, 0), (std::array<int, 4>{code16(0.5), 0, 65535, 65535}));
}

TEST_F(EffectTest, MatricesTakeTheirRowsOneAfterTheOther)
{
    const Qx::Ptr<iShaderEffect> e = effect(R"(
float2x3 m = { 0.125, 0.25, 0.375, 0.5, 0.625, 0.875 };
float4 f() : COLOR0 { return float4(m[0][1], m[0][2], m[1][0], m[1][2]); }
technique T { pass P { PixelShader = compile ps_3_0 f(); } }
)");
    ASSERT_TRUE(e);
    const Qx::Ptr<iGPUImage> target = gpu().createGPUImage({1, 1}, iGPUImage::eARGB16);
    ASSERT_TRUE(e->render(target, {}));
    EXPECT_EQ(texel16(download(target), 1, 0, 0),
              (std::array<int, 4>{code16(0.25), code16(0.375), code16(0.5), code16(0.875)}));
    const std::array<float, 6> values{0.0F, 0.75F, 0.5F, 0.25F, 0.0F, 1.0F};
    ASSERT_TRUE(e->getParam("m"));
    ASSERT_TRUE(e->getParam("m")->setValues(values.data(), values.size()));
    ASSERT_TRUE(e->render(target, {}));
    EXPECT_EQ(texel16(download(target), 1, 0, 0),
              (std::array<int, 4>{code16(0.75), code16(0.5), code16(0.25), 65535}));
}

TEST_F(EffectTest, ParametersThatTheHostFillsAndTexturesRefuseNumbers)
{
    const Qx::Ptr<iShaderEffect> e = effect(probeEffect);
    ASSERT_TRUE(e);
    EXPECT_FALSE(e->setFloat("TargetCodes", 3.0F));
    ASSERT_TRUE(e->getParam("A"));
    EXPECT_EQ(e->getParam("A")->getComponentCount(), 0U);
    EXPECT_FALSE(e->setFloat("A", 3.0F));
    EXPECT_FALSE(e->getParam("none of that name"));
    EXPECT_FALSE(e->getParam(nullptr));
    EXPECT_FALSE(e->setFloat("none of that name", 1.0F));
    EXPECT_TRUE(e->setFloat("number", 3.0F));
}

TEST_F(EffectTest, TechniquesAreFoundByExactNameAndAWrongNameChangesNothing)
{
    const Qx::Ptr<iShaderEffect> e = effect(probeEffect);
    ASSERT_TRUE(e);
    const auto names = e->getTechniqueNames();
    ASSERT_EQ(names.size(), 9U);
    EXPECT_STREQ(names[0].c_str(), "Coordinates");
    EXPECT_STREQ(names[8].c_str(), "Some");
    ASSERT_TRUE(e->setTechnique("Values"));
    EXPECT_FALSE(e->setTechnique("values"));
    EXPECT_FALSE(e->setTechnique(""));
    const Qx::Ptr<iGPUImage> target = gpu().createGPUImage({1, 1}, iGPUImage::eARGB16);
    EXPECT_TRUE(e->render(target, {})); // "Coordinates" would do too, but shows other numbers
    EXPECT_EQ(texel16(download(target), 1, 0, 0)[0], code16(0.25));
}

TEST_F(EffectTest, ANameBoundTwiceIsOneTextureWithTwoCoordinateSets)
{
    const Qx::Ptr<iShaderEffect> e = effect(probeEffect);
    ASSERT_TRUE(e);
    ASSERT_TRUE(e->setTechnique("Both"));
    const XY<int> size{2, 1};
    const Bytes left{0, 11, 22, 0, 0, 33, 44, 0};
    const Qx::Ptr<iGPUImage> unused = upload(size, iGPUImage::eARGB8, Bytes(8, 99));
    const Qx::Ptr<iGPUImage> used = upload(size, iGPUImage::eARGB8, left);
    Qx::Vector<iShaderEffect::Source> bound = sources({{"A", unused}, {"A", used}});
    bound[0].texCoords = {0.0F, 0.0F, 0.5F, 1.0F};
    bound[1].texCoords = {0.5F, 0.0F, 1.0F, 1.0F};
    const Qx::Ptr<iGPUImage> target = gpu().createGPUImage({1, 1}, iGPUImage::eARGB8);
    ASSERT_TRUE(e->render(target, bound));
    EXPECT_EQ(download(target), (Bytes{44, 11, 22, 33})); // the last binding's texture for both
}

TEST_F(EffectTest, AMissingTextureIsRefusedAndSaidOnce)
{
    const Qx::Ptr<iShaderEffect> e = effect(probeEffect);
    ASSERT_TRUE(e);
    ASSERT_TRUE(e->setTechnique("Second"));
    const Qx::Ptr<iGPUImage> image = upload({1, 1}, iGPUImage::eARGB8, {1, 2, 3, 4});
    const Qx::Ptr<iGPUImage> target = gpu().createGPUImage({1, 1}, iGPUImage::eARGB8);
    takeLog();
    EXPECT_FALSE(e->render(target, sources({{"A", image}})));
    EXPECT_NE(takeLog().find("\"B\" is not bound"), std::string::npos);
    EXPECT_FALSE(e->render(target, sources({{"A", image}, {"B", {}}})));
    EXPECT_EQ(takeLog(), "");
    EXPECT_TRUE(e->render(target, sources({{"A", image}, {"B", image}})));
}

TEST_F(EffectTest, ATargetCannotBeItsOwnSource)
{
    const Qx::Ptr<iShaderEffect> copy = effect(copyEffect);
    ASSERT_TRUE(copy);
    const Bytes bytes = noise(64);
    const Qx::Ptr<iGPUImage> image = upload({4, 4}, iGPUImage::eARGB8, bytes);
    EXPECT_FALSE(copy->render(image, sources({{"Input", image}})));
    EXPECT_EQ(download(image), bytes);
    EXPECT_FALSE(copy->render({}, sources({{"Input", image}})));
}

TEST_F(EffectTest, AnImageOfTheWrongDimensionsIsRefused)
{
    const Qx::Ptr<iShaderEffect> copy = effect(copyEffect);
    ASSERT_TRUE(copy);
    const Qx::Ptr<iGPUImage3D> table = gpu().upload3DImage(gpu().createHostImage3D(4));
    ASSERT_TRUE(table);
    Qx::Vector<iShaderEffect::Source> bound;
    bound.emplace_back("Input", table);
    EXPECT_FALSE(copy->render(gpu().createGPUImage({4, 4}, iGPUImage::eARGB8), bound));
}

TEST_F(EffectTest, PassesFollowEachOtherOnOneTargetAndMayLeavePixels)
{
    const Qx::Ptr<iShaderEffect> e = effect(probeEffect);
    ASSERT_TRUE(e);
    const Qx::Ptr<iGPUImage> target = gpu().createGPUImage({4, 1}, iGPUImage::eARGB16);
    ASSERT_TRUE(e->setTechnique("TwoPasses"));
    ASSERT_TRUE(e->render(target, {}));
    const Bytes result = download(target);
    EXPECT_EQ(texel16(result, 4, 0, 0), (std::array<int, 4>{65535, 0, 65535, 0}));
    EXPECT_EQ(texel16(result, 4, 3, 0), (std::array<int, 4>{code16(0.25), code16(0.5), code16(0.75), 65535}));
}

TEST_F(EffectTest, WhatAPassDiscardsKeepsTheTargetsOldPixels)
{
    const Qx::Ptr<iShaderEffect> e = effect(probeEffect);
    ASSERT_TRUE(e);
    ASSERT_TRUE(e->setTechnique("Some"));
    const XY<int> size{4, 1};
    const Qx::Ptr<iGPUImage> target = upload(size, iGPUImage::eARGB8, filled(size, {1, 2, 3, 4}));
    ASSERT_TRUE(e->render(target, {}));
    EXPECT_EQ(download(target), (Bytes{0, 255, 0, 255, 0, 255, 0, 255, 1, 2, 3, 4, 1, 2, 3, 4}));
}

TEST_F(EffectTest, EightAndSixteenBitsConvertByRoundingToTheNearestCode)
{
    const Qx::Ptr<iShaderEffect> copy = effect(copyEffect);
    ASSERT_TRUE(copy);
    const XY<int> size{256, 1};
    Bytes ramp;
    for (int i = 0; i < 256; ++i) {
        ramp.insert(ramp.end(), 4, static_cast<std::uint8_t>(i));
    }
    const Qx::Ptr<iGPUImage> eight = upload(size, iGPUImage::eARGB8, ramp);
    const Qx::Ptr<iGPUImage> sixteen = gpu().createGPUImage(size, iGPUImage::eARGB16);
    ASSERT_TRUE(copy->render(sixteen, sources({{"Input", eight}})));
    const Bytes wide = download(sixteen);
    for (int i = 0; i < 256; ++i) {
        EXPECT_EQ(texel16(wide, size.x, i, 0)[1], i * 257);
    }
    const Qx::Ptr<iGPUImage> back = gpu().createGPUImage(size, iGPUImage::eARGB8);
    ASSERT_TRUE(copy->render(back, sources({{"Input", sixteen}})));
    EXPECT_EQ(download(back), ramp);
}

TEST_F(EffectTest, TenBitTargetsAreWithinACodeOfTheExactValue)
{
    // Mesa's software rasterizer converts through 16 bits and truncates the lower six.
    const Qx::Ptr<iShaderEffect> copy = effect(copyEffect);
    ASSERT_TRUE(copy);
    const XY<int> size{256, 1};
    Bytes ramp;
    for (int i = 0; i < 256; ++i) {
        ramp.insert(ramp.end(), 4, static_cast<std::uint8_t>(i));
    }
    const Qx::Ptr<iGPUImage> ten = gpu().createGPUImage(size, iGPUImage::eARGB10);
    ASSERT_TRUE(copy->render(ten, sources({{"Input", upload(size, iGPUImage::eARGB8, ramp)}})));
    const Bytes words = download(ten);
    for (std::size_t i = 0; i < 256; ++i) {
        const int blue = words[4 * i] + 256 * (words[4 * i + 1] & 3);
        EXPECT_NEAR(blue, static_cast<double>(i) * 1023.0 / 255.0, 1.0);
    }
}

TEST_F(EffectTest, ASteadyStateOfUploadRenderDownloadMakesNoNewAllocations)
{
    const Qx::Ptr<iShaderEffect> copy = effect(copyEffect);
    ASSERT_TRUE(copy);
    const XY<int> size{320, 200};
    const Bytes bytes = noise(bytesOf(size, iGPUImage::eARGB8));
    const auto frame = [&] {
        const Qx::Ptr<iGPUImage> target = gpu().createGPUImage(size, iGPUImage::eARGB8);
        const Qx::Ptr<iGPUImage> source = upload(size, iGPUImage::eARGB8, bytes);
        ASSERT_TRUE(copy->render(target, sources({{"Input", source}})));
        ASSERT_EQ(download(target), bytes);
    };
    for (int i = 0; i < 5; ++i) {
        frame();
    }
    const Host::GPUStatistics before = gpu().statistics();
    for (int i = 0; i < 30; ++i) {
        frame();
    }
    const Host::GPUStatistics after = gpu().statistics();
    EXPECT_EQ(after.memoryAllocations, before.memoryAllocations);
    EXPECT_EQ(after.imagesCreated, before.imagesCreated);
    EXPECT_EQ(after.draws, before.draws + 30);
}

TEST_F(EffectTest, AThousandDrawsInARowRecordAndFinish)
{
    const Qx::Ptr<iShaderEffect> copy = effect(copyEffect);
    ASSERT_TRUE(copy);
    const XY<int> size{16, 16};
    const Bytes bytes = noise(bytesOf(size, iGPUImage::eARGB8));
    const Qx::Ptr<iGPUImage> source = upload(size, iGPUImage::eARGB8, bytes);
    const Qx::Ptr<iGPUImage> target = gpu().createGPUImage(size, iGPUImage::eARGB8);
    for (int i = 0; i < 1000; ++i) {
        ASSERT_TRUE(copy->render(target, sources({{"Input", source}})));
    }
    EXPECT_EQ(download(target), bytes);
}

namespace {

/// Copies the picture by way of a texture that a pass draws into.
const char* const wayRoundEffect = R"(
texture Input;
texture Between;
sampler InputSampler = sampler_state { Texture = <Input>; };
sampler BetweenSampler = sampler_state { Texture = <Between>; };
float4 read(float2 uv : TEXCOORD0, uniform sampler from) : COLOR0 { return tex2D(from, uv); }
technique WayRound
{
    pass There < string Target = "Between"; > { PixelShader = compile ps_3_0 read(InputSampler); }
    pass Back { PixelShader = compile ps_3_0 read(BetweenSampler); }
}
)";

} // namespace

TEST_F(EffectTest, TexturesThatPassesDrawIntoComeFromThePool)
{
    const Qx::Ptr<iShaderEffect> wayRound = effect(wayRoundEffect);
    ASSERT_TRUE(wayRound);
    for (const iGPUImage::eFormat format : {iGPUImage::eARGB8, iGPUImage::eARGB16, iGPUImage::eARGB10}) {
        const XY<int> size{123, 45};
        const Bytes bytes = noise(bytesOf(size, format));
        const Qx::Ptr<iGPUImage> source = upload(size, format, bytes);
        const Qx::Ptr<iGPUImage> target = gpu().createGPUImage(size, format);
        ASSERT_TRUE(wayRound->render(target, sources({{"Input", source}})));
        EXPECT_EQ(download(target), bytes) << "format " << format;
        const Host::GPUStatistics before = gpu().statistics();
        for (int i = 0; i < 5; ++i) {
            ASSERT_TRUE(wayRound->render(target, sources({{"Input", source}})));
            ASSERT_EQ(download(target), bytes);
        }
        EXPECT_EQ(gpu().statistics().imagesCreated, before.imagesCreated);
        EXPECT_EQ(gpu().statistics().liveImageBytes, before.liveImageBytes);
        EXPECT_EQ(gpu().statistics().draws, before.draws + 10);
    }
}

TEST_F(EffectTest, TexturesThatPassesDrawIntoStandForTheWholeInputOfADrawOverAPart)
{
    const Qx::Ptr<iShaderEffect> wayRound = effect(wayRoundEffect);
    ASSERT_TRUE(wayRound);
    const XY<int> size{8, 6};
    const Bytes bytes = noise(bytesOf(size, iGPUImage::eARGB8));
    ImageDescriptionEx d;
    d.image = upload(size, iGPUImage::eARGB8, bytes);
    d.source = {4.0F, 2.0F, 8.0F, 6.0F};
    d.destination = {1.0F, 1.0F, 5.0F, 5.0F};
    d.blend = false;
    d.effect = wayRound;
    const Qx::Ptr<iGPUImage> target = upload(size, iGPUImage::eARGB8, Bytes(bytes.size(), 7));
    ASSERT_TRUE(target->getPrimitivesRenderer(1)->draw(d, 1));
    const Bytes result = download(target);
    for (int y = 0; y < size.y; ++y) {
        for (int x = 0; x < size.x; ++x) {
            const bool inside = x >= 1 && x < 5 && y >= 1 && y < 5;
            for (int c = 0; c < 4; ++c) {
                EXPECT_EQ(at(result, size, x, y, c), inside ? at(bytes, size, x + 3, y + 1, c) : 7)
                    << x << "," << y;
            }
        }
    }
}

TEST_F(EffectTest, WithoutMemoryForATextureThatAPassDrawsIntoNothingIsDrawn)
{
    std::string large = wayRoundEffect;
    large.replace(large.find("Between;"), 8, "Between < float2 Dimensions = { 1024, 1024 }; >;");
    const Qx::Ptr<iShaderEffect> wayRound = effect(large);
    ASSERT_TRUE(wayRound);
    const XY<int> size{4, 4};
    const Bytes bytes = noise(bytesOf(size, iGPUImage::eARGB8));
    const Qx::Ptr<iGPUImage> source = upload(size, iGPUImage::eARGB8, bytes);
    const Qx::Ptr<iGPUImage> target = upload(size, iGPUImage::eARGB8, Bytes(bytes.size(), 7));
    gpu().trim();
    takeLog();
    gpu().failAllocations(0, 2);
    EXPECT_FALSE(wayRound->render(target, sources({{"Input", source}})));
    EXPECT_NE(takeLog().find("not enough memory for the textures that its passes draw into"),
              std::string::npos);
    EXPECT_EQ(download(target), Bytes(bytes.size(), 7));
    gpu().failAllocations(0, 0);
    EXPECT_TRUE(wayRound->render(target, sources({{"Input", source}})));
    EXPECT_EQ(download(target), bytes);
}

TEST_F(EffectTest, AFileThatDoesNotCompileGivesMessagesAndNoEffect)
{
    const EffectCompileResult result = gpu().compileEffectFile(L"/no/such/effect.fx", {});
    EXPECT_FALSE(result.effect);
    EXPECT_NE(std::string(result.errors.c_str()).find("/no/such/effect.fx"), std::string::npos)
        << result.errors.c_str();
    takeLog();
    EXPECT_FALSE(gpu().loadEffectFile(L"/no/such/effect.fx", {}));
    EXPECT_EQ(takeLog(), "");
}

} // namespace Qx::GpuTests
