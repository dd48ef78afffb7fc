// Arrays that are copies of parameters: a computed number picks from the parameter, not from a copy in
// memory.

#include "host/effects/spirv/Passes.h"
#include "host/effects/spirv/SpirvModule.h"
#include "tests/effects/BrokenModules.h"
#include "tests/effects/PackedDrawing.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace Qx::Host::Tests {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct Drawn
{
    std::size_t inMemory = 0; ///< variables of the function, in every shader of the pass
    Bytes codes;              ///< r, g, b, a of the texels of columns 0 to 3, one after the other
};

std::size_t functionVariables(const Effects::Spirv::Words& spirv)
{
    std::size_t count = 0;
    Effects::Spirv::forEach(spirv, [&count](const Effects::Spirv::Instruction& i) {
        count += i.op() == spv::OpVariable && i[3] == spv::StorageClassFunction ? 1U : 0U;
    });
    return count;
}

/// At 8 bits.
Drawn draw(const std::string& declarations, const std::string& body)
{
    const std::shared_ptr<const CompiledEffect> effect =
        packedEffect(declarations + "float4 entry(int2 pos : VPOS) : COLORCODE { " + body +
                     " } technique T { pass { PixelShader = compile ps_3_0 entry(); } }");
    if (effect == nullptr) {
        return {};
    }
    const auto& pass = effect->techniques[0].passes[0];
    Drawn drawn;
    drawn.inMemory = functionVariables(pass.spirv);
    EXPECT_EQ(problemsOf(pass.spirv), "") << body;
    for (const CompiledEffect::PackedShader& shader : pass.packed) {
        drawn.inMemory += functionVariables(shader.spirv);
        EXPECT_EQ(problemsOf(shader.spirv), "") << body;
    }
    const std::vector<std::byte> row = drawRow(*effect, pass.packed[0], {PackedPicture(8, 1)}, 0, 1);
    for (std::size_t column = 0; column < 4; ++column) {
        for (const std::size_t i : {1U, 2U, 3U, 0U}) {
            drawn.codes.push_back(static_cast<std::uint8_t>(row.at(column * 4 + i)));
        }
    }
    return drawn;
}

constexpr const char* table = "float table[4] = {10, 20, 30, 40};"
                              "float at(float t[4], int i) { return t[i & 3]; }";

TEST(ArrayCopies, AreReadInTheParameterIfTheyAreArguments)
{
    const Drawn drawn = draw(table, "return float4(at(table, pos.x + pos.y), at(table, pos.x + 1 + pos.y),"
                                    "at(table, pos.x + 2 + pos.y), at(table, pos.x + 3 + pos.y));");
    EXPECT_EQ(drawn.inMemory, 0U);
    EXPECT_EQ(drawn.codes, (Bytes{10, 20, 30, 40, 20, 30, 40, 10, 30, 40, 10, 20, 40, 10, 20, 30}));
}

TEST(ArrayCopies, AreReadInTheParameterIfTheirElementsAreVectors)
{
    const Drawn drawn = draw("float3 table[3] = {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}};"
                             "float3 at(float3 t[3], int i) { return t[i]; }"
                             "float of(float3 t[3], int i, int part) { return t[i][part]; }",
                             "return float4(at(table, (pos.x & 1) + pos.y),"
                             "of(table, pos.y + 1, (pos.x & 1)));");
    EXPECT_EQ(drawn.inMemory, 0U);
    EXPECT_EQ(drawn.codes, (Bytes{1, 2, 3, 4, 4, 5, 6, 5, 1, 2, 3, 4, 4, 5, 6, 5}));
}

TEST(ArrayCopies, AreReadInTheParameterIfTheyAreWholeNumbers)
{
    const Drawn drawn = draw("int table[3] = {3, 5, 9}; int at(int t[3], int i) { return t[i]; }",
                             "return at(table, pos.y + 2) + at(table, (pos.x & 1) + pos.y);");
    EXPECT_EQ(drawn.inMemory, 0U);
    EXPECT_EQ(drawn.codes, (Bytes{12, 12, 12, 12, 14, 14, 14, 14, 12, 12, 12, 12, 14, 14, 14, 14}));
}

