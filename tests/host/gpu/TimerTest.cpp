#include "tests/host/gpu/GpuFixture.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <thread>

namespace Qx::GpuTests {

namespace {

using Host::DeviceDescription;
using Host::GPUTime;

class Timer : public GpuTest
{
protected:
    void SetUp() override
    {
        GpuTest::SetUp();
        const std::vector<DeviceDescription> devices = gpu().listDevices();
        const auto chosen =
            std::find_if(devices.begin(), devices.end(), [](const auto& device) { return device.chosen; });
        ASSERT_NE(chosen, devices.end());
        ASSERT_TRUE(chosen->hasTimer) << "these tests need a device with time stamps";
        target_ = gpu().createGPUImage(size_, iGPUImage::eARGB16);
        ASSERT_TRUE(target_);
        draw(1);
        settle(); // creates the pipelines
    }

    void TearDown() override
    {
        target_.reset();
        GpuTest::TearDown();
    }

    void draw(int times)
    {
        const auto renderer = target_->getPrimitivesRenderer(1);
        RectDescription gradient;
        gradient.area = {0, 0, size_.x, size_.y};
        gradient.colour = {1, 0, 0, 1};
        gradient.colour2 = {0, 0, 1, 1};
        for (int i = 0; i < times; ++i) {
            ASSERT_TRUE(renderer->draw(gradient, 1));
        }
    }

    /// Waits until the device is idle.
    void settle() { ASSERT_FALSE(download(target_).empty()); }

    std::optional<GPUTime> timeOf(int draws)
    {
        EXPECT_TRUE(gpu().startTimer());
        draw(draws);
        return gpu().stopTimer();
    }

    const XY<int> size_{1024, 1024};
    Qx::Ptr<iGPUImage> target_;
};

} // namespace

TEST_F(Timer, ManyDrawsTakeTheDeviceLongerThanOne)
{
    const std::optional<GPUTime> one = timeOf(1);
    const std::optional<GPUTime> many = timeOf(100);
    ASSERT_TRUE(one && many);
    EXPECT_GT(one->busyMilliseconds, 0.0);
    EXPECT_GT(many->busyMilliseconds, one->busyMilliseconds);
    EXPECT_EQ(one->batches, 1U);
    EXPECT_GT(many->batches, 1U) << "a batch holds so many draws at most";
    EXPECT_LE(many->busyMilliseconds, many->spanMilliseconds * 1.000001);
}

TEST_F(Timer, OfNothingIsZeroInNoBatch)
{
    ASSERT_TRUE(gpu().startTimer());
    const std::optional<GPUTime> time = gpu().stopTimer();
    ASSERT_TRUE(time);
    EXPECT_EQ(time->batches, 0U);
    EXPECT_EQ(time->busyMilliseconds, 0.0);
    EXPECT_EQ(time->spanMilliseconds, 0.0);
}

TEST_F(Timer, LeavesOutWhatWasRecordedBeforeItStarted)
{
    const std::uint64_t before = gpu().statistics().batchesSubmitted;
    draw(1);
    ASSERT_TRUE(gpu().startTimer());
    EXPECT_EQ(gpu().statistics().batchesSubmitted, before + 1);
    const std::optional<GPUTime> time = gpu().stopTimer();
    ASSERT_TRUE(time);
    EXPECT_EQ(time->batches, 0U);
}

TEST_F(Timer, LeavesOutTheGapsInWhichTheDeviceHasNothingToDo)
{
    constexpr auto gap = std::chrono::milliseconds(50);
    ASSERT_TRUE(gpu().startTimer());
    const std::uint64_t before = gpu().statistics().batchesSubmitted;
    draw(1);
    settle();
    std::this_thread::sleep_for(gap);
    draw(1);
    settle();
    const std::optional<GPUTime> time = gpu().stopTimer();
    ASSERT_TRUE(time);
    EXPECT_EQ(time->batches, gpu().statistics().batchesSubmitted - before);
    EXPECT_GE(time->batches, 2U);
    // The device's clock may run slightly slower than the processor's.
    EXPECT_GT(time->spanMilliseconds, time->busyMilliseconds + 0.99 * static_cast<double>(gap.count()));
}

TEST_F(Timer, MeasuresOneThingAtATime)
{
    EXPECT_FALSE(gpu().stopTimer()) << "it was not started";
    ASSERT_TRUE(gpu().startTimer());
    EXPECT_FALSE(gpu().startTimer());
    draw(1);
    EXPECT_TRUE(gpu().stopTimer());
    EXPECT_FALSE(gpu().stopTimer());
    EXPECT_TRUE(timeOf(1)) << "it starts afresh";
}

TEST_F(Timer, CountsAMeasurementsOwnBatchesOnly)
{
    const std::optional<GPUTime> many = timeOf(100);
    const std::optional<GPUTime> one = timeOf(1);
    ASSERT_TRUE(many && one);
    EXPECT_EQ(one->batches, 1U) << "batches that were timed before are used again";
}

/// An effect whose passes draw into a texture, into the target, and over a part of it. The second takes
/// longest.
class PassTimer : public Timer, public testing::WithParamInterface<iGPUImage::eFormat>
{
protected:
    static constexpr const char* text = R"(
        texture Input;
        texture Half;
        sampler InputSampler = sampler_state { Texture = <Input>; };
        sampler HalfSampler = sampler_state { Texture = <Half>; };
        float4 halved(float2 uv : TEXCOORD0) : COLOR { return tex2D(InputSampler, uv) * 0.5; }
        float4 slow(float2 uv : TEXCOORD0, uniform sampler from) : COLOR
        {
            float4 sum = 0;
            for (int i = 0; i < 200; ++i)
                sum += tex2D(from, uv + float2(i * 0.003, 0));
            return sum / 200;
        }
        float4 part(float2 uv : TEXCOORD0, uniform sampler from) : COLOR
        {
            clip(uv.x - 0.5);
            return 1 - tex2D(from, uv);
        }
        technique ByTexture
        {
            pass Halved < string Target = "Half"; > { PixelShader = compile ps_3_0 halved(); }
            pass Slow { PixelShader = compile ps_3_0 slow(HalfSampler); }
            pass Part { PixelShader = compile ps_3_0 part(HalfSampler); }
        }
        technique AtOnce
        {
            pass Halved { PixelShader = compile ps_3_0 halved(); }
            pass Slow { PixelShader = compile ps_3_0 slow(InputSampler); }
            pass Part { PixelShader = compile ps_3_0 part(InputSampler); }
        })";

