// Uploads and downloads on queues of their own, as GPUs have them: tried on CopyQueuesLayer.cpp, under the
// validation layer.

#include "tests/host/gpu/Drawn.h"
#include "tests/host/gpu/layers/AddLayer.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>

namespace Qx::GpuTests {

namespace {

/// What the layer does, as its environment says; an empty member leaves it as it is.
struct Layer
{
    std::string name;
    std::string queues{};
    std::string delays{};
    std::string hold{};
};

void PrintTo(const Layer& layer, std::ostream* to)
{
    *to << layer.name;
}

class TransferQueueTest : public GpuTest
{
protected:
    explicit TransferQueueTest(GPUOptions options = {}) : GpuTest(std::move(options)) {}

    void SetUp() override { start({}); }

    /// Starts the service on a device with the layer.
    void start(const Layer& layer)
    {
        addLayer("VK_LAYER_QX_test_copyqueues");
        set("QX_TEST_COPY_QUEUES", layer.queues);
        set("QX_TEST_QUEUE_DELAYS", layer.delays);
        set("QX_TEST_QUEUE_HOLD", layer.hold);
        startAsItIs();
    }

    /// Starts it on the device without the layer. Images in rows would need no copies.
    void startAsItIs()
    {
        ::setenv("QX_DEVICE_WITHOUT", "rows", 1);
        GpuTest::SetUp();
    }

    void TearDown() override
    {
        if (plain_ != nullptr) {
            plain_->shutdown();
            EXPECT_EQ(plain_->statistics().validationMessages, 0U) << takeLog();
        }
        GpuTest::TearDown();
        removeLayer();
        for (const char* name :
             {"QX_DEVICE_WITHOUT", "QX_TEST_COPY_QUEUES", "QX_TEST_QUEUE_DELAYS", "QX_TEST_QUEUE_HOLD"}) {
            ::unsetenv(name);
        }
    }

    /// A service that leaves the queues alone.
    GPUService& plain()
    {
        if (plain_ == nullptr) {
            ::setenv("QX_DEVICE_WITHOUT", "rows,transfer-queue", 1);
            GPUOptions options;
            options.validation = true;
            plain_ = std::make_unique<GPUService>(options);
            EXPECT_TRUE(plain_->start()) << plain_->failure();
        }
        return *plain_;
    }

    /// One frame of a program: uploads a picture, draws it into another and downloads that. Nothing waits.
    Qx::Ptr<iHostImage> frame(const Bytes& picture)
    {
        const Qx::Ptr<iGPUImage> source =
            sources_.emplace_back(upload(frameSize, iGPUImage::eARGB8, picture));
        const Qx::Ptr<iGPUImage> target = gpu().createGPUImage(frameSize, iGPUImage::eARGB8);
        ImageDescription drawing;
        drawing.image = source;
        drawing.destination = {0, 0, frameSize.x, frameSize.y};
        drawing.source = drawing.destination;
        EXPECT_TRUE(source && target && target->getPrimitivesRenderer(1)->draw(drawing, 1));
        return gpu().downloadImage(target);
    }

    static void expectTexels(const Qx::Ptr<iHostImage>& host, const Bytes& expected)
    {
        const void* const texels = host ? host->map(iHostImage::Read) : nullptr;
        ASSERT_NE(texels, nullptr) << takeLog();
        EXPECT_EQ(std::memcmp(texels, expected.data(), expected.size()), 0);
    }

    static constexpr XY<int> frameSize{320, 180};

private:
    static void set(const char* name, const std::string& value)
    {
        if (value.empty()) {
            ::unsetenv(name);
        } else {
            ::setenv(name, value.c_str(), 1);
        }
    }

    std::unique_ptr<GPUService> plain_;
    std::vector<Qx::Ptr<iGPUImage>> sources_; // so that only targets go to the pool
};

/// Uploads, draws, copies and downloads in an order without a pattern, and most without waiting for anything.
class RandomWork
{
public:
    RandomWork(GPUService& gpu, std::uint32_t seed) : gpu_(gpu), random_(seed) {}

