// The service on an application's own Vulkan device, and images that both use by turns. The application has
// the validation layer with its checks of synchronisation; any message fails a test, and so does whatever the
// service leaves on the device.

#include "tests/host/gpu/sharing/Application.h"

#include <array>
#include <thread>

namespace Qx::GpuTests {

namespace {

using Host::ApplicationDevice;
using Host::ApplicationImage;
using Host::GivenImage;
using Host::ImageSharing;

constexpr XY<int> fittingSize{64, 48}; ///< the packed path can draw it
constexpr XY<int> oddSize{61, 37};

const char* const lightEffect = R"(
texture Input;
sampler InputSampler = sampler_state { Texture = <Input>; MinFilter = Point; MagFilter = Point; };
float Gain = 0.75;
float4 light(float2 uv : TEXCOORD0) : COLOR0
{
    float4 colour = tex2D(InputSampler, uv);
    return float4(colour.rgb * Gain + 0.03125, colour.a);
}
technique Light { pass P0 { PixelShader = compile ps_3_0 light(); } }
)";

/// A service on its own device beside one on the application's.
class DeviceSharingTest : public GpuTest
{
protected:
    void SetUp() override
    {
        GpuTest::SetUp();
        application_ = std::make_unique<Application>();
        theirs_ = serviceOn(application_->shared());
        ASSERT_TRUE(theirs().start()) << theirs().failure();
        takeLog();
    }

    void TearDown() override
    {
        theirs().shutdown();
        EXPECT_FALSE(theirs().holdsDevice());
        application_.reset();
        GpuTest::TearDown();
    }

    static std::unique_ptr<GPUService> serviceOn(const ApplicationDevice& device)
    {
        GPUOptions options;
        options.sharedDevice = std::make_shared<const ApplicationDevice>(device);
        return std::make_unique<GPUService>(options);
    }

    Application& application() { return *application_; }
    GPUService& theirs() { return *theirs_; }
    ImageSharing sharing() { return ImageSharing(theirs()); }

    Qx::Ptr<iShaderEffect> lightOf(GPUService& service)
    {
        const std::filesystem::path file = folder() / "light.fx";
        if (FILE* const text = std::fopen(file.c_str(), "w")) {
            std::fputs(lightEffect, text);
            std::fclose(text);
        }
        return service.loadEffectFile(LightweightString<wchar_t>(file.wstring().c_str()), {});
    }

    static bool draw(const Qx::Ptr<iShaderEffect>& effect, const Qx::Ptr<iGPUImage>& source,
                     const Qx::Ptr<iGPUImage>& target)
    {
        Qx::Vector<iShaderEffect::Source> sources;
        sources.emplace_back("Input", source);
        return effect && effect->render(target, sources);
    }

    /// What the service on its own device makes of the texels.
    Bytes unshared(XY<int> size, iGPUImage::eFormat format, const Bytes& texels)
    {
        const Qx::Ptr<iGPUImage> target = gpu().createGPUImage(size, format);
        return draw(lightOf(gpu()), upload(size, format, texels), target) ? download(target) : Bytes();
    }

    Qx::Ptr<iGPUImage> wrapped(const ApplicationImage& image, const Bytes& texels, VkImageLayout layout)
    {
        return sharing().wrapImage(image, layout, application().write(image, texels, layout));
    }

