// What all passes over SPIR-V have in common: modules that are cut off stay as they are.

#include "host/effects/spirv/Passes.h"
#include "tests/effects/BrokenModules.h"
#include "tests/effects/PackedDrawing.h"

#include <gtest/gtest.h>

namespace Qx::Host::Tests {
namespace {

Effects::Spirv::Words moduleWithArithmetic()
{
    const std::shared_ptr<const CompiledEffect> effect = packedEffect(R"(
float gain = 0.5;
float4 entry(int2 pos : VPOS) : COLOR { return float(pos.x * 3 + 1) % 7.0 * gain; }
technique T { pass { PixelShader = compile ps_3_0 entry(); } }
)");
    return effect != nullptr ? effect->techniques[0].passes[0].packed[0].spirv : Effects::Spirv::Words();
}

/// A type of a buffer of whole numbers, as the HLSL front end declares it.
Effects::Spirv::Words moduleWithABuffer()
{
    const auto word = [](std::uint32_t op, std::uint32_t words) { return words << spv::WordCountShift | op; };
    return {spv::MagicNumber,
            spv::Version,
            0,
            3,
            0,
            word(spv::OpTypeInt, 4),
            1,
            32,
            0,
            word(spv::OpTypeImage, 9),
            2,
            1,
            spv::DimBuffer,
            0,
            0,
            0,
            1,
            spv::ImageFormatRgba32ui,
            word(spv::OpTypeVoid, 2),
            1};
}

TEST(Passes, LeaveModulesThatAreCutOffAsTheyAre)
{
    using Effects::Spirv::Words;
    const Words whole = moduleWithArithmetic();
    expectCutModulesLeftAlone(whole, [](Words& spirv) { return Effects::useRemaindersOfHlsl(spirv); });
    expectCutModulesLeftAlone(whole, [](Words& spirv) { return Effects::rewriteFetches(spirv); });
    expectCutModulesLeftAlone(whole, [](Words& spirv) { return Effects::simplifyColumnArithmetic(spirv); });
    expectCutModulesLeftAlone(whole, [](Words& spirv) {
        const std::size_t before = spirv.size();
        Effects::keepArithmeticAsWritten(spirv);
        return spirv.size() != before;
    });
    expectCutModulesLeftAlone(whole, [](Words& spirv) {
        const Words before = spirv;
        spirv = Effects::convertByAdding(spirv);
        return spirv != before;
    });
    expectCutModulesLeftAlone(moduleWithABuffer(), [](Words& spirv) {
        const Words before = spirv;
        Effects::leaveBufferFormatsOpen(spirv);
        return spirv != before;
    });
}

} // namespace
} // namespace Qx::Host::Tests
