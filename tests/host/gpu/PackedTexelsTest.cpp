#include "tests/host/gpu/GpuFixture.h"

#include "platform/Text.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

// Packed texels are a faster way to draw the same picture: every test draws with and without them.

namespace Qx::GpuTests {

namespace {

constexpr std::array depths{iGPUImage::eARGB8, iGPUImage::eARGB16};

/// Reads each texel by its number and mixes in a neighbour, so that rows, edges and orders show.
const char* const mixEffect = R"(
texture Input;
sampler S = sampler_state { Texture = <Input>; AddressU = Clamp; AddressV = Clamp; };
sampler W = sampler_state { Texture = <Input>; AddressU = Wrap; AddressV = Mirror; };
float2 size : TEXTURESIZE < string Texture = "Input"; >;
float2 targetSize : TARGETSIZE;
float sourceMax : TEXTUREMAXCODE < string Texture = "Input"; >;
float targetMax : TARGETMAXCODE;
float4 at(int x, int y) { return tex2Dfetch(S, clamp(int2(x, y), int2(0, 0), int2(size) - 1)); }
float4 mix(int2 pos : VPOS) : COLOR { return at(pos.x, pos.y) * 0.75 + at(pos.x + 1, pos.y).gbar * 0.25; }
float4 halves(int2 pos : VPOS) : COLOR { return at(pos.x >> 1, pos.y >> 1); }
float4 places(int2 pos : VPOS) : COLOR { return at((pos.x & 7) * 2 + (pos.x >> 3), pos.y) * ((pos.x & 1) * 0.5 + 0.5); }
float4 floats(float2 pos : VPOS) : COLOR { return at(int(pos.x) - 2, int(pos.y)); }
float4 sampled(float2 uv : TEXCOORD0) : COLOR { return tex2D(S, uv * 0.8 + 0.1); }
float4 own(float2 uv : TEXCOORD0, float2 second : TEXCOORD1) : COLOR { return tex2D(S, uv).gbar * 0.75 + tex2D(W, second) * 0.25; }
float4 beyond(float2 uv : TEXCOORD0) : COLOR { return tex2D(S, uv * 1.7 - 0.4); }
float4 wrapped(float2 uv : TEXCOORD0) : COLOR { return tex2D(W, uv * 1.7 - 0.4); }
float4 edges(int2 pos : VPOS) : COLOR { return float4(pos / targetSize, 0.25, 1.0); }
float4 depths(int2 pos : VPOS) : COLORCODE
{
    int2 to = clamp(int2(pos.x * 3 - 2, pos.y), int2(0, 0), int2(size) - 1);
    return tex2Dcodes(S, to) + tex2Dfetch(S, to) * targetMax + (targetMax - sourceMax) * 0.125;
}
technique Depths < bool MixedDepths = true; > { pass { PixelShader = compile ps_3_0 depths(); } }
technique Mix { pass { PixelShader = compile ps_3_0 mix(); } }
technique Halves { pass { PixelShader = compile ps_3_0 halves(); } }
technique Places { pass { PixelShader = compile ps_3_0 places(); } }
technique Floats { pass { PixelShader = compile ps_3_0 floats(); } }
technique Sampled { pass { PixelShader = compile ps_3_0 sampled(); } }
technique Own { pass { PixelShader = compile ps_3_0 own(); } }
technique Beyond { pass { PixelShader = compile ps_3_0 beyond(); } }
technique Wrapped { pass { PixelShader = compile ps_3_0 wrapped(); } }
technique Edges { pass { PixelShader = compile ps_3_0 edges(); } }
technique Twice { pass { PixelShader = compile ps_3_0 edges(); } pass { PixelShader = compile ps_3_0 mix(); } }
)";

class PackedTexelsTest : public GpuTest
{
protected:
    void SetUp() override
    {
        GpuTest::SetUp();
        GPUOptions options;
        options.validation = true;
        options.packedTexels = false;
        plain_ = std::make_unique<GPUService>(options);
        ASSERT_TRUE(plain_->start()) << plain_->failure();
        if (!drawsPacked()) {
            GTEST_SKIP() << "the device does not draw packed texels";
        }
    }