    std::string whyNot(const ApplicationDevice& device)
    {
        const std::unique_ptr<GPUService> service = serviceOn(device);
        EXPECT_FALSE(service->start());
        service->shutdown();
        return service->failure();
    }

private:
    std::unique_ptr<Application> application_;
    std::unique_ptr<GPUService> theirs_;
};

VkSemaphore semaphoreOn(VkDevice device, VkSemaphoreType kind)
{
    VkSemaphoreTypeCreateInfo type{};
    type.sType = VK_STRUCTURE_TYPE_SEMAPHORE_TYPE_CREATE_INFO;
    type.semaphoreType = kind;
    VkSemaphoreCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_SEMAPHORE_CREATE_INFO;
    info.pNext = &type;
    VkSemaphore semaphore = nullptr;
    EXPECT_EQ(vkCreateSemaphore(device, &info, nullptr, &semaphore), VK_SUCCESS);
    return semaphore;
}

struct Kind
{
    VkFormat vulkan;
    iGPUImage::eFormat texels;
    std::size_t bytes;
    VkImageCreateFlags flags = 0;
};

constexpr std::array<Kind, 5> kinds{
    {{VK_FORMAT_R8G8B8A8_UNORM, iGPUImage::eARGB8, 4},
     {VK_FORMAT_R16G16B16A16_UNORM, iGPUImage::eARGB16, 8},
     {VK_FORMAT_A2R10G10B10_UNORM_PACK32, iGPUImage::eARGB10, 4},
     {VK_FORMAT_B8G8R8A8_UNORM, iGPUImage::eARGB8, 4, VK_IMAGE_CREATE_MUTABLE_FORMAT_BIT},
     {VK_FORMAT_R8G8B8A8_SRGB, iGPUImage::eARGB8, 4, VK_IMAGE_CREATE_MUTABLE_FORMAT_BIT}}};

} // namespace

TEST_F(DeviceSharingTest, AnEffectOverTheApplicationsImageGivesWhatItGivesWithoutSharing)
{
    const Qx::Ptr<iShaderEffect> light = lightOf(theirs());
    for (const Kind& kind : kinds) {
        for (const XY<int> size : {fittingSize, oddSize}) {
            const Bytes texels = noise(bytesOf(size, kind.texels));
            const ApplicationImage image = application().makeImage(size, kind.vulkan, kind.flags);
            const Qx::Ptr<iGPUImage> source = wrapped(image, texels, VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL);
            ASSERT_TRUE(source) << takeLog();
            EXPECT_EQ(source->getFormat(), kind.texels);
            const Qx::Ptr<iGPUImage> target = theirs().createGPUImage(size, kind.texels);
            ASSERT_TRUE(draw(light, source, target)) << takeLog();
            const std::optional<GivenImage> given =
                sharing().giveImage(target, VK_IMAGE_LAYOUT_TRANSFER_SRC_OPTIMAL);
            ASSERT_TRUE(given) << takeLog();
            EXPECT_EQ(application().read(*given, size, kind.bytes), unshared(size, kind.texels, texels))
                << "VkFormat " << kind.vulkan << ", " << size.x << " x " << size.y;
            EXPECT_TRUE(sharing().takeImage(target, given->layout, {}));
            EXPECT_EQ(
                application().read(*sharing().giveImage(source, VK_IMAGE_LAYOUT_GENERAL), size, kind.bytes),
                texels);
        }
    }
}

TEST_F(DeviceSharingTest, AnEffectDrawsIntoTheApplicationsImage)
{
    const Qx::Ptr<iShaderEffect> light = lightOf(theirs());
    for (const Kind& kind : kinds) {
        const Bytes texels = noise(bytesOf(oddSize, kind.texels));
        const Qx::Ptr<iHostImage> rows = theirs().createHostImage(oddSize, kind.texels);
        std::memcpy(rows->map(iHostImage::Write), texels.data(), texels.size());
        const ApplicationImage image = application().makeImage(oddSize, kind.vulkan, kind.flags);
        const Qx::Ptr<iGPUImage> target = sharing().wrapImage(image, VK_IMAGE_LAYOUT_UNDEFINED, {});
        ASSERT_TRUE(draw(light, theirs().uploadImage(rows, 0), target)) << takeLog();
        const auto given = sharing().giveImage(target, VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL);
        ASSERT_TRUE(given);
        EXPECT_EQ(given->image, image.image);
        EXPECT_EQ(given->layout, VK_IMAGE_LAYOUT_SHADER_READ_ONLY_OPTIMAL);
        EXPECT_EQ(application().read(*given, oddSize, kind.bytes), unshared(oddSize, kind.texels, texels))
            << "VkFormat " << kind.vulkan;
    }
}

