#include "tests/effects/FxTest.h"

#include <gtest/gtest.h>

#include <fstream>

// The examples in docs/effects.md are compiled, and their messages are those of the page.

namespace Qx::Host::Tests {
namespace {

struct Block
{
    std::string kind; ///< the text after the opening fence
    std::string text;
    int line = 0;
};

std::vector<Block> fencedBlocks()
{
    std::vector<Block> blocks;
    std::ifstream page(QX_EFFECTS_PAGE);
    bool inside = false;
    int number = 0;
    for (std::string line; std::getline(page, line);) {
        ++number;
        if (line.starts_with("```")) {
            inside = !inside;
            if (inside) {
                blocks.push_back({line.substr(3), "", number});
            }
        } else if (inside) {
            blocks.back().text += line + '\n';
        }
    }
    return blocks;
}

TEST(EffectsPage, itsExamplesCompileAndItsMistakesGiveTheMessagesShown)
{
    const TemporaryDirectory directory;
    const std::vector<Block> blocks = fencedBlocks();
    std::size_t examples = 0;
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        const Block& block = blocks[i];
        const std::string include = "hlsl file=";
        if (block.kind.starts_with(include)) {
            std::ofstream(directory.path() / block.kind.substr(include.size())) << block.text;
        } else if (block.kind == "hlsl" || block.kind == "hlsl with messages") {
            std::ofstream(directory.path() / "example.fx") << block.text;
            const EffectCompilation compilation = compileEffect(directory.path() / "example.fx", {});
            const bool shown = block.kind == "hlsl with messages";
            ASSERT_TRUE(!shown || (i + 1 < blocks.size() && blocks[i + 1].kind == "text"))
                << "line " << block.line << ": no messages follow";
            EXPECT_EQ(withoutDirectory(compilation.messages, directory.path().string()),
                      shown ? blocks[i + 1].text : "")
                << "line " << block.line;
            ++examples;
        } else {
            EXPECT_EQ(block.kind, "text") << "line " << block.line;
        }
    }
    EXPECT_GE(examples, 8U);
}

} // namespace
} // namespace Qx::Host::Tests