    void TearDown() override
    {
        plain_->shutdown();
        EXPECT_EQ(plain_->statistics().validationMessages, 0U) << takeLog();
        GpuTest::TearDown();
    }

    /// What one service draws; empty on failure.
    static Bytes drawn(GPUService& gpu, const Qx::Ptr<iShaderEffect>& effect, const std::string& technique,
                       XY<int> size, iGPUImage::eFormat format, XY<int> sourceSize,
                       iGPUImage::eFormat sourceFormat)
    {
        const Bytes bytes = noise(bytesOf(sourceSize, sourceFormat));
        const Qx::Ptr<iHostImage> host = gpu.createHostImage(sourceSize, sourceFormat);
        const Qx::Ptr<iGPUImage> target = gpu.createGPUImage(size, format);
        if (!host || !target || !effect->setTechnique(technique.c_str())) {
            return {};
        }
        std::copy(bytes.begin(), bytes.end(), static_cast<std::uint8_t*>(host->map(iHostImage::Write)));
        const Qx::Ptr<iGPUImage> source = gpu.uploadImage(host, 0);
        Qx::Vector<iShaderEffect::Source> sources;
        for (const std::string& texture : Host::texturesRead(*effect, technique)) {
            sources.emplace_back(texture.c_str(), source);
        }
        if (!effect->render(target, sources)) {
            return {};
        }
        const Qx::Ptr<iHostImage> result = gpu.downloadImage(target);
        const auto* memory =
            result ? static_cast<const std::uint8_t*>(result->map(iHostImage::Read)) : nullptr;
        return memory != nullptr ? Bytes(memory, memory + bytesOf(size, format)) : Bytes();
    }

    struct Pair
    {
        Qx::Ptr<iShaderEffect> packed;
        Qx::Ptr<iShaderEffect> plain;
    };

    Pair load(const std::filesystem::path& file)
    {
        const EffectCompileResult packed = gpu().compileEffectFile(fromUTF8(file.c_str()), {});
        const EffectCompileResult plain = plain_->compileEffectFile(fromUTF8(file.c_str()), {});
        EXPECT_TRUE(packed.effect) << packed.errors.c_str();
        EXPECT_TRUE(plain.effect) << plain.errors.c_str();
        return {packed.effect, plain.effect};
    }

    Pair loadText(const std::string& text)
    {
        const std::filesystem::path file = folder() / "both.fx";
        std::ofstream(file) << text;
        return load(file);
    }

    /// Both draw the same; only the first draws packed texels.
    void expectAlike(const Pair& pair, const std::string& technique, XY<int> size, iGPUImage::eFormat format,
                     XY<int> sourceSize)
    {
        expectAlikeFrom(format, pair, technique, size, format, sourceSize);
    }

    void expectAlikeFrom(iGPUImage::eFormat sourceFormat, const Pair& pair, const std::string& technique,
                         XY<int> size, iGPUImage::eFormat format, XY<int> sourceSize)
    {
        const std::uint64_t before = gpu().statistics().packedDraws;
        const Bytes got = drawn(gpu(), pair.packed, technique, size, format, sourceSize, sourceFormat);
        const Bytes wanted = drawn(*plain_, pair.plain, technique, size, format, sourceSize, sourceFormat);
        ASSERT_FALSE(wanted.empty());
        EXPECT_TRUE(got == wanted) << technique << ", " << size.x << " x " << size.y << ", format " << format;
        EXPECT_GT(gpu().statistics().packedDraws, before) << technique;
        EXPECT_EQ(plain_->statistics().packedDraws, 0U);
    }

    /// Draws single texels where packed texels are not possible.
    void expectPlain(const Qx::Ptr<iShaderEffect>& effect, const std::string& technique,
                     const Qx::Ptr<iGPUImage>& source, const Qx::Ptr<iGPUImage>& target)
    {
        ASSERT_TRUE(effect->setTechnique(technique.c_str()));
        const Host::GPUStatistics before = gpu().statistics();
        Qx::Vector<iShaderEffect::Source> sources;
        sources.emplace_back("Input", source);
        ASSERT_TRUE(effect->render(target, sources));
        EXPECT_EQ(gpu().statistics().packedDraws, before.packedDraws) << technique;
        EXPECT_GT(gpu().statistics().draws, before.draws);
    }