TEST_F(DeviceSharingTest, ImagesGoBackAndForthForManyFrames)
{
    constexpr int frames = 20;
    const Qx::Ptr<iShaderEffect> light = lightOf(theirs());
    const ApplicationImage image = application().makeImage(fittingSize, VK_FORMAT_R8G8B8A8_UNORM);
    const Qx::Ptr<iGPUImage> source = sharing().wrapImage(image, VK_IMAGE_LAYOUT_UNDEFINED, {});
    const Qx::Ptr<iGPUImage> target = theirs().createGPUImage(fittingSize, iGPUImage::eARGB8);
    ASSERT_TRUE(source && target);
    std::uint64_t memory = 0;
    for (int frame = 0; frame < frames; ++frame) {
        const Bytes texels =
            noise(bytesOf(fittingSize, iGPUImage::eARGB8), static_cast<std::uint32_t>(frame));
        const auto returned = sharing().giveImage(source, VK_IMAGE_LAYOUT_GENERAL);
        ASSERT_TRUE(returned && sharing().wait(*returned));
        const VkImageLayout layout = VK_IMAGE_LAYOUT_TRANSFER_DST_OPTIMAL;
        ASSERT_TRUE(sharing().takeImage(source, layout, application().write(image, texels, layout)));
        ASSERT_TRUE(draw(light, source, target)) << takeLog();
        const auto given = sharing().giveImage(target, VK_IMAGE_LAYOUT_GENERAL);
        ASSERT_TRUE(given);
        EXPECT_EQ(application().read(*given, fittingSize, 4),
                  unshared(fittingSize, iGPUImage::eARGB8, texels))
            << frame;
        ASSERT_TRUE(sharing().takeImage(target, given->layout, {}));
        if (frame == 2) {
            memory = theirs().statistics().memoryAllocations;
        }
    }
    EXPECT_EQ(theirs().statistics().memoryAllocations, memory);
}

TEST_F(DeviceSharingTest, AnotherThreadOfTheApplicationSubmitsToTheSameQueue)
{
    std::atomic<bool> ends{false};
    std::atomic<int> rounds{0};
    std::thread other([&] {
        while (!ends || rounds < 10) {
            application().work();
            ++rounds;
        }
    });
    const std::uint64_t before = application().locked();
    const Qx::Ptr<iShaderEffect> light = lightOf(theirs());
    const Bytes texels = noise(bytesOf(fittingSize, iGPUImage::eARGB8));
    const ApplicationImage image = application().makeImage(fittingSize, VK_FORMAT_R8G8B8A8_UNORM);
    const Qx::Ptr<iGPUImage> source = wrapped(image, texels, VK_IMAGE_LAYOUT_GENERAL);
    const Bytes wanted = unshared(fittingSize, iGPUImage::eARGB8, texels);
    for (int i = 0; i < 30; ++i) {
        const Qx::Ptr<iGPUImage> target = theirs().createGPUImage(fittingSize, iGPUImage::eARGB8);
        EXPECT_TRUE(draw(light, source, target));
        const Qx::Ptr<iHostImage> host = theirs().downloadImage(target);
        const auto* const bytes = static_cast<const std::uint8_t*>(host->map(iHostImage::Read));
        EXPECT_EQ(Bytes(bytes, bytes + wanted.size()), wanted);
    }
    ends = true;
    other.join();
    EXPECT_EQ(application().locked() - before, theirs().statistics().batchesSubmitted);
    EXPECT_GE(rounds, 10);
}

TEST_F(DeviceSharingTest, WorkWaitsForTheApplicationsSemaphore)
{
    // Signalled by the host after the service's work was submitted: nothing is drawn before.
    VkDevice device = application().shared().device;
    VkSemaphore semaphore = semaphoreOn(device, VK_SEMAPHORE_TYPE_TIMELINE);
    const Qx::Ptr<iShaderEffect> light = lightOf(theirs());
    const ApplicationImage image = application().makeImage(fittingSize, VK_FORMAT_R8G8B8A8_UNORM);
    const Bytes texels = noise(bytesOf(fittingSize, iGPUImage::eARGB8));
    application().write(image, texels, VK_IMAGE_LAYOUT_GENERAL);
    const Qx::Ptr<iGPUImage> source = sharing().wrapImage(image, VK_IMAGE_LAYOUT_GENERAL, {semaphore, 7});
    const Qx::Ptr<iGPUImage> target = theirs().createGPUImage(fittingSize, iGPUImage::eARGB8);
    ASSERT_TRUE(draw(light, source, target));
    const auto given = sharing().giveImage(target, VK_IMAGE_LAYOUT_GENERAL);
    ASSERT_TRUE(given);
    std::uint64_t reached = 0;
    ASSERT_EQ(vkGetSemaphoreCounterValue(device, given->ready.semaphore, &reached), VK_SUCCESS);
    EXPECT_LT(reached, given->ready.value);

    VkSemaphoreSignalInfo signal{};
    signal.sType = VK_STRUCTURE_TYPE_SEMAPHORE_SIGNAL_INFO;
    signal.semaphore = semaphore;
    signal.value = 7;
    ASSERT_EQ(vkSignalSemaphore(device, &signal), VK_SUCCESS);
    EXPECT_EQ(application().read(*given, fittingSize, 4), unshared(fittingSize, iGPUImage::eARGB8, texels));
    theirs().shutdown();
    vkDestroySemaphore(device, semaphore, nullptr);
}

