// Two drivers draw the same: the one that all tests use and, where Debian's package chromium is installed,
// SwiftShader. scripts/check-driver runs all tests that draw on it.

#include "tests/host/gpu/Drawn.h"

#include <cstdlib>

namespace Qx::GpuTests {

namespace {

constexpr const char* manifest = "/usr/lib/chromium/vk_swiftshader_icd.json";

class SecondDriverTest : public GpuTest
{
protected:
    void SetUp() override
    {
        GpuTest::SetUp();
        if (!std::filesystem::exists(manifest)) {
            GTEST_SKIP() << "SwiftShader is not installed: " << manifest;
        }
        if (std::getenv("VK_DRIVER_FILES") != nullptr || std::getenv("VK_ICD_FILENAMES") != nullptr) {
            GTEST_SKIP() << "the environment says which drivers there are";
        }
        ::setenv("VK_ADD_DRIVER_FILES", manifest, 1);
        GPUOptions options;
        options.device = "SwiftShader";
        options.validation = true;
        second_ = std::make_unique<GPUService>(options);
        ASSERT_TRUE(second_->start()) << second_->failure();
    }

    void TearDown() override
    {
        if (second_ != nullptr) {
            second_->shutdown();
            EXPECT_EQ(second_->statistics().validationMessages, 0U) << takeLog();
        }
        GpuTest::TearDown();
    }

    GPUService& second() { return *second_; }

private:
    std::unique_ptr<GPUService> second_;
};

TEST_F(SecondDriverTest, ConversionsEffectsBlendingAndTextAreTheSameBytes)
{
    const std::map<std::string, Bytes> wanted = drawnBy(gpu(), folder());
    const std::map<std::string, Bytes> got = drawnBy(second(), folder());
    for (const auto& [what, bytes] : wanted) {
        ASSERT_FALSE(bytes.empty()) << what;
        ASSERT_EQ(got.at(what).size(), bytes.size()) << what;
        std::size_t differing = 0;
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            differing += bytes[i] != got.at(what)[i] ? 1U : 0U;
        }
        EXPECT_EQ(differing, 0U) << what << ": of " << bytes.size() << " bytes";
    }
}

} // namespace

} // namespace Qx::GpuTests
