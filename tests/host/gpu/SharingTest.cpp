#include "tests/host/gpu/GpuFixture.h"

#include <array>
#include <atomic>
#include <cstring>
#include <random>
#include <thread>

namespace Qx::GpuTests {

namespace {

constexpr XY<int> fitting{64, 16}; ///< the device's rows are laid out as a host image
constexpr XY<int> odd{33, 9};      ///< they are not

std::uint8_t* bytesAt(const Qx::Ptr<iHostImage>& image, iHostImage::eAccess access)
{
    return static_cast<std::uint8_t*>(image->map(access));
}

Bytes contentOf(const Qx::Ptr<iHostImage>& image)
{
    const std::uint8_t* const bytes = bytesAt(image, iHostImage::Read);
    return bytes != nullptr ? Bytes(bytes, bytes + bytesOf(image->getSize(), image->getFormat())) : Bytes();
}

bool fill(const Qx::Ptr<iGPUImage>& image, const RectangleOf<int>& area, std::uint8_t grey)
{
    RectDescription rectangle;
    rectangle.area = area;
    const float level = static_cast<float>(grey) / 255.0F;
    rectangle.colour = {level, level, level, level};
    rectangle.colour2 = rectangle.colour;
    return image->getPrimitivesRenderer(1)->draw(rectangle, 1);
}

bool fillAll(const Qx::Ptr<iGPUImage>& image, std::uint8_t grey)
{
    return fill(image, {0, 0, image->getSize().x, image->getSize().y}, grey);
}

class SharingTest : public GpuTest
{
protected:
    std::uint64_t shared() { return gpu().statistics().sharedTransfers; }

    Bytes someBytes(XY<int> size) { return noise(bytesOf(size, iGPUImage::eARGB8), seed_++); }

    Qx::Ptr<iHostImage> hostImage(XY<int> size, const Bytes& bytes)
    {
        const Qx::Ptr<iHostImage> host = gpu().createHostImage(size, iGPUImage::eARGB8);
        std::memcpy(bytesAt(host, iHostImage::Write), bytes.data(), bytes.size());
        return host;
    }

private:
    std::uint32_t seed_ = 1;
};

/// Images and what they must hold.
class Model
{
public:
    Model(GPUService& gpu, XY<int> size, std::uint32_t seed) : gpu_(gpu), size_(size), random_(seed) {}

    void step()
    {
        if (onDevice_.empty() || onHost_.empty() || pick(8) == 0) {
            add();
            return;
        }
        switch (pick(10)) {
        case 0:
            return rewrite();
        case 1:
            return rewriteARow();
        case 2:
            return send();
        case 3:
            return fetch();
        case 4:
            return fillPart();
        case 5:
            return replace();
        case 6:
            return copy();
        case 7:
            return drawOneOverAnother();
        case 8:
            onDevice_.erase(onDevice_.begin() + static_cast<std::ptrdiff_t>(pick(onDevice_.size())));
            return;
        default:
            onHost_.erase(onHost_.begin() + static_cast<std::ptrdiff_t>(pick(onHost_.size())));
            return;
        }
    }

    void check()
    {
        for (const OnHost& each : onHost_) {
            ASSERT_EQ(bytesAt(each.image, iHostImage::Read), each.address) << "the address stays";
            ASSERT_EQ(contentOf(each.image), each.bytes);
        }
        for (const OnDevice& each : onDevice_) {
            ASSERT_EQ(contentOf(gpu_.downloadImage(each.image)), each.bytes);
        }
    }

private:
    struct OnDevice
    {
        Qx::Ptr<iGPUImage> image;
        Bytes bytes;
    };
    struct OnHost
    {
        Qx::Ptr<iHostImage> image;
        Bytes bytes;
        std::uint8_t* address;
    };

    std::size_t pick(std::size_t count) { return random_() % count; }
    OnDevice& anyOnDevice() { return onDevice_[pick(onDevice_.size())]; }
    OnHost& anyOnHost() { return onHost_[pick(onHost_.size())]; }
    Bytes fresh() { return noise(bytesOf(size_, iGPUImage::eARGB8), static_cast<std::uint32_t>(random_())); }