TEST_F(DeviceSharingTest, ABinarySemaphoreCanBeUsedAgainAfterTheHandover)
{
    const Qx::Ptr<iShaderEffect> light = lightOf(theirs());
    VkDevice device = application().shared().device;
    VkSemaphore semaphore = semaphoreOn(device, VK_SEMAPHORE_TYPE_BINARY);
    const ApplicationImage image = application().makeImage(oddSize, VK_FORMAT_R8G8B8A8_UNORM);
    const Qx::Ptr<iGPUImage> target = theirs().createGPUImage(oddSize, iGPUImage::eARGB8);
    Qx::Ptr<iGPUImage> source;
    for (std::uint32_t round = 0; round < 3; ++round) {
        const Bytes texels = noise(bytesOf(oddSize, iGPUImage::eARGB8), round);
        application().write(image, texels, VK_IMAGE_LAYOUT_GENERAL, semaphore);
        if (!source) {
            source = sharing().wrapImage(image, VK_IMAGE_LAYOUT_GENERAL, {semaphore, 0});
        } else {
            ASSERT_TRUE(sharing().takeImage(source, VK_IMAGE_LAYOUT_GENERAL, {semaphore, 0}));
        }
        ASSERT_TRUE(draw(light, source, target));
        const auto given = sharing().giveImage(target, VK_IMAGE_LAYOUT_GENERAL);
        EXPECT_EQ(application().read(*given, oddSize, 4), unshared(oddSize, iGPUImage::eARGB8, texels));
        ASSERT_TRUE(sharing().takeImage(target, given->layout, {}));
        ASSERT_TRUE(sharing().wait(*sharing().giveImage(source, VK_IMAGE_LAYOUT_GENERAL)));
    }
    theirs().shutdown();
    vkDestroySemaphore(device, semaphore, nullptr);
}

TEST_F(DeviceSharingTest, AnImageThatTheApplicationHasIsRefused)
{
    const Qx::Ptr<iShaderEffect> light = lightOf(theirs());
    const Qx::Ptr<iGPUImage> given = theirs().createGPUImage(fittingSize, iGPUImage::eARGB8);
    const Qx::Ptr<iGPUImage> other = theirs().createGPUImage(fittingSize, iGPUImage::eARGB8);
    RectDescription rectangle;
    rectangle.area = {0, 0, fittingSize.x, fittingSize.y};
    ASSERT_TRUE(given->getPrimitivesRenderer(1)->draw(rectangle, 1));
    ASSERT_TRUE(other->getPrimitivesRenderer(1)->draw(rectangle, 1));
    const auto gift = sharing().giveImage(given, VK_IMAGE_LAYOUT_GENERAL);
    ASSERT_TRUE(gift);
    takeLog();

    EXPECT_FALSE(draw(light, given, other));
    EXPECT_NE(takeLog().find("cannot be used while the application has it"), std::string::npos);
    EXPECT_FALSE(draw(light, other, given));
    EXPECT_FALSE(given->getPrimitivesRenderer(1)->draw(rectangle, 1));
    EXPECT_FALSE(theirs().downloadImage(given));
    EXPECT_FALSE(theirs().copyImage(given, other));
    EXPECT_FALSE(sharing().giveImage(given, VK_IMAGE_LAYOUT_GENERAL));

    EXPECT_TRUE(sharing().takeImage(given, gift->layout, {}));
    EXPECT_TRUE(draw(light, given, other));
    EXPECT_FALSE(sharing().takeImage(given, gift->layout, {}));
    EXPECT_NE(takeLog().find("the application has not got it"), std::string::npos);
    EXPECT_FALSE(sharing().giveImage(given, VK_IMAGE_LAYOUT_UNDEFINED));
    EXPECT_FALSE(sharing().giveImage({}, VK_IMAGE_LAYOUT_GENERAL));
    EXPECT_FALSE(
        sharing().takeImage(upload({4, 4}, iGPUImage::eARGB8, noise(64)), VK_IMAGE_LAYOUT_GENERAL, {}));
}

