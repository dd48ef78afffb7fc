#include "host/effects/EffectCompilation.h"
#include "platform/Text.h"
#include "tests/host/gpu/GpuFixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>

namespace Qx::GpuTests {

namespace {

GPUOptions impatient()
{
    GPUOptions options;
    options.workerStepLimit = std::chrono::seconds(1);
    return options;
}

/// Effects that the host's own device must not see.
class SandboxTest : public GpuTest
{
protected:
    SandboxTest() : GpuTest(impatient()) {}

    void TearDown() override
    {
        ::unsetenv("QXFXC_TEST");
        GpuTest::TearDown();
    }

    std::filesystem::path write(const std::string& name, const std::string& text) const
    {
        const std::filesystem::path file = folder() / name;
        std::ofstream(file) << text;
        return file;
    }

    EffectCompileResult compile(const std::filesystem::path& file)
    {
        return gpu().compileEffectFile(fromUTF8(file.c_str()), {});
    }

    /// Expects one message with that text, and a working service.
    void expectFailure(const std::filesystem::path& file, const std::string& message)
    {
        const EffectCompileResult failed = compile(file);
        EXPECT_FALSE(failed.effect);
        EXPECT_EQ(std::string(failed.errors.c_str()),
                  file.string() + ":1:1: error: the worker process " + message + "\n");
        EXPECT_TRUE(effect(harmless));
        EXPECT_FALSE(gpu().isLost());
    }

    static constexpr const char* harmless =
        "float4 f() : COLOR { return 0.5; }\ntechnique T { pass P { PixelShader = compile ps_3_0 f(); } }\n";
};

TEST_F(SandboxTest, AWorkerThatDiesWhileItMakesPipelinesIsOneMessage)
{
    ::setenv("QXFXC_TEST", "pipelines:kill:bad.fx", 1);
    expectFailure(
        write("bad.fx", harmless),
        "was killed from outside (SIGKILL) while creating pipelines, twice; the machine may be short of "
        "memory, or something ends processes; try again\n  in technique 'T', pass 'P'");
}

TEST_F(SandboxTest, AWorkerThatDiesWhileItDrawsIsOneMessage)
{
    ::setenv("QXFXC_TEST", "drawing:crash:bad.fx", 1);
    expectFailure(write("bad.fx", harmless), "crashed (SIGABRT) while drawing\n  in technique 'T', pass 'P'");
    const std::string shader = "{ PixelShader = compile ps_3_0 f(); }";
    expectFailure(write("bad.fx", "float4 f() : COLOR { return 0.5; }\ntechnique T { pass A " + shader +
                                      " pass " + shader + " pass C " + shader + " }\n"),
                  "crashed (SIGABRT) while drawing\n  in technique 'T', pass 'A, number 2 or C'");
}

TEST_F(SandboxTest, AWorkerThatDiesWithItsAnswerIsOneMessage)
{
    ::setenv("QXFXC_TEST", "answering:exit:bad.fx", 1);
    expectFailure(write("bad.fx", harmless),
                  "ended by itself (exit code 3) while drawing\n  in technique 'T', pass 'P'");
}

/// Loops `count` times over arithmetic that no compiler can evaluate.
std::string loopingEffect(const std::string& count)
{
    return "float count = " + count +
           ";\nfloat4 f(float2 uv : TEXCOORD0) : COLOR\n{\n    float x = uv.x;\n"
           "    for (float i = 0; i < count; i += (x > 2 ? 1 : 0.0)) { x = frac(x * 1.37 + 0.1) + 2.5; if "
           "(count > 1000) i = "
           "0; }\n"
           "    return x;\n}\ntechnique T { pass P { PixelShader = compile ps_3_0 f(); } }\n";
}

TEST_F(SandboxTest, ADrawThatDoesNotEndIsStopped)
{
    ::setenv("QXFXC_TEST", "drawing:spin:bad.fx", 1);
    const EffectCompileResult failed = compile(write("bad.fx", harmless));
    EXPECT_FALSE(failed.effect);
    EXPECT_THAT(
        failed.errors.c_str(),
        testing::MatchesRegex(
            ".*/bad.fx:1:1: error: the worker process did not end within .* and was stopped "
            "while drawing; .*, or raise the setting effects.seconds\n  in technique 'T', pass 'P'\n"));
    EXPECT_TRUE(effect(harmless));
    EXPECT_FALSE(gpu().isLost());
}

TEST_F(SandboxTest, AnEndlessShaderIsStoppedOrCutShortByItsDriver)
{
    const EffectCompileResult result = compile(write("endless.fx", loopingEffect("100000")));
    // Mesa's software rasterizer leaves a shader's loops after 65535 iterations; other devices do not.
    EXPECT_NE(static_cast<bool>(result.effect), !result.errors.empty()) << result.errors.c_str();
    EXPECT_FALSE(gpu().isLost());
    EXPECT_TRUE(effect(harmless));
}

TEST_F(SandboxTest, ALoopBoundByAParameterIsTriedWithItsDefault)
{
    EXPECT_TRUE(compile(write("bound.fx", loopingEffect("4"))).effect);
}

TEST_F(SandboxTest, WithoutAWorkerEffectsFailAndTheLogSaysSoOnce)
{
    GPUOptions options;
    options.worker = "/nowhere/qxfxc";
    GPUService service(options);
    const auto file = write("good.fx", harmless);
    takeLog();
    for (int i = 0; i < 2; ++i) {
        const EffectCompileResult failed = service.compileEffectFile(fromUTF8(file.c_str()), {});
        EXPECT_FALSE(failed.effect);
        EXPECT_NE(std::string(failed.errors.c_str()).find("/nowhere/qxfxc: No such file"), std::string::npos);
    }
    const std::string log = takeLog();
    const std::size_t first = log.find("Effects cannot be compiled");
    EXPECT_NE(first, std::string::npos);
    EXPECT_EQ(log.find("Effects cannot be compiled", first + 1), std::string::npos);
    service.shutdown();
}

TEST_F(SandboxTest, TheFirstEffectOfADirectoryBringsTheOthersAlong)
{
    GPUOptions options;
    options.compileAhead = true;
    GPUService service(options);
    for (const char* name : {"a.fx", "b.fx", "c.fx"}) {
        write(name, harmless);
    }
    write("_part.fx", "this is no effect");
    for (const char* name : {"a.fx", "b.fx", "c.fx"}) {
        EXPECT_TRUE(service.loadEffectFile(fromUTF8((folder() / name).c_str()), {})) << name;
    }
    service.shutdown();
}

TEST_F(SandboxTest, AnEmptyPathFailsAtOnceAndStartsNothing)
{
    GPUOptions options;
    options.compileAhead = true;
    options.cacheDirectory = folder() / "cache";
    GPUService service(options);
    write("a.fx", harmless);
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder());
    EXPECT_FALSE(service.loadEffectFile(nullptr, {}));
    const EffectCompileResult compiled = service.compileEffectFile(nullptr, {});
    EXPECT_FALSE(compiled.effect);
    EXPECT_EQ(std::string(compiled.errors.c_str()), "\"\":1:1: error: an empty path names no effect file\n");
    const Host::EffectCompilation examined = service.examineEffectFile(nullptr, {});
    EXPECT_EQ(examined.effect, nullptr);
    EXPECT_EQ(examined.messages, compiled.errors.c_str());
    std::filesystem::current_path(before);
    EXPECT_TRUE(service.configure(options)) << "only a service that has not started takes options";
    EXPECT_FALSE(std::filesystem::exists(options.cacheDirectory));
    service.shutdown();
}

TEST_F(SandboxTest, TheFirstFrameFindsItsTechniqueDrawn)
{
    const std::uint64_t before = gpu().statistics().draws;
    ASSERT_TRUE(effect("float4 f() : COLOR { return 0.5; }\n"
                       "technique A { pass P { PixelShader = compile ps_3_0 f(); } }\n"
                       "technique B { pass P { PixelShader = compile ps_3_0 f(); } }\n"));
    EXPECT_EQ(gpu().statistics().draws, before + 4); // two techniques in two formats
}

class ReadyWhenDrawnTest : public GpuTest
{
protected:
    ReadyWhenDrawnTest() : GpuTest(options()) {}

