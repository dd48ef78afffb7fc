// Compiled effects as bytes: what is written can be read, and no other bytes are accepted.

#include "host/effects/archive/EffectArchive.h"
#include "tests/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>

namespace Qx::Host {
namespace {

constexpr const char* effectText = R"(
#pragma unknown
texture Input;
texture Other < string Kind = "noise"; >;
sampler InputSampler = sampler_state { Texture = <Input>; AddressU = Wrap; AddressV = Mirror; MinFilter = Linear; MagFilter = Linear; };
sampler OtherSampler = sampler_state { Texture = <Other>; };
float amount < string Label = "Amount"; float Max = 2.0; > = 0.75;
int steps = 3;
bool flip = true;
float3x3 matrix3 = { 1,2,3, 4,5,6, 7,8,9 };
float weights[5] = { 1,2,3,4,5 };
float2 inputSize : TEXTURESIZE < string Texture = "Input"; >;
float targetCode : TARGETMAXCODE;

float4 one(float2 xy : TEXCOORD1) : COLOR
{
    return tex2D(InputSampler, xy) * amount + float4(inputSize, targetCode, weights[steps]);
}
float4 two(float2 xy : TEXCOORD1, uniform float k) : COLOR
{
    float3 colour = mul(matrix3, tex2D(OtherSampler, flip ? xy.yx : xy).rgb) * k;
    return float4(colour, 1);
}
technique First < string Group = "A"; > { pass P0 { PixelShader = compile ps_3_0 one(); } }
technique Second
{
    pass P0 { PixelShader = compile ps_3_0 one(); }
    pass P1 { PixelShader = compile ps_3_0 two(0.5); }
}
)";

class EffectArchive : public ::testing::Test
{
protected:
    /// One compilation for all tests.
    static const EffectCompilation& compilation()
    {
        static const EffectCompilation made = [] {
            const Qx::Test::TemporaryDirectory directory;
            EffectCompilerOptions options;
            options.packed = true;
            return compileEffect(directory.write("effect.fx", effectText), options);
        }();
        return made;
    }

    void SetUp() override { ASSERT_NE(compilation().effect, nullptr) << compilation().messages; }