TEST_F(DeviceSharingTest, AnImageReleasedWhileTheApplicationHasItIsNotReused)
{
    const Bytes texels = noise(bytesOf(fittingSize, iGPUImage::eARGB8));
    const Qx::Ptr<iHostImage> rows = theirs().createHostImage(fittingSize, iGPUImage::eARGB8);
    std::memcpy(rows->map(iHostImage::Write), texels.data(), texels.size());
    GivenImage gift;
    {
        const Qx::Ptr<iGPUImage> image = theirs().uploadImage(rows, 0);
        gift = *sharing().giveImage(image, VK_IMAGE_LAYOUT_GENERAL);
    }
    for (int i = 0; i < 8; ++i) {
        const Qx::Ptr<iGPUImage> next = theirs().createGPUImage(fittingSize, iGPUImage::eARGB8);
        RectDescription rectangle;
        rectangle.area = {0, 0, fittingSize.x, fittingSize.y};
        ASSERT_TRUE(next->getPrimitivesRenderer(1)->draw(rectangle, 1));
        theirs().trim();
    }
    EXPECT_EQ(application().read(gift, fittingSize, 4), texels);
}

TEST_F(DeviceSharingTest, WritingToWhatTheApplicationGotDoesNotReachAHostImage)
{
    // Uploads of small images copy nothing on some devices: the given image must have texels of its own.
    const Bytes texels = noise(bytesOf(fittingSize, iGPUImage::eARGB8));
    const Qx::Ptr<iHostImage> rows = theirs().createHostImage(fittingSize, iGPUImage::eARGB8);
    std::memcpy(rows->map(iHostImage::Write), texels.data(), texels.size());
    const Qx::Ptr<iGPUImage> image = theirs().uploadImage(rows, 0);
    const auto gift = sharing().giveImage(image, VK_IMAGE_LAYOUT_GENERAL);
    ASSERT_TRUE(gift);
    ApplicationImage same;
    same.image = gift->image;
    same.size = fittingSize;
    const Bytes others = noise(texels.size(), 2);
    ASSERT_TRUE(sharing().wait(*gift));
    const auto written = application().write(same, others, VK_IMAGE_LAYOUT_GENERAL);
    ASSERT_TRUE(sharing().takeImage(image, VK_IMAGE_LAYOUT_GENERAL, written));
    const Qx::Ptr<iHostImage> read = theirs().downloadImage(image);
    EXPECT_EQ(std::memcmp(read->map(iHostImage::Read), others.data(), others.size()), 0);
    EXPECT_EQ(std::memcmp(rows->map(iHostImage::Read), texels.data(), texels.size()), 0);
}

TEST_F(DeviceSharingTest, AnUnusableImageIsRefusedByName)
{
    const auto refusal = [&](const ApplicationImage& image) {
        takeLog();
        EXPECT_FALSE(sharing().wrapImage(image, VK_IMAGE_LAYOUT_GENERAL, {}));
        return takeLog();
    };
    const ApplicationImage good = application().makeImage(oddSize, VK_FORMAT_R8G8B8A8_UNORM);
    ApplicationImage bad = good;
    bad.format = VK_FORMAT_R5G6B5_UNORM_PACK16;
    EXPECT_NE(refusal(bad).find("its format is VkFormat 4, expected 37"), std::string::npos);
    bad.format = VK_FORMAT_B8G8R8A8_UNORM;
    EXPECT_NE(refusal(bad).find("VK_IMAGE_CREATE_MUTABLE_FORMAT_BIT"), std::string::npos);
    bad = good;
    bad.usage = Host::requiredImageUsage & ~static_cast<unsigned>(VK_IMAGE_USAGE_SAMPLED_BIT);
    EXPECT_NE(refusal(bad).find("without VK_IMAGE_USAGE_SAMPLED_BIT"), std::string::npos);
    bad = good;
    bad.size = {0, 4};
    EXPECT_NE(refusal(bad).find("its size of 0 x 4"), std::string::npos);
    bad = good;
    bad.image = nullptr;
    EXPECT_NE(refusal(bad).find("ApplicationImage::image is null"), std::string::npos);
}

