// A device that lacks what the service would use draws the same bytes in the next way, and the list of
// devices says so.

#include "host/gpu/device/PhysicalDevice.h"
#include "platform/Text.h"
#include "tests/host/gpu/Drawn.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>

namespace Qx::GpuTests {

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

class WithheldTest : public GpuTest
{
protected:
    void TearDown() override
    {
        ::unsetenv("QX_DEVICE_WITHOUT");
        if (less_ != nullptr) {
            less_->shutdown();
            EXPECT_EQ(less_->statistics().validationMessages, 0U) << takeLog();
        }
        GpuTest::TearDown();
    }

    /// Starts a service without those features. Fails if it does not draw what the whole device does.
    void drawWithout(const char* list)
    {
        ::setenv("QX_DEVICE_WITHOUT", list, 1);
        GPUOptions options;
        options.validation = true;
        options.readyWhenLoaded = false;
        less_ = std::make_unique<GPUService>(options);
        ASSERT_TRUE(less_->start()) << less_->failure();
        const std::map<std::string, Bytes> got = drawnBy(*less_, folder());
        for (const auto& [what, bytes] : drawnBy(gpu(), folder())) {
            ASSERT_FALSE(bytes.empty()) << what;
            EXPECT_TRUE(got.at(what) == bytes) << what << " without " << list;
        }
    }

    GPUService& less() { return *less_; }

    /// Whether the way is told of the device without the feature, and not of the whole one.
    void expectTold(const char* part)
    {
        EXPECT_THAT(chosenDevice(less()).nextWays, Contains(HasSubstr(part)));
        EXPECT_THAT(chosenDevice(gpu()).nextWays, Not(Contains(HasSubstr(part))));
    }

private:
    std::unique_ptr<GPUService> less_;
};

TEST_F(WithheldTest, WithoutATimerItsTimeIsNotMeasured)
{
    drawWithout("timer");
    EXPECT_FALSE(less().startTimer());
    EXPECT_FALSE(chosenDevice(less()).hasTimer);
    expectTold("no timer");
}

TEST_F(WithheldTest, WithoutImagesInRowsTexelsAreDrawnOneByOneAndPicturesCopied)
{
    drawWithout("rows");
    if (drawsPacked()) {
        EXPECT_GT(gpu().statistics().packedDraws, 0U);
        EXPECT_EQ(less().statistics().packedDraws, 0U);
        EXPECT_EQ(less().statistics().sharedTransfers, 0U);
        expectTold("stored row by row");
    }
}

TEST_F(WithheldTest, WithoutSharedMemoryPicturesAreCopied)
{
    drawWithout("shared-memory");
    const XY<int> fitting{64, 16};
    for (GPUService* service : {&gpu(), &less()}) {
        const std::uint64_t before = service->statistics().sharedTransfers;
        const Qx::Ptr<iHostImage> host = service->createHostImage(fitting, iGPUImage::eARGB8);
        ASSERT_TRUE(host && service->uploadImage(host, 0));
        if (sharesMemory()) {
            EXPECT_EQ(service->statistics().sharedTransfers - before, service == &less() ? 0U : 1U);
        }
    }
    if (drawsPacked()) {
        EXPECT_GT(less().statistics().packedDraws, 0U);
        expectTold("shares no memory");
    }
}

TEST_F(WithheldTest, WithoutFastConversionsShadersAdd)
{
    drawWithout("conversions");
    EXPECT_THAT(chosenDevice(less()).nextWays, Contains(HasSubstr("shaders add instead")));
}

TEST(ConversionsOfFloats, AreSlowOnLlvmpipeSinceMesa23)
{
    using Host::Vulkan::convertsOneByOne;
    EXPECT_FALSE(convertsOneByOne(VK_DRIVER_ID_MESA_LLVMPIPE, "Mesa 22.3.6 (LLVM 15.0.6)"));
    EXPECT_TRUE(convertsOneByOne(VK_DRIVER_ID_MESA_LLVMPIPE, "Mesa 23.0.0 (LLVM 15.0.6)"));
    EXPECT_TRUE(convertsOneByOne(VK_DRIVER_ID_MESA_LLVMPIPE, "Mesa 25.0.7-2 (LLVM 19.1.7)"));
    EXPECT_FALSE(convertsOneByOne(VK_DRIVER_ID_MESA_RADV, "Mesa 25.0.7-2 (LLVM 19.1.7)"));
    EXPECT_FALSE(convertsOneByOne(VK_DRIVER_ID_MESA_LLVMPIPE, "25.0.7"));
}

TEST_F(WithheldTest, WithSmallLimitsSmallPicturesAreDrawnAndLargerOnesRefused)
{
    drawWithout("large-limits");
    EXPECT_EQ(chosenDevice(less()).largestImage, 4096U);
    EXPECT_TRUE(less().createGPUImage({4096, 2}, iGPUImage::eARGB8));
    EXPECT_FALSE(less().createGPUImage({4097, 2}, iGPUImage::eARGB8));
    EXPECT_FALSE(less().createHostImage({2, 4097}, iGPUImage::eARGB8));
    EXPECT_TRUE(less().createHostImage3D(203));
    EXPECT_FALSE(less().createHostImage3D(204)) << "16 bytes a texel are more than 128 MiB";
    expectTold("at most 128 MiB");
    if (drawsPacked()) {
        expectTold("at most 65536 texels as a buffer");
    }
}

TEST_F(WithheldTest, WithSmallTexelBuffersLargerPicturesAreDrawnTexelByTexel)
{
    ::setenv("QX_DEVICE_WITHOUT", "large-limits", 1);
    GPUService service;
    ASSERT_TRUE(service.start()) << service.failure();
    ::unsetenv("QX_DEVICE_WITHOUT");
    const XY<int> large{512, 256}; // two texels for each that a buffer has
    const Bytes bytes = noise(bytesOf(large, iGPUImage::eARGB8));
    std::vector<Bytes> results;
    const char* const text = R"(
texture Input;
sampler S = sampler_state { Texture = <Input>; };
float4 turned(int2 pos : VPOS) : COLORCODE { return tex2Dcodes(S, pos).gbar; }
technique Turned { pass { PixelShader = compile ps_3_0 turned(); } }
)";
    std::ofstream(folder() / "turned.fx") << text;
    for (GPUService* each : {&gpu(), &service}) {
        const EffectCompileResult result =
            each->compileEffectFile(fromUTF8((folder() / "turned.fx").c_str()), {});
        ASSERT_TRUE(result.effect) << result.errors.c_str();
        const Qx::Ptr<iHostImage> host = each->createHostImage(large, iGPUImage::eARGB8);
        ASSERT_TRUE(host);
        std::copy(bytes.begin(), bytes.end(), static_cast<std::uint8_t*>(host->map(iHostImage::Write)));
        const Qx::Ptr<iGPUImage> target = each->createGPUImage(large, iGPUImage::eARGB8);
        Qx::Vector<iShaderEffect::Source> sources;
        sources.emplace_back("Input", each->uploadImage(host, 0));
        ASSERT_TRUE(result.effect->render(target, sources));
        const std::uint64_t packed = each->statistics().packedDraws;
        ASSERT_TRUE(result.effect->render(target, sources));
        if (drawsPacked()) {
            EXPECT_EQ(each->statistics().packedDraws - packed, each == &gpu() ? 1U : 0U);
        }
        const Qx::Ptr<iHostImage> drawn = each->downloadImage(target);
        ASSERT_TRUE(drawn);
        const auto* memory = static_cast<const std::uint8_t*>(drawn->map(iHostImage::Read));
        results.emplace_back(memory, memory + bytes.size());
    }
    EXPECT_EQ(results[0], results[1]);
    service.shutdown();
}