    GPUService& plain() { return *plain_; }

private:
    std::unique_ptr<GPUService> plain_;
};

} // namespace

TEST_F(PackedTexelsTest, EveryShippedTechniqueIsDrawnPackedAndTheSameAsTexelByTexel)
{
    constexpr XY<int> size{37, 6};
    constexpr XY<int> sourceSize{75, 6}; // every texel read exists
    for (const char* file : {"ColourConvert.fx", "null.fx", "cc3.fx"}) {
        const Pair pair = load(std::filesystem::path(QX_SHADERS_FOLDER) / file);
        ASSERT_TRUE(pair.packed && pair.plain);
        for (const auto& name : pair.packed->getTechniqueNames()) {
            for (const iGPUImage::eFormat format : depths) {
                expectAlike(pair, name.c_str(), size, format, sourceSize);
            }
        }
    }
}

TEST_F(PackedTexelsTest, ShippedTechniquesForWordsAreDrawnPackedBetweenDepths)
{
    const auto expectBothWays = [this](const Pair& pair, const char* technique) {
        expectAlikeFrom(iGPUImage::eARGB8, pair, technique, {37, 6}, iGPUImage::eARGB16, {75, 6});
        expectAlikeFrom(iGPUImage::eARGB16, pair, technique, {37, 6}, iGPUImage::eARGB8, {75, 6});
    };
    const Pair words = load(std::filesystem::path(QX_SHADERS_FOLDER) / "null.fx");
    const Pair packed = load(std::filesystem::path(QX_SHADERS_FOLDER) / "ColourConvert.fx");
    ASSERT_TRUE(words.packed && words.plain && packed.packed && packed.plain);
    for (const char* technique : {"V210toYUYV", "YUYVtoV210"}) {
        expectBothWays(words, technique);
    }
    for (const char* technique :
         {"UnpackDvs10Bit_BaseOnly", "UnpackMatrox10Bit", "UnpackMatrox10Bit_BaseOnly", "PackMatrox10Bit"}) {
        expectBothWays(packed, technique);
    }
}

TEST_F(PackedTexelsTest, PicturesOfEveryWidthAreTheSameBetweenDepths)
{
    const Pair pair = loadText(mixEffect);
    ASSERT_TRUE(pair.packed && pair.plain);
    for (int width = 1; width <= 21; ++width) {
        expectAlikeFrom(iGPUImage::eARGB8, pair, "Depths", {width, 3}, iGPUImage::eARGB16, {width, 3});
        expectAlikeFrom(iGPUImage::eARGB16, pair, "Depths", {width, 3}, iGPUImage::eARGB8, {width, 3});
    }
}

TEST_F(PackedTexelsTest, PicturesOfEveryWidthAreTheSame)
{
    const Pair pair = loadText(mixEffect);
    ASSERT_TRUE(pair.packed && pair.plain);
    for (const auto& name : pair.packed->getTechniqueNames()) {
        for (const iGPUImage::eFormat format : depths) {
            for (int width = 1; width <= 21; ++width) {
                expectAlike(pair, name.c_str(), {width, 3}, format, {width, 3});
            }
            expectAlike(pair, name.c_str(), {300, 200}, format, {300, 200});
        }
    }
}

TEST_F(PackedTexelsTest, SourcesOfOtherSizesAreTheSame)
{
    const Pair pair = loadText(mixEffect);
    ASSERT_TRUE(pair.packed && pair.plain);
    for (const XY<int> source : {XY<int>{1, 1}, XY<int>{7, 30}, XY<int>{130, 3}}) {
        for (const auto& name : pair.packed->getTechniqueNames()) {
            expectAlike(pair, name.c_str(), {34, 9}, iGPUImage::eARGB8, source);
        }
    }
}