    void add()
    {
        const Qx::Ptr<iHostImage> image = gpu_.createHostImage(size_, iGPUImage::eARGB8);
        onHost_.push_back({image, fresh(), bytesAt(image, iHostImage::Write)});
        std::memcpy(onHost_.back().address, onHost_.back().bytes.data(), onHost_.back().bytes.size());
        onDevice_.push_back({gpu_.uploadImage(image, 0), onHost_.back().bytes});
    }
    void rewrite()
    {
        OnHost& host = anyOnHost();
        host.bytes = fresh();
        std::memcpy(bytesAt(host.image, iHostImage::Write), host.bytes.data(), host.bytes.size());
    }
    void rewriteARow()
    {
        OnHost& host = anyOnHost();
        const std::size_t pitch = host.image->getPitch();
        const std::size_t at = pitch * pick(static_cast<std::size_t>(size_.y));
        std::memset(bytesAt(host.image, iHostImage::Write) + at, 7, pitch);
        std::memset(host.bytes.data() + at, 7, pitch);
    }
    void send()
    {
        const OnHost& host = anyOnHost();
        onDevice_.push_back({gpu_.uploadImage(host.image, 0), host.bytes});
    }
    void fetch()
    {
        const OnDevice& device = anyOnDevice();
        const Qx::Ptr<iHostImage> image = gpu_.downloadImage(device.image);
        onHost_.push_back({image, device.bytes, bytesAt(image, iHostImage::Read)});
    }
    void fillPart()
    {
        OnDevice& device = anyOnDevice();
        const auto grey = static_cast<std::uint8_t>(pick(256));
        const int row = static_cast<int>(pick(static_cast<std::size_t>(size_.y)));
        ASSERT_TRUE(fill(device.image, {0, row, size_.x, row + 1}, grey));
        const std::size_t pitch = static_cast<std::size_t>(size_.x) * 4;
        std::memset(device.bytes.data() + pitch * static_cast<std::size_t>(row), grey, pitch);
    }
    void replace()
    {
        OnDevice& device = anyOnDevice();
        const auto grey = static_cast<std::uint8_t>(pick(256));
        ASSERT_TRUE(fillAll(device.image, grey));
        device.bytes.assign(device.bytes.size(), grey);
    }
    void copy()
    {
        const OnDevice& from = anyOnDevice();
        OnDevice& to = anyOnDevice();
        ASSERT_EQ(gpu_.copyImage(from.image, to.image), &from != &to);
        to.bytes = from.bytes;
    }
    void drawOneOverAnother()
    {
        const OnDevice& from = anyOnDevice();
        OnDevice& to = anyOnDevice();
        ImageDescription description;
        description.image = from.image;
        description.source = {0, 0, size_.x, size_.y / 2};
        description.destination = description.source;
        ASSERT_EQ(to.image->getPrimitivesRenderer(1)->draw(description, 1), &from != &to);
        const std::size_t upper =
            static_cast<std::size_t>(size_.x) * 4 * static_cast<std::size_t>(size_.y / 2);
        std::memmove(to.bytes.data(), from.bytes.data(), upper);
    }