    void SetUp() override
    {
        Timer::SetUp();
        target_ = gpu().createGPUImage(size_, GetParam());
        picture_ = upload(size_, GetParam(), noise(bytesOf(size_, GetParam())));
        ASSERT_TRUE(target_ && picture_);
    }

    void TearDown() override
    {
        picture_.reset();
        Timer::TearDown();
    }

    Bytes drawn(const Qx::Ptr<iShaderEffect>& by)
    {
        Qx::Vector<iShaderEffect::Source> sources;
        sources.emplace_back("Input", picture_);
        EXPECT_TRUE(by->render(target_, sources));
        return download(target_);
    }

    Qx::Ptr<iGPUImage> picture_;
};

INSTANTIATE_TEST_SUITE_P(Formats, PassTimer, testing::Values(iGPUImage::eARGB8, iGPUImage::eARGB16));

TEST_P(PassTimer, TellsThePassesOfAnEffectApartAndDrawsTheSame)
{
    const Qx::Ptr<iShaderEffect> passes = effect(text);
    ASSERT_TRUE(passes);
    for (const char* const technique : {"ByTexture", "AtOnce"}) {
        SCOPED_TRACE(technique);
        ASSERT_TRUE(passes->setTechnique(technique));
        const Bytes together = drawn(passes);
        ASSERT_TRUE(gpu().startPassTimer());
        EXPECT_TRUE(drawn(passes) == together);
        const std::optional<Host::GPUPassTimes> times = gpu().stopPassTimer();
        ASSERT_TRUE(times);
        const std::vector<double>& each = times->milliseconds;
        ASSERT_EQ(each.size(), 3U);
        EXPECT_GT(each[0], 0.0);
        EXPECT_GT(each[2], 0.0);
        EXPECT_GT(each[1], each[0] + each[2]) << "it samples two hundred times as often";
        EXPECT_LE(each[0] + each[1] + each[2], times->whole.busyMilliseconds * 1.000001);
    }
}

TEST_P(PassTimer, TellsNoPassesApartUnlessAsked)
{
    const Qx::Ptr<iShaderEffect> passes = effect(text);
    ASSERT_TRUE(passes);
    ASSERT_TRUE(gpu().startTimer());
    drawn(passes);
    const std::optional<Host::GPUPassTimes> times = gpu().stopPassTimer();
    ASSERT_TRUE(times);
    EXPECT_GT(times->whole.busyMilliseconds, 0.0);
    EXPECT_TRUE(times->milliseconds.empty());
}

TEST_F(Timer, WhatALostDeviceDidIsNotMeasured)
{
    ASSERT_TRUE(gpu().startTimer());
    draw(1);
    gpu().loseDevice();
    EXPECT_FALSE(gpu().stopTimer());
    EXPECT_FALSE(gpu().startTimer());
}

TEST_F(Timer, NothingIsMeasuredByADeviceWithoutOne)
{
    gpu().loseTimer();
    EXPECT_FALSE(gpu().startTimer());
    draw(1);
    EXPECT_FALSE(gpu().stopTimer());
}

} // namespace Qx::GpuTests
