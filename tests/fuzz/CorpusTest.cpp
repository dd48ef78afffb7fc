#include "tests/fuzz/Targets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace Qx::Fuzz {
namespace {

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

    static std::vector<std::uint8_t> contents(const std::filesystem::path& file)
    {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
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

INSTANTIATE_TEST_SUITE_P(Fuzz, Corpus, testing::ValuesIn(targets),
                         [](const testing::TestParamInfo<Target>& test) {
                             return std::string(test.param.name);
                         });

} // namespace
} // namespace Qx::Fuzz
