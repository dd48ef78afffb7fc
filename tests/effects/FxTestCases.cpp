#include "tests/effects/FxTest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

namespace Qx::Host::Tests {
namespace {

std::string joined(const std::vector<std::string>& lines)
{
    std::string text;
    for (const std::string& line : lines) {
        text += line + '\n';
    }
    return text;
}

std::size_t occurrences(const std::string& text, const std::string& word)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + word.size())) {
        ++count;
    }
    return count;
}

void checkResult(const FxTest::Section& section, const CompiledEffect& effect)
{
    const std::vector<std::string> facts = describe(effect);
    for (const std::string& line : section.lines) {
        EXPECT_NE(std::find(facts.begin(), facts.end(), line), facts.end())
            << "not in the result: " << line << "\nwhich is\n"
            << joined(facts);
    }
}

/// "[spirv TECHNIQUE]" or "[spirv TECHNIQUE/PASS]", then lines "COUNT WORD".
void checkSpirv(const FxTest::Section& section, const CompiledEffect& effect)
{
    const std::string& place = section.argument;
    const auto pass = [&]() -> const CompiledEffect::Pass* {
        for (const CompiledEffect::Technique& technique : effect.techniques) {
            for (const CompiledEffect::Pass& candidate : technique.passes) {
                if (place == technique.name || place == technique.name + '/' + candidate.name) {
                    return &candidate;
                }
            }
        }
        return nullptr;
    }();
    ASSERT_NE(pass, nullptr) << "line " << section.line << ": there is no pass " << place;
    const std::string text = disassemble(pass->spirv);
    for (const std::string& line : section.lines) {
        std::istringstream words(line);
        std::size_t count = 0;
        std::string word;
        words >> count >> std::ws;
        std::getline(words, word);
        if (word.empty()) {
            ADD_FAILURE() << "a line is COUNT TEXT, not: " << line;
            continue;
        }
        EXPECT_EQ(occurrences(text, word), count) << word << " in\n" << text;
    }
}

class FxTestCases : public testing::TestWithParam<FxTest>
{
};

TEST_P(FxTestCases, holds)
{
    const FxTest& test = GetParam();
    const TemporaryDirectory directory;
    const std::filesystem::path effect = writeFiles(test, directory.path());
    const EffectCompilation compilation = compileEffect(effect, optionsOf(test));

    const FxTest::Section* const expected = test.find("messages");
    const std::string messages = withoutDirectory(compilation.messages, directory.path().string());
    EXPECT_EQ(messages, expected == nullptr ? "" : joined(expected->lines));
    const bool failed = messages.find(": error: ") != std::string::npos;
    ASSERT_EQ(compilation.effect == nullptr, failed);
    for (const FxTest::Section& section : test.sections) {
        if (section.kind == "files") {
            std::string files;
            for (const EffectInput& input : compilation.inputs) {
                if (input.content) {
                    files += withoutDirectory(input.path.string(), directory.path().string()) + '\n';
                }
            }
            EXPECT_EQ(files, joined(section.lines));
        } else if (section.kind == "result" || section.kind == "spirv") {
            ASSERT_NE(compilation.effect, nullptr) << messages;
            section.kind == "result" ? checkResult(section, *compilation.effect)
                                     : checkSpirv(section, *compilation.effect);
        } else {
            const std::vector<std::string> others{"effect", "file", "definitions", "messages",
                                                  "image",  "set",  "draw",        "probe"};
            EXPECT_NE(std::find(others.begin(), others.end(), section.kind), others.end())
                << "line " << section.line << ": unknown section [" << section.kind << ']';
        }
    }
}

std::string nameOf(const testing::TestParamInfo<FxTest>& test)
{
    return test.param.name;
}

INSTANTIATE_TEST_SUITE_P(Files, FxTestCases, testing::ValuesIn(readAllFxTests()), nameOf);

} // namespace
} // namespace Qx::Host::Tests
