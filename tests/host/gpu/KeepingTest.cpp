// Data that the service keeps on disk between runs.

#include "host/cache/FileStore.h"
#include "host/gpu/device/PipelineCache.h"
#include "platform/Text.h"
#include "tests/TemporaryDirectory.h"
#include "tests/host/gpu/GpuFixture.h"

#include <array>
#include <cstring>
#include <fstream>

namespace Qx::GpuTests {

namespace {

using Host::Cache::FileStore;
using Host::Cache::Kind;
using Host::Vulkan::isPipelineDataOf;
namespace fs = std::filesystem;

constexpr const char* effectText = R"(
#pragma unknown
texture Input;
sampler S = sampler_state { Texture = <Input>; };
float4 shade(float2 uv : TEXCOORD1) : COLOR { return tex2D(S, uv) * 0.5; }
technique Shade { pass P { PixelShader = compile ps_3_0 shade(); } }
)";

class KeepingTest : public testing::Test
{
protected:
    void SetUp() override { std::ofstream(effect()) << effectText; }

    fs::path effect() const { return folder_ / "effect.fx"; }
    fs::path kept() const { return folder_ / "kept"; }
    FileStore store() const { return FileStore(kept(), 1U << 30U, {}); }

    /// Runs a service with that directory and loads the effect. Returns the messages.
    std::string run(const fs::path& directory) const
    {
        GPUOptions options;
        options.validation = true;
        options.cacheDirectory = directory;
        GPUService gpu(options);
        EXPECT_TRUE(gpu.start()) << gpu.failure();
        const EffectCompileResult result = gpu.compileEffectFile(fromUTF8(effect().c_str()), {});
        EXPECT_TRUE(result.effect) << result.errors.c_str();
        gpu.shutdown();
        EXPECT_EQ(gpu.statistics().validationMessages, 0U);
        return result.errors.c_str();
    }

    /// The one file of a kind.
    fs::path fileOf(const char* ending) const
    {
        for (const fs::directory_entry& entry : fs::directory_iterator(kept())) {
            if (entry.path().extension() == ending) {
                return entry.path();
            }
        }
        ADD_FAILURE() << "no " << ending << " in " << kept();
        return {};
    }

    const Qx::Test::TemporaryDirectory folder_;
};

std::vector<std::byte> headerOf(const VkPhysicalDeviceProperties& properties)
{
    std::vector<std::byte> data(32 + 8);
    const std::array<std::uint32_t, 4> numbers{32, 1, properties.vendorID, properties.deviceID};
    std::memcpy(data.data(), numbers.data(), sizeof numbers);
    std::memcpy(data.data() + sizeof numbers, properties.pipelineCacheUUID, VK_UUID_SIZE);
    return data;
}

} // namespace

TEST_F(KeepingTest, KeepsEffectsAndPipelinesForTheNextRun)
{
    const std::string messages = run(kept());
    EXPECT_NE(messages.find("#pragma"), std::string::npos) << messages;
    EXPECT_EQ(store().usage(Kind::Effect).entries, 1U);
    EXPECT_EQ(store().usage(Kind::Pipelines).entries, 1U);
    const fs::path file = fileOf(".effect");
    const auto made = fs::last_write_time(file) - std::chrono::hours(1);
    fs::last_write_time(file, made);
    EXPECT_EQ(run(kept()), messages);
    EXPECT_GT(fs::last_write_time(file), made) << "the second run did not use the entry";
    EXPECT_EQ(store().usage(Kind::Effect).entries, 1U);
}

TEST_F(KeepingTest, KeepsNothingWithoutADirectory)
{
    run({});
    EXPECT_FALSE(fs::exists(kept()));
}

TEST_F(KeepingTest, AnEditedEffectIsCompiledAgain)
{
    run(kept());
    std::ofstream(effect(), std::ios::app) << "#warning edited\n";
    EXPECT_NE(run(kept()).find("#warning"), std::string::npos);
    EXPECT_EQ(store().usage(Kind::Effect).entries, 2U);
}

TEST_F(KeepingTest, PipelineDataOfAnotherMakingDoesNotReachTheDriver)
{
    run(kept());
    const fs::path file = fileOf(".pipelines");
    const std::string name = file.stem();
    Host::Cache::Digest key;
    for (std::size_t i = 0; i < key.size(); ++i) {
        key[i] = static_cast<std::byte>(std::stoi(name.substr(2 * i, 2), nullptr, 16));
    }
    ASSERT_TRUE(store().load(Kind::Pipelines, key));
    const std::vector<std::byte> noise(1000, std::byte{0x5A});
    store().store(Kind::Pipelines, key, noise);
    run(kept());
    EXPECT_NE(store().load(Kind::Pipelines, key), noise) << "the next run replaces it";
}

TEST_F(KeepingTest, ADamagedFileCostsNothingButOneLine)
{
    run(kept());
    for (const char* ending : {".effect", ".pipelines"}) {
        fs::resize_file(fileOf(ending), 60);
    }
    takeLog();
    run(kept());
    const std::string log = takeLog();
    const std::size_t first = log.find("The cache in");
    EXPECT_NE(first, std::string::npos) << log;
    EXPECT_EQ(log.find("The cache in", first + 1), std::string::npos) << log;
    EXPECT_EQ(store().usage(Kind::Effect).entries, 1U);
    EXPECT_EQ(store().usage(Kind::Pipelines).entries, 1U);
}

TEST(PipelineDataTest, IsTakenOnlyFromTheSameDeviceAndDriver)
{
    VkPhysicalDeviceProperties properties{};
    properties.vendorID = 0x1234;
    properties.deviceID = 0x5678;
    properties.pipelineCacheUUID[7] = 9;
    const std::vector<std::byte> data = headerOf(properties);
    EXPECT_TRUE(isPipelineDataOf(properties, data));
    for (std::size_t at = 0; at < 32; ++at) {
        std::vector<std::byte> changed = data;
        changed[at] ^= std::byte{0x80};
        EXPECT_FALSE(isPipelineDataOf(properties, changed)) << at;
    }
    for (std::size_t length = 0; length < 32; ++length) {
        EXPECT_FALSE(isPipelineDataOf(properties, std::span(data).first(length))) << length;
    }
    EXPECT_TRUE(isPipelineDataOf(properties, std::span(data).first(32)));
}

} // namespace Qx::GpuTests
