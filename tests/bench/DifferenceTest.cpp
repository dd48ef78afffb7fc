#include "bench/comparison/Difference.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace Qx::Bench {
namespace {

/// A file that is gone with the test.
class TemporaryFile
{
public:
    explicit TemporaryFile(const std::vector<std::byte>& bytes)
        : path_(std::filesystem::temp_directory_path() /
                ("qx-difference-" + std::to_string(::getpid()) + '-' + std::to_string(counter_++)))
    {
        std::ofstream(path_, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile()
    {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
    }

    std::string name() const { return path_.string(); }

private:
    inline static int counter_ = 0;
    std::filesystem::path path_;
};

std::optional<Difference> between(const Work& work, const std::vector<std::byte>& one,
                                  const std::vector<std::byte>& other)
{
    const TemporaryFile ours(one);
    const TemporaryFile theirs(other);
    return differenceOf(work, ours.name(), theirs.name());
}

std::vector<std::byte> blank(const Work& work)
{
    return std::vector<std::byte>(frameBytes(resultLayout(work.kind), work.depth));
}

constexpr Work point{WorkKind::Decode, 8, ChromaFilter::Point, Place::Device};
constexpr Work filtered{WorkKind::Decode, 8, ChromaFilter::Mitchell, Place::Device};
constexpr Work deep{WorkKind::Decode, 16, ChromaFilter::Point, Place::Device};
constexpr Work packed{WorkKind::ToV210, 16, ChromaFilter::None, Place::Device};

TEST(Differences, OfEqualFramesAreNone)
{
    const auto difference = between(point, blank(point), blank(point));
    ASSERT_TRUE(difference);
    EXPECT_EQ(difference->largest, 0U);
    EXPECT_EQ(difference->share, 0.0);
}

TEST(Differences, AreInCodesOfTheDepth)
{
    auto frame = blank(point);
    frame[5] = std::byte{3};
    EXPECT_EQ(between(point, blank(point), frame)->largest, 3U);
    EXPECT_GT(between(point, blank(point), frame)->share, 0.0);
    auto deepFrame = blank(deep);
    deepFrame[5] = std::byte{3};
    EXPECT_EQ(between(deep, deepFrame, blank(deep))->largest, 0x300U);
    auto words = blank(packed);
    words[1] = std::byte{4}; // the lowest bit of the word's second field
    EXPECT_EQ(between(packed, words, blank(packed))->largest, 1U);
}

TEST(Differences, LeaveOutTheEdgesWhereChromaIsFiltered)
{
    auto frame = blank(filtered);
    frame[3] = std::byte{200};
    EXPECT_EQ(between(filtered, blank(filtered), frame)->largest, 0U);
    EXPECT_EQ(between(point, blank(point), frame)->largest, 200U);
    frame[4 * 12] = std::byte{1};
    EXPECT_EQ(between(filtered, blank(filtered), frame)->largest, 1U);
}

TEST(Differences, AreNoneToBeHadOfWhatIsNoFrame)
{
    EXPECT_FALSE(between(point, blank(point), {}));
    EXPECT_FALSE(differenceOf(point, "/nonexistent/ours", "/nonexistent/theirs"));
}

TEST(Differences, AreRoundingUpToOneCodeAndTwoOfSixteenBits)
{
    EXPECT_TRUE(isSameResult(point, {1, 1.0}));
    EXPECT_FALSE(isSameResult(point, {2, 0.001}));
    EXPECT_TRUE(isSameResult(deep, {2, 1.0}));
    EXPECT_FALSE(isSameResult(deep, {3, 0.001}));
    EXPECT_FALSE(isSameResult(packed, {2, 0.001}));
}

} // namespace
} // namespace Qx::Bench
