// Neighbouring texels read as one: how many reads are left, of how many bytes, and that they return the same
// as single reads.

#include "host/effects/spirv/Passes.h"
#include "tests/effects/BrokenModules.h"
#include "tests/effects/PackedDrawing.h"
#include "tests/effects/ShaderInterpreter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include <spirv-tools/libspirv.hpp>

namespace Qx::Host::Tests {
namespace {

std::string textOf(const std::string& body)
{
    return R"(
texture Input;
sampler S = sampler_state { Texture = <Input>; };
int count = 3;
float4 at(int x, int y) { return tex2Dcodes(S, int2(x, y)); }
float4 entry(int2 pos : VPOS) : COLORCODE { )" +
           body + R"( }
technique T { pass { PixelShader = compile ps_3_0 entry(); } }
)";
}

struct Reads
{
    std::uint32_t texelBytes;
    std::size_t fetches;
};

bool operator==(const Reads& a, const Reads& b)
{
    return a.texelBytes == b.texelBytes && a.fetches == b.fetches;
}

void PrintTo(const Reads& reads, std::ostream* to)
{
    *to << reads.fetches << " of " << reads.texelBytes << " bytes";
}

/// The column of the source that a column of the target reads.
using Source = std::function<std::int64_t(std::int64_t)>;

/// Draws the effect at both depths and compares the result with the texels of those columns.
void expectTexels(const std::string& body, const Source& source, Reads at8, Reads at16)
{
    const std::shared_ptr<const CompiledEffect> effect = packedEffect(textOf(body));
    ASSERT_TRUE(effect) << body;
    for (const CompiledEffect::PackedShader& shader : effect->techniques[0].passes[0].packed) {
        EXPECT_EQ(problemsOf(shader.spirv), "") << body;
        ASSERT_EQ(shader.texelBytes.size(), 1U);
        EXPECT_EQ((Reads{shader.texelBytes[0], fetchesIn(shader.spirv)}),
                  shader.depths.source == 8 ? at8 : at16)
            << body << " at " << shader.depths.source << " bits";
        const PackedPicture picture(shader.depths.source, 1);
        const auto columns = static_cast<std::int64_t>(PackedPicture::columns);
        constexpr std::uint32_t row = 1;
        const auto packed = static_cast<std::uint32_t>(picture.columns * picture.texelBytes() / 16);
        const std::vector<std::byte> drawn = drawRow(*effect, shader, {picture}, row, packed);
        for (std::int64_t x = 0; x < columns; ++x) {
            const auto first = drawn.begin() + x * picture.texelBytes();
            const std::vector<std::byte> texel(first, first + picture.texelBytes());
            ASSERT_EQ(texel, picture.texel(row * columns + source(x)))
                << body << " at " << shader.depths.source << " bits, column " << x;
        }
    }
}

TEST(FetchWidening, ReadsPackedNeighboursAtOnce)
{
    expectTexels("return at(pos.x, pos.y);", [](auto x) { return x; }, {16, 1}, {16, 1});
    expectTexels("return at(63 - pos.x, pos.y);", [](auto x) { return 63 - x; }, {16, 1}, {16, 1});
    expectTexels("return at(5, pos.y);", [](auto) { return 5; }, {16, 1}, {16, 1});
}

TEST(FetchWidening, FindsThePartOutsideThePackedTexel)
{
    expectTexels("return at(pos.x - 1, pos.y);", [](auto x) { return x - 1; }, {16, 2}, {16, 2});
    expectTexels("return at(pos.x - 5, pos.y);", [](auto x) { return x - 5; }, {16, 2}, {16, 2});
    expectTexels("return at(pos.x - 64, pos.y);", [](auto x) { return x - 64; }, {16, 1}, {16, 1});
    expectTexels("return at(pos.x + 7, pos.y);", [](auto x) { return x + 7; }, {16, 2}, {16, 2});
    expectTexels("return at(pos.x - 200, pos.y);", [](auto x) { return x - 200; }, {16, 1}, {16, 1});
}

TEST(FetchWidening, ReadsWhatIsFartherApart)
{
    expectTexels("return at(pos.x * 2 + 1, pos.y);", [](auto x) { return 2 * x + 1; }, {16, 2}, {16, 2});
    expectTexels("return at(pos.x * 3 - 1, pos.y);", [](auto x) { return 3 * x - 1; }, {16, 4}, {16, 2});
}

TEST(FetchWidening, ReadsEightBytesWhereNeighboursShareTexels)
{
    expectTexels("return at(pos.x >> 1, pos.y);", [](auto x) { return x >> 1; }, {8, 1}, {8, 1});
    expectTexels("return at((pos.x >> 1) - 3, pos.y);", [](auto x) { return (x >> 1) - 3; }, {8, 2}, {8, 1});
}

TEST(FetchWidening, ReadsEightBytesAtMostWhereNoMultipleIsKnown)
{
    expectTexels("return at(pos.x >> 2, pos.y);", [](auto x) { return x >> 2; }, {8, 1}, {8, 1});
    expectTexels("return at((pos.x - 1) >> 3, pos.y);", [](auto x) { return (x - 1) >> 3; }, {8, 2}, {8, 2});
    expectTexels("return at(clamp(pos.x, 3, 40), pos.y);",
                 [](std::int64_t x) { return std::clamp<std::int64_t>(x, 3, 40); }, {8, 4}, {8, 2});
}

TEST(FetchWidening, ReadsEightBytesForAllReadsWhenOneNeedsThat)
{
    expectTexels("return at(pos.x < 200 ? pos.x : int(at(pos.x, pos.y).r), pos.y);", [](auto x) { return x; },
                 {8, 6}, {8, 4});
}

TEST(FetchWidening, ReadsEightBytesAlsoBehindTheReadThatNeedsThat)
{
    expectTexels("float4 v = at(clamp(pos.x, 3, 40), pos.y); return v.r < 70000.0 ? at(pos.x, pos.y) : v;",
                 [](auto x) { return x; }, {8, 6}, {8, 4});
}

TEST(FetchWidening, ReadsInLoops)
{
    expectTexels("float4 v = 0; for (int i = 0; i < count; ++i) v = at(pos.x + 4 * i, pos.y); return v;",
                 [](auto x) { return x + 8; }, {16, 4}, {16, 2});
    expectTexels("float4 v = 0; for (int i = 0; i < count; ++i) v = at(pos.x + i, pos.y); return v;",
                 [](auto x) { return x + 2; }, {8, 4}, {8, 2});
    expectTexels("int x = pos.x; for (int i = 0; i < count; ++i) x += 4; return at(x, pos.y);",
                 [](auto x) { return x + 12; }, {8, 4}, {8, 2});
}

TEST(FetchWidening, ReadsInBranches)
{
    expectTexels("int x = pos.x; if (count > 2) x = pos.x + 1; return at(x, pos.y);",
                 [](auto x) { return x + 1; }, {8, 4}, {8, 2});
    const std::shared_ptr<const CompiledEffect> effect =
        packedEffect(textOf("if (count > 2) return at(pos.x, pos.y); return at(pos.x + 4, pos.y);"));
    ASSERT_TRUE(effect);
    EXPECT_EQ(effect->techniques[0].passes[0].packed[0].texelBytes, std::vector<std::uint32_t>{16});
}

TEST(FetchWidening, DecidesForEachTextureByItself)
{
    const std::shared_ptr<const CompiledEffect> effect = packedEffect(R"(
texture A; sampler SA = sampler_state { Texture = <A>; };
texture B; sampler SB = sampler_state { Texture = <B>; };
texture C; sampler SC = sampler_state { Texture = <C>; };
float4 entry(int2 pos : VPOS) : COLORCODE {
    float3 c = tex2Dcodes(SC, clamp(pos, int2(0, 0), int2(20, 20))).rgb;
    return float4(c.r, tex2Dcodes(SA, pos).g, c.b, tex2Dcodes(SB, int2(pos.x >> 1, pos.y)).a);
}
technique T { pass { PixelShader = compile ps_3_0 entry(); } }
)");
    ASSERT_TRUE(effect);
    const auto& packed = effect->techniques[0].passes[0].packed;
    EXPECT_EQ(packed[0].texelBytes, (std::vector<std::uint32_t>{16, 8, 8}));
    EXPECT_EQ(packed[1].texelBytes, (std::vector<std::uint32_t>{16, 8, 8}));
    EXPECT_EQ(problemsOf(packed[0].spirv), "");
    const std::vector<PackedPicture> pictures{{8, 1}, {8, 2}, {8, 3}};
    const std::vector<std::byte> drawn = drawRow(*effect, packed[0], pictures, 0, 16);
    for (std::int64_t x = 0; x < 64; ++x) { // in memory a, r, g, b
        const std::vector<std::byte> a = pictures[0].texel(x);
        const std::vector<std::byte> b = pictures[1].texel(x >> 1);
        const std::vector<std::byte> c = pictures[2].texel(std::min<std::int64_t>(x, 20));
        const auto first = drawn.begin() + x * 4;
        ASSERT_EQ(std::vector<std::byte>(first, first + 4), (std::vector<std::byte>{b[0], c[1], a[2], c[3]}))
            << "column " << x;
    }
}

/// Assembly that writes the texel of the number `index`, which `code` computes.
std::vector<std::uint32_t> moduleThatFetches(const std::string& code, const std::string& isSigned = "1",
                                             const std::string& index = "%index")
{
    return assembled(R"(
OpCapability Shader
OpCapability SampledBuffer
OpMemoryModel Logical GLSL450
OpEntryPoint Fragment %main "main" %position %colour
OpExecutionMode %main OriginUpperLeft
OpDecorate %position BuiltIn FragCoord
OpDecorate %colour Location 0
OpDecorate %buffer DescriptorSet 0
OpDecorate %buffer Binding 3
%void = OpTypeVoid
%void_f = OpTypeFunction %void
%float = OpTypeFloat 32
%v4float = OpTypeVector %float 4
%ptr_v4float = OpTypePointer Input %v4float
%ptr_float = OpTypePointer Input %float
%position = OpVariable %ptr_v4float Input
%uint = OpTypeInt 32 0
%v4uint = OpTypeVector %uint 4
%ptr_v4uint = OpTypePointer Output %v4uint
%colour = OpVariable %ptr_v4uint Output
%image = OpTypeImage %uint Buffer 0 0 0 1 Unknown
%ptr_image = OpTypePointer UniformConstant %image
%buffer = OpVariable %ptr_image UniformConstant
%int = OpTypeInt 32 )" +
                     isSigned +
                     R"(
%uint_0 = OpConstant %uint 0
%int_4 = OpConstant %int 4
%int_5 = OpConstant %int 5
%large = OpConstant %int 16777215
%main = OpFunction %void None %void_f
%entry = OpLabel
%pointer = OpAccessChain %ptr_float %position %uint_0
%x = OpLoad %float %pointer
%column = OpConvertFToS %int %x
%loaded = OpLoad %image %buffer
)" + code + R"(
%texel = OpImageFetch %v4uint %loaded )" +
                     index + R"(
OpStore %colour %texel
OpReturn
OpFunctionEnd
)");
}

