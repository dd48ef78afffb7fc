#include "tests/host/gpu/GpuFixture.h"

#include "platform/Text.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

// Native code draws in the place of a software device what that draws: every test compares with the same
// device, which draws alone.

namespace Qx::GpuTests {

namespace {

GPUOptions withNativeCode()
{
    GPUOptions options;
    options.nativeCode = true;
    return options;
}

/// Reads neighbours, the table and places beyond the edges.
const char* const nativeEffect = R"(
texture Input;
texture Table;
sampler S = sampler_state { Texture = <Input>; AddressU = Clamp; AddressV = Clamp; };
sampler3D T = sampler_state { Texture = <Table>; };
float2 size : TEXTURESIZE < string Texture = "Input"; >;
float gain = 1.0;
float4 at(int x, int y) { return tex2Dfetch(S, clamp(int2(x, y), int2(0, 0), int2(size) - 1)); }
float4 mix(int2 pos : VPOS) : COLOR { return at(pos.x - 1, pos.y) * 0.75 * gain + at(pos.x + 2, pos.y + 1).gbar * 0.25; }
float4 table(int2 pos : VPOS) : COLOR { return tex3Dfetch(T, int3(pos.x % 5, pos.y % 5, (pos.x + pos.y) % 5)); }
float4 powers(int2 pos : VPOS) : COLOR { return pow(at(pos.x, pos.y), 1.7); }
float gamma = 1.0;
float4 led(int2 pos : VPOS) : COLOR { float4 c = at(pos.x, pos.y); if (gamma != 1.0) c = pow(c, gamma); return c * gain; }
technique Led { pass { PixelShader = compile ps_3_0 led(); } }
technique Mix { pass { PixelShader = compile ps_3_0 mix(); } }
technique Table { pass { PixelShader = compile ps_3_0 table(); } }
technique Powers { pass { PixelShader = compile ps_3_0 powers(); } }
)";

constexpr XY<int> nativeSize{601, 67};
constexpr std::chrono::seconds ample{120};

class NativeDrawingTest : public GpuTest
{
protected:
    NativeDrawingTest() : GpuTest(withNativeCode()) {}

    void SetUp() override
    {
        GpuTest::SetUp();
        if (!drawsPacked()) {
            GTEST_SKIP() << "the device does not draw packed texels";
        }
    }

    void TearDown() override
    {
        ::unsetenv("QXFXC_TEST");
        GpuTest::TearDown();
    }

    Bytes drawn(const Qx::Ptr<iShaderEffect>& effect, const Qx::Ptr<iGPUImage>& source, XY<int> size,
                iGPUImage::eFormat format)
    {
        const Qx::Ptr<iGPUImage> target = gpu().createGPUImage(size, format);
        Qx::Vector<iShaderEffect::Source> sources;
        sources.emplace_back("Input", source);
        sources.emplace_back("Table", table());
        return effect->render(target, sources) ? download(target) : Bytes();
    }

