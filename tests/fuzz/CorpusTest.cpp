#include "host/cache/Record.h"
#include "host/effects/archive/EffectArchive.h"
#include "host/effects/worker/Protocol.h"
#include "host/luts/ColourIOFile.h"
#include "tests/fuzz/Targets.h"
#include "tools/qxhost/media/read/ClipReader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
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
            const auto finding =
                std::filesystem::temp_directory_path() / ("finding-" + file.filename().string());
            std::ofstream(finding, std::ios::binary)
                .write(reinterpret_cast<const char*>(input.data()),
                       static_cast<std::streamsize>(input.size()));
            ADD_FAILURE() << file << ", its first " << input.size() << " bytes or a damaged copy, kept in "
                          << finding << ": " << error.what();
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

/// Some bytes replaced, a number made extreme, or a part copied to another place.
void damage(std::vector<std::uint8_t>& bytes, std::mt19937& random)
{
    const auto below = [&random](std::size_t limit) { return random() % std::max<std::size_t>(limit, 1); };
    for (std::size_t i = 1 + below(6); i > 0 && !bytes.empty(); --i) {
        const std::size_t at = below(bytes.size());
        const std::size_t count = std::min<std::size_t>(1 + below(4), bytes.size() - at);
        const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(at);
        switch (below(4)) {
        case 0:
            bytes[at] = static_cast<std::uint8_t>(random());
            break;
        case 1:
            bytes[at] ^= static_cast<std::uint8_t>(1U << below(8));
            break;
        case 2:
            std::fill_n(begin, count, std::array<std::uint8_t, 4>{0, 0xff, 0x7f, 0x80}[below(4)]);
            break;
        default:
            const std::size_t from = below(bytes.size() - count);
            const std::vector<std::uint8_t> part(bytes.begin() + static_cast<std::ptrdiff_t>(from),
                                                 bytes.begin() + static_cast<std::ptrdiff_t>(from + count));
            std::copy(part.begin(), part.end(), begin);
        }
    }
}

/// A thousand inputs for each target; QX_FUZZ_ROUNDS asks for more, where there is no libFuzzer.
TEST_P(Corpus, everyInputIsAnsweredDamaged)
{
    const char* wanted = std::getenv("QX_FUZZ_ROUNDS");
    const std::vector<std::filesystem::path> inputs = files();
    const std::size_t rounds = (wanted != nullptr ? std::strtoul(wanted, nullptr, 10) : 1000) / inputs.size();
    std::mt19937 random(1);
    for (const std::filesystem::path& file : inputs) {
        const std::vector<std::uint8_t> sound = contents(file);
        for (std::size_t i = 0; i <= rounds; ++i) {
            std::vector<std::uint8_t> bytes = sound;
            damage(bytes, random);
            give(file, bytes);
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

TEST_F(Seeds, holdClipsThatAreRead)
{
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(QX_CORPUS) / "clip")) {
        if (entry.path().filename().string().starts_with("found-")) {
            continue;
        }
        auto reader = Media::ClipReader::open(entry.path(), {.threads = 1, .keepAudio = false});
        ASSERT_TRUE(reader) << reader.text();
        Media::Frame frame;
        EXPECT_EQ(reader.value()->next(frame), Media::ClipReader::Next::frame) << entry.path();
    }
}

TEST_F(Seeds, holdLutsThatAreRead)
{
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(QX_CORPUS) / "lut")) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with("found-")) {
            continue;
        }
        const std::vector<std::uint8_t> bytes = contents(entry.path());
        Host::Luts::Refusal refusal;
        EXPECT_TRUE(Host::Luts::readThroughColourIO(name, name.substr(name.rfind('.') + 1),
                                                    textOf(Input(bytes).subspan(1)),
                                                    Host::Luts::Wanted::Steps, refusal))
            << name << ": " << refusal.cause;
    }
}

INSTANTIATE_TEST_SUITE_P(Fuzz, Corpus, testing::ValuesIn(targets),
                         [](const testing::TestParamInfo<Target>& test) {
                             return std::string(test.param.name);
                         });

} // namespace
} // namespace Qx::Fuzz