constexpr const char* fifthOfPacked =
    "%times = OpIMul %int %int_4 %column\n%index = OpIAdd %int %times %int_5";

TEST(FetchWidening, GivesTheBytesByBinding)
{
    std::vector<std::uint32_t> spirv = moduleThatFetches(fifthOfPacked);
    EXPECT_EQ(Effects::widenFetches(spirv, 4), (std::map<std::uint32_t, std::uint32_t>{{3, 16}}));
    EXPECT_EQ(problemsOf(spirv), "");
}

TEST(FetchWidening, FollowsSumsAsTheyAreWritten)
{
    const PackedPicture picture(8, 1);
    for (const char* code :
         {fifthOfPacked, "%times = OpIMul %int %column %int_4\n%index = OpISub %int %times %int_5",
          "%times = OpShiftLeftLogical %int %column %int_4\n%index = OpISub %int %int_5 %times",
          "%sum = OpIAdd %int %column %int_5\n%index = OpShiftLeftLogical %int %sum %int_4",
          "%twice = OpIAdd %int %column %column\n%index = OpIAdd %int %twice %twice"}) {
        const std::vector<std::uint32_t> single = moduleThatFetches(code);
        std::vector<std::uint32_t> wide = single;
        EXPECT_EQ(Effects::widenFetches(wide, 4), (std::map<std::uint32_t, std::uint32_t>{{3, 16}})) << code;
        EXPECT_EQ(problemsOf(wide), "") << code;
        for (float x = 0.5F; x < 20.0F; ++x) {
            FragmentInputs inputs;
            inputs.position = {x, 0.5F};
            inputs.buffers[3] = {picture.bytes, 4, 8};
            const std::array<std::uint32_t, 4> expected = runFragment(single, inputs);
            inputs.buffers[3] = {picture.bytes, 16, 32};
            EXPECT_EQ(runFragment(wide, inputs), expected) << code << " at " << x;
        }
    }
}