    /// The archive of the effect with a change that the compiler would not make.
    static std::vector<std::byte> archiveWith(const std::function<void(CompiledEffect&)>& change)
    {
        EffectCompilation changed = compilation();
        auto effect = std::make_shared<CompiledEffect>(*changed.effect);
        change(*effect);
        changed.effect = effect;
        return writeEffectArchive(changed);
    }
};

TEST_F(EffectArchive, ComesBackAsItWasWritten)
{
    const std::vector<std::byte> bytes = writeEffectArchive(compilation());
    const std::optional<EffectCompilation> read = readEffectArchive(bytes);
    ASSERT_TRUE(read);
    ASSERT_NE(read->effect, nullptr);
    EXPECT_EQ(read->messages, compilation().messages);
    EXPECT_NE(read->messages.find("#pragma"), std::string::npos);
    ASSERT_EQ(read->inputs.size(), 1U);
    EXPECT_EQ(read->inputs[0].path, compilation().inputs[0].path);
    EXPECT_EQ(read->inputs[0].content, compilation().inputs[0].content);
    const CompiledEffect& effect = *read->effect;
    const CompiledEffect& original = *compilation().effect;
    EXPECT_EQ(effect.uniformBytes, original.uniformBytes);
    ASSERT_EQ(effect.parameters.size(), 7U);
    EXPECT_EQ(effect.parameters[0].name, "amount");
    EXPECT_EQ(effect.parameters[0].defaultValue, original.parameters[0].defaultValue);
    ASSERT_EQ(effect.parameters[0].annotations.size(), 2U);
    EXPECT_EQ(effect.parameters[0].annotations[1].name, "Max");
    EXPECT_EQ(effect.parameters[1].type, CompiledEffect::ScalarType::Int);
    EXPECT_EQ(effect.parameters[2].type, CompiledEffect::ScalarType::Bool);
    EXPECT_EQ(effect.parameters[3].rows, 3U);
    EXPECT_EQ(effect.parameters[4].elements, 5U);
    EXPECT_EQ(effect.parameters[5].semanticTexture, "Input");
    EXPECT_EQ(effect.samplers[0].addressU, CompiledEffect::Address::Wrap);
    EXPECT_EQ(effect.samplers[0].addressV, CompiledEffect::Address::Mirror);
    EXPECT_EQ(effect.samplers[0].filter, CompiledEffect::Filter::Linear);
    EXPECT_EQ(effect.textures[1].annotations[0].value, "noise");
    ASSERT_EQ(effect.techniques.size(), 2U);
    EXPECT_EQ(effect.techniques[0].annotations[0].value, "A");
    ASSERT_EQ(effect.techniques[1].passes.size(), 2U);
    EXPECT_EQ(effect.techniques[1].passes[1].spirv, original.techniques[1].passes[1].spirv);
    EXPECT_EQ(effect.techniques[1].passes[1].samplers, original.techniques[1].passes[1].samplers);
    ASSERT_EQ(effect.techniques[0].passes[0].packed.size(), 2U);
    EXPECT_EQ(effect.techniques[0].passes[0].packed[1].depths.target, 16U);
    EXPECT_EQ(effect.textureUniforms, original.textureUniforms);
    // This covers the fields that the lines above do not check.
    EXPECT_EQ(writeEffectArchive(*read), bytes);
}

TEST_F(EffectArchive, HoldsAFailureWithItsMessages)
{
    EffectCompilation failure;
    Diagnostic diagnostic;
    diagnostic.severity = Diagnostic::Severity::Warning;
    diagnostic.at = {"b.fxh", 7, 3};
    diagnostic.text = std::string("\0 odd", 5);
    diagnostic.technique = "T";
    diagnostic.pass = "P";
    diagnostic.otherPasses = 2;
    diagnostic.excerpt = "  x = y;";
    diagnostic.caret = 6;
    diagnostic.macro = "M";
    diagnostic.macroBody = {"c.fxh", 1, 2};
    diagnostic.includedFrom = {{"a.fx", 4, 1}};
    diagnostic.notes = {"one", "two"};
    failure.diagnostics = {diagnostic};
    failure.messages = messageText(diagnostic);
    refuse(failure, {"a.fx"}, "the worker process ended", "T");
    failure.inputs = {{"a.fx", Cache::digestOf("x")}, {"/missing/b.fxh", std::nullopt}};
    const std::optional<EffectCompilation> read = readEffectArchive(writeEffectArchive(failure));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->effect, nullptr);
    EXPECT_EQ(read->messages, failure.messages);
    EXPECT_EQ(read->diagnostics.size(), 2U);
    EXPECT_EQ(writeEffectArchive(*read), writeEffectArchive(failure));
    ASSERT_EQ(read->inputs.size(), 2U);
    EXPECT_EQ(read->inputs[0].content, Cache::digestOf("x"));
    EXPECT_FALSE(read->inputs[1].content);
}

TEST_F(EffectArchive, CutAnywhereIsRefused)
{
    const std::vector<std::byte> bytes = writeEffectArchive(compilation());
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        // A copy of its own length, so that a memory checker sees a read past the end.
        const std::vector<std::byte> cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
        ASSERT_FALSE(readEffectArchive(cut)) << "cut after " << length << " of " << bytes.size();
    }
}

TEST_F(EffectArchive, WithMoreBehindItIsRefused)
{
    std::vector<std::byte> bytes = writeEffectArchive(compilation());
    bytes.push_back(std::byte{0});
    EXPECT_FALSE(readEffectArchive(bytes));
}

TEST_F(EffectArchive, WithAnyByteFlippedIsRefusedOrStillAnArchive)
{
    std::vector<std::byte> bytes = writeEffectArchive(compilation());
    std::size_t refused = 0;
    for (std::byte& byte : bytes) {
        byte = ~byte;
        if (const std::optional<EffectCompilation> read = readEffectArchive(bytes)) {
            ASSERT_EQ(writeEffectArchive(*read), bytes);
        } else {
            ++refused;
        }
        byte = ~byte;
    }
    EXPECT_GT(refused, 100U);
    EXPECT_TRUE(readEffectArchive(bytes));
}

TEST_F(EffectArchive, OfAnotherVersionIsRefused)
{
    std::vector<std::byte> bytes = writeEffectArchive(compilation());
    bytes.at(4) = static_cast<std::byte>(effectArchiveVersion + 1);
    EXPECT_FALSE(readEffectArchive(bytes));
}