    static GPUOptions options()
    {
        GPUOptions options;
        options.readyWhenLoaded = false;
        return options;
    }
};

TEST_F(ReadyWhenDrawnTest, ATechniqueIsMadeReadyByTheFirstDrawOfEachWay)
{
    const XY<int> size{8, 4};
    const Bytes white(bytesOf(size, iGPUImage::eARGB8), 255);
    const std::uint64_t before = gpu().statistics().draws;
    const Qx::Ptr<iShaderEffect> fifth =
        effect("texture Input;\n"
               "sampler S = sampler_state { Texture = <Input>; MinFilter = Point; MagFilter = Point; };\n"
               "float4 f(float2 uv : TEXCOORD0) : COLOR { return tex2D(S, uv) * 0.2; }\n"
               "technique A { pass P { PixelShader = compile ps_3_0 f(); } }\n");
    ASSERT_TRUE(fifth);
    EXPECT_EQ(gpu().statistics().draws, before);
    for (int i = 0; i < 2; ++i) {
        ImageDescriptionEx description;
        description.image = upload(size, iGPUImage::eARGB8, white);
        description.effect = fifth;
        description.blend = false;
        description.source = {0, 0, 8, 4};
        description.destination = {0, 0, 8, 4};
        const Qx::Ptr<iGPUImage> whole = upload(size, iGPUImage::eARGB8, white);
        ASSERT_TRUE(whole->getPrimitivesRenderer(1)->draw(description, 1));
        EXPECT_EQ(download(whole), Bytes(white.size(), 51));
        description.destination = {0, 0, 4, 4};
        const Qx::Ptr<iGPUImage> part = upload(size, iGPUImage::eARGB8, white);
        ASSERT_TRUE(part->getPrimitivesRenderer(1)->draw(description, 1));
        const Bytes drawn = download(part);
        EXPECT_EQ(at(drawn, size, 3, 3, 1), 51);
        EXPECT_EQ(at(drawn, size, 4, 3, 1), 255);
    }
    EXPECT_EQ(gpu().statistics().draws, before + 4);
}

} // namespace

} // namespace Qx::GpuTests