TEST(FetchWidening, PicksOneOfTwoTexelsByALowestBitThatIsNotKnown)
{
    const PackedPicture picture(8, 1);
    const std::vector<std::uint32_t> single = moduleThatFetches("%index = OpISub %int %column %int_5");
    std::vector<std::uint32_t> wide = single;
    EXPECT_EQ(Effects::widenFetches(wide, 4), (std::map<std::uint32_t, std::uint32_t>{{3, 8}}));
    EXPECT_EQ(problemsOf(wide), "");
    for (float x = 0.5F; x < 20.0F; ++x) {
        FragmentInputs inputs;
        inputs.position = {x, 0.5F};
        inputs.buffers[3] = {picture.bytes, 4, 8};
        const std::array<std::uint32_t, 4> expected = runFragment(single, inputs);
        inputs.buffers[3] = {picture.bytes, 8, 32};
        EXPECT_EQ(runFragment(wide, inputs), expected) << x;
    }
}

TEST(FetchWidening, NeedsNumbersWithASign)
{
    std::vector<std::uint32_t> spirv = moduleThatFetches("", "0", "%int_4");
    const std::vector<std::uint32_t> before = spirv;
    EXPECT_TRUE(Effects::widenFetches(spirv, 4).empty());
    EXPECT_EQ(spirv, before);
}