    /// The bytes of all downloads; one is empty if the service failed.
    std::vector<Bytes> run()
    {
        for (int step = 0; step < 150; ++step) {
            if (!works_) {
                return {{}};
            }
            doOne();
        }
        std::vector<Bytes> all;
        for (const Qx::Ptr<iHostImage>& host : hosts_) {
            const auto* const texels = static_cast<const std::uint8_t*>(host->map(iHostImage::Read));
            all.push_back(texels != nullptr ? Bytes(texels, texels + bytes_) : Bytes());
        }
        return all;
    }

private:
    std::size_t below(std::size_t end) { return random_() % end; }
    Qx::Ptr<iGPUImage>& anyImage() { return images_.at(below(images_.size())); }
    RectangleOf<int> whole() const { return {0, 0, size_.x, size_.y}; }

    void add(const Qx::Ptr<iGPUImage>& image)
    {
        works_ = works_ && image;
        images_.push_back(image);
    }

    void uploadNew()
    {
        const Qx::Ptr<iHostImage> host = gpu_.createHostImage(size_, iGPUImage::eARGB8);
        void* const texels = host ? host->map(iHostImage::Write) : nullptr;
        if (texels == nullptr) {
            works_ = false;
            return;
        }
        std::memcpy(texels, noise(bytes_, static_cast<std::uint32_t>(random_())).data(), bytes_);
        add(gpu_.uploadImage(host, 0));
    }

    /// What a download may still be writing is uploaded again, or rewritten and uploaded.
    void uploadAgain()
    {
        if (hosts_.empty()) {
            return;
        }
        const Qx::Ptr<iHostImage>& host = hosts_.at(below(hosts_.size()));
        if (below(4) == 0) {
            void* const texels = host->map(iHostImage::Write);
            if (texels == nullptr) {
                works_ = false;
                return;
            }
            std::memset(texels, static_cast<int>(below(256)), bytes_ / 2);
        }
        add(gpu_.uploadImage(host, 0));
    }

    void drawGradient()
    {
        RectDescription gradient;
        gradient.area = {3, 5, size_.x - 7, size_.y - 2};
        gradient.colour = {0.2F, 0.9F, static_cast<float>(below(100)) / 100.0F, 1.0F};
        works_ = anyImage()->getPrimitivesRenderer(1)->draw(gradient, 1);
    }

    void drawImage()
    {
        ImageDescription drawing;
        drawing.image = anyImage();
        drawing.source = whole();
        drawing.destination = whole();
        drawing.blend = below(2) == 0;
        drawing.weight = 0.5F;
        const Qx::Ptr<iGPUImage> target =
            below(2) == 0 ? gpu_.createGPUImage(size_, iGPUImage::eARGB8) : anyImage();
        if (!target || target.get() == drawing.image.get()) {
            return;
        }
        if (std::find(images_.begin(), images_.end(), target) == images_.end()) {
            works_ = gpu_.copyImage(anyImage(), target); // all of it is drawn by the same on every device
            images_.push_back(target);
        }
        works_ = works_ && target->getPrimitivesRenderer(1)->draw(drawing, 1);
    }

    void copy()
    {
        const Qx::Ptr<iGPUImage> source = anyImage();
        const Qx::Ptr<iGPUImage> target = anyImage();
        works_ = source.get() == target.get() || gpu_.copyImage(source, target);
    }

    void download()
    {
        hosts_.push_back(gpu_.downloadImage(anyImage()));
        works_ = hosts_.back().get() != nullptr;
    }

    void doOne()
    {
        if (images_.size() < 3) {
            uploadNew();
            return;
        }
        switch (below(8)) {
        case 0:
            uploadNew();
            break;
        case 1:
            uploadAgain();
            break;
        case 2:
            drawGradient();
            break;
        case 3:
            drawImage();
            break;
        case 4:
            copy();
            break;
        case 5:
        case 6:
            download();
            break;
        default:
            images_.erase(images_.begin() + static_cast<std::ptrdiff_t>(below(images_.size())));
        }
    }