TEST_F(DeviceSharingTest, WhatTheDeviceLacksIsNamed)
{
    const std::vector<std::string> required = Host::requiredFeatures(application().shared().physicalDevice);
    EXPECT_GE(required.size(), 5U);
    for (const std::string& feature : required) {
        Application::Ways ways;
        ways.withoutFeature = feature;
        const Application without(ways);
        const std::string why = whyNot(without.shared());
        EXPECT_NE(why.find("it was created without " + feature + ";"), std::string::npos) << why;
    }
    ApplicationDevice bad = application().shared();
    bad.apiVersion = VK_API_VERSION_1_2;
    EXPECT_NE(whyNot(bad).find("apiVersion is 1.2, expected at least 1.3"), std::string::npos) << whyNot(bad);
    bad = application().shared();
    bad.queueIndex = 9;
    EXPECT_NE(whyNot(bad).find("queue 9 of family 0 is not among the queues"), std::string::npos)
        << whyNot(bad);
    bad = application().shared();
    bad.unlockQueue = nullptr;
    EXPECT_NE(whyNot(bad).find("only one of lockQueue and unlockQueue"), std::string::npos) << whyNot(bad);
    bad = application().shared();
    bad.device = nullptr;
    EXPECT_NE(whyNot(bad).find("ApplicationDevice::device is null"), std::string::npos) << whyNot(bad);
    bad.instance = nullptr;
    EXPECT_NE(whyNot(bad).find("ApplicationDevice::instance is null"), std::string::npos) << whyNot(bad);
    const Application other;
    bad = application().shared();
    bad.physicalDevice = other.shared().physicalDevice;
    EXPECT_NE(whyNot(bad).find("its physical device is not one of the instance's"), std::string::npos)
        << whyNot(bad);
}

TEST_F(DeviceSharingTest, FeaturesAreReadFromEveryKindOfStructure)
{
    VkPhysicalDeviceTimelineSemaphoreFeatures timeline{};
    timeline.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_TIMELINE_SEMAPHORE_FEATURES;
    timeline.timelineSemaphore = VK_TRUE;
    VkPhysicalDeviceMaintenance4Features maintenance{};
    maintenance.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_MAINTENANCE_4_FEATURES;
    maintenance.maintenance4 = VK_TRUE;
    maintenance.pNext = &timeline;
    VkPhysicalDeviceFeatures plain{};
    plain.robustBufferAccess = VK_TRUE;
    VkDeviceCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_DEVICE_CREATE_INFO;
    info.pNext = &maintenance;
    info.pEnabledFeatures = &plain;
    EXPECT_EQ(Host::abilitiesOf(info).features,
              (std::vector<std::string>{"timelineSemaphore", "maintenance4", "robustBufferAccess"}));
    VkPhysicalDeviceFeatures2 chain{VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_FEATURES_2, &timeline, {}};
    timeline.timelineSemaphore = VK_FALSE;
    const std::vector<std::string> placeless =
        Host::enableRequiredFeatures(application().shared().physicalDevice, chain);
    EXPECT_EQ(timeline.timelineSemaphore, VK_TRUE);
    EXPECT_EQ(placeless, (std::vector<std::string>{"dynamicRendering", "synchronization2", "maintenance4",
                                                   "robustImageAccess"}));
}