TEST(FetchWidening, LeavesSumsThatCouldLeaveTheirBoundsAlone)
{
    std::vector<std::uint32_t> spirv =
        moduleThatFetches("%wide = OpIMul %int %column %large\n%wider = OpIMul %int %wide %large\n"
                          "%index = OpIMul %int %wider %int_4");
    // The last product alone is still a multiple.
    EXPECT_EQ(Effects::widenFetches(spirv, 4).size(), 1U);
    EXPECT_EQ(problemsOf(spirv), "");
    spirv = moduleThatFetches("%wide = OpIMul %int %column %int_4\n%index = OpIMul %int %wide %large");
    const std::vector<std::uint32_t> before = spirv;
    EXPECT_TRUE(Effects::widenFetches(spirv, 8).empty());
    EXPECT_EQ(spirv, before);
    EXPECT_EQ(Effects::widenFetches(spirv, 4), (std::map<std::uint32_t, std::uint32_t>{{3, 8}}));
}

TEST(FetchWidening, LeavesABufferWithoutABindingAlone)
{
    std::vector<std::uint32_t> spirv = moduleThatFetches(fifthOfPacked);
    for (std::size_t at = Effects::Spirv::headerWords; at < spirv.size(); at += spirv[at] >> 16U) {
        if ((spirv[at] & 0xffffU) == spv::OpDecorate && spirv[at + 2] == spv::DecorationBinding) {
            spirv[at + 2] = spv::DecorationInputAttachmentIndex;
        }
    }
    const std::vector<std::uint32_t> before = spirv;
    EXPECT_TRUE(Effects::widenFetches(spirv, 4).empty());
    EXPECT_EQ(spirv, before);
}

TEST(FetchWidening, LeavesAModuleThatIsCutOffAlone)
{
    expectCutModulesLeftAlone(moduleThatFetches(fifthOfPacked),
                              [](auto& spirv) { return !Effects::widenFetches(spirv, 4).empty(); });
}

TEST(FetchWidening, SurvivesInstructionsOfOtherWordsThanTheirs)
{
    expectChangedModulesSurvived(moduleThatFetches(fifthOfPacked),
                                 [](auto& spirv) { Effects::widenFetches(spirv, 4); });
}

} // namespace
} // namespace Qx::Host::Tests
