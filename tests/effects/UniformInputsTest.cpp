// Uniforms that become inputs: which, at which locations, and that the shader still draws the same.

#include "host/effects/EffectCompiler.h"
#include "host/effects/spirv/Passes.h"
#include "host/effects/spirv/SpirvModule.h"
#include "tests/TemporaryDirectory.h"
#include "tests/effects/BrokenModules.h"
#include "tests/effects/PackedDrawing.h"

#include <gtest/gtest.h>

#include <set>

namespace Qx::Host::Tests {
namespace {

using Rows = std::vector<std::uint32_t>;

constexpr std::uint32_t firstRow = sizeof(CompiledEffect::SystemUniforms) / 16; // of the parameters

std::string textOf(const std::string& parameters, const std::string& body)
{
    // The column is read so that the shader has an input of four floats.
    return parameters + R"(
float4 entry(int2 pos : VPOS) : COLORCODE { )" +
           body + R"( }
technique T { pass { PixelShader = compile ps_3_0 entry(); } }
)";
}

struct Made
{
    Rows rows;
    std::vector<std::uint8_t> codes; ///< r, g, b, a of the texel of column 1
};

/// At 8 bits. Without `draws`, only the rows are checked.
Made make(const std::string& parameters, const std::string& body, bool draws = true)
{
    const std::shared_ptr<const CompiledEffect> effect = packedEffect(textOf(parameters, body));
    if (effect == nullptr) {
        return {};
    }
    Made made;
    for (const CompiledEffect::PackedShader& shader : effect->techniques[0].passes[0].packed) {
        EXPECT_EQ(problemsOf(shader.spirv), "") << body;
    }
    const CompiledEffect::PackedShader& shader = effect->techniques[0].passes[0].packed[0];
    made.rows = shader.rows;
    if (draws) {
        const std::vector<std::byte> drawn = drawRow(*effect, shader, {PackedPicture(8, 1)}, 0, 1);
        for (const std::size_t i : {5U, 6U, 7U, 4U}) {
            made.codes.push_back(static_cast<std::uint8_t>(drawn.at(i)));
        }
    }
    return made;
}

std::size_t uniformLoads(const std::string& parameters, const std::string& body)
{
    const std::shared_ptr<const CompiledEffect> effect = packedEffect(textOf(parameters, body));
    return effect == nullptr ? 99
                             : countOf(effect->techniques[0].passes[0].packed[0].spirv, spv::OpAccessChain);
}

using Codes = std::vector<std::uint8_t>;

TEST(UniformInputs, AreNumbersAndVectorsOfEachSize)
{
    const Made made = make("float one = 7; float2 two = {1, 2}; float3 three = {3, 4, 5}; float last = 6;"
                           "float4 four = {10, 20, 30, 40};",
                           "return float4(one, two.x, three.z, last) + four + pos.x;");
    EXPECT_EQ(made.rows, (Rows{firstRow, firstRow + 1, firstRow + 2}));
    EXPECT_EQ(made.codes, (Codes{18, 22, 36, 47}));
}

TEST(UniformInputs, AreFoundInTheMiddleOfTheirRow)
{
    const std::string parameters = "float one = 7; float two = 8; float2 pair = {9, 11};";
    const Made whole = make(parameters, "return float4(pair, pair) + pos.x;");
    EXPECT_EQ(whole.rows, Rows{firstRow});
    EXPECT_EQ(whole.codes, (Codes{10, 12, 10, 12}));
    EXPECT_EQ(make(parameters, "return float4(two, pair.y, one, pair.x) + pos.x;").codes,
              (Codes{9, 12, 8, 10}));
    EXPECT_EQ(make("float3 a = {1, 2, 3}; float3 b = {4, 5, 6};", "return (a.zyx * b).xyzz + pos.x;").codes,
              (Codes{13, 11, 7, 7}));
}

TEST(UniformInputs, HaveTheLocationsOfTheRowsInOrder)
{
    // Read from the last to the first.
    const Made made = make("float4 a = 1; float4 b = 2; float4 c = 4;", "return c * pos.x + b * pos.x + a;");
    ASSERT_EQ(made.rows.size(), 3U);
    EXPECT_EQ(std::set<std::uint32_t>(made.rows.begin(), made.rows.end()),
              (std::set<std::uint32_t>{firstRow, firstRow + 1, firstRow + 2}));
    EXPECT_EQ(made.codes, (Codes{7, 7, 7, 7}));
}

TEST(UniformInputs, AreElementsOfArraysWithAFixedIndex)
{
    const std::string weights = "float before = 1; float weights[5] = {1, 2, 3, 4, 5};";
    const Made made = make(weights, "return weights[3] + pos.x;");
    EXPECT_EQ(made.rows, Rows{firstRow + 4});
    EXPECT_EQ(made.codes, (Codes{5, 5, 5, 5}));
    EXPECT_EQ(make(weights, "return weights[pos.x & 3] + pos.x;").rows.size(), 4U);
    EXPECT_EQ(make(weights, "return weights[pos.x & 3] + pos.x;").codes, (Codes{3, 3, 3, 3}));
}

TEST(UniformInputs, AreNotWhatAPixelChooses)
{
    const std::string weights = "float weights[5] = {9, 2, 3, 4, 5};";
    const Made made = make(weights, "return weights[pos.y & 3] + pos.x;");
    EXPECT_EQ(made.rows, Rows{});
    EXPECT_EQ(made.codes, (Codes{10, 10, 10, 10}));
    EXPECT_EQ(make("float4 v = {9, 2, 3, 4};", "return v[pos.y & 3] + pos.x;").codes,
              (Codes{10, 10, 10, 10}));
}

TEST(UniformInputs, AreNoWholeNumbersOrMatrices)
{
    const Made whole = make("int a = 3; int2 b = {4, 5}; bool c = true;",
                            "return float4(a, b.x, b.y, c ? 1.0 : 0.0) + pos.x;");
    EXPECT_EQ(whole.rows, Rows{});
    EXPECT_EQ(whole.codes, (Codes{4, 5, 6, 2}));
    const std::string matrix = "float3x3 m = {1,2,3, 4,5,6, 7,8,9};";
    EXPECT_EQ(make(matrix, "return float4(mul(m, float3(pos.x, 1, 2)), 1);", false).rows, Rows{});
    EXPECT_EQ(make(matrix, "return m[1][2] + pos.x;", false).rows, Rows{});
}

TEST(UniformInputs, AreMovedBesideWhatStays)
{
    const Made made = make("int a = 3; float b = 40;", "return float4(a, b, a, b) + pos.x;");
    EXPECT_EQ(made.rows, Rows{firstRow});
    EXPECT_EQ(made.codes, (Codes{4, 41, 4, 41}));
}

TEST(UniformInputs, AreAsManyAsThereIsRoomFor)
{
    std::string parameters;
    std::string sum = "pos.x";
    for (int i = 0; i < 10; ++i) {
        const std::string name = "p" + std::to_string(i);
        parameters += "float4 " + name + " = " + std::to_string(i + 1) + ";";
        sum += " + " + name;
    }
    const Made made = make(parameters, "return " + sum + ";");
    EXPECT_EQ(made.rows.size(), CompiledEffect::PackedShader::mostRows);
    EXPECT_EQ(made.codes, (Codes{56, 56, 56, 56}));
    EXPECT_GE(uniformLoads(parameters, "return " + sum + ";"), 2U);
}

TEST(UniformInputs, DoNotReachBesideTheirArray)
{
    const std::string weights = "float weights[5] = {9, 2, 3, 4, 5};";
    EXPECT_EQ(make(weights, "int i = 5; return weights[i] + pos.x;", false).rows, Rows{});
    EXPECT_EQ(make(weights, "int i = 100000; return weights[i] + pos.x;", false).rows, Rows{});
    EXPECT_EQ(make(weights, "int i = -1; return weights[i] + pos.x;", false).rows, Rows{});
    EXPECT_EQ(make("float4 v = {1, 2, 3, 4};", "int i = 4; return v[i] + pos.x;", false).rows, Rows{});
}

TEST(UniformInputs, NeedAnInputOfTheirTypeToBeginWith)
{
    const Made made = make("float4 p = {1, 2, 3, 4};", "return p;");
    EXPECT_EQ(made.codes, (Codes{1, 2, 3, 4}));
    EXPECT_LE(made.rows.size(), 1U);
}

std::vector<std::uint32_t> plainShader()
{
    const Qx::Test::TemporaryDirectory directory;
    const EffectCompilation result = compileEffect(
        directory.write("effect.fx", textOf("float4 p = 2; float2 unread; float q[3] = {4, 5, 6};",
                                            "return p * q[2] + pos.x;")),
        {});
    EXPECT_NE(result.effect, nullptr) << result.messages;
    return result.effect == nullptr ? std::vector<std::uint32_t>()
                                    : result.effect->techniques[0].passes[0].spirv;
}

TEST(UniformInputs, AreAtMostWhatIsAskedFor)
{
    for (std::size_t most = 0; most < 4; ++most) {
        std::vector<std::uint32_t> spirv = plainShader();
        const std::vector<std::uint32_t> before = spirv;
        EXPECT_EQ(Effects::passUniformsAsInputs(spirv, most).size(), most);
        EXPECT_EQ(spirv == before, most == 0);
        EXPECT_EQ(problemsOf(spirv), "");
    }
}

TEST(UniformInputs, LeaveAModuleThatIsCutOffAlone)
{
    expectCutModulesLeftAlone(plainShader(),
                              [](auto& spirv) { return !Effects::passUniformsAsInputs(spirv, 8).empty(); });
}

TEST(UniformInputs, SurviveInstructionsOfOtherWordsThanTheirs)
{
    expectChangedModulesSurvived(
        plainShader(), [](auto& spirv) { EXPECT_LE(Effects::passUniformsAsInputs(spirv, 8).size(), 8U); });
}

} // namespace
} // namespace Qx::Host::Tests
