// Constant arrays from which a computed number picks: each lies in memory once, however many places pick.

#include "host/effects/spirv/Passes.h"
#include "host/effects/spirv/SpirvModule.h"
#include "tests/effects/BrokenModules.h"
#include "tests/effects/PackedDrawing.h"

#include <gtest/gtest.h>

namespace Qx::Host::Tests {
namespace {

using namespace Effects::Spirv;

struct Counted
{
    std::size_t variables = 0;
    std::size_t initial = 0; ///< variables that have a value from the beginning
    std::size_t stores = 0;  ///< to anything but outputs
};

Counted count(const Words& spirv)
{
    Counted counted;
    std::vector<Id> outputs;
    forEach(spirv, [&](const Instruction& i) {
        if (i.op() == spv::OpVariable && i[3] == spv::StorageClassFunction) {
            ++counted.variables;
            counted.initial += i.size() == 5 ? 1U : 0U;
        } else if (i.op() == spv::OpVariable && i[3] == spv::StorageClassOutput) {
            outputs.push_back(i[2]);
        } else if (i.op() == spv::OpStore) {
            counted.stores += std::ranges::find(outputs, i[1]) == outputs.end() ? 1U : 0U;
        }
    });
    return counted;
}

TEST(ConstantArrays, LieInMemoryOnceHoweverManyPlacesPick)
{
    const auto effect =
        packedEffect("static const float table[4] = {10, 20, 30, 40};"
                     "float at(int i) { float sum = 0; for (int k = 0; k < i; ++k) { sum += table[(i + k) & "
                     "3]; } return sum; }"
                     "float4 entry(int2 pos : VPOS) : COLORCODE {"
                     "    return float4(at(pos.x), table[pos.x & 3], at(pos.x + 1), table[pos.x + 1 & 3]);"
                     "} technique T { pass { PixelShader = compile ps_3_0 entry(); } }");
    ASSERT_NE(effect, nullptr);
    const auto& pass = effect->techniques[0].passes[0];
    EXPECT_EQ(problemsOf(pass.spirv), "");
    const Counted counted = count(pass.spirv);
    EXPECT_EQ(counted.initial, 1U);
    EXPECT_EQ(counted.variables, 1U);
    EXPECT_EQ(counted.stores, 0U);
    const std::vector<std::byte> row = drawRow(*effect, pass.packed[0], {PackedPicture(8, 1)}, 0, 1);
    const auto code = [&](std::size_t i) { return std::to_integer<int>(row.at(i)); };
    // The texels of columns 0 to 2: a, r, g, b.
    EXPECT_EQ((std::array{code(1), code(2), code(3), code(0)}), (std::array{0, 10, 20, 20}));
    EXPECT_EQ((std::array{code(5), code(6), code(7), code(4)}), (std::array{20, 20, 70, 30}));
    EXPECT_EQ((std::array{code(9), code(10), code(11), code(8)}), (std::array{70, 30, 70, 40}));
}

/// Two variables of a function are filled with constants; `rest` is what it does with them.
Words moduleWith(const std::string& rest)
{
    return assembled(R"(
OpCapability Shader
OpMemoryModel Logical GLSL450
OpEntryPoint Fragment %main "main" %position %colour
OpExecutionMode %main OriginUpperLeft
OpDecorate %position Location 0
OpDecorate %position Flat
OpDecorate %colour Location 0
%void = OpTypeVoid
%void_f = OpTypeFunction %void
%float = OpTypeFloat 32
%int = OpTypeInt 32 1
%zero = OpConstant %int 0
%one = OpConstant %int 1
%two = OpConstant %int 2
%five = OpConstant %float 5
%seven = OpConstant %float 7
%array = OpTypeArray %float %two
%arrays = OpTypeArray %array %two
%table = OpConstantComposite %array %five %seven
%other = OpConstantComposite %array %seven %five
%tables = OpConstantComposite %arrays %table %other
%ptr_array = OpTypePointer Function %array
%ptr_arrays = OpTypePointer Function %arrays
%ptr_element = OpTypePointer Function %float
%ptr_in = OpTypePointer Input %int
%ptr_out = OpTypePointer Output %float
%position = OpVariable %ptr_in Input
%colour = OpVariable %ptr_out Output
%main = OpFunction %void None %void_f
%entry = OpLabel
%a = OpVariable %ptr_array Function
%b = OpVariable %ptr_array Function
%nested = OpVariable %ptr_arrays Function
%index = OpLoad %int %position
)" + rest + R"(
OpStore %colour %sum
OpReturn
OpFunctionEnd
)");
}

constexpr const char* bothPick = "%in_a = OpAccessChain %ptr_element %a %index\n"
                                 "%in_b = OpAccessChain %ptr_element %b %index\n"
                                 "%from_a = OpLoad %float %in_a\n"
                                 "%from_b = OpLoad %float %in_b\n"
                                 "%sum = OpFAdd %float %from_a %from_b\n";

TEST(ConstantArrays, AreOneVariableIfTheyAreEqual)
{
    Words spirv = moduleWith(std::string("OpStore %a %table\nOpStore %b %table\n") + bothPick);
    EXPECT_TRUE(Effects::shareConstantArrays(spirv));
    EXPECT_EQ(problemsOf(spirv), "");
    EXPECT_EQ(count(spirv).initial, 1U);
    EXPECT_EQ(count(spirv).variables, 2U); // %nested is left
    EXPECT_EQ(count(spirv).stores, 0U);
}

TEST(ConstantArrays, StayApartIfTheyDiffer)
{
    Words spirv = moduleWith(std::string("OpStore %a %table\nOpStore %b %other\n") + bothPick);
    EXPECT_TRUE(Effects::shareConstantArrays(spirv));
    EXPECT_EQ(problemsOf(spirv), "");
    EXPECT_EQ(count(spirv).initial, 2U);
    EXPECT_EQ(count(spirv).variables, 3U);
}

TEST(ConstantArrays, AreLeftAloneIfAnythingElseIsStored)
{
    for (const char* stores :
         {"", "OpStore %a %table\nOpStore %a %other\nOpStore %b %other\nOpStore %b %table\n",
          "OpStore %a %table\n%in = OpAccessChain %ptr_element %a %one\nOpStore %in %five\n",
          "%copied = OpLoad %array %b\nOpStore %a %copied\n",
          "OpStore %a %table\n%whole = OpCopyObject %ptr_array %a\nOpStore %whole %other\n"
          "OpStore %b %table\n%again = OpCopyObject %ptr_array %b\nOpStore %again %other\n",
          "OpStore %nested %tables\n%row = OpAccessChain %ptr_array %nested %index\n"
          "%part = OpAccessChain %ptr_element %row %index\nOpStore %part %five\n"}) {
        Words spirv = moduleWith(std::string(stores) + bothPick);
        const Words before = spirv;
        EXPECT_FALSE(Effects::shareConstantArrays(spirv)) << stores;
        EXPECT_EQ(spirv, before) << stores;
    }
}

TEST(ConstantArrays, LeaveAModuleThatIsCutOffAlone)
{
    expectCutModulesLeftAlone(moduleWith(std::string("OpStore %a %table\nOpStore %b %table\n") + bothPick),
                              [](auto& spirv) { return Effects::shareConstantArrays(spirv); });
}

TEST(ConstantArrays, SurviveInstructionsOfOtherWordsThanTheirs)
{
    expectChangedModulesSurvived(moduleWith(std::string("OpStore %a %table\nOpStore %b %table\n") + bothPick),
                                 [](auto& spirv) { Effects::shareConstantArrays(spirv); });
}

} // namespace
} // namespace Qx::Host::Tests