    /// Draws until the processors draw, or not within some seconds. Returns whether they do.
    bool drawsNatively(const Qx::Ptr<iShaderEffect>& effect, const Qx::Ptr<iGPUImage>& source, XY<int> size,
                       iGPUImage::eFormat format, std::chrono::seconds within)
    {
        const auto end = std::chrono::steady_clock::now() + within;
        const std::uint64_t before = gpu().statistics().nativeDraws;
        while (std::chrono::steady_clock::now() < end) {
            if (drawn(effect, source, size, format).empty()) {
                return false;
            }
            if (gpu().statistics().nativeDraws > before) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return false;
    }

    /// What the log says first while the device's picture is drawn again and again.
    std::string logWhileDrawing(const Qx::Ptr<iShaderEffect>& effect, const Qx::Ptr<iGPUImage>& source,
                                const Bytes& byDevice)
    {
        takeLog();
        std::string log;
        const auto end = std::chrono::steady_clock::now() + ample;
        while (log.empty() && std::chrono::steady_clock::now() < end) {
            EXPECT_TRUE(drawn(effect, source, nativeSize, iGPUImage::eARGB8) == byDevice);
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            log = takeLog();
        }
        return log;
    }

    Qx::Ptr<iGPUImage3D> table()
    {
        if (!table_) {
            const Qx::Ptr<iHostImage3D> host = gpu().createHostImage3D(5);
            for (int i = 0; i < 4 * 125; ++i) {
                host->getData()[i] = static_cast<float>(i % 251) / 250.0F;
            }
            table_ = gpu().upload3DImage(host);
        }
        return table_;
    }

    /// Lets go of the table, which is the service's.
    void forgetTable() { table_ = {}; }

private:
    Qx::Ptr<iGPUImage3D> table_;
};

} // namespace

TEST_F(NativeDrawingTest, TheProcessorsDrawWhatTheDeviceDraws)
{
    const Qx::Ptr<iShaderEffect> mix = effect(nativeEffect);
    for (const iGPUImage::eFormat format : {iGPUImage::eARGB8, iGPUImage::eARGB16}) {
        const Qx::Ptr<iGPUImage> source = upload(nativeSize, format, noise(bytesOf(nativeSize, format)));
        for (const char* technique : {"Mix", "Table"}) {
            ASSERT_TRUE(mix->setTechnique(technique));
            const Bytes byDevice = drawn(mix, source, nativeSize, format);
            ASSERT_FALSE(byDevice.empty());
            ASSERT_TRUE(drawsNatively(mix, source, nativeSize, format, ample)) << technique << takeLog();
            EXPECT_TRUE(drawn(mix, source, nativeSize, format) == byDevice)
                << technique << ", format " << format;
        }
    }
}

TEST_F(NativeDrawingTest, CodeOfAnEarlierRunDrawsAfterAFewPictures)
{
    constexpr int beforeCodeIsMade = 49;
    GPUOptions options = withNativeCode();
    options.cacheDirectory = folder() / "cache";
    options.cacheBytes = 64U << 20U;
    const Bytes bytes = noise(bytesOf(nativeSize, iGPUImage::eARGB8));
    {
        restart(options);
        const Qx::Ptr<iShaderEffect> mix = effect(nativeEffect);
        ASSERT_TRUE(mix->setTechnique("Mix"));
        const Qx::Ptr<iGPUImage> source = upload(nativeSize, iGPUImage::eARGB8, bytes);
        ASSERT_TRUE(drawsNatively(mix, source, nativeSize, iGPUImage::eARGB8, ample)) << takeLog();
        forgetTable();
    }
    restart(options);
    const Qx::Ptr<iShaderEffect> mix = effect(nativeEffect);
    ASSERT_TRUE(mix->setTechnique("Mix"));
    const Qx::Ptr<iGPUImage> source = upload(nativeSize, iGPUImage::eARGB8, bytes);
    const Bytes byDevice = drawn(mix, source, nativeSize, iGPUImage::eARGB8);
    for (int i = 1; i < beforeCodeIsMade && gpu().statistics().nativeDraws == 0; ++i) {
        EXPECT_TRUE(drawn(mix, source, nativeSize, iGPUImage::eARGB8) == byDevice);
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    EXPECT_GT(gpu().statistics().nativeDraws, 0U) << takeLog();
    EXPECT_TRUE(drawn(mix, source, nativeSize, iGPUImage::eARGB8) == byDevice);
}

TEST_F(NativeDrawingTest, DrawsOfBothAreInTheirOrder)
{
    const Qx::Ptr<iShaderEffect> mix = effect(nativeEffect);
    const Qx::Ptr<iGPUImage> source =
        upload(nativeSize, iGPUImage::eARGB8, noise(bytesOf(nativeSize, iGPUImage::eARGB8)));
    ASSERT_TRUE(mix->setTechnique("Mix"));
    ASSERT_TRUE(drawsNatively(mix, source, nativeSize, iGPUImage::eARGB8, ample));
    // The device draws Powers, the processors Mix: each reads what the other has drawn.
    const auto chain = [&](const Qx::Ptr<iShaderEffect>& effect) {
        Qx::Ptr<iGPUImage> picture = source;
        for (int i = 0; i < 12; ++i) {
            const Qx::Ptr<iGPUImage> target = gpu().createGPUImage(nativeSize, iGPUImage::eARGB8);
            Qx::Vector<iShaderEffect::Source> sources;
            sources.emplace_back("Input", picture);
            sources.emplace_back("Table", table());
            EXPECT_TRUE(effect->setTechnique(i % 2 == 0 ? "Mix" : "Powers") &&
                        effect->render(target, sources));
            picture = target;
        }
        return download(picture);
    };
    const std::uint64_t before = gpu().statistics().nativeDraws;
    const Bytes both = chain(mix);
    EXPECT_EQ(gpu().statistics().nativeDraws - before, 6U);
    const Qx::Ptr<iShaderEffect> alone = effect(nativeEffect); // too new for native code
    EXPECT_TRUE(chain(alone) == both);
}

TEST_F(NativeDrawingTest, ParametersThatChangeAreThoseOfTheirDraw)
{
    const Qx::Ptr<iShaderEffect> mix = effect(nativeEffect);
    const Qx::Ptr<iGPUImage> source =
        upload(nativeSize, iGPUImage::eARGB8, noise(bytesOf(nativeSize, iGPUImage::eARGB8)));
    ASSERT_TRUE(mix->setTechnique("Mix"));
    std::vector<Bytes> byDevice;
    for (const float gain : {0.5F, 1.5F}) {
        mix->setFloat("gain", gain);
        byDevice.push_back(drawn(mix, source, nativeSize, iGPUImage::eARGB8));
    }
    ASSERT_TRUE(drawsNatively(mix, source, nativeSize, iGPUImage::eARGB8, ample));
    std::vector<Bytes> native;
    for (const float gain : {0.5F, 1.5F}) {
        mix->setFloat("gain", gain);
        native.push_back(drawn(mix, source, nativeSize, iGPUImage::eARGB8));
    }
    EXPECT_TRUE(native == byDevice);
    EXPECT_FALSE(native[0] == native[1]);
}

TEST_F(NativeDrawingTest, CodeThatDrawsSomethingElseIsNotUsed)
{
    ::setenv("QXFXC_TEST", "native:err", 1);
    const Qx::Ptr<iShaderEffect> mix = effect(nativeEffect);
    const Qx::Ptr<iGPUImage> source =
        upload(nativeSize, iGPUImage::eARGB8, noise(bytesOf(nativeSize, iGPUImage::eARGB8)));
    ASSERT_TRUE(mix->setTechnique("Mix"));
    const Bytes byDevice = drawn(mix, source, nativeSize, iGPUImage::eARGB8);
    const std::string log = logWhileDrawing(mix, source, byDevice);
    EXPECT_NE(
        log.find(
            "technique \"Mix\": native code draws something else than the device in line 0; it is not used"),
        std::string::npos)
        << log;
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(drawn(mix, source, nativeSize, iGPUImage::eARGB8) == byDevice);
    }
    EXPECT_EQ(gpu().statistics().nativeDraws, 0U);
}

TEST_F(NativeDrawingTest, AWorkerThatEndsWhileItMakesCodeLeavesTheDrawingToTheDevice)
{
    ::setenv("QXFXC_TEST", "native:crash", 1);
    const Qx::Ptr<iShaderEffect> mix = effect(nativeEffect);
    const Qx::Ptr<iGPUImage> source =
        upload(nativeSize, iGPUImage::eARGB8, noise(bytesOf(nativeSize, iGPUImage::eARGB8)));
    ASSERT_TRUE(mix->setTechnique("Mix"));
    const Bytes byDevice = drawn(mix, source, nativeSize, iGPUImage::eARGB8);
    const std::string log = logWhileDrawing(mix, source, byDevice);
    EXPECT_NE(log.find("technique \"Mix\": native code could not be made: "), std::string::npos) << log;
    EXPECT_NE(log.find("the worker process crashed"), std::string::npos) << log;
    EXPECT_TRUE(drawn(mix, source, nativeSize, iGPUImage::eARGB8) == byDevice);
    EXPECT_EQ(gpu().statistics().nativeDraws, 0U);
}

TEST_F(NativeDrawingTest, WhatUniformsLeadRoundIsDrawnByTheProcessors)
{
    const Qx::Ptr<iShaderEffect> mix = effect(nativeEffect);
    const Qx::Ptr<iGPUImage> source =
        upload(nativeSize, iGPUImage::eARGB8, noise(bytesOf(nativeSize, iGPUImage::eARGB8)));
    ASSERT_TRUE(mix->setTechnique("Led"));
    const Bytes byDevice = drawn(mix, source, nativeSize, iGPUImage::eARGB8);
    ASSERT_TRUE(drawsNatively(mix, source, nativeSize, iGPUImage::eARGB8, ample));
    EXPECT_TRUE(drawn(mix, source, nativeSize, iGPUImage::eARGB8) == byDevice);
    const std::uint64_t before = gpu().statistics().nativeDraws;
    mix->setFloat("gamma", 2.0F);
    EXPECT_FALSE(drawn(mix, source, nativeSize, iGPUImage::eARGB8) == byDevice);
    EXPECT_EQ(gpu().statistics().nativeDraws, before) << "powers are the device's";
    mix->setFloat("gamma", 1.0F);
    EXPECT_TRUE(drawn(mix, source, nativeSize, iGPUImage::eARGB8) == byDevice);
    EXPECT_EQ(gpu().statistics().nativeDraws, before + 1);
}

TEST_F(NativeDrawingTest, WhatDriversApproximateStaysTheDevices)
{
    const Qx::Ptr<iShaderEffect> powers = effect(nativeEffect);
    const Qx::Ptr<iGPUImage> source =
        upload(nativeSize, iGPUImage::eARGB8, noise(bytesOf(nativeSize, iGPUImage::eARGB8)));
    ASSERT_TRUE(powers->setTechnique("Powers"));
    for (int i = 0; i < 60; ++i) { // enough for code to be asked for, however slow the machine is
        ASSERT_FALSE(drawn(powers, source, nativeSize, iGPUImage::eARGB8).empty());
    }
    EXPECT_FALSE(drawsNatively(powers, source, nativeSize, iGPUImage::eARGB8, std::chrono::seconds(5)));
    EXPECT_FALSE(drawn(powers, source, nativeSize, iGPUImage::eARGB8).empty());
}

} // namespace Qx::GpuTests