TEST_F(DeviceSharingTest, AServiceThatStillHasHostImagesSaysThatItHoldsTheDevice)
{
    const Application application;
    const std::unique_ptr<GPUService> service = serviceOn(application.shared());
    EXPECT_FALSE(service->holdsDevice());
    ASSERT_TRUE(service->start());
    EXPECT_TRUE(service->holdsDevice());
    Qx::Ptr<iHostImage> held = service->createHostImage(oddSize, iGPUImage::eARGB8);
    auto* const bytes = static_cast<std::uint8_t*>(held->map(iHostImage::Write));
    service->shutdown();
    EXPECT_TRUE(service->holdsDevice());
    bytes[0] = 1; // its address is good as long as the image
    held = {};
    EXPECT_TRUE(service->holdsDevice());
    service->shutdown();
    EXPECT_FALSE(service->holdsDevice());
}

TEST_F(DeviceSharingTest, ASemaphoreThatIsNotSignalledDelaysTheShutdownNoLongerThanItsLimit)
{
    const Application lender;
    VkDevice device = lender.shared().device;
    VkSemaphore semaphore = semaphoreOn(device, VK_SEMAPHORE_TYPE_TIMELINE);
    GPUOptions options;
    options.sharedDevice = std::make_shared<const ApplicationDevice>(lender.shared());
    options.shutdownLimit = std::chrono::milliseconds(50);
    GPUService service(options);
    const Qx::Ptr<iGPUImage> image = service.createGPUImage(oddSize, iGPUImage::eARGB8);
    ImageSharing sharing(service);
    const auto given = sharing.giveImage(image, VK_IMAGE_LAYOUT_GENERAL);
    ASSERT_TRUE(given && sharing.wait(*given));
    ASSERT_TRUE(sharing.takeImage(image, given->layout, {semaphore, 1}));
    service.shutdown();
    EXPECT_TRUE(service.holdsDevice());
    EXPECT_NE(takeLog().find("did not finish within 50 ms"), std::string::npos);

    VkSemaphoreSignalInfo signal{};
    signal.sType = VK_STRUCTURE_TYPE_SEMAPHORE_SIGNAL_INFO;
    signal.semaphore = semaphore;
    signal.value = 1;
    ASSERT_EQ(vkSignalSemaphore(device, &signal), VK_SUCCESS);
    ASSERT_EQ(vkDeviceWaitIdle(device), VK_SUCCESS);
    service.shutdown();
    EXPECT_FALSE(service.holdsDevice());
    vkDestroySemaphore(device, semaphore, nullptr);
}

TEST_F(DeviceSharingTest, TwoServicesShareOneDevice)
{
    const std::unique_ptr<GPUService> second = serviceOn(application().shared());
    ASSERT_TRUE(second->start()) << second->failure();
    const Bytes texels = noise(bytesOf(fittingSize, iGPUImage::eARGB8));
    const Bytes wanted = unshared(fittingSize, iGPUImage::eARGB8, texels);
    const Qx::Ptr<iGPUImage> source = wrapped(application().makeImage(fittingSize, VK_FORMAT_R8G8B8A8_UNORM),
                                              texels, VK_IMAGE_LAYOUT_GENERAL);
    // The first service's result is an application's image to the second.
    const Qx::Ptr<iGPUImage> between = theirs().createGPUImage(fittingSize, iGPUImage::eARGB8);
    ASSERT_TRUE(draw(lightOf(theirs()), source, between));
    const auto given = sharing().giveImage(between, VK_IMAGE_LAYOUT_GENERAL);
    ApplicationImage image;
    image.image = given->image;
    image.size = fittingSize;
    image.format = given->format;
    image.usage = Host::requiredImageUsage;
    const Qx::Ptr<iGPUImage> received = ImageSharing(*second).wrapImage(image, given->layout, given->ready);
    Qx::Ptr<iHostImage> host = second->downloadImage(received);
    ASSERT_TRUE(host);
    EXPECT_EQ(std::memcmp(host->map(iHostImage::Read), wanted.data(), wanted.size()), 0);
    host = {};
    const auto back = ImageSharing(*second).giveImage(received, VK_IMAGE_LAYOUT_GENERAL);
    EXPECT_TRUE(sharing().takeImage(between, back->layout, back->ready));
    theirs().shutdown(); // waits for the second one's moment
    second->shutdown();
    EXPECT_FALSE(second->holdsDevice());
}

} // namespace Qx::GpuTests
