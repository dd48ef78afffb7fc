#pragma once

#include "host/effects/spirv/SpirvModule.h"

#include <gtest/gtest.h>

namespace Qx::Host::Tests {

/// Calls `pass` with the module cut off after each of its words. `pass` returns whether it changed the
/// module. It must not change one whose last instruction is cut.
template <class Pass>
void expectCutModulesLeftAlone(const Effects::Spirv::Words& whole, Pass pass)
{
    std::size_t inInstructions = 0;
    for (std::size_t length = 0; length < whole.size(); ++length) {
        Effects::Spirv::Words cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        const Effects::Spirv::Words before = cut;
        const bool broken = !Effects::Spirv::forEach(cut, [](const auto&) {});
        const bool did = pass(cut);
        if (broken) {
            ++inInstructions;
            EXPECT_FALSE(did) << "cut after " << length;
            EXPECT_EQ(cut, before) << "cut after " << length;
        }
    }
    EXPECT_GT(inInstructions, whole.size() / 2);
}

/// Calls `pass` with modules in which one instruction lost its operands or one word is changed. The result of
/// a changed word must still be a whole module.
template <class Pass>
void expectChangedModulesSurvived(const Effects::Spirv::Words& whole, Pass pass)
{
    for (std::size_t at = Effects::Spirv::headerWords; at < whole.size(); at += whole[at] >> 16U) {
        Effects::Spirv::Words changed = whole;
        const auto first = changed.begin() + static_cast<std::ptrdiff_t>(at);
        changed.erase(first + 1, first + static_cast<std::ptrdiff_t>(whole[at] >> 16U));
        changed[at] = 1U << 16U | (whole[at] & 0xffffU);
        changed.shrink_to_fit();
        pass(changed);
        for (std::size_t word = at + 1; word < at + (whole[at] >> 16U); ++word) {
            for (const std::uint32_t value : {0U, 0xffffffffU}) {
                changed = whole;
                changed[word] = value;
                pass(changed);
                EXPECT_TRUE(Effects::Spirv::forEach(changed, [](const auto&) {})) << "word " << word;
            }
        }
    }
}

} // namespace Qx::Host::Tests