TEST_F(PackedTexelsTest, PartsOfPicturesAreNotTakenForWholeOnes)
{
    const Pair pair = loadText(mixEffect);
    ASSERT_TRUE(pair.packed && pair.plain);
    constexpr XY<int> size{24, 5};
    const Bytes bytes = noise(bytesOf(size, iGPUImage::eARGB8));
    const auto draw = [&](GPUService& service, const Qx::Ptr<iShaderEffect>& effect,
                          const std::array<float, 4>& first, const std::array<float, 4>& second) {
        const Qx::Ptr<iHostImage> host = service.createHostImage(size, iGPUImage::eARGB8);
        std::copy(bytes.begin(), bytes.end(), static_cast<std::uint8_t*>(host->map(iHostImage::Write)));
        const Qx::Ptr<iGPUImage> source = service.uploadImage(host, 0);
        const Qx::Ptr<iGPUImage> target = service.createGPUImage(size, iGPUImage::eARGB8);
        Qx::Vector<iShaderEffect::Source> sources;
        sources.emplace_back("Input", source);
        sources.emplace_back("Input", source);
        sources[0].texCoords = first;
        sources[1].texCoords = second;
        EXPECT_TRUE(effect->setTechnique("Own") && effect->render(target, sources));
        const Qx::Ptr<iHostImage> result = service.downloadImage(target);
        const auto* got = static_cast<const std::uint8_t*>(result->map(iHostImage::Read));
        return Bytes(got, got + bytes.size());
    };
    constexpr std::array<float, 4> whole{0.0F, 0.0F, 1.0F, 1.0F};
    constexpr std::array<float, 4> part{0.25F, 0.0F, 0.75F, 1.0F};
    constexpr std::array<float, 4> turned{1.0F, 0.0F, 0.0F, 1.0F};
    const Bytes usual = draw(gpu(), pair.packed, whole, whole);
    for (const auto& other : {part, turned}) {
        EXPECT_EQ(draw(gpu(), pair.packed, other, whole), draw(plain(), pair.plain, other, whole));
        EXPECT_EQ(draw(gpu(), pair.packed, whole, other), draw(plain(), pair.plain, whole, other));
        EXPECT_NE(draw(gpu(), pair.packed, other, whole), usual);
    }
    EXPECT_EQ(usual, draw(plain(), pair.plain, whole, whole));
}

TEST_F(PackedTexelsTest, EntriesOfVolumesAreReadAtEverySize)
{
    const Pair pair = loadText(R"(
texture Table;
sampler3D T = sampler_state { Texture = <Table>; };
float2 edge : TEXTURESIZE < string Texture = "Table"; >;
int3 at(int2 pos)
{
    int e = int(edge.x);
    return int3(pos.x % e, (pos.x / e + pos.y) % e, (pos.y * 3 + pos.x) % e);
}
float4 entry(int2 pos : VPOS) : COLOR { return tex3Dfetch(T, at(pos)); }
float4 neighbour(int2 pos : VPOS) : COLOR { return tex3Dfetch(T, at(pos) / 2, at(pos) - at(pos) / 2); }
technique Entry { pass { PixelShader = compile ps_3_0 entry(); } }
technique Neighbour { pass { PixelShader = compile ps_3_0 neighbour(); } }
)");
    ASSERT_TRUE(pair.packed && pair.plain);
    constexpr XY<int> size{61, 7};
    const std::uint64_t before = gpu().statistics().packedDraws;
    std::uint64_t draws = 0;
    for (const int edge : {2, 3, 4, 17, 32, 33}) {
        const Bytes codes = noise(static_cast<std::size_t>(4 * edge * edge * edge));
        Bytes wanted;
        for (int i = 0; i < size.x * size.y; ++i) {
            const int x = i % size.x;
            const int y = i / size.x;
            const int entry = x % edge + edge * ((x / edge + y) % edge + edge * ((y * 3 + x) % edge));
            for (const int c : {3, 0, 1, 2}) { // a, r, g, b
                wanted.push_back(codes[static_cast<std::size_t>(4 * entry + c)]);
            }
        }
        for (GPUService* service : {&gpu(), &plain()}) {
            const Qx::Ptr<iShaderEffect>& effect = service == &gpu() ? pair.packed : pair.plain;
            const Qx::Ptr<iHostImage3D> host = service->createHostImage3D(edge);
            std::transform(codes.begin(), codes.end(), host->getData(),
                           [](std::uint8_t code) { return static_cast<float>(code) / 255.0F; });
            Qx::Vector<iShaderEffect::Source> sources;
            sources.emplace_back("Table", service->upload3DImage(host));
            for (const char* technique : {"Entry", "Neighbour"}) {
                const Qx::Ptr<iGPUImage> target = service->createGPUImage(size, iGPUImage::eARGB8);
                ASSERT_TRUE(effect->setTechnique(technique) && effect->render(target, sources));
                const Qx::Ptr<iHostImage> result = service->downloadImage(target);
                const auto* got = static_cast<const std::uint8_t*>(result->map(iHostImage::Read));
                EXPECT_EQ(Bytes(got, got + wanted.size()), wanted) << technique << ", " << edge;
                ++draws;
            }
        }
    }
    EXPECT_EQ(gpu().statistics().packedDraws - before, draws / 2);
}

