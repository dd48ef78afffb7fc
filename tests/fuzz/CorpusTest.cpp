#include "host/cache/Record.h"
#include "host/effects/archive/EffectArchive.h"
#include "host/effects/worker/Protocol.h"
#include "tests/fuzz/Targets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace Qx::Fuzz {
namespace {

std::vector<std::uint8_t> contents(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

class Corpus : public testing::TestWithParam<Target>
{
protected:
    static std::vector<std::filesystem::path> files()
    {
        std::vector<std::filesystem::path> found;
        for (const auto& entry :
             std::filesystem::directory_iterator(std::filesystem::path(QX_CORPUS) / GetParam().name)) {
            found.push_back(entry.path());
        }
        std::sort(found.begin(), found.end());
        return found;
    }

    static void give(const std::filesystem::path& file, Input input)
    {
        try {
            GetParam().run(input);
        } catch (const std::exception& error) {
            ADD_FAILURE() << file << ", its first " << input.size() << " bytes: " << error.what();
        }
    }
};

TEST_P(Corpus, everyInputIsAnswered)
{
    const std::vector<std::filesystem::path> inputs = files();
    ASSERT_FALSE(inputs.empty());
    for (const std::filesystem::path& file : inputs) {
        give(file, contents(file));
    }
}

TEST_P(Corpus, everyInputIsAnsweredCutAnywhere)
{
    for (const std::filesystem::path& file : files()) {
        const std::vector<std::uint8_t> bytes = contents(file);
        const std::size_t step = std::max<std::size_t>(bytes.size() / 200, 1);
        for (std::size_t length = 0; length < bytes.size(); length += step) {
            give(file, Input(bytes).first(length));
        }
    }
}

/// A corpus of refused inputs would not test anything after the first check.
class Seeds : public testing::Test
{
protected:
    static std::vector<std::byte> seed(const char* name)
    {
        const std::vector<std::uint8_t> read = contents(std::filesystem::path(QX_CORPUS) / name);
        const std::span<const std::byte> bytes = std::as_bytes(std::span(read));
        return {bytes.begin(), bytes.end()};
    }

    static constexpr const char* stale = "the format has changed: run qx_fuzz_seeds tests/fuzz/corpus";
};

TEST_F(Seeds, holdWholeEffectArchives)
{
    for (const char* name : {"effectArchive/whole", "effectArchive/plain", "effectArchive/failed"}) {
        EXPECT_TRUE(Host::readEffectArchive(seed(name))) << name << ": " << stale;
    }
}

TEST_F(Seeds, holdWholeCacheRecords)
{
    using namespace Host::Cache;
    const Digest key = digestOf(std::string_view("key"));
    std::vector<std::byte> effect = seed("cacheRecord/effect");
    EXPECT_EQ(unwrapRecord(effect, Kind::Effect, key), Condition::Whole) << stale;
    std::vector<std::byte> empty = seed("cacheRecord/empty");
    EXPECT_EQ(unwrapRecord(empty, Kind::Pipelines, key), Condition::Whole) << stale;
}

TEST_F(Seeds, holdWholeWorkerMessages)
{
    EXPECT_TRUE(Host::Worker::decodeHello(seed("worker/payload_hello"))) << stale;
    EXPECT_TRUE(Host::Worker::decodeRequest(seed("worker/payload_request"))) << stale;
}

INSTANTIATE_TEST_SUITE_P(Fuzz, Corpus, testing::ValuesIn(targets),
                         [](const testing::TestParamInfo<Target>& test) {
                             return std::string(test.param.name);
                         });

} // namespace
} // namespace Qx::Fuzz