/// Copies an array of two, and picks from the copy by a number that is no constant.
Effects::Spirv::Words moduleThatCopies(const std::string& stores)
{
    return assembled(R"(
OpCapability Shader
OpMemoryModel Logical GLSL450
OpEntryPoint Fragment %main "main" %position %colour
OpExecutionMode %main OriginUpperLeft
OpDecorate %position Location 0
OpDecorate %position Flat
OpDecorate %colour Location 0
OpDecorate %strided ArrayStride 16
OpMemberDecorate %block 0 Offset 0
OpDecorate %block Block
OpDecorate %buffer DescriptorSet 0
OpDecorate %buffer Binding 0
%void = OpTypeVoid
%void_f = OpTypeFunction %void
%float = OpTypeFloat 32
%int = OpTypeInt 32 1
%zero = OpConstant %int 0
%one = OpConstant %int 1
%two = OpConstant %int 2
%array = OpTypeArray %float %two
%strided = OpTypeArray %float %two
%block = OpTypeStruct %strided
%ptr_block = OpTypePointer Uniform %block
%ptr_strided = OpTypePointer Uniform %strided
%ptr_array = OpTypePointer Function %array
%ptr_element = OpTypePointer Function %float
%ptr_in = OpTypePointer Input %int
%ptr_out = OpTypePointer Output %float
%buffer = OpVariable %ptr_block Uniform
%position = OpVariable %ptr_in Input
%colour = OpVariable %ptr_out Output
%main = OpFunction %void None %void_f
%entry = OpLabel
%local = OpVariable %ptr_array Function
%index = OpLoad %int %position
%whole_pointer = OpAccessChain %ptr_strided %buffer %zero
%whole = OpLoad %strided %whole_pointer
%first = OpCompositeExtract %float %whole 0
%second = OpCompositeExtract %float %whole 1
%to_first = OpAccessChain %ptr_element %local %zero
%to_second = OpAccessChain %ptr_element %local %one
)" + stores + R"(
%from = OpAccessChain %ptr_element %local %index
%value = OpLoad %float %from
OpStore %colour %value
OpReturn
OpFunctionEnd
)");
}

constexpr const char* bothElements = "OpStore %to_first %first\nOpStore %to_second %second\n";

TEST(ArrayCopies, AreKnownHoweverTheyAreWritten)
{
    for (const char* stores :
         {bothElements, "OpStore %to_second %second\nOpStore %to_first %first\n",
          "OpStore %to_first %first\nOpStore %to_second %second\nOpStore %to_second %second\n",
          "%copy = OpCompositeConstruct %array %first %second\nOpStore %local %copy\n"}) {
        Effects::Spirv::Words spirv = moduleThatCopies(stores);
        EXPECT_TRUE(Effects::readCopiedArraysInPlace(spirv)) << stores;
        EXPECT_EQ(problemsOf(spirv), "") << stores;
        std::string problem;
        EXPECT_TRUE(Effects::tidyUp(spirv, problem)) << problem;
        EXPECT_EQ(functionVariables(spirv), 0U) << stores;
    }
}

TEST(ArrayCopies, AreLeftAloneWhereTheyMayDiffer)
{
    for (const char* stores :
         {"", "OpStore %to_first %first\n", "OpStore %to_first %second\nOpStore %to_second %first\n",
          "OpStore %to_first %first\nOpStore %to_second %second\nOpStore %to_second %first\n",
          "OpStore %to_first %first\nOpStore %to_second %second\n"
          "%anywhere = OpAccessChain %ptr_element %local %index\nOpStore %anywhere %first\n",
          "OpStore %to_first %first\nOpStore %to_second %second\n"
          "%sum = OpFAdd %float %first %second\nOpStore %to_second %sum\n",
          "OpStore %to_first %first\nOpStore %to_second %second\n"
          "%other = OpUndef %array\nOpStore %local %other\n",
          "OpStore %to_first %first\nOpStore %to_second %second\n"
          "%swapped = OpCompositeConstruct %array %second %first\nOpStore %local %swapped\n",
          "OpStore %to_first %first\nOpStore %to_second %second\n"
          "%again = OpCopyObject %ptr_element %to_first\nOpStore %again %second\n"}) {
        Effects::Spirv::Words spirv = moduleThatCopies(stores);
        const Effects::Spirv::Words before = spirv;
        EXPECT_FALSE(Effects::readCopiedArraysInPlace(spirv)) << stores;
        EXPECT_EQ(spirv, before) << stores;
    }
}

TEST(ArrayCopies, LeaveAModuleThatIsCutOffAlone)
{
    expectCutModulesLeftAlone(moduleThatCopies(bothElements),
                              [](auto& spirv) { return Effects::readCopiedArraysInPlace(spirv); });
}

TEST(ArrayCopies, SurviveInstructionsOfOtherWordsThanTheirs)
{
    expectChangedModulesSurvived(moduleThatCopies(bothElements),
                                 [](auto& spirv) { Effects::readCopiedArraysInPlace(spirv); });
}

} // namespace
} // namespace Qx::Host::Tests