TEST_F(PackedTexelsTest, ResultsHalfWayBetweenTwoCodesBecomeTheSame)
{
    const Pair pair = loadText(R"(
float targetMax : TARGETMAXCODE;
float4 halves(int2 pos : VPOS) : COLOR { return (float4(pos.x, pos.x + 7, 2 * pos.x, pos.y) + 0.5) / targetMax; }
technique Halves { pass { PixelShader = compile ps_3_0 halves(); } }
)");
    ASSERT_TRUE(pair.packed && pair.plain);
    for (const iGPUImage::eFormat format : depths) {
        expectAlike(pair, "Halves", {200, 40}, format, {1, 1});
    }
}

TEST_F(PackedTexelsTest, ResultsBeyondTheRangeAreHeldTheSameWay)
{
    const Pair pair = loadText(R"(
float nothing = 0.0;
float4 beyond(int2 pos : VPOS) : COLOR
{
    float values[8] = { -1.0, 2.0, 1e30, -1e30, 1.0 / nothing, -1.0 / nothing, 0.5, 0.0 / nothing };
    return float4(values[pos.x & 7], values[(pos.x + 1) & 7], values[(pos.x + 2) & 7], values[(pos.x + 5) & 7]);
}
float4 beyondCodes(int2 pos : VPOS) : COLORCODE { return beyond(pos) * 70000.0; }
technique Colours { pass { PixelShader = compile ps_3_0 beyond(); } }
technique Codes { pass { PixelShader = compile ps_3_0 beyondCodes(); } }
)");
    ASSERT_TRUE(pair.packed && pair.plain);
    for (const iGPUImage::eFormat format : depths) {
        expectAlike(pair, "Colours", {16, 1}, format, {1, 1});
        expectAlike(pair, "Codes", {16, 1}, format, {1, 1});
    }
}

TEST_F(PackedTexelsTest, PassesThatMinglePixelsOrRememberAreDrawnTexelByTexel)
{
    const Pair pair = loadText(R"(
static float calls = 0.0;
float4 dropped(int2 pos : VPOS) : COLOR { clip((pos.x & 1) - 0.5); return 1.0; }
float4 compared(float2 uv : TEXCOORD0) : COLOR { return abs(ddx(uv.x)).xxxx; }
float4 counted(int2 pos : VPOS) : COLOR { calls += 0.25; return calls.xxxx; }
technique Dropped { pass { PixelShader = compile ps_3_0 dropped(); } }
technique Compared { pass { PixelShader = compile ps_3_0 compared(); } }
technique Counted { pass { PixelShader = compile ps_3_0 counted(); } }
)");
    ASSERT_TRUE(pair.packed && pair.plain);
    const XY<int> size{12, 2};
    for (const char* technique : {"Dropped", "Compared", "Counted"}) {
        const Qx::Ptr<iGPUImage> target = gpu().createGPUImage(size, iGPUImage::eARGB8);
        expectPlain(pair.packed, technique, {}, target);
        if (std::string(technique) == "Counted") {
            EXPECT_EQ(download(target), filled(size, {64, 64, 64, 64}));
        }
    }
}