TEST_F(WithheldTest, ADriverThatIsNotConformantIsUsedAndSaysSo)
{
    drawWithout("conformance");
    EXPECT_FALSE(chosenDevice(less()).conformant);
    expectTold("conformance tests");
}

TEST_F(WithheldTest, EverythingMayBeMissingAtOnce)
{
    drawWithout("timer,rows,shared-memory,large-limits,conversions,conformance");
    expectTold("no timer");
    expectTold("at most 128 MiB");
    expectTold("conformance tests");
}

TEST(WithheldNamesTest, AnUnknownNameIsAFailureThatListsTheKnownOnes)
{
    ::setenv("QX_DEVICE_WITHOUT", "timer,colour", 1);
    GPUService service;
    EXPECT_FALSE(service.start());
    EXPECT_THAT(service.failure(), HasSubstr("\"colour\""));
    EXPECT_THAT(
        service.failure(),
        HasSubstr("timer, rows, shared-memory, large-limits, conversions, conformance, transfer-queue"));
    ::unsetenv("QX_DEVICE_WITHOUT");
}

VkQueueFamilyProperties family(VkQueueFlags flags, std::uint32_t timerBits)
{
    VkQueueFamilyProperties properties{};
    properties.queueFlags = flags;
    properties.queueCount = 1;
    properties.timestampValidBits = timerBits;
    return properties;
}

TEST(QueueFamilyTest, TheFirstThatDrawsWithATimerIsTaken)
{
    using Host::Vulkan::drawingFamily;
    const auto copies = family(VK_QUEUE_TRANSFER_BIT, 64);
    const auto computes = family(VK_QUEUE_COMPUTE_BIT | VK_QUEUE_TRANSFER_BIT, 64);
    const auto draws = family(VK_QUEUE_GRAPHICS_BIT | VK_QUEUE_COMPUTE_BIT, 0);
    const auto drawsTimed = family(VK_QUEUE_GRAPHICS_BIT, 36);
    const auto index = [](std::vector<VkQueueFamilyProperties> families) {
        const auto found = drawingFamily(families);
        return found ? static_cast<int>(found->index) : -1;
    };
    EXPECT_EQ(index({}), -1);
    EXPECT_EQ(index({copies, computes}), -1);
    EXPECT_EQ(index({copies, computes, draws}), 2);
    EXPECT_EQ(index({draws, copies, drawsTimed}), 2);
    EXPECT_EQ(index({drawsTimed, draws, drawsTimed}), 0);
    EXPECT_EQ(drawingFamily(std::vector{copies, drawsTimed})->timerBits, 36U);
}

TEST(QueueFamilyTest, TheFirstThatDoesNothingButCopyIsTakenForCopies)
{
    const auto copies = family(VK_QUEUE_TRANSFER_BIT | VK_QUEUE_SPARSE_BINDING_BIT, 0);
    const auto computes = family(VK_QUEUE_COMPUTE_BIT | VK_QUEUE_TRANSFER_BIT, 64);
    const auto draws = family(VK_QUEUE_GRAPHICS_BIT | VK_QUEUE_COMPUTE_BIT | VK_QUEUE_TRANSFER_BIT, 64);
    const auto decodes = family(VK_QUEUE_VIDEO_DECODE_BIT_KHR | VK_QUEUE_TRANSFER_BIT, 0);
    const auto index = [](std::vector<VkQueueFamilyProperties> families) {
        const auto found = Host::Vulkan::copyingFamily(families);
        return found ? static_cast<int>(found->index) : -1;
    };
    EXPECT_EQ(index({draws}), -1);
    EXPECT_EQ(index({draws, computes, decodes}), -1);
    EXPECT_EQ(index({draws, decodes, copies, copies}), 2);
}

} // namespace

} // namespace Qx::GpuTests