TEST_F(EffectArchive, HugeCountsAreRefusedWithoutTheirMemory)
{
    const std::vector<std::byte> bytes = writeEffectArchive(compilation());
    for (std::size_t at = 8; at + 4 <= bytes.size(); ++at) {
        std::vector<std::byte> changed = bytes;
        std::memset(changed.data() + at, 0xFF, 4);
        if (const std::optional<EffectCompilation> read = readEffectArchive(changed)) {
            ASSERT_EQ(writeEffectArchive(*read), changed);
        }
    }
}

TEST_F(EffectArchive, EffectsThatTheCompilerCannotHaveMadeAreRefused)
{
    using Effect = CompiledEffect;
    // The passes of the second technique read the first texture and the second.
    const auto drawInto = [](Effect& e, std::size_t pass, std::uint32_t texture) {
        e.techniques[1].passes[pass].target = texture;
        e.techniques[1].passes[pass].packed.clear();
    };
    const std::vector<std::pair<const char*, std::function<void(Effect&)>>> changes{
        {"no technique", [](Effect& e) { e.techniques.clear(); }},
        {"no pass", [](Effect& e) { e.techniques[1].passes.clear(); }},
        {"no shader", [](Effect& e) { e.techniques[0].passes[0].spirv.clear(); }},
        {"header only", [](Effect& e) { e.techniques[0].passes[0].spirv.resize(5); }},
        {"no magic", [](Effect& e) { e.techniques[0].passes[0].spirv[0] ^= 1U; }},
        {"later version", [](Effect& e) { e.techniques[0].passes[0].spirv[1] = 0x00010600; }},
        {"instruction past the end", [](Effect& e) { e.techniques[0].passes[0].spirv[5] = 0xFFFF0011; }},
        {"instruction of no words", [](Effect& e) { e.techniques[0].passes[0].spirv[5] = 0x11; }},
        {"sampler of no texture", [](Effect& e) { e.samplers[1].texture = 2; }},
        {"sampler of a line", [](Effect& e) { e.samplers[1].dimensions = 1; }},
        {"sampler of five faces", [](Effect& e) { e.samplers[1].faces = 5; }},
        {"pass of no sampler", [](Effect& e) { e.techniques[0].passes[0].samplers = {2}; }},
        {"samplers twice",
         [](Effect& e) {
             e.techniques[0].passes[0].samplers = {0, 0};
         }},
        {"samplers descending",
         [](Effect& e) {
             e.techniques[0].passes[0].samplers = {1, 0};
         }},
        {"packed texels of no depth",
         [](Effect& e) { e.techniques[0].passes[0].packed[0].depths.source = 10; }},
        {"packed texels for no depth",
         [](Effect& e) { e.techniques[0].passes[0].packed[0].depths.target = 10; }},
        {"packed texels without a shader",
         [](Effect& e) { e.techniques[0].passes[0].packed[0].spirv.clear(); }},
        {"packed texels of no sampler",
         [](Effect& e) { e.techniques[0].passes[0].packed[0].samplers = {2}; }},
        {"packed texels of fewer sizes than samplers",
         [](Effect& e) { e.techniques[0].passes[0].packed[0].texelBytes.clear(); }},
        {"packed texels of more sizes than samplers",
         [](Effect& e) { e.techniques[0].passes[0].packed[0].texelBytes.push_back(16); }},
        {"packed texels of another size",
         [](Effect& e) { e.techniques[0].passes[0].packed[0].texelBytes.at(0) = 12; }},
        {"packed texels of no size",
         [](Effect& e) { e.techniques[0].passes[0].packed[0].texelBytes.at(0) = 0; }},
        {"packed texels of half their size",
         [](Effect& e) { e.techniques[0].passes[0].packed[1].texelBytes.at(0) = 4; }},
        {"a place for no sampler",
         [](Effect& e) { e.techniques[0].passes[0].packed[0].places.assign(20, 0); }},
        {"a place beyond the coordinates",
         [](Effect& e) {
             auto& shader = e.techniques[0].passes[0].packed[0];
             shader.places.assign(shader.samplers.size(), 8);
         }},
        {"packed texels of nine rows",
         [](Effect& e) { e.techniques[0].passes[0].packed[0].rows.assign(9, 0); }},
        {"packed texels of a row past the end",
         [](Effect& e) { e.techniques[0].passes[0].packed[0].rows = {e.uniformBytes / 16}; }},
        {"packed texels of a row that wraps",
         [](Effect& e) { e.techniques[0].passes[0].packed[0].rows = {0x10000000}; }},
        {"pass into no texture", [&](Effect& e) { drawInto(e, 0, 2); }},
        {"pass into what it reads", [&](Effect& e) { drawInto(e, 0, 0); }},
        {"last pass into a texture", [&](Effect& e) { drawInto(e, 1, 0); }},
        {"a fifth result",
         [&](Effect& e) {
             drawInto(e, 0, 1);
             e.techniques[1].passes[0].result = 4;
         }},
        {"further result for the caller", [](Effect& e) { e.techniques[0].passes[0].result = 1; }},
        {"packed texels of a pass into a texture", [](Effect& e) { e.techniques[1].passes[0].target = 1; }},
        {"unknown format of a target",
         [](Effect& e) { e.textures[0].targetFormat = static_cast<Effect::TargetFormat>(5); }},
        {"no room for a texture", [](Effect& e) { e.uniformBytes -= 16; }},
        {"textures among the parameters", [](Effect& e) { e.textureUniforms = 16; }},
        {"textures past the end", [](Effect& e) { e.textureUniforms = e.uniformBytes + 16; }},
        {"textures between registers", [](Effect& e) { e.textureUniforms -= 4; }},
        {"offset past the end", [](Effect& e) { e.parameters[0].offset = e.uniformBytes; }},
        {"offset that wraps", [](Effect& e) { e.parameters[0].offset = 0xFFFFFFFC; }},
        {"offset in the system's part", [](Effect& e) { e.parameters[0].offset = 0; }},
        {"offset between words", [](Effect& e) { e.parameters[0].offset += 2; }},
        {"other bytes", [](Effect& e) { e.parameters[3].bytes -= 16; }},
        {"other default", [](Effect& e) { e.parameters[3].defaultValue.pop_back(); }},
        {"no rows", [](Effect& e) { e.parameters[0].rows = 0; }},
        {"five columns", [](Effect& e) { e.parameters[0].columns = 5; }},
        {"elements that wrap", [](Effect& e) { e.parameters[4].elements = 0x10000005; }},
        {"unknown semantic texture", [](Effect& e) { e.parameters[5].semanticTexture = "Nothing"; }},
        {"semantic of another shape",
         [](Effect& e) { e.parameters[4].semantic = Effect::Semantic::TargetSize; }},
        {"unknown type", [](Effect& e) { e.parameters[0].type = static_cast<Effect::ScalarType>(3); }},
        {"unknown semantic", [](Effect& e) { e.parameters[0].semantic = static_cast<Effect::Semantic>(5); }},
        {"unknown filter", [](Effect& e) { e.samplers[0].filter = static_cast<Effect::Filter>(2); }},
        {"unknown mip", [](Effect& e) { e.samplers[0].mip = static_cast<Effect::Mip>(3); }},
        {"no level", [](Effect& e) { e.textures[0].levels = 0; }},
        {"seventeen levels", [](Effect& e) { e.textures[0].levels = 17; }},
        {"five corners", [](Effect& e) { e.techniques[0].passes[0].corners.count = 5; }},
        {"corners of no shader",
         [](Effect& e) {
             e.techniques[0].passes[0].corners.spirv = {1, 2, 3};
         }},
        {"unknown positions",
         [](Effect& e) {
             e.techniques[0].passes[0].corners.positions = static_cast<Effect::Corners::Positions>(2);
         }},
        {"unknown address", [](Effect& e) { e.samplers[0].addressV = static_cast<Effect::Address>(4); }},
        {"uniforms of no size",
         [](Effect& e) {
             e.parameters.clear();
             e.uniformBytes = 0;
         }},
        {"uniforms of huge size", [](Effect& e) { e.uniformBytes = 0x7FFFFFF0; }}};
    for (const auto& [what, change] : changes) {
        EXPECT_FALSE(readEffectArchive(archiveWith(change))) << what;
    }
    EXPECT_TRUE(readEffectArchive(archiveWith([](Effect&) {})));
    EXPECT_TRUE(readEffectArchive(archiveWith([&](Effect& e) { drawInto(e, 0, 1); })));
    EXPECT_TRUE(readEffectArchive(archiveWith([](Effect& e) {
        Effect::PackedShader& shader = e.techniques[0].passes[0].packed[0];
        shader.texelBytes.at(0) = 16;
        shader.rows.assign(Effect::PackedShader::mostRows, e.uniformBytes / 16 - 1);
    })));
}

} // namespace
} // namespace Qx::Host