TEST_F(PackedTexelsTest, PicturesThatAreNotOfOneDepthAreDrawnTexelByTexelUnlessTheTechniqueSaysSo)
{
    const Pair pair = loadText(mixEffect);
    ASSERT_TRUE(pair.packed && pair.plain);
    const XY<int> size{8, 2};
    const auto image = [&](iGPUImage::eFormat format) {
        return upload(size, format, noise(bytesOf(size, format)));
    };
    expectPlain(pair.packed, "Mix", image(iGPUImage::eARGB16), gpu().createGPUImage(size, iGPUImage::eARGB8));
    expectPlain(pair.packed, "Mix", image(iGPUImage::eARGB8), gpu().createGPUImage(size, iGPUImage::eARGB16));
    expectPlain(pair.packed, "Mix", image(iGPUImage::eARGB10),
                gpu().createGPUImage(size, iGPUImage::eARGB10));
    expectPlain(pair.packed, "Sampled", image(iGPUImage::eARGB16),
                gpu().createGPUImage(size, iGPUImage::eARGB8));
}

TEST_F(PackedTexelsTest, WhatIsBesideAPackedPictureStays)
{
    // Rows end inside a packed texel, and small pictures share memory.
    const Pair pair = loadText(mixEffect);
    ASSERT_TRUE(pair.packed && pair.plain);
    const XY<int> size{5, 5};
    std::vector<Qx::Ptr<iGPUImage>> neighbours;
    const Bytes bytes = noise(bytesOf(size, iGPUImage::eARGB8));
    neighbours.reserve(64);
    for (int i = 0; i < 64; ++i) {
        neighbours.push_back(upload(size, iGPUImage::eARGB8, bytes));
    }
    for (std::size_t i = 0; i < neighbours.size(); i += 2) {
        ASSERT_TRUE(pair.packed->setTechnique("Edges"));
        ASSERT_TRUE(pair.packed->render(neighbours[i], {}));
    }
    for (std::size_t i = 1; i < neighbours.size(); i += 2) {
        EXPECT_EQ(download(neighbours[i]), bytes) << i;
    }
}

TEST_F(PackedTexelsTest, WholeAndPartialDrawsFollowEachOther)
{
    // Each view of the memory sees what was drawn through the other.
    const Pair pair = loadText(mixEffect);
    ASSERT_TRUE(pair.packed && pair.plain);
    const XY<int> size{640, 400};
    for (GPUService* service : {&gpu(), &plain()}) {
        const bool packed = service == &gpu();
        const Qx::Ptr<iShaderEffect>& effect = packed ? pair.packed : pair.plain;
        const Bytes bytes = noise(bytesOf(size, iGPUImage::eARGB8));
        const Qx::Ptr<iHostImage> start = service->createHostImage(size, iGPUImage::eARGB8);
        std::copy(bytes.begin(), bytes.end(), static_cast<std::uint8_t*>(start->map(iHostImage::Write)));
        const Qx::Ptr<iGPUImage> first = service->uploadImage(start, 0);
        const Qx::Ptr<iGPUImage> second = service->createGPUImage(size, iGPUImage::eARGB8);
        ASSERT_TRUE(effect->setTechnique("Floats"));
        for (int i = 0; i < 6; ++i) {
            Qx::Vector<iShaderEffect::Source> sources;
            sources.emplace_back("Input", i % 2 == 0 ? first : second);
            ASSERT_TRUE(effect->render(i % 2 == 0 ? second : first, sources));
            const Qx::Ptr<iGraphicPrimitivesRenderer> renderer =
                (i % 2 == 0 ? second : first)->getPrimitivesRenderer(1);
            RectDescription rectangle;
            rectangle.area = {10 * i, 5, 10 * i + 7, 300};
            rectangle.colour = {1.0F, 0.5F, 0.0F};
            rectangle.colour2 = rectangle.colour;
            ASSERT_TRUE(renderer && renderer->draw(rectangle, 1));
        }
        const Qx::Ptr<iHostImage> host = service->downloadImage(first);
        const auto* memory = static_cast<const std::uint8_t*>(host->map(iHostImage::Read));
        const Bytes got(memory, memory + bytesOf(size, iGPUImage::eARGB8));
        static Bytes wanted;
        if (packed) {
            wanted = got;
        } else {
            EXPECT_EQ(got, wanted);
        }
    }
}

} // namespace Qx::GpuTests