    GPUService& gpu_;
    const XY<int> size_;
    std::mt19937 random_;
    std::vector<OnDevice> onDevice_;
    std::vector<OnHost> onHost_;
};

} // namespace

TEST_F(SharingTest, ASoftwareDeviceMovesPicturesWhoseRowsFitWithoutACopy)
{
    if (!sharesMemory()) {
        GTEST_SKIP() << "the device shares no memory with the host";
    }
    const Bytes bytes = someBytes(fitting);
    EXPECT_EQ(download(upload(fitting, iGPUImage::eARGB8, bytes)), bytes);
    EXPECT_EQ(shared(), 2U);
    const Bytes deep = noise(bytesOf(fitting, iGPUImage::eARGB16));
    EXPECT_EQ(download(upload(fitting, iGPUImage::eARGB16, deep)), deep);
    EXPECT_EQ(shared(), 4U);
    EXPECT_EQ(gpu().statistics().hostImagesCreated, 0U);
}

TEST_F(SharingTest, OthersAreCopied)
{
    const Bytes bytes = someBytes(odd);
    EXPECT_EQ(download(upload(odd, iGPUImage::eARGB8, bytes)), bytes);
    const Bytes words = noise(bytesOf(fitting, iGPUImage::eARGB10));
    EXPECT_EQ(download(upload(fitting, iGPUImage::eARGB10, words)), words);
    EXPECT_EQ(shared(), 0U);
}

TEST_F(SharingTest, WhatWasReadBackStaysWhenTheImageIsDrawnInto)
{
    const Bytes bytes = someBytes(fitting);
    const Qx::Ptr<iGPUImage> image = upload(fitting, iGPUImage::eARGB8, bytes);
    const Qx::Ptr<iHostImage> first = gpu().downloadImage(image);
    ASSERT_TRUE(fill(image, {0, 0, fitting.x, 1}, 9));
    Bytes expected = bytes;
    std::memset(expected.data(), 9, first->getPitch());
    const Qx::Ptr<iHostImage> second = gpu().downloadImage(image);
    ASSERT_TRUE(fillAll(image, 200));
    EXPECT_EQ(contentOf(first), bytes);
    EXPECT_EQ(contentOf(second), expected);
    EXPECT_EQ(download(image), Bytes(bytes.size(), 200));
}

TEST_F(SharingTest, WhatWasReadBackStaysWhenAnEffectReplacesTheImage)
{
    const Qx::Ptr<iShaderEffect> grey =
        effect("float4 grey() : COLOR0 { return 0.2; }\n"
               "technique Grey { pass { PixelShader = compile ps_3_0 grey(); } }\n");
    const Bytes bytes = someBytes(fitting);
    const Qx::Ptr<iGPUImage> image = upload(fitting, iGPUImage::eARGB8, bytes);
    const Qx::Ptr<iHostImage> before = gpu().downloadImage(image);
    ASSERT_TRUE(grey->render(image, {}));
    EXPECT_EQ(download(image), Bytes(bytes.size(), 51));
    EXPECT_EQ(contentOf(before), bytes);
}

TEST_F(SharingTest, WhatWasUploadedStaysWhenTheHostImageIsWrittenTo)
{
    const Bytes bytes = someBytes(fitting);
    const Qx::Ptr<iHostImage> host = hostImage(fitting, bytes);
    const std::uint8_t* const address = bytesAt(host, iHostImage::Read);
    const Qx::Ptr<iGPUImage> first = gpu().uploadImage(host, 0);
    const Qx::Ptr<iGPUImage> second = gpu().uploadImage(host, 0);
    std::uint8_t* const memory = bytesAt(host, iHostImage::Write);
    EXPECT_EQ(memory, address);
    EXPECT_EQ(contentOf(host), bytes) << "what is there is still there";
    std::memset(memory, 3, bytes.size());
    EXPECT_EQ(download(first), bytes);
    EXPECT_EQ(download(second), bytes);
    EXPECT_EQ(download(gpu().uploadImage(host, 0)), Bytes(bytes.size(), 3));
}

TEST_F(SharingTest, AnImageKeepsWhatWasUploadedWhenItsHostImageIsReleased)
{
    const Bytes bytes = someBytes(fitting);
    Qx::Ptr<iHostImage> host = hostImage(fitting, bytes);
    const Qx::Ptr<iGPUImage> image = gpu().uploadImage(host, 0);
    host.reset();
    for (int i = 0; i < 4; ++i) {
        ASSERT_TRUE(hostImage(fitting, someBytes(fitting)));
        EXPECT_EQ(download(image), bytes);
    }
}

TEST_F(SharingTest, WritingWaitsForNobodyWhoHasAnImageOfHisOwn)
{
    const Qx::Ptr<iHostImage> host = hostImage(fitting, someBytes(fitting));
    ASSERT_TRUE(gpu().uploadImage(host, 0)); // released at once
    const std::uint64_t created = gpu().statistics().imagesCreated;
    ASSERT_NE(host->map(iHostImage::Write), nullptr);
    EXPECT_EQ(gpu().statistics().imagesCreated, created) << "nobody needs a copy";
}

TEST_F(SharingTest, WritingWaitsForADeviceThatIsBusyElsewhere)
{
    const XY<int> size{1024, 1024};
    const Bytes bytes = someBytes(size);
    const Qx::Ptr<iHostImage> host = hostImage(size, bytes);
    const Qx::Ptr<iGPUImage> other = gpu().createGPUImage(size, iGPUImage::eARGB16);
    for (int i = 0; i < 20; ++i) {
        RectDescription gradient;
        gradient.area = {0, 0, size.x, size.y};
        gradient.colour = {1, 0, 0, 1};
        ASSERT_TRUE(other->getPrimitivesRenderer(1)->draw(gradient, 1));
    }
    const Qx::Ptr<iGPUImage> image = gpu().uploadImage(host, 0);
    std::memset(bytesAt(host, iHostImage::Write), 0, bytes.size());
    EXPECT_EQ(download(image), bytes);
}

TEST_F(SharingTest, ReadingBackHandsInWhatTheImageWaitsFor)
{
    for (const XY<int> size : {fitting, odd}) {
        const Qx::Ptr<iGPUImage> image = gpu().createGPUImage(size, iGPUImage::eARGB8);
        ASSERT_TRUE(fillAll(image, 1));
        const std::uint64_t before = gpu().statistics().batchesSubmitted;
        const Qx::Ptr<iHostImage> host = gpu().downloadImage(image);
        EXPECT_EQ(gpu().statistics().batchesSubmitted, before + 1) << size.x << " wide";
    }
}

TEST_F(SharingTest, ImagesInAnyRelationHoldWhatTheyMust)
{
    for (const XY<int> size : {fitting, odd}) {
        for (std::uint32_t seed = 1; seed <= 6; ++seed) {
            SCOPED_TRACE(testing::Message() << size.x << " wide, seed " << seed);
            Model model(gpu(), size, seed);
            for (int i = 0; i < 120; ++i) {
                SCOPED_TRACE(testing::Message() << "step " << i);
                model.step();
                if (i % 5 == 0) {
                    model.check();
                }
                if (HasFatalFailure()) {
                    return;
                }
            }
            model.check();
        }
    }
}

TEST_F(SharingTest, ReadersOfAnImageThatAnotherThreadDrawsIntoSeeWholePictures)
{
    const XY<int> size{256, 256};
    const Qx::Ptr<iGPUImage> image = gpu().createGPUImage(size, iGPUImage::eARGB8);
    ASSERT_TRUE(fillAll(image, 0));
    std::atomic<bool> done{false};
    std::vector<std::thread> readers;
    for (int t = 0; t < 2; ++t) {
        readers.emplace_back([&] {
            while (!done) {
                const Bytes bytes = contentOf(gpu().downloadImage(image));
                ASSERT_FALSE(bytes.empty());
                ASSERT_EQ(bytes, Bytes(bytes.size(), bytes.front()));
            }
        });
    }
    for (int i = 0; i < 300; ++i) {
        EXPECT_TRUE(fillAll(image, static_cast<std::uint8_t>(i)));
    }
    done = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
}

TEST_F(SharingTest, ThreadsMayReadWriteAndUploadOneHostImage)
{
    const XY<int> size{256, 64};
    const Qx::Ptr<iHostImage> host = hostImage(size, Bytes(bytesOf(size, iGPUImage::eARGB8), 1));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 50; ++i) {
                ASSERT_NE(host->map(t == 0 ? iHostImage::Write : iHostImage::Read), nullptr);
                const Qx::Ptr<iGPUImage> image = gpu().uploadImage(host, 0);
                ASSERT_TRUE(image);
                ASSERT_TRUE(fillAll(image, static_cast<std::uint8_t>(10 + t)));
                ASSERT_EQ(download(image),
                          Bytes(bytesOf(size, iGPUImage::eARGB8), static_cast<std::uint8_t>(10 + t)));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(contentOf(host), Bytes(bytesOf(size, iGPUImage::eARGB8), 1));
}

TEST_F(SharingTest, WithoutMemoryForACopyNothingIsDrawnAndNothingIsLost)
{
    if (!sharesMemory()) {
        GTEST_SKIP() << "the device shares no memory with the host";
    }
    const XY<int> large{1024, 256}; // larger than a shared allocation
    const Bytes bytes = someBytes(large);
    const Qx::Ptr<iGPUImage> image = upload(large, iGPUImage::eARGB8, bytes);
    const Qx::Ptr<iHostImage> host = gpu().downloadImage(image);
    gpu().trim();
    gpu().failAllocations(0, 2);
    takeLog();
    EXPECT_FALSE(fill(image, {0, 0, 8, 8}, 1));
    EXPECT_FALSE(takeLog().empty());
    gpu().failAllocations(0, 2);
    EXPECT_EQ(host->map(iHostImage::Write), nullptr);
    EXPECT_EQ(contentOf(host), bytes);
    EXPECT_EQ(download(image), bytes);
    ASSERT_NE(host->map(iHostImage::Write), nullptr);
    std::memset(host->map(iHostImage::Write), 5, bytes.size());
    EXPECT_EQ(download(image), bytes);
    EXPECT_TRUE(fillAll(image, 1));
}

TEST_F(SharingTest, NothingIsKeptAfterShutdownForAHostImageThatIsGone)
{
    // The host has the address of each.
    const Qx::Ptr<iGPUImage> image = upload(fitting, iGPUImage::eARGB8, someBytes(fitting));
    ASSERT_FALSE(download(image).empty());
    Qx::Ptr<iHostImage> host = hostImage(fitting, someBytes(fitting));
    const Qx::Ptr<iGPUImage> left = gpu().uploadImage(host, 0);
    ASSERT_NE(host->map(iHostImage::Write), nullptr);
    host.reset();
    takeLog();
    gpu().shutdown();
    EXPECT_EQ(takeLog(), "");
}

TEST_F(SharingTest, AnAddressStaysGoodAfterShutdownWhoeverElseHasTheMemory)
{
    const Bytes bytes = someBytes(fitting);
    const Qx::Ptr<iGPUImage> image = upload(fitting, iGPUImage::eARGB8, bytes);
    const Qx::Ptr<iHostImage> host = gpu().downloadImage(image);
    std::uint8_t* const memory = bytesAt(host, iHostImage::Read);
    ASSERT_NE(memory, nullptr);
    gpu().shutdown();
    EXPECT_EQ(Bytes(memory, memory + bytes.size()), bytes);
    std::memset(memory, 42, bytes.size());
    EXPECT_EQ(memory[100], 42);
}

} // namespace Qx::GpuTests
