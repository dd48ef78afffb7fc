#include "host/effects/EffectCompiler.h"
#include "host/effects/spirv/SpirvModule.h"
#include "tests/TemporaryDirectory.h"
#include "tests/effects/PackedDrawing.h"

#include <algorithm>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <spirv/unified1/spirv.hpp>

// What shaders for packed texels share between neighbours, seen in their SPIR-V.

namespace Qx::Host::Tests {
namespace {

CompiledEffect::Pass compiled(const std::string& body, bool packed = true)
{
    const Qx::Test::TemporaryDirectory directory;
    EffectCompilerOptions options;
    options.packed = packed;
    const EffectCompilation result = compileEffect(directory.write("effect.fx", R"(
texture Input;
sampler S = sampler_state { Texture = <Input>; };
float2 size : TEXTURESIZE < string Texture = "Input"; >;
float4 at(int x, int y) { return tex2Dcodes(S, clamp(int2(x, y), int2(0, 0), int2(size) - 1)); }
float4 entry(int2 pos : VPOS) : COLORCODE { )" + body + R"( }
technique T { pass { PixelShader = compile ps_3_0 entry(); } }
)"),
                                                   options);
    EXPECT_NE(result.effect, nullptr) << result.messages;
    return result.effect != nullptr ? result.effect->techniques[0].passes[0] : CompiledEffect::Pass();
}

/// The number of different texels that the shader of 8 bits reads.
std::size_t texelsRead(const CompiledEffect::Pass& pass)
{
    return fetchesIn(pass.packed.at(0).spirv);
}

std::size_t choices(const CompiledEffect::Pass& pass)
{
    return countOf(pass.packed.at(0).spirv, spv::OpSelect);
}

TEST(PackedShaders, ExistForBothDepthsWhereTheyAreAskedFor)
{
    const CompiledEffect::Pass pass = compiled("return at(pos.x, pos.y);");
    ASSERT_EQ(pass.packed.size(), 2U);
    EXPECT_EQ(pass.packed[0].depths, (CompiledEffect::PackedShader::Depths{8, 8}));
    EXPECT_EQ(pass.packed[1].depths, (CompiledEffect::PackedShader::Depths{16, 16}));
    EXPECT_EQ(pass.packed[0].samplers, pass.samplers);
    EXPECT_TRUE(compiled("return at(pos.x, pos.y);", false).packed.empty());
}

/// The image formats that a shader declares for the buffers it reads.
std::vector<std::uint32_t> bufferFormats(const std::vector<std::uint32_t>& spirv)
{
    std::vector<std::uint32_t> formats;
    Effects::Spirv::forEach(spirv, [&](const Effects::Spirv::Instruction& instruction) {
        if (instruction.op() == spv::OpTypeImage && instruction[3] == spv::DimBuffer) {
            formats.push_back(instruction[8]);
        }
    });
    return formats;
}

TEST(PackedShaders, ReadTexelBuffersOfAnyFormat)
{
    // Views of texels of 4, 8 and 16 bytes, as the texel's number in a row is known or not.
    for (const char* body : {"return at(pos.x, pos.y);", "return tex2Dcodes(S, int2(pos.x, pos.y));"}) {
        const CompiledEffect::Pass pass = compiled(body);
        ASSERT_EQ(pass.packed.size(), 2U) << body;
        for (const CompiledEffect::PackedShader& shader : pass.packed) {
            EXPECT_EQ(bufferFormats(shader.spirv), (std::vector<std::uint32_t>{spv::ImageFormatUnknown}))
                << body << " at " << shader.depths.source << " bits";
        }
    }
}

/// How many images a shader reads that are no buffers.
std::size_t sampledImages(const std::string& body)
{
    const Qx::Test::TemporaryDirectory directory;
    EffectCompilerOptions options;
    options.packed = true;
    const EffectCompilation result = compileEffect(directory.write("effect.fx", R"(
texture Input;
sampler S = sampler_state { Texture = <Input>; };
texture Table;
sampler3D V = sampler_state { Texture = <Table>; };
float4 through(sampler3D s, int3 at) { return tex3Dfetch(s, at); }
float4 entry(float2 uv : TEXCOORD0) : COLOR { )" + body + R"( }
technique T { pass { PixelShader = compile ps_3_0 entry(); } }
)"),
                                                   options);
    EXPECT_NE(result.effect, nullptr) << result.messages;
    return result.effect != nullptr
               ? countOf(result.effect->techniques[0].passes[0].packed.at(0).spirv, spv::OpTypeSampledImage)
               : 99;
}

TEST(PackedShaders, ReadBuffersWhereTexelsAreReadByTheirNumbersOnly)
{
    EXPECT_EQ(sampledImages("return tex2Dfetch(S, int2(uv));"), 0U);
    EXPECT_EQ(sampledImages("return tex2Dfetch(S, int2(uv)) + tex2D(S, uv);"), 1U);
    EXPECT_EQ(sampledImages("return tex3Dfetch(V, int3(uv, 1)) + tex3Dfetch(V, int3(uv, 1), 1);"), 0U);
    EXPECT_EQ(sampledImages("return tex3Dfetch(V, int3(uv, 1)) + tex3D(V, uv.xyy);"), 1U);
    EXPECT_EQ(sampledImages("return through(V, int3(uv, 1));"), 1U);
}

TEST(PackedShaders, GiveTheCodesOfOneTexelWhereThatIsAskedFor)
{
    const Qx::Test::TemporaryDirectory directory;
    EffectCompilerOptions options;
    options.packed = true;
    options.singleTexels = true;
    const EffectCompilation result = compileEffect(directory.write("effect.fx", R"(
texture Input;
sampler S = sampler_state { Texture = <Input>; };
float4 entry(int2 pos : VPOS) : COLORCODE { return tex2Dcodes(S, pos) + tex2Dcodes(S, pos + int2(1, 0)); }
technique T { pass { PixelShader = compile ps_3_0 entry(); } }
)"),
                                                   options);
    ASSERT_NE(result.effect, nullptr) << result.messages;
    const auto& packed = result.effect->techniques[0].passes[0].packed;
    ASSERT_EQ(packed.size(), 2U); // of 8 and of 16 bits
    for (const CompiledEffect::PackedShader& shader : packed) {
        EXPECT_EQ(fetchesIn(shader.spirv), 2U); // of one texel, not of the neighbours that 16 bytes have
        EXPECT_TRUE(shader.rows.empty());
    }
}

/// The places of the shaders of a pass, one after the other.
std::vector<std::vector<std::uint32_t>> placesIn(const std::string& states, const std::string& body)
{
    const Qx::Test::TemporaryDirectory directory;
    EffectCompilerOptions options;
    options.packed = true;
    const EffectCompilation result = compileEffect(directory.write("effect.fx", R"(
texture Input;
sampler S = sampler_state { Texture = <Input>; )" + states + R"( };
float4 through(sampler2D s, float2 at) { return tex2D(s, at); }
float4 entry(float2 uv : TEXCOORD0, float2 other : TEXCOORD3) : COLOR { )" + body + R"( }
technique T { pass { PixelShader = compile ps_3_0 entry(); } }
)"),
                                                   options);
    EXPECT_NE(result.effect, nullptr) << result.messages;
    std::vector<std::vector<std::uint32_t>> places;
    for (const CompiledEffect::PackedShader& shader : result.effect->techniques[0].passes[0].packed) {
        places.push_back(shader.places);
    }
    return places;
}

TEST(PackedShaders, ReadPicturesAtTheirOwnPlaceWhereTheCoordinateIsTakenAsItIs)
{
    using Places = std::vector<std::vector<std::uint32_t>>;
    const Places none{{}, {}};
    EXPECT_EQ(placesIn("", "return tex2D(S, uv) * 0.5;"), (Places{{}, {}, {0}, {0}}));
    EXPECT_EQ(placesIn("", "return tex2D(S, other) + tex2D(S, other);"), (Places{{}, {}, {3}, {3}}));
    EXPECT_EQ(placesIn("", "return tex2D(S, uv) + uv.x;"), none);
    EXPECT_EQ(placesIn("", "uv.x *= 0.5; return tex2D(S, uv);"), none);
    EXPECT_EQ(placesIn("", "return tex2D(S, uv * 0.5);"), none);
    EXPECT_EQ(placesIn("", "return tex2D(S, uv) + tex2D(S, other);"), none);
    EXPECT_EQ(placesIn("", "return tex2D(S, uv) + through(S, other);"), none);
    EXPECT_EQ(placesIn("MinFilter = Linear; MagFilter = Linear;", "return tex2D(S, uv);"), none);
}

using Depths = CompiledEffect::PackedShader::Depths;

/// The depths between which a technique with these annotations has packed shaders.
std::vector<Depths> depthsOf(const std::string& annotation)
{
    const Qx::Test::TemporaryDirectory directory;
    EffectCompilerOptions options;
    options.packed = true;
    const EffectCompilation result = compileEffect(directory.write("effect.fx", R"(
float4 entry(int2 pos : VPOS) : COLORCODE { return pos.x; }
technique T )" + annotation + R"( { pass { PixelShader = compile ps_3_0 entry(); } }
)"),
                                                   options);
    EXPECT_NE(result.effect, nullptr) << result.messages;
    std::vector<Depths> depths;
    for (const CompiledEffect::PackedShader& shader : result.effect->techniques[0].passes[0].packed) {
        depths.push_back(shader.depths);
    }
    return depths;
}

TEST(PackedShaders, AreLeftOutOfTechniquesThatSaySo)
{
    EXPECT_FALSE(depthsOf("").empty());
    EXPECT_FALSE(depthsOf("< bool Packed = true; >").empty());
    EXPECT_TRUE(depthsOf("< bool Packed = false; >").empty());
}

TEST(PackedShaders, AreMadeOnceOfALongTechnique)
{
    const auto readsAtOwnPlace = [](int repetitions) {
        std::string body = "float4 c = tex2D(S, uv);";
        for (int i = 0; i < repetitions; ++i) {
            body += " c = sin(c * " + std::to_string(i + 2) + ".0) + c.yzwx;";
        }
        const std::vector<std::vector<std::uint32_t>> places = placesIn("", body + " return c;");
        return std::any_of(places.begin(), places.end(), [](const auto& each) { return !each.empty(); });
    };
    EXPECT_TRUE(readsAtOwnPlace(4));
    EXPECT_FALSE(readsAtOwnPlace(400));
}

TEST(PackedShaders, ExistBetweenDepthsForTechniquesThatSaySo)
{
    const std::vector<Depths> usual{{8, 8}, {16, 16}};
    const std::vector<Depths> mixed{{8, 8}, {16, 16}, {8, 16}, {16, 8}};
    EXPECT_EQ(depthsOf(""), usual);
    EXPECT_EQ(depthsOf("< bool MixedDepths = false; >"), usual);
    EXPECT_EQ(depthsOf("< bool Another = true; >"), usual);
    EXPECT_EQ(depthsOf("< bool MixedDepths = true; >"), mixed);
    EXPECT_EQ(depthsOf("< string Note = \"x\"; bool mixeddepths = true; >"), mixed);
}

TEST(PackedShaders, ReadATexelOfEachNeighbour)
{
    EXPECT_EQ(texelsRead(compiled("return at(pos.x, pos.y);")), 4U);
    EXPECT_EQ(texelsRead(compiled("return at(pos.x + 7, pos.y);")), 4U);
    EXPECT_EQ(texelsRead(compiled("return at(pos.x * 3 - 1, pos.y);")), 4U);
}

TEST(PackedShaders, ShareWhatNeighboursHaveInCommon)
{
    EXPECT_EQ(texelsRead(compiled("return at(pos.x >> 1, pos.y);")), 2U);
    EXPECT_EQ(texelsRead(compiled("return at(pos.x >> 2, pos.y);")), 1U);
    EXPECT_EQ(texelsRead(compiled("return at(pos.x >> 3, pos.y);")), 1U);
    EXPECT_EQ(texelsRead(compiled("return at(pos.x - 1, pos.y) + at(pos.x, pos.y) + at(pos.x + 1, pos.y);")),
              6U);
    EXPECT_EQ(texelsRead(compiled("return at((pos.x >> 1) + 1, pos.y) - at((pos.x + 2) >> 1, pos.y);")), 2U);
    EXPECT_EQ(texelsRead(compiled("return at((pos.x << 1) >> 2, pos.y);")), 2U);
    EXPECT_EQ(texelsRead(compiled("return at(pos.x & ~3, pos.y) + at(5, pos.y);")),
              5U); // no mask of low bits
    EXPECT_EQ(texelsRead(compiled("return at((pos.x & 7) >> 2, pos.y);")), 1U);
    EXPECT_EQ(texelsRead(compiled("return at(pos.x & 3, pos.y);")), 4U);
    EXPECT_EQ(texelsRead(compiled("return at((pos.x & 3) >> 1, pos.y);")), 2U);
}

TEST(PackedShaders, KnowEachTexelsPlaceInItsPackedTexel)
{
    EXPECT_EQ(choices(compiled("return (pos.x & 1) != 0 ? 3.0 : 7.0;")), 0U);
    EXPECT_EQ(texelsRead(compiled("return (pos.x & 1) != 0 ? at(pos.x, pos.y) : 7.0;")), 2U);
    EXPECT_GT(choices(compiled("return (pos.x & 8) != 0 ? at(pos.x, pos.y) : 7.0;")), 0U);
}

TEST(PackedShaders, AreNotMadeOfPassesThatCannotHaveThem)
{
    EXPECT_TRUE(compiled("clip(pos.x - 3); return 1.0;").packed.empty());
    EXPECT_TRUE(compiled("return ddx(float(pos.x)).xxxx;").packed.empty());
    EXPECT_TRUE(compiled("static float n = 0; n += 1; return n.xxxx;").packed.empty());
    EXPECT_EQ(compiled("static const float n = 3; return n.xxxx;").packed.size(), 2U);
    EXPECT_EQ(compiled("const static float n = 3; return n.xxxx;").packed.size(), 2U);
}

} // namespace
} // namespace Qx::Host::Tests