    GPUService& gpu_;
    std::mt19937 random_;
    const XY<int> size_{96, 54};
    const std::size_t bytes_ = bytesOf(size_, iGPUImage::eARGB8);
    std::vector<Qx::Ptr<iGPUImage>> images_;
    std::vector<Qx::Ptr<iHostImage>> hosts_;
    bool works_ = true;
};

/// What two threads download at the same time.
std::vector<std::vector<Bytes>> byTwoThreads(GPUService& gpu, std::uint32_t seed)
{
    std::vector<std::vector<Bytes>> all(2);
    std::thread other([&] { all[1] = RandomWork(gpu, seed + 1000).run(); });
    all[0] = RandomWork(gpu, seed).run();
    other.join();
    return all;
}

std::string nameOfLayer(const testing::TestParamInfo<Layer>& layer)
{
    return layer.param.name;
}

/// Fails unless both services download the same.
void expectEqualDownloads(GPUService& got, GPUService& expected)
{
    for (std::uint32_t seed = 1; seed <= 4; ++seed) {
        const auto these = byTwoThreads(got, seed);
        const auto those = byTwoThreads(expected, seed);
        for (std::size_t i = 0; i < those.size(); ++i) {
            ASSERT_GT(those[i].size(), 10U);
            ASSERT_EQ(these[i].size(), those[i].size());
            for (std::size_t k = 0; k < those[i].size(); ++k) {
                ASSERT_FALSE(those[i][k].empty());
                EXPECT_TRUE(these[i][k] == those[i][k]) << "seed " << seed << ", download " << k;
            }
        }
    }
}

/// A test of the device as it is.
class DevicesOwnQueueTest : public TransferQueueTest
{
protected:
    void SetUp() override { startAsItIs(); }
};

class TransferOrderTest : public TransferQueueTest, public testing::WithParamInterface<Layer>
{
protected:
    void SetUp() override { start(GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(Late, TransferOrderTest,
                         testing::Values(Layer{"nothing"}, Layer{"drawing", "", "4 0 0"},
                                         Layer{"uploads", "", "0 4 0"}, Layer{"downloads", "", "0 0 4"},
                                         Layer{"allOfOneCopyQueue", "1", "2 3 0"}),
                         nameOfLayer);

} // namespace

TEST_P(TransferOrderTest, WhateverComesLateTheBytesAreThoseOfOneQueue)
{
    expectEqualDownloads(gpu(), plain());
    EXPECT_GT(gpu().statistics().transferBatches, 0U);
    EXPECT_EQ(plain().statistics().transferBatches, 0U);
}

TEST_P(TransferOrderTest, EveryKindOfDrawingIsThatOfOneQueue)
{
    const std::map<std::string, Bytes> got = drawnBy(gpu(), folder());
    for (const auto& [what, bytes] : drawnBy(plain(), folder())) {
        ASSERT_FALSE(bytes.empty()) << what;
        EXPECT_TRUE(got.at(what) == bytes) << what;
    }
}

TEST_F(DevicesOwnQueueTest, TheBytesAreThoseOfOneQueue)
{
    expectEqualDownloads(gpu(), plain());
    if (gpu().statistics().transferBatches == 0) {
        GTEST_SKIP() << "the device has no queue that only copies";
    }
}

TEST_F(TransferQueueTest, DownloadsHaveAQueueIfThereAreTwo)
{
    expectTexels(frame(noise(bytesOf(frameSize, iGPUImage::eARGB8))),
                 noise(bytesOf(frameSize, iGPUImage::eARGB8)));
    EXPECT_EQ(gpu().statistics().transferBatches, 2U);
}

TEST_F(TransferQueueTest, ADeviceWithoutSuchAQueueSaysWhatThatMeans)
{
    using testing::Contains;
    using testing::HasSubstr;
    using testing::Not;
    constexpr const char* way = "no queue that only copies";
    EXPECT_THAT(chosenDevice(gpu()).nextWays, Not(Contains(HasSubstr(way))));
    EXPECT_THAT(chosenDevice(plain()).nextWays, Contains(HasSubstr(way)));
}

namespace {

class HeldQueueTest : public TransferQueueTest
{
protected:
    HeldQueueTest() : TransferQueueTest(shortStall()) {}
    void SetUp() override {} // each test starts on a layer of its own

    static GPUOptions shortStall()
    {
        GPUOptions options;
        options.stallLimit = std::chrono::seconds(20);
        return options;
    }

    void drawFrames(std::uint32_t count)
    {
        const std::size_t bytes = bytesOf(frameSize, iGPUImage::eARGB8);
        std::vector<Qx::Ptr<iHostImage>> hosts;
        for (std::uint32_t i = 0; i < count; ++i) {
            hosts.push_back(frame(noise(bytes, i)));
        }
        for (std::uint32_t i = 0; i < count; ++i) {
            expectTexels(hosts[i], noise(bytes, i));
        }
    }
};

} // namespace

TEST_F(HeldQueueTest, UploadsOfThreeFramesNeedNoDrawingOfTheFirst)
{
    start({"", "", "", "0 1 3"});
    drawFrames(3);
}

TEST_F(HeldQueueTest, UploadsOfThreeFramesNeedNoDrawingWhereOneQueueCopies)
{
    start({"", "1", "", "0 1 3"});
    drawFrames(3);
}

TEST_F(HeldQueueTest, DrawingOfThreeFramesNeedsNoDownloadOfTheFirst)
{
    start({"", "", "", "2 0 3"});
    drawFrames(3);
}

namespace {

class BoundedQueueTest : public TransferQueueTest
{
protected:
    BoundedQueueTest() : TransferQueueTest(bounded()) {}
    void SetUp() override { start({"", "", "0 2 2"}); }

    static GPUOptions bounded()
    {
        GPUOptions options;
        options.inFlightBytes = inFlight;
        options.poolBytes = inFlight;
        return options;
    }

    static constexpr std::uint64_t inFlight = std::uint64_t{4} << 20U;
};

} // namespace

TEST_F(BoundedQueueTest, ManyTransfersTakeNoMoreMemoryThanMayBeInFlight)
{
    const XY<int> size{512, 256};
    const std::size_t bytes = bytesOf(size, iGPUImage::eARGB8);
    const Bytes picture = noise(bytes);
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(gpu().downloadImage(upload(size, iGPUImage::eARGB8, picture)));
        const Host::GPUStatistics now = gpu().statistics();
        ASSERT_LE(now.inFlightBytes, inFlight);
        // What is idle may be in flight, and one image more of each kind is being handed over.
        ASSERT_LE(now.idleImageBytes, inFlight + bytes);
        ASSERT_LE(now.idleHostBytes, inFlight + 2 * bytes);
    }
    EXPECT_LE(gpu().statistics().imagesCreated, inFlight / bytes + 2);
}

TEST_F(TransferQueueTest, ExhaustedMemoryAndALostDeviceFailAsElsewhere)
{
    const XY<int> size{1920, 1080}; // with memory of its own
    const Bytes picture = noise(bytesOf(size, iGPUImage::eARGB8));
    const Qx::Ptr<iHostImage> host = gpu().createHostImage(size, iGPUImage::eARGB8);
    ASSERT_TRUE(host);
    std::memcpy(host->map(iHostImage::Write), picture.data(), picture.size());
    gpu().failAllocations(0, 2);
    EXPECT_FALSE(gpu().uploadImage(host, 0));
    gpu().failAllocations(0, 1); // after which it is tried again
    const Qx::Ptr<iGPUImage> image = gpu().uploadImage(host, 0);
    ASSERT_TRUE(image);
    gpu().failAllocations(0, 2);
    EXPECT_FALSE(gpu().downloadImage(image));
    gpu().failAllocations(0, 0);
    expectTexels(gpu().downloadImage(image), picture);
    const Qx::Ptr<iHostImage> late = gpu().downloadImage(image);
    gpu().loseDevice();
    EXPECT_EQ(late->map(iHostImage::Read), nullptr);
    EXPECT_FALSE(gpu().uploadImage(host, 0));
    EXPECT_FALSE(gpu().downloadImage(image));
    takeLog();
}

} // namespace Qx::GpuTests
