#include "tests/host/gpu/GpuFixture.h"

#include <atomic>
#include <cstring>
#include <thread>

namespace Qx::GpuTests {

namespace {

class FailureTest : public GpuTest
{
protected:
    Qx::Ptr<iShaderEffect> copyEffect()
    {
        return effect(R"(
texture Input;
sampler S = sampler_state { Texture = <Input>; MinFilter = Point; MagFilter = Point; };
float gain = 1.0;
float4 copy(float2 uv : TEXCOORD0) : COLOR0 { return tex2D(S, uv) * gain; }
technique Copy { pass P0 { PixelShader = compile ps_3_0 copy(); } }
)");
    }

    static Qx::Vector<iShaderEffect::Source> input(const Qx::Ptr<iGPUImage>& image)
    {
        Qx::Vector<iShaderEffect::Source> sources;
        sources.emplace_back("Input", image);
        return sources;
    }
};

const XY<int> large{1024, 256}; // larger than a shared allocation

} // namespace

TEST_F(FailureTest, ExhaustedMemoryEmptiesThePoolAndTriesOnceMore)
{
    ASSERT_TRUE(gpu().createGPUImage({1000, 300}, iGPUImage::eARGB8)); // released at once: idle
    EXPECT_GT(gpu().statistics().idleImageBytes, 0U);
    gpu().failAllocations(0, 1);
    EXPECT_TRUE(gpu().createGPUImage(large, iGPUImage::eARGB8));
    EXPECT_EQ(gpu().statistics().idleImageBytes, bytesOf(large, iGPUImage::eARGB8));
}

TEST_F(FailureTest, MemoryThatStaysExhaustedIsAnEmptyPointerAndWorkGoesOnLater)
{
    for (int image = 0; image < 2; ++image) {
        gpu().failAllocations(0, 2);
        takeLog();
        if (image == 0) {
            EXPECT_FALSE(gpu().createGPUImage(large, iGPUImage::eARGB8));
        } else {
            EXPECT_FALSE(gpu().createHostImage(large, iGPUImage::eARGB8));
        }
        EXPECT_FALSE(takeLog().empty());
    }
    const Bytes bytes = noise(bytesOf(large, iGPUImage::eARGB8));
    EXPECT_EQ(download(upload(large, iGPUImage::eARGB8, bytes)), bytes);
}

TEST_F(FailureTest, EveryAllocationOfAFrameMayFailWithoutHarm)
{
    const Bytes bytes = noise(bytesOf(large, iGPUImage::eARGB8));
    const Qx::Ptr<iShaderEffect> copy = copyEffect();
    ASSERT_TRUE(copy);
    for (std::uint64_t nth = 0; nth < 6; ++nth) {
        gpu().trim();
        gpu().failAllocations(nth, 2);
        const Qx::Ptr<iGPUImage> source = upload(large, iGPUImage::eARGB8, bytes);
        const Qx::Ptr<iGPUImage> target = gpu().createGPUImage(large, iGPUImage::eARGB8);
        const bool drawn = source && target && copy->render(target, input(source));
        if (drawn) {
            const Bytes result = download(target);
            EXPECT_TRUE(result.empty() || result == bytes) << nth;
        }
    }
    gpu().failAllocations(0, 0);
    EXPECT_FALSE(gpu().isLost());
    const Qx::Ptr<iGPUImage> target = gpu().createGPUImage(large, iGPUImage::eARGB8);
    ASSERT_TRUE(copy->render(target, input(upload(large, iGPUImage::eARGB8, bytes))));
    EXPECT_EQ(download(target), bytes);
}

TEST_F(FailureTest, ALostDeviceFailsEveryOperation)
{
    const XY<int> size{16, 16};
    const Qx::Ptr<iShaderEffect> copy = copyEffect();
    ASSERT_TRUE(copy);
    const Qx::Ptr<iHostImage> host = gpu().createHostImage(size, iGPUImage::eARGB8);
    const Qx::Ptr<iGPUImage> image = gpu().uploadImage(host, 0);
    const Qx::Ptr<iGPUImage> target = gpu().createGPUImage(size, iGPUImage::eARGB8);
    const Qx::Ptr<iGraphicPrimitivesRenderer> renderer = target->getPrimitivesRenderer(1);
    const Qx::Ptr<iHostImage3D> table = gpu().createHostImage3D(4);
    takeLog();
    gpu().loseDevice();
    EXPECT_NE(takeLog().find("lost"), std::string::npos);
    EXPECT_TRUE(gpu().isLost());
    EXPECT_EQ(host->map(iHostImage::Read), nullptr);
    EXPECT_EQ(host->map(iHostImage::Write), nullptr);
    EXPECT_FALSE(gpu().uploadImage(host, 0));
    EXPECT_FALSE(gpu().downloadImage(image));
    EXPECT_FALSE(gpu().createGPUImage(size, iGPUImage::eARGB8));
    EXPECT_FALSE(gpu().createHostImage(size, iGPUImage::eARGB8));
    EXPECT_FALSE(gpu().upload3DImage(table));
    EXPECT_FALSE(gpu().createComputeContext(0));
    EXPECT_FALSE(copy->render(target, input(image)));
    EXPECT_FALSE(renderer->draw(RectDescription{}, 1));
    EXPECT_EQ(image->getSize(), size);
    EXPECT_EQ(table->getData()[0], 0.0F);
}

TEST_F(FailureTest, WhatOutlivesTheServiceIsAnEmptyHusk)
{
    const XY<int> size{16, 16};
    const Qx::Ptr<iShaderEffect> copy = copyEffect();
    ASSERT_TRUE(copy);
    const Qx::Ptr<iShaderParam> gain = copy->getParam("gain");
    const Qx::Ptr<iHostImage> host = gpu().createHostImage(size, iGPUImage::eARGB8);
    const Qx::Ptr<iGPUImage> image = gpu().uploadImage(host, 0);
    const Qx::Ptr<iGPUImage> target = gpu().createGPUImage(size, iGPUImage::eARGB8);
    const Qx::Ptr<iGraphicPrimitivesRenderer> renderer = target->getPrimitivesRenderer(1);
    const Qx::Ptr<iGPUImage3D> table = gpu().upload3DImage(gpu().createHostImage3D(4));
    const Qx::Ptr<iGPUComputeContext> compute = gpu().createComputeContext(0);
    ASSERT_TRUE(copy->render(target, input(image)));
    gpu().shutdown();
    gpu().shutdown();
    EXPECT_EQ(host->map(iHostImage::Read), nullptr);
    EXPECT_FALSE(gpu().uploadImage(host, 0));
    EXPECT_FALSE(gpu().downloadImage(target));
    EXPECT_FALSE(gpu().createGPUImage(size, iGPUImage::eARGB8));
    EXPECT_FALSE(copy->render(target, input(image)));
    EXPECT_FALSE(renderer->draw(RectDescription{}, 1));
    EXPECT_TRUE(copy->setTechnique("Copy"));
    EXPECT_TRUE(gain->setValue(2.0F));
    EXPECT_EQ(table->getSize(), 4);
}

TEST_F(FailureTest, AnAddressThatWasGivenOutStaysGoodAfterShutdown)
{
    const Qx::Ptr<iHostImage> host = gpu().createHostImage({64, 64}, iGPUImage::eARGB8);
    auto* memory = static_cast<std::uint8_t*>(host->map(iHostImage::Write));
    ASSERT_NE(memory, nullptr);
    gpu().shutdown();
    std::memset(memory, 42, bytesOf({64, 64}, iGPUImage::eARGB8));
    EXPECT_EQ(memory[100], 42);
}

TEST_F(FailureTest, OthersMayBeAtWorkWhileItShutsDown)
{
    const XY<int> size{64, 64};
    const Bytes bytes = noise(bytesOf(size, iGPUImage::eARGB8));
    std::atomic<int> rounds{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&] {
            for (;;) {
                const Bytes result = download(upload(size, iGPUImage::eARGB8, bytes));
                if (result.empty()) {
                    return;
                }
                EXPECT_EQ(result, bytes);
                ++rounds;
            }
        });
    }
    while (rounds < 20) {
        std::this_thread::yield();
    }
    gpu().shutdown();
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(FailureTest, FourThreadsUploadDrawAndDownloadEachTheirOwn)
{
    std::vector<std::thread> threads;
    const Qx::Ptr<iShaderEffect> shared = copyEffect();
    ASSERT_TRUE(shared);
    for (std::uint32_t t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            const XY<int> size{100 + static_cast<int>(t % 2), 60};
            for (std::uint32_t i = 0; i < 25; ++i) {
                const Bytes bytes = noise(bytesOf(size, iGPUImage::eARGB8), 100 * t + i);
                const Qx::Ptr<iGPUImage> target = gpu().createGPUImage(size, iGPUImage::eARGB8);
                ASSERT_TRUE(shared->render(target, input(upload(size, iGPUImage::eARGB8, bytes))));
                ASSERT_EQ(download(target), bytes) << t << " " << i;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(FailureTest, ImagesOfAnotherServiceAreRefused)
{
    GPUService other;
    ASSERT_TRUE(other.start()) << other.failure();
    const Qx::Ptr<iGPUImage> foreign = other.createGPUImage({4, 4}, iGPUImage::eARGB8);
    const Qx::Ptr<iHostImage> foreignHost = other.createHostImage({4, 4}, iGPUImage::eARGB8);
    EXPECT_FALSE(gpu().downloadImage(foreign));
    EXPECT_FALSE(gpu().uploadImage(foreignHost, 0));
    const Qx::Ptr<iShaderEffect> copy = copyEffect();
    ASSERT_TRUE(copy);
    EXPECT_FALSE(copy->render(foreign, input(foreign)));
    EXPECT_FALSE(copy->render(gpu().createGPUImage({4, 4}, iGPUImage::eARGB8), input(foreign)));
    other.shutdown();
}

namespace {

/// Keeps objects until the process's static destructors run.
std::vector<Qx::Ptr<iObject>>& heldUntilExit()
{
    static std::vector<Qx::Ptr<iObject>> held;
    return held;
}

} // namespace

TEST_F(FailureTest, HusksAreReleasedInStaticDestructors)
{
    heldUntilExit().emplace_back(gpu().createGPUImage({16, 16}, iGPUImage::eARGB8));
    heldUntilExit().emplace_back(gpu().upload3DImage(gpu().createHostImage3D(4)));
    heldUntilExit().emplace_back(copyEffect());
    gpu().shutdown();
}

TEST(ProcessServiceTest, NothingHappensToAServiceThatNobodyShutsDown)
{
    ASSERT_TRUE(Host::gpuService().start()) << Host::gpuService().failure();
    EXPECT_EQ(&Host::gpuService(), &Host::gpuService());
    const Qx::Ptr<iHostImage> host = Host::gpuService().createHostImage({16, 16}, iGPUImage::eARGB8);
    ASSERT_TRUE(host);
    heldUntilExit().emplace_back(host);
    heldUntilExit().emplace_back(Host::gpuService().uploadImage(host, 0));
    EXPECT_TRUE(heldUntilExit().back());
}

TEST(ProcessServiceTest, AServiceThatWasShutDownBeforeItStartedDoesNotStart)
{
    GPUService service;
    service.shutdown();
    EXPECT_FALSE(service.start());
    EXPECT_NE(service.failure().find("shut down"), std::string::npos);
    EXPECT_FALSE(service.createGPUImage({4, 4}, iGPUImage::eARGB8));
}

} // namespace Qx::GpuTests
